// What the library would find in this process, read the way the library
// reads it and without calling it: the DLL, the Windows version, the
// settings, the library's files for this host.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace kelcli {

bool EnvironmentVariable(const wchar_t* name, std::wstring& value);

std::wstring ModuleFileName(HMODULE module);

// The library builds its paths in buffers of MAX_PATH characters and skips
// a path that does not fit, terminator included.
bool FitsThePathBuffer(const std::wstring& path);

inline constexpr wchar_t kTooLong[] = L"(longer than 259 characters: the library skips it)";

std::wstring FileVersion(const std::wstring& path);

// The machine field of the loaded image's own PE header.
std::wstring Architecture(HMODULE module);

// Windows tells a process the version its manifest declares support for, at
// most; GetVersionExW answers with that same version.
std::wstring ReportedWindowsVersion();

// The library's own test, made the same way: the condition mask names the
// major and the minor version but the type mask only the minor one, so 6.3
// passes while 6.2 and 10.0 do not.
bool LibraryVersionTestPasses();

// Whether this executable's embedded manifest lists Windows 8.1 among the
// systems it supports.
bool ManifestDeclaresWindows81();

// One of the library's own settings under HKCU\Software\Osk\Kelbrook, read
// as the library reads it: only a REG_DWORD of 4 bytes counts.
struct Setting {
  const wchar_t* name;
  DWORD defaultValue;
  // The highest value the library takes as it is; above, it takes `clampTo`.
  DWORD largestAccepted;
  DWORD clampTo;
};

inline constexpr Setting kSettings[] = {
    {L"DebugLog", 0, 0xFFFFFFFFUL, 0},
    {L"ManifestReaderSetting", 1, 1, 1},
    {L"RefreshInterval", 720, 0xFFFFFFFFUL, 0},
    {L"ClearClipboardWaitTime", 1000, 0xFFFFFFFFUL, 0},
    {L"RestoreRegistryWaitTime", 1000, 0xFFFFFFFFUL, 0},
};

inline constexpr wchar_t kSettingsKey[] = L"Software\\Osk\\Kelbrook";

// One setting as the library takes it: the text info prints after "NAME = ",
// the value in effect, and whether a stored value is ignored.
struct SettingInEffect {
  std::wstring text;
  DWORD value = 0;
  bool storedValueIgnored = false;
};

// Every setting, in the order of kSettings.
std::vector<SettingInEffect> SettingsInEffect();

// The whole file, or false with the Windows error code.
bool ReadWholeFile(const std::wstring& path, std::string& bytes, DWORD& error);

// "N packages, M desktop apps" of a catalogue file, or why there is none.
std::wstring CatalogueContents(const std::wstring& path);

// The library's files for this host, its paths built the same way; a path
// the library would skip is empty, with the reason in its `...WhyNone`.
struct LibraryFiles {
  std::wstring log;
  std::wstring logWhyNone;
  std::wstring folder;
  std::wstring folderWhyNone;
  std::wstring dataFile;
  std::wstring preset;
  std::wstring presetWhyNone;
};

LibraryFiles FindLibraryFiles();

bool DirectoryExists(const std::wstring& path);

}  // namespace kelcli
