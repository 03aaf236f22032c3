// discovery_tests.exe: the exports that look one package up, whether it is
// installed, its display name from the manifest, and its Store page.

#include "discovery_tests.h"

#include <string>

#include "Kelbrook.h"

namespace discovery_tests {

void IsInstalledAsksTheDeploymentService(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  auto isInstalled = KEL(library, KelIsInstalledW);
  const std::string sid = Narrow(world.CurrentUserSid());

  BOOL installed = 7;
  ExpectResult(isInstalled(kReader, &installed), S_OK, "KelIsInstalledW(Kel.Reader)", [&] { return world.Detail(); });
  if (installed != 1) Fail(Format("KelIsInstalledW(Kel.Reader) gave %d, expected 1", installed), world.Detail());
  ExpectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + Narrow(kReader) + "\t1",
                    "KelIsInstalledW(Kel.Reader)");

  installed = 7;
  ExpectResult(isInstalled(kUnknown, &installed), S_OK, "KelIsInstalledW(Kel.Unknown)", [&] { return world.Detail(); });
  if (installed != 0) Fail(Format("KelIsInstalledW(Kel.Unknown) gave %d, expected 0", installed), world.Detail());
  ExpectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + Narrow(kUnknown) + "\t0",
                    "KelIsInstalledW(Kel.Unknown)");

  // The narrow form reaches the same lookup.
  installed = 7;
  ExpectResult(KEL(library, KelIsInstalledA)("Kel.Twins_8h9j0k1m2n3p4", &installed), S_OK, "KelIsInstalledA(Kel.Twins)",
               [&] { return world.Detail(); });
  if (installed != 1) Fail(Format("KelIsInstalledA(Kel.Twins) gave %d, expected 1", installed), world.Detail());
  ExpectNoSidMismatch(world);
}

void DisplayNameComesFromTheManifest(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  auto displayName = KEL(library, KelGetAppDisplayNameByPFNW);
  auto release = KEL(library, KelReleaseStringW);
  wchar_t sentinel[] = L"untouched";

  // One application: its display name, lower-cased.
  LPWSTR name = sentinel;
  ExpectResult(displayName(kReader, &name), S_OK, "KelGetAppDisplayNameByPFNW(Kel.Reader)",
               [&] { return world.Detail(); });
  if (name == sentinel || name == nullptr)
    Fail("KelGetAppDisplayNameByPFNW(Kel.Reader) returned no name", world.Detail());
  const std::wstring got = name;
  release(name);
  if (got != L"kel reader") {
    Fail("KelGetAppDisplayNameByPFNW(Kel.Reader) gave " + Quoted(Narrow(got)) + ", expected \"kel reader\"",
         world.Detail());
  }

  // No such package for the user: E_KEL_PACKAGE_NOT_FOUND, the pointer as it was.
  name = sentinel;
  ExpectResult(displayName(kUnknown, &name), E_KEL_PACKAGE_NOT_FOUND, "KelGetAppDisplayNameByPFNW(Kel.Unknown)",
               [&] { return world.Detail(); });
  if (name != sentinel) Fail("KelGetAppDisplayNameByPFNW(Kel.Unknown) changed the out pointer", world.Detail());

  // Two applications: E_KEL_MULTIPLE_APPLICATIONS, nothing handed out.
  name = sentinel;
  ExpectResult(displayName(kTwins, &name), E_KEL_MULTIPLE_APPLICATIONS, "KelGetAppDisplayNameByPFNW(Kel.Twins)",
               [&] { return world.Detail(); });
  if (name != sentinel) Fail("KelGetAppDisplayNameByPFNW(Kel.Twins) changed the out pointer", world.Detail());
  ExpectNoSidMismatch(world);
}

void StorePageReachesTheStoreHandler(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  ExpectResult(KEL(library, KelLaunchStoreW)(kReader), S_OK, "KelLaunchStoreW(Kel.Reader)",
               [&] { return world.Detail(); });
  const std::string line = "ms-windows-store:PDP?PFN=" + Narrow(kReader);
  if (!WaitUntil([&] { return Contains(CompleteLines(ReadBytes(world.RecorderLog())), line); }, 10000)) {
    Fail("within 10 s the ms-windows-store handler did not record " + Quoted(line) +
             " (is the protocol registered? run wine_prefix.sh setup)",
         Indented("recorder file", CompleteLines(ReadBytes(world.RecorderLog()))) + world.Detail());
  }
}

}  // namespace discovery_tests
