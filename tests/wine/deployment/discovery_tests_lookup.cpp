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
  const std::string sid = narrow(world.currentUserSid());

  BOOL installed = 7;
  expectResult(isInstalled(kReader, &installed), S_OK, "KelIsInstalledW(Kel.Reader)", [&] { return world.detail(); });
  if (installed != 1) fail(format("KelIsInstalledW(Kel.Reader) gave %d, expected 1", installed), world.detail());
  expectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + narrow(kReader) + "\t1",
                    "KelIsInstalledW(Kel.Reader)");

  installed = 7;
  expectResult(isInstalled(kUnknown, &installed), S_OK, "KelIsInstalledW(Kel.Unknown)", [&] { return world.detail(); });
  if (installed != 0) fail(format("KelIsInstalledW(Kel.Unknown) gave %d, expected 0", installed), world.detail());
  expectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + narrow(kUnknown) + "\t0",
                    "KelIsInstalledW(Kel.Unknown)");

  // The narrow form reaches the same lookup.
  installed = 7;
  expectResult(KEL(library, KelIsInstalledA)("Kel.Twins_8h9j0k1m2n3p4", &installed), S_OK, "KelIsInstalledA(Kel.Twins)",
               [&] { return world.detail(); });
  if (installed != 1) fail(format("KelIsInstalledA(Kel.Twins) gave %d, expected 1", installed), world.detail());
  expectNoSidMismatch(world);
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
  expectResult(displayName(kReader, &name), S_OK, "KelGetAppDisplayNameByPFNW(Kel.Reader)",
               [&] { return world.detail(); });
  if (name == sentinel || name == nullptr) fail("KelGetAppDisplayNameByPFNW(Kel.Reader) returned no name", world.detail());
  const std::wstring got = name;
  release(name);
  if (got != L"kel reader") {
    fail("KelGetAppDisplayNameByPFNW(Kel.Reader) gave " + quoted(narrow(got)) + ", expected \"kel reader\"",
         world.detail());
  }

  // No such package for the user: E_KEL_PACKAGE_NOT_FOUND, the pointer as it was.
  name = sentinel;
  expectResult(displayName(kUnknown, &name), E_KEL_PACKAGE_NOT_FOUND, "KelGetAppDisplayNameByPFNW(Kel.Unknown)",
               [&] { return world.detail(); });
  if (name != sentinel) fail("KelGetAppDisplayNameByPFNW(Kel.Unknown) changed the out pointer", world.detail());

  // Two applications: E_KEL_MULTIPLE_APPLICATIONS, nothing handed out.
  name = sentinel;
  expectResult(displayName(kTwins, &name), E_KEL_MULTIPLE_APPLICATIONS, "KelGetAppDisplayNameByPFNW(Kel.Twins)",
               [&] { return world.detail(); });
  if (name != sentinel) fail("KelGetAppDisplayNameByPFNW(Kel.Twins) changed the out pointer", world.detail());
  expectNoSidMismatch(world);
}

void StorePageReachesTheStoreHandler(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  expectResult(KEL(library, KelLaunchStoreW)(kReader), S_OK, "KelLaunchStoreW(Kel.Reader)",
               [&] { return world.detail(); });
  const std::string line = "ms-windows-store:PDP?PFN=" + narrow(kReader);
  if (!waitUntil([&] { return contains(completeLines(readFile(world.recorderLog())), line); }, 10000)) {
    fail("within 10 s the ms-windows-store handler did not record " + quoted(line) +
             " (is the protocol registered? run wine_prefix.sh setup)",
         indented("recorder file", completeLines(readFile(world.recorderLog()))) + world.detail());
  }
}

}  // namespace discovery_tests
