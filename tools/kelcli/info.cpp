#include "info.h"

#include "console.h"
#include "environment.h"

namespace kelcli {
namespace {

void printSettings()
{
    write(L"Settings (HKCU\\" + std::wstring(kSettingsKey) + L"):\n");
    const std::vector<SettingInEffect> settings = settingsInEffect();
    for (size_t i = 0; i < settings.size(); ++i)
        write(L"  " + std::wstring(kSettings[i].name) + L" = " + settings[i].text + L"\n");
}

}  // namespace

bool printInfo(const Library& lib)
{
    const std::wstring dll = moduleFileName(lib.module());
    line(L"DLL", dll);
    line(L"DLL file version", fileVersion(dll));
    line(L"DLL architecture", architecture(lib.module()));

    line(L"Windows version", reportedWindowsVersion() + L" (as Windows reports it to this process)");
    line(L"Manifest declares 8.1", manifestDeclaresWindows81() ? L"yes" : L"no");
    line(L"Windows 8.1 behaviour", libraryVersionTestPasses() ? L"applies" : L"does not apply");

    printSettings();

    const LibraryFiles files = libraryFiles();
    line(L"Log file", files.log.empty() ? files.logWhyNone : files.log);
    if (files.folder.empty())
        line(L"Data folder", files.folderWhyNone);
    else
        line(L"Data folder", files.folder + (directoryExists(files.folder) ? L"" : L" (not created yet)"));
    if (!files.folder.empty()) {
        line(L"Data file", files.dataFile);
        line(L"Data file holds", catalogueContents(files.dataFile));
    }
    if (files.preset.empty()) {
        line(L"Preset file", files.presetWhyNone);
        return true;
    }
    line(L"Preset file", files.preset);
    line(L"Preset file holds", catalogueContents(files.preset));
    return true;
}

}  // namespace kelcli
