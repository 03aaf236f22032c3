#include "environment.h"

#include "catalogue_count.h"
#include "console.h"

namespace kelcli {

bool EnvironmentVariable(const wchar_t* name, std::wstring& value) {
  DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
  if (size == 0) return false;
  value.assign(size, L'\0');
  DWORD length = GetEnvironmentVariableW(name, &value[0], size);
  if (length == 0 || length >= size) return false;
  value.resize(length);
  return true;
}

std::wstring ModuleFileName(HMODULE module) {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD length = GetModuleFileNameW(module, &path[0], static_cast<DWORD>(path.size()));
    if (length == 0) return std::wstring();
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

// The library builds its paths in buffers of MAX_PATH characters and skips
// a path that does not fit, terminator included.
bool FitsThePathBuffer(const std::wstring& path) { return path.size() + 1 <= MAX_PATH; }

std::wstring FileVersion(const std::wstring& path) {
  DWORD ignored = 0;
  DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  if (size == 0) return L"(no version resource, error " + std::to_wstring(GetLastError()) + L")";
  std::vector<unsigned char> data(size);
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT fixedSize = 0;
  if (!GetFileVersionInfoW(path.c_str(), 0, size, data.data()) ||
      !VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&fixed), &fixedSize) || fixed == nullptr ||
      fixedSize < sizeof(VS_FIXEDFILEINFO))
    return L"(the version resource cannot be read)";
  return std::to_wstring(HIWORD(fixed->dwFileVersionMS)) + L"." + std::to_wstring(LOWORD(fixed->dwFileVersionMS)) +
         L"." + std::to_wstring(HIWORD(fixed->dwFileVersionLS)) + L"." +
         std::to_wstring(LOWORD(fixed->dwFileVersionLS));
}

// The machine field of the loaded image's own PE header.
std::wstring Architecture(HMODULE module) {
  const auto* base = reinterpret_cast<const unsigned char*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  if (dos->e_magic != IMAGE_DOS_SIGNATURE) return L"(no PE header)";
  // The file header is laid out alike in the 32-bit and 64-bit NT headers.
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  if (nt->Signature != IMAGE_NT_SIGNATURE) return L"(no PE header)";
  switch (nt->FileHeader.Machine) {
    case IMAGE_FILE_MACHINE_I386:
      return L"x86";
    case IMAGE_FILE_MACHINE_AMD64:
      return L"x64";
    case 0xAA64:
      return L"arm64";
    default:
      return L"(machine " + Hex(nt->FileHeader.Machine) + L")";
  }
}

// Windows tells a process the version its manifest declares support for, at
// most; GetVersionExW answers with that same version.
std::wstring ReportedWindowsVersion() {
  OSVERSIONINFOW info = {};
  info.dwOSVersionInfoSize = sizeof(info);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  BOOL ok = GetVersionExW(&info);
#pragma GCC diagnostic pop
  if (!ok) return L"(unknown, error " + std::to_wstring(GetLastError()) + L")";
  return std::to_wstring(info.dwMajorVersion) + L"." + std::to_wstring(info.dwMinorVersion) + L"." +
         std::to_wstring(info.dwBuildNumber);
}

// The library's own test, made the same way: the condition mask names the
// major and the minor version but the type mask only the minor one, so 6.3
// passes while 6.2 and 10.0 do not.
bool LibraryVersionTestPasses() {
  OSVERSIONINFOEXW info = {};
  info.dwOSVersionInfoSize = sizeof(info);
  info.dwMajorVersion = 6;
  info.dwMinorVersion = 3;
  ULONGLONG mask = VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
  mask = VerSetConditionMask(mask, VER_MINORVERSION, VER_GREATER_EQUAL);
  return VerifyVersionInfoW(&info, VER_MINORVERSION, mask) != FALSE;
}

// Whether this executable's embedded manifest lists Windows 8.1 among the
// systems it supports.
bool ManifestDeclaresWindows81() {
  HRSRC resource = FindResourceW(nullptr, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));  // RT_MANIFEST
  if (resource == nullptr) return false;
  HGLOBAL loaded = LoadResource(nullptr, resource);
  const char* bytes = loaded == nullptr ? nullptr : static_cast<const char*>(LockResource(loaded));
  if (bytes == nullptr) return false;
  std::string manifest(bytes, SizeofResource(nullptr, resource));
  for (char& c : manifest)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return manifest.find("1f676c76-80e1-4239-95bb-83d0f6d0da78") != std::string::npos;
}

namespace {

SettingInEffect ReadSetting(HKEY key, LONG opened, const Setting& setting) {
  SettingInEffect result;
  DWORD type = 0;
  DWORD value = 0;
  DWORD size = sizeof(value);
  LONG read = opened == ERROR_SUCCESS
                  ? RegQueryValueExW(key, setting.name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size)
                  : opened;
  if (read == ERROR_SUCCESS && type == REG_DWORD) {
    result.text = std::to_wstring(value);
    result.value = value;
    if (value > setting.largestAccepted) {
      result.text += L" (taken as " + std::to_wstring(setting.clampTo) + L")";
      result.value = setting.clampTo;
    }
  } else {
    result.text = L"(default " + std::to_wstring(setting.defaultValue) + L")";
    result.value = setting.defaultValue;
    if (read != ERROR_FILE_NOT_FOUND) {
      result.text += L" - the stored value is ignored: not a 4-byte REG_DWORD";
      result.storedValueIgnored = true;
    }
  }
  return result;
}

}  // namespace

// Every setting, in the order of kSettings.
std::vector<SettingInEffect> SettingsInEffect() {
  std::vector<SettingInEffect> settings;
  HKEY key = nullptr;
  LONG opened = RegOpenKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, KEY_READ, &key);
  for (const Setting& setting : kSettings) settings.push_back(ReadSetting(key, opened, setting));
  if (key != nullptr) RegCloseKey(key);
  return settings;
}

// The whole file, or false with the Windows error code.
bool ReadWholeFile(const std::wstring& path, std::string& bytes, DWORD& error) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    error = GetLastError();
    return false;
  }
  LARGE_INTEGER size = {};
  bool ok = GetFileSizeEx(file, &size) != FALSE;
  // The library refuses a catalogue past 64 MiB unread; so does this.
  if (ok && size.QuadPart > (64LL << 20)) {
    error = ERROR_FILE_TOO_LARGE;
    ok = false;
  } else if (!ok) {
    error = GetLastError();
  }
  if (ok) {
    bytes.resize(static_cast<size_t>(size.QuadPart));
    DWORD got = 0;
    ok = bytes.empty() ||
         (ReadFile(file, &bytes[0], static_cast<DWORD>(bytes.size()), &got, nullptr) && got == bytes.size());
    if (!ok) error = GetLastError();
  }
  CloseHandle(file);
  return ok;
}

// "N packages, M desktop apps" of a catalogue file, or why there is none.
std::wstring CatalogueContents(const std::wstring& path) {
  std::string bytes;
  DWORD error = 0;
  if (!ReadWholeFile(path, bytes, error)) {
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return L"(not present)";
    return L"(cannot be read, error " + std::to_wstring(error) + L")";
  }
  kelcli::CatalogueCount count = kelcli::CountCatalogue(bytes);
  std::wstring text = std::to_wstring(count.packages) + (count.packages == 1 ? L" package, " : L" packages, ") +
                      std::to_wstring(count.desktopApps) +
                      (count.desktopApps == 1 ? L" desktop app" : L" desktop apps");
  // The library's own files end without closing their root element; a
  // closed root ends cleanly. Any other end is a malformed file, read as
  // far as the error.
  const HRESULT inputEnd = static_cast<HRESULT>(0xC00CEE01UL);
  if (count.endStatus != inputEnd && count.endStatus != S_FALSE)
    text += L" (reading stopped early: " + Hex(count.endStatus) + L")";
  return text;
}

LibraryFiles FindLibraryFiles() {
  LibraryFiles files;
  std::wstring localAppData;
  bool haveLocalAppData = EnvironmentVariable(L"LOCALAPPDATA", localAppData);
  if (!haveLocalAppData) localAppData.clear();

  std::wstring log = localAppData + L"\\Osk\\Kelbrook\\KelbrookLogFS.txt";
  if (!FitsThePathBuffer(localAppData) || !FitsThePathBuffer(log))
    files.logWhyNone = kTooLong;
  else
    files.log = log;

  const std::wstring host = ModuleFileName(nullptr);
  // The data folder is named after the host executable: its file name up
  // to the first dot, under %LOCALAPPDATA%\Osk\Kelbrook.
  if (!haveLocalAppData) {
    files.folderWhyNone = L"(none: LOCALAPPDATA is not set)";
  } else if (!FitsThePathBuffer(localAppData)) {
    files.folderWhyNone = L"(none: LOCALAPPDATA is longer than 259 characters)";
  } else {
    if (!localAppData.empty() && localAppData.back() == L'\\') localAppData.pop_back();
    size_t slash = host.rfind(L'\\');
    std::wstring suffix = slash == std::wstring::npos ? host : host.substr(slash);
    size_t dot = suffix.find(L'.');
    if (dot != std::wstring::npos) suffix.resize(dot);
    std::wstring folder = localAppData + L"\\Osk\\Kelbrook" + suffix;
    if (!FitsThePathBuffer(folder)) {
      files.folderWhyNone = kTooLong;
    } else {
      files.folder = folder;
      files.dataFile = folder + L"\\AppNameList1.0.4.0.xml";
    }
  }

  // The preset file sits next to the host executable; the library reads
  // it only while the data file does not exist.
  size_t slash = host.rfind(L'\\');
  if (slash == std::wstring::npos) {
    files.presetWhyNone = L"(none: the host's path has no folder)";
  } else {
    std::wstring preset = host.substr(0, slash) + L"\\PresetAppNameList.xml";
    if (!FitsThePathBuffer(preset))
      files.presetWhyNone = kTooLong;
    else
      files.preset = preset;
  }
  return files;
}

bool DirectoryExists(const std::wstring& path) {
  DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace kelcli
