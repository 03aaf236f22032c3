#include "info.h"

#include "console.h"
#include "environment.h"

namespace kelcli {
namespace {

void PrintSettings() {
  Write(L"Settings (HKCU\\" + std::wstring(kSettingsKey) + L"):\n");
  const std::vector<SettingInEffect> settings = SettingsInEffect();
  for (size_t i = 0; i < settings.size(); ++i)
    Write(L"  " + std::wstring(kSettings[i].name) + L" = " + settings[i].text + L"\n");
}

}  // namespace

bool PrintInfo(const Library& lib) {
  const std::wstring dll = ModuleFileName(lib.Module());
  Line(L"DLL", dll);
  Line(L"DLL file version", FileVersion(dll));
  Line(L"DLL architecture", Architecture(lib.Module()));

  Line(L"Windows version", ReportedWindowsVersion() + L" (as Windows reports it to this process)");
  Line(L"Manifest declares 8.1", ManifestDeclaresWindows81() ? L"yes" : L"no");
  Line(L"Windows 8.1 behaviour", LibraryVersionTestPasses() ? L"applies" : L"does not apply");

  PrintSettings();

  const LibraryFiles files = FindLibraryFiles();
  Line(L"Log file", files.log.empty() ? files.logWhyNone : files.log);
  if (files.folder.empty())
    Line(L"Data folder", files.folderWhyNone);
  else
    Line(L"Data folder", files.folder + (DirectoryExists(files.folder) ? L"" : L" (not created yet)"));
  if (!files.folder.empty()) {
    Line(L"Data file", files.dataFile);
    Line(L"Data file holds", CatalogueContents(files.dataFile));
  }
  if (files.preset.empty()) {
    Line(L"Preset file", files.presetWhyNone);
    return true;
  }
  Line(L"Preset file", files.preset);
  Line(L"Preset file holds", CatalogueContents(files.preset));
  return true;
}

}  // namespace kelcli
