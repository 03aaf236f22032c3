// The world a test runs in inside a private host (runner.h, PrivateHost):
// the private folder the parent made, with LOCALAPPDATA, ALLUSERSPROFILE and
// APPDATA pointed into it and both Start menu folders present; the preset
// list beside the host and the library's files; the installed test packages
// with their manifests; and the fixture file that tells the doubles of the
// deployment service and the activation manager what to answer
// (docs/wine-doubles.md).
#pragma once

#include "support/windows_headers.h"

#include <string>
#include <vector>

#include "deployment/double_fixture.h"
#include "support/failure.h"
#include "support/files.h"
#include "support/runner.h"
#include "support/text.h"

namespace wine_test {

inline constexpr wchar_t kStartMenuPrograms[] = L"\\Microsoft\\Windows\\Start Menu\\Programs";

// One application of a package's manifest: its Id and the names the
// library reads.
struct ManifestApplication {
  const wchar_t* id;
  const wchar_t* displayName;
  const wchar_t* shortName;
};

// An installed test package: family name, full name, identity name,
// version, installed folder name and the manifest's applications.
struct TestPackage {
  std::wstring familyName;
  std::wstring fullName;
  std::wstring name;
  std::wstring version;
  std::wstring folder;
  std::vector<ManifestApplication> applications;
};

// The package's AppxManifest.xml, shaped as the packaging tools write it.
inline std::wstring ManifestFor(const TestPackage& package) {
  std::wstring text =
      L"<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
      L"<Package xmlns=\"http://schemas.microsoft.com/appx/2010/manifest\">\r\n"
      L"  <Identity Name=\"" +
      std::wstring(package.name) + L"\" Publisher=\"CN=Kelbrook Test Packages\" Version=\"" + package.version +
      L"\" ProcessorArchitecture=\"x64\" />\r\n"
      L"  <Properties>\r\n"
      L"    <DisplayName>" +
      std::wstring(package.name) +
      L"</DisplayName>\r\n"
      L"    <PublisherDisplayName>Kelbrook Tests</PublisherDisplayName>\r\n"
      L"    <Logo>Assets\\StoreLogo.png</Logo>\r\n"
      L"  </Properties>\r\n"
      L"  <Prerequisites>\r\n"
      L"    <OSMinVersion>6.2.1</OSMinVersion>\r\n"
      L"    <OSMaxVersionTested>6.2.1</OSMaxVersionTested>\r\n"
      L"  </Prerequisites>\r\n"
      L"  <Resources>\r\n"
      L"    <Resource Language=\"en-us\" />\r\n"
      L"  </Resources>\r\n"
      L"  <Applications>\r\n";
  for (const ManifestApplication& application : package.applications) {
    text += L"    <Application Id=\"" + std::wstring(application.id) +
            L"\" Executable=\"App.exe\" EntryPoint=\"App.App\">\r\n"
            L"      <VisualElements DisplayName=\"" +
            std::wstring(application.displayName) +
            L"\" Logo=\"Assets\\Logo.png\" SmallLogo=\"Assets\\SmallLogo.png\" Description=\"Test\""
            L" ForegroundText=\"light\" BackgroundColor=\"#464646\">\r\n"
            L"        <DefaultTile ShowName=\"allLogos\" ShortName=\"" +
            std::wstring(application.shortName) +
            L"\" />\r\n"
            L"        <SplashScreen Image=\"Assets\\SplashScreen.png\" />\r\n"
            L"      </VisualElements>\r\n"
            L"    </Application>\r\n";
  }
  text += L"  </Applications>\r\n</Package>\r\n";
  return text;
}

// The start of a fixture file: a comment line and the journal the doubles
// record every call in.
inline std::wstring FixtureHeader(const std::wstring& comment, const std::wstring& journal) {
  return L"; " + comment + L"\r\n[Doubles]\r\nJournal=" + journal + L"\r\n\r\n";
}

// The fixture's section that makes the deployment service list the package
// as installed in `location`.
inline std::wstring FixturePackageSection(const TestPackage& package, const std::wstring& location) {
  return L"[Package]\r\nFamilyName=" + std::wstring(package.familyName) + L"\r\nFullName=" + package.fullName +
         L"\r\nName=" + package.name + L"\r\nVersion=" + package.version + L"\r\nInstalledLocation=" + location +
         L"\r\n\r\n";
}

class HostWorld {
 public:
  // `usage` is how the program is run, for the failure when the private
  // folder is not given.
  HostWorld(const PrivateHost& host, const char* usage) {
    root_ = EnvironmentValue(host.rootVariable);
    if (root_.empty()) Fail(Narrow(host.rootVariable) + " is not set (run through " + usage + ")");
    hostFolder_ = ProgramFolder();
    // The library names its data folder after the host: the name cut at its
    // first dot.
    const std::wstring exeName = host.exeName;
    dataFolderName_ = exeName.substr(0, exeName.find(L'.'));

    UseLocalAppData(L"LocalAppData");
    allUsersProfile_ = root_ + L"\\ProgramData";
    appData_ = root_ + L"\\Roaming";
    MakeFolders(CommonPrograms());
    MakeFolders(UserPrograms());
    SetEnvironment(L"ALLUSERSPROFILE", allUsersProfile_);
    SetEnvironment(L"APPDATA", appData_);
    SetEnvironment(L"KEL_RECORDER_LOG", RecorderLog());
  }

  // Points LOCALAPPDATA at a new folder under the root, with the folder the
  // log goes to.
  void UseLocalAppData(const std::wstring& name) {
    localAppData_ = root_ + L"\\" + name;
    MakeFolders(localAppData_ + L"\\Osk\\Kelbrook");
    SetEnvironment(L"LOCALAPPDATA", localAppData_);
  }

  // The package's installed folder with its manifest.
  void InstallPackage(const TestPackage& package) const {
    const std::wstring folder = PackageFolder(package);
    MakeFolders(folder);
    WriteText(folder + L"\\AppxManifest.xml", ManifestFor(package));
  }

  // Writes the fixture file and names it to the doubles loaded from now on.
  void WriteFixture(const std::wstring& text) const {
    WriteText(FixturePath(), text);
    SetEnvironment(deployment_double::kFixtureVariable, FixturePath());
  }

  [[nodiscard]] const std::wstring& Root() const { return root_; }
  [[nodiscard]] const std::wstring& AllUsersProfile() const { return allUsersProfile_; }
  [[nodiscard]] const std::wstring& AppData() const { return appData_; }
  [[nodiscard]] std::wstring CommonPrograms() const { return allUsersProfile_ + kStartMenuPrograms; }
  [[nodiscard]] std::wstring UserPrograms() const { return appData_ + kStartMenuPrograms; }
  [[nodiscard]] std::wstring PackageFolder(const TestPackage& package) const {
    return root_ + L"\\Packages\\" + package.folder;
  }
  [[nodiscard]] std::wstring FixturePath() const { return root_ + L"\\deployment.ini"; }
  [[nodiscard]] std::wstring RecorderLog() const { return root_ + L"\\recorder.txt"; }
  [[nodiscard]] std::wstring PresetPath() const { return hostFolder_ + L"\\PresetAppNameList.xml"; }
  [[nodiscard]] std::wstring DataFolder() const { return localAppData_ + L"\\Osk\\Kelbrook\\" + dataFolderName_; }
  [[nodiscard]] std::wstring DataFile() const { return DataFolder() + L"\\AppNameList1.0.4.0.xml"; }
  [[nodiscard]] std::wstring LogFile() const { return localAppData_ + L"\\Osk\\Kelbrook\\KelbrookLogFS.txt"; }
  [[nodiscard]] std::vector<std::string> LogLines() const { return CompleteLines(ReadBytes(LogFile())); }

 private:
  std::wstring root_;
  std::wstring hostFolder_;
  std::wstring dataFolderName_;
  std::wstring localAppData_;
  std::wstring allUsersProfile_;
  std::wstring appData_;
};

}  // namespace wine_test
