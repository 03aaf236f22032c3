// kelcli: calls the exports of Kelbrook.dll from the command line.
//
//   kelcli SUBCOMMAND [ARGS...] [SUBCOMMAND [ARGS...]]...
//
// Loads Kelbrook.dll from the path in the environment variable KELBROOK_DLL,
// or else from kelcli's own folder, and runs the sub-commands in order, one
// export call each, for example
//
//   kelcli initialize launch-protocol kelrec:x is-installed Foo_abc finalize
//
// For every call it prints "<ExportName> -> <RESULT> (0x%08X)" and the values
// the export handed back. The sub-command "info" calls no export: it prints
// what the library would find in this process (the DLL, the Windows version
// it is told, its settings, its files). "kelcli --help" explains them all.
// Arguments come from the wide command line; the A sub-commands convert
// theirs to Shift JIS (code page 932), which is what the library expects of
// narrow strings. Output is UTF-8 (wide text when writing to
// a console). Exit code: 0 when every call succeeded, 1 when one failed or an
// export is missing, 2 on bad usage.

#include <windows.h>
#include <shellapi.h>
#include <shlobj.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kelbrook.h"
#include "catalogue_count.h"
#include "service_probes.h"

namespace {

// ---------------------------------------------------------------------------
// Output

void write(const std::wstring& text)
{
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    if (out == nullptr || out == INVALID_HANDLE_VALUE)
        return;
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(out, &mode)) {
        WriteConsoleW(out, text.c_str(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                    nullptr);
    if (bytes <= 0)
        return;
    std::string utf8(bytes, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &utf8[0], bytes, nullptr, nullptr);
    WriteFile(out, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
}

void writeError(const std::wstring& text)
{
    HANDLE err = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    DWORD written = 0;
    if (err != nullptr && err != INVALID_HANDLE_VALUE && GetConsoleMode(err, &mode)) {
        WriteConsoleW(err, text.c_str(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                    nullptr);
    if (bytes <= 0)
        return;
    std::string utf8(bytes, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &utf8[0], bytes, nullptr, nullptr);
    WriteFile(err, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
}

std::wstring widen(const char* text)
{
    return std::wstring(text, text + strlen(text));
}

std::wstring hex(HRESULT value)
{
    wchar_t buffer[16];
    swprintf(buffer, 16, L"0x%08lX", static_cast<unsigned long>(value));
    return buffer;
}

const wchar_t* resultName(HRESULT value)
{
    switch (static_cast<unsigned long>(value)) {
    case 0x00000000UL: return L"S_OK";
    case 0x00000001UL: return L"S_FALSE";
    case 0x80004003UL: return L"E_POINTER";
    case 0x80070057UL: return L"E_INVALIDARG";
    case 0x80004005UL: return L"E_FAIL";
    case 0x8007000EUL: return L"E_OUTOFMEMORY";
    case 0x80004001UL: return L"E_NOTIMPL";
    case 0xA0000001UL: return L"E_KEL_PACKAGE_NOT_FOUND";
    case 0xA0000002UL: return L"E_KEL_MULTIPLE_APPLICATIONS";
    case 0xA0000003UL: return L"E_KEL_DISPLAY_NAME_FAILED";
    default: return L"HRESULT";
    }
}

// ---------------------------------------------------------------------------
// The library

class Library {
public:
    bool load(std::wstring& error)
    {
        std::wstring path = dllPath();
        wchar_t full[MAX_PATH];
        DWORD length = GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr);
        if (length > 0 && length < MAX_PATH)
            path = full;
        module_ = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (module_ == nullptr) {
            error = L"kelcli: cannot load " + path + L" (error " + std::to_wstring(GetLastError()) + L")\n";
            return false;
        }
        return true;
    }

    // The export, or null (after saying so) when the DLL does not have it.
    template <typename Function>
    Function get(const char* name) const
    {
        FARPROC address = GetProcAddress(module_, name);
        if (address == nullptr)
            write(widen(name) + L" -> not exported\n");
        return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
    }

    HMODULE module() const { return module_; }

private:
    static std::wstring dllPath()
    {
        DWORD size = GetEnvironmentVariableW(L"KELBROOK_DLL", nullptr, 0);
        if (size > 1) {
            std::wstring value(size, L'\0');
            DWORD length = GetEnvironmentVariableW(L"KELBROOK_DLL", &value[0], size);
            if (length > 0 && length < size) {
                value.resize(length);
                return value;
            }
        }
        std::wstring self(MAX_PATH, L'\0');
        for (;;) {
            DWORD length = GetModuleFileNameW(nullptr, &self[0], static_cast<DWORD>(self.size()));
            if (length == 0)
                return L"Kelbrook.dll";
            if (length < self.size()) {
                self.resize(length);
                break;
            }
            self.resize(self.size() * 2);
        }
        size_t slash = self.find_last_of(L"\\/");
        return (slash == std::wstring::npos ? std::wstring() : self.substr(0, slash + 1)) + L"Kelbrook.dll";
    }

    HMODULE module_ = nullptr;
};

#define KEL(lib, name) ((lib).get<decltype(&name)>(#name))

// ---------------------------------------------------------------------------
// Sub-commands

// One call, ready to run: answers false when the call failed.
using Call = std::function<bool(const Library&)>;

// Prints the result line and answers whether the result is a success.
bool report(const char* exportName, HRESULT result)
{
    write(widen(exportName) + L" -> " + resultName(result) + L" (" + hex(result) + L")\n");
    return SUCCEEDED(result);
}

struct UsageError {
    std::wstring message;
};

// The command line being parsed.
class Arguments {
public:
    Arguments(LPWSTR* argv, int argc) : argv_(argv), argc_(argc) {}

    bool done() const { return next_ >= argc_; }
    std::wstring peek() const { return done() ? std::wstring() : argv_[next_]; }

    std::wstring take(const wchar_t* command, const wchar_t* what)
    {
        if (done())
            throw UsageError{std::wstring(command) + L": missing " + what};
        return argv_[next_++];
    }

    // A 32-bit number, decimal or 0x hexadecimal, negative values allowed so
    // that out-of-range modes such as -1 can be tried.
    unsigned long takeNumber(const wchar_t* command, const wchar_t* what)
    {
        std::wstring text = take(command, what);
        size_t at = 0;
        bool negative = text.compare(0, 1, L"-") == 0;
        if (negative)
            at = 1;
        int base = 10;
        if (text.compare(at, 2, L"0x") == 0 || text.compare(at, 2, L"0X") == 0) {
            base = 16;
            at += 2;
        }
        const wchar_t* digits = text.c_str() + at;
        // wcstoull alone would also take leading blanks and a sign.
        bool valid = base == 16 ? iswxdigit(*digits) != 0 : iswdigit(*digits) != 0;
        unsigned long long magnitude = 0;
        if (valid) {
            wchar_t* end = nullptr;
            errno = 0;
            magnitude = wcstoull(digits, &end, base);
            valid = *end == L'\0' && errno == 0 && magnitude <= (negative ? 0x80000000ULL : 0xFFFFFFFFULL);
        }
        if (!valid)
            throw UsageError{std::wstring(command) + L": " + what + L" must be a 32-bit number, not \"" + text + L"\""};
        return static_cast<unsigned long>(negative ? 0ULL - magnitude : magnitude);
    }

private:
    LPWSTR* argv_;
    int argc_;
    int next_ = 1;
};

// Wide text as Shift JIS, the narrow encoding of the library's A exports.
std::string toShiftJis(const wchar_t* command, const std::wstring& text)
{
    if (text.empty())
        return std::string();
    int bytes = WideCharToMultiByte(932, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    if (bytes <= 0)
        throw UsageError{std::wstring(command) + L": cannot convert \"" + text + L"\" to Shift JIS (error " +
                         std::to_wstring(GetLastError()) + L")"};
    std::string result(bytes, '\0');
    WideCharToMultiByte(932, 0, text.c_str(), static_cast<int>(text.size()), &result[0], bytes, nullptr, nullptr);
    return result;
}

bool isCommandName(const std::wstring& word);

// ---------------------------------------------------------------------------
// info: what the library would find in this process, read without calling it

// A label and its value, the values lined up in one column.
void line(const std::wstring& label, const std::wstring& value)
{
    std::wstring text = label + L":";
    if (text.size() < 25)
        text.resize(25, L' ');
    else
        text += L' ';
    write(text + value + L"\n");
}

bool environmentVariable(const wchar_t* name, std::wstring& value)
{
    DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
    if (size == 0)
        return false;
    value.assign(size, L'\0');
    DWORD length = GetEnvironmentVariableW(name, &value[0], size);
    if (length == 0 || length >= size)
        return false;
    value.resize(length);
    return true;
}

std::wstring moduleFileName(HMODULE module)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        DWORD length = GetModuleFileNameW(module, &path[0], static_cast<DWORD>(path.size()));
        if (length == 0)
            return std::wstring();
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

// The library builds its paths in buffers of MAX_PATH characters and skips
// a path that does not fit, terminator included.
bool fitsThePathBuffer(const std::wstring& path)
{
    return path.size() + 1 <= MAX_PATH;
}

const wchar_t kTooLong[] = L"(longer than 259 characters: the library skips it)";

std::wstring fileVersion(const std::wstring& path)
{
    DWORD ignored = 0;
    DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0)
        return L"(no version resource, error " + std::to_wstring(GetLastError()) + L")";
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
std::wstring architecture(HMODULE module)
{
    const auto* base = reinterpret_cast<const unsigned char*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    if (dos->e_magic != IMAGE_DOS_SIGNATURE)
        return L"(no PE header)";
    // The file header is laid out alike in the 32-bit and 64-bit NT headers.
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    if (nt->Signature != IMAGE_NT_SIGNATURE)
        return L"(no PE header)";
    switch (nt->FileHeader.Machine) {
    case IMAGE_FILE_MACHINE_I386: return L"x86";
    case IMAGE_FILE_MACHINE_AMD64: return L"x64";
    case 0xAA64: return L"arm64";
    default: return L"(machine " + hex(nt->FileHeader.Machine) + L")";
    }
}

// Windows tells a process the version its manifest declares support for, at
// most; GetVersionExW answers with that same version.
std::wstring reportedWindowsVersion()
{
    OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    BOOL ok = GetVersionExW(&info);
#pragma GCC diagnostic pop
    if (!ok)
        return L"(unknown, error " + std::to_wstring(GetLastError()) + L")";
    return std::to_wstring(info.dwMajorVersion) + L"." + std::to_wstring(info.dwMinorVersion) + L"." +
           std::to_wstring(info.dwBuildNumber);
}

// The library's own test, made the same way: the condition mask names the
// major and the minor version but the type mask only the minor one, so 6.3
// passes while 6.2 and 10.0 do not.
bool libraryVersionTestPasses()
{
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
bool manifestDeclaresWindows81()
{
    HRSRC resource = FindResourceW(nullptr, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));  // RT_MANIFEST
    if (resource == nullptr)
        return false;
    HGLOBAL loaded = LoadResource(nullptr, resource);
    const char* bytes = loaded == nullptr ? nullptr : static_cast<const char*>(LockResource(loaded));
    if (bytes == nullptr)
        return false;
    std::string manifest(bytes, SizeofResource(nullptr, resource));
    for (char& c : manifest)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return manifest.find("1f676c76-80e1-4239-95bb-83d0f6d0da78") != std::string::npos;
}

// One of the library's own settings under HKCU\Software\Osk\Kelbrook, read
// as the library reads it: only a REG_DWORD of 4 bytes counts.
struct Setting {
    const wchar_t* name;
    DWORD defaultValue;
    // The highest value the library takes as it is; above, it takes `clampTo`.
    DWORD largestAccepted;
    DWORD clampTo;
};

const Setting kSettings[] = {
    {L"DebugLog", 0, 0xFFFFFFFFUL, 0},
    {L"ManifestReaderSetting", 1, 1, 1},
    {L"RefreshInterval", 720, 0xFFFFFFFFUL, 0},
    {L"ClearClipboardWaitTime", 1000, 0xFFFFFFFFUL, 0},
    {L"RestoreRegistryWaitTime", 1000, 0xFFFFFFFFUL, 0},
};

const wchar_t kSettingsKey[] = L"Software\\Osk\\Kelbrook";

// One setting as the library takes it: the text info prints after "NAME = ",
// the value in effect, and whether a stored value is ignored.
struct SettingInEffect {
    std::wstring text;
    DWORD value = 0;
    bool storedValueIgnored = false;
};

SettingInEffect readSetting(HKEY key, LONG opened, const Setting& setting)
{
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

// Every setting, in the order of kSettings.
std::vector<SettingInEffect> settingsInEffect()
{
    std::vector<SettingInEffect> settings;
    HKEY key = nullptr;
    LONG opened = RegOpenKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, KEY_READ, &key);
    for (const Setting& setting : kSettings)
        settings.push_back(readSetting(key, opened, setting));
    if (key != nullptr)
        RegCloseKey(key);
    return settings;
}

void printSettings()
{
    write(L"Settings (HKCU\\" + std::wstring(kSettingsKey) + L"):\n");
    const std::vector<SettingInEffect> settings = settingsInEffect();
    for (size_t i = 0; i < settings.size(); ++i)
        write(L"  " + std::wstring(kSettings[i].name) + L" = " + settings[i].text + L"\n");
}

// The whole file, or false with the Windows error code.
bool readWholeFile(const std::wstring& path, std::string& bytes, DWORD& error)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
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
        if (!ok)
            error = GetLastError();
    }
    CloseHandle(file);
    return ok;
}

// "N packages, M desktop apps" of a catalogue file, or why there is none.
std::wstring catalogueContents(const std::wstring& path)
{
    std::string bytes;
    DWORD error = 0;
    if (!readWholeFile(path, bytes, error)) {
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
            return L"(not present)";
        return L"(cannot be read, error " + std::to_wstring(error) + L")";
    }
    kelcli::CatalogueCount count = kelcli::countCatalogue(bytes);
    std::wstring text = std::to_wstring(count.packages) + (count.packages == 1 ? L" package, " : L" packages, ") +
                        std::to_wstring(count.desktopApps) + (count.desktopApps == 1 ? L" desktop app" : L" desktop apps");
    // The library's own files end without closing their root element; a
    // closed root ends cleanly. Any other end is a malformed file, read as
    // far as the error.
    const HRESULT inputEnd = static_cast<HRESULT>(0xC00CEE01UL);
    if (count.endStatus != inputEnd && count.endStatus != S_FALSE)
        text += L" (reading stopped early: " + hex(count.endStatus) + L")";
    return text;
}

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

LibraryFiles libraryFiles()
{
    LibraryFiles files;
    std::wstring localAppData;
    bool haveLocalAppData = environmentVariable(L"LOCALAPPDATA", localAppData);
    if (!haveLocalAppData)
        localAppData.clear();

    std::wstring log = localAppData + L"\\Osk\\Kelbrook\\KelbrookLogFS.txt";
    if (!fitsThePathBuffer(localAppData) || !fitsThePathBuffer(log))
        files.logWhyNone = kTooLong;
    else
        files.log = log;

    const std::wstring host = moduleFileName(nullptr);
    // The data folder is named after the host executable: its file name up
    // to the first dot, under %LOCALAPPDATA%\Osk\Kelbrook.
    if (!haveLocalAppData) {
        files.folderWhyNone = L"(none: LOCALAPPDATA is not set)";
    } else if (!fitsThePathBuffer(localAppData)) {
        files.folderWhyNone = L"(none: LOCALAPPDATA is longer than 259 characters)";
    } else {
        if (!localAppData.empty() && localAppData.back() == L'\\')
            localAppData.pop_back();
        size_t slash = host.rfind(L'\\');
        std::wstring suffix = slash == std::wstring::npos ? host : host.substr(slash);
        size_t dot = suffix.find(L'.');
        if (dot != std::wstring::npos)
            suffix.resize(dot);
        std::wstring folder = localAppData + L"\\Osk\\Kelbrook" + suffix;
        if (!fitsThePathBuffer(folder)) {
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
        if (!fitsThePathBuffer(preset))
            files.presetWhyNone = kTooLong;
        else
            files.preset = preset;
    }
    return files;
}

bool directoryExists(const std::wstring& path)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

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

// ---------------------------------------------------------------------------
// selftest: the library checked on this machine, one line per check

// How long a platform service may take to answer before it counts as hung.
constexpr DWORD kServiceTimeoutMs = 30000;
// How long the first refresh pass may take to write the data file: it starts
// one second after KelInitialize and walks every package and shortcut.
constexpr DWORD kFirstPassTimeoutMs = 120000;
// KelFinalize waits up to 20 seconds for the refresh thread; a little more
// for the call itself.
constexpr DWORD kFinalizeBoundMs = 21000;

struct SelfTestOptions {
    bool intrusive = false;
    std::wstring url;  // for the protocol launch, with --intrusive
    std::wstring reportPath;
};

// Typed into the search pane by the intrusive search launch: it names
// nothing, and mode 1 does not submit it.
constexpr wchar_t kHarmlessKeyword[] = L"Kelbrook selftest";

struct CheckLine {
    const wchar_t* status;  // PASS, FAIL or INFO
    std::wstring name;
    std::wstring expected;
    std::wstring seen;
    ULONGLONG milliseconds;
};

class SelfTest {
public:
    // Prints the line at once, so that an operator watching sees progress.
    void add(const wchar_t* status, const std::wstring& name, const std::wstring& expected, const std::wstring& seen,
             ULONGLONG milliseconds)
    {
        checks_.push_back({status, name, expected, seen, milliseconds});
        write(format(checks_.back()) + L"\n");
    }
    void check(bool passed, const std::wstring& name, const std::wstring& expected, const std::wstring& seen,
               ULONGLONG milliseconds)
    {
        add(passed ? L"PASS" : L"FAIL", name, expected, seen, milliseconds);
    }

    static std::wstring format(const CheckLine& check)
    {
        std::wstring name = check.name;
        if (name.size() < 34)
            name.resize(34, L' ');
        return std::wstring(check.status) + L"  " + name + L" expected: " + check.expected + L"; seen: " + check.seen +
               L" (" + std::to_wstring(check.milliseconds) + L" ms)";
    }

    const std::vector<CheckLine>& checks() const { return checks_; }
    unsigned count(const wchar_t* status) const
    {
        unsigned n = 0;
        for (const CheckLine& check : checks_)
            n += wcscmp(check.status, status) == 0 ? 1 : 0;
        return n;
    }

private:
    std::vector<CheckLine> checks_;
};

// Milliseconds since `start`.
ULONGLONG since(ULONGLONG start)
{
    return GetTickCount64() - start;
}

const wchar_t* ownArchitecture()
{
    return sizeof(void*) == 8 ? L"x64" : L"x86";
}

// The version of the system itself, which no manifest caps.
bool trueWindowsVersion(DWORD& major, DWORD& minor, DWORD& build)
{
    using RtlGetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    auto get = ntdll == nullptr ? nullptr
                                : reinterpret_cast<RtlGetVersionFunction>(
                                      reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion")));
    OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    if (get == nullptr || get(&info) != 0)
        return false;
    major = info.dwMajorVersion;
    minor = info.dwMinorVersion;
    build = info.dwBuildNumber;
    return true;
}

// The data file's last write, or zero when it does not exist.
ULONGLONG lastWrite(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        return 0;
    return (static_cast<ULONGLONG>(data.ftLastWriteTime.dwHighDateTime) << 32) | data.ftLastWriteTime.dwLowDateTime;
}

// A catalogue file read for a check: its counts, or why it could not be read.
struct CatalogueRead {
    bool present = false;
    bool readCleanly = false;
    std::wstring seen;
    kelcli::CatalogueCount count;
};

CatalogueRead readCatalogue(const std::wstring& path)
{
    CatalogueRead read;
    std::string bytes;
    DWORD error = 0;
    if (!readWholeFile(path, bytes, error)) {
        read.present = !(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND);
        read.seen = read.present ? L"cannot be read, error " + std::to_wstring(error) : L"not present";
        return read;
    }
    read.present = true;
    read.count = kelcli::countCatalogue(bytes);
    const HRESULT inputEnd = static_cast<HRESULT>(0xC00CEE01UL);
    read.readCleanly = read.count.endStatus == inputEnd || read.count.endStatus == S_FALSE;
    read.seen = catalogueContents(path);
    return read;
}

// A file made and removed again in `folder`.
bool folderIsWritable(const std::wstring& folder, std::wstring& seen)
{
    const std::wstring probe = folder + L"\\kelcli-selftest.tmp";
    HANDLE file = CreateFileW(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        seen = L"cannot create a file in it, error " + std::to_wstring(GetLastError());
        return false;
    }
    DWORD written = 0;
    const bool ok = WriteFile(file, "selftest", 8, &written, nullptr) && written == 8;
    if (!ok)
        seen = L"cannot write a file in it, error " + std::to_wstring(GetLastError());
    CloseHandle(file);
    return ok;
}

void checkDllAndProcess(SelfTest& test, const Library& lib)
{
    ULONGLONG start = GetTickCount64();
    const std::wstring dll = moduleFileName(lib.module());
    test.add(L"INFO", L"DLL file version", L"the version shipped", fileVersion(dll) + L" (" + dll + L")", since(start));

    start = GetTickCount64();
    const std::wstring architectureSeen = architecture(lib.module());
    test.check(architectureSeen == ownArchitecture(), L"DLL architecture", ownArchitecture(), architectureSeen,
               since(start));

    start = GetTickCount64();
    DWORD major = 0, minor = 0, build = 0;
    const bool haveTrue = trueWindowsVersion(major, minor, build);
    const std::wstring system = haveTrue ? std::to_wstring(major) + L"." + std::to_wstring(minor) + L"." +
                                               std::to_wstring(build)
                                         : L"unknown";
    test.add(L"INFO", L"Windows version", L"6.2 (Windows 8) or 6.3 (Windows 8.1)",
             L"system " + system + L", reported to this process " + reportedWindowsVersion(), since(start));

    // On 8.1 a host without the compatibility manifest is told 6.2, and the
    // library then keeps the Windows 8 package names, which 8.1 does not have.
    start = GetTickCount64();
    const bool applies = libraryVersionTestPasses();
    const bool systemIs81 = haveTrue && major == 6 && minor == 3;
    if (systemIs81 && !applies) {
        test.add(L"FAIL", L"Windows 8.1 behaviour", L"applies on Windows 8.1",
                 L"does not apply: the host's manifest must list Windows 8.1 in <compatibility> (supportedOS "
                 L"{1f676c76-80e1-4239-95bb-83d0f6d0da78})",
                 since(start));
    } else {
        test.add(L"INFO", L"Windows 8.1 behaviour", L"applies where 6.3 is reported",
                 applies ? L"applies" : L"does not apply", since(start));
    }
}

// Answers the value of ManifestReaderSetting in effect.
DWORD checkSettings(SelfTest& test, const LibraryFiles& files)
{
    const std::vector<SettingInEffect> settings = settingsInEffect();
    DWORD manifestReader = 1;
    for (size_t i = 0; i < settings.size(); ++i) {
        const std::wstring name = std::wstring(L"setting ") + kSettings[i].name;
        if (settings[i].storedValueIgnored)
            test.add(L"FAIL", name, L"a REG_DWORD or no value", settings[i].text, 0);
        else
            test.add(L"INFO", name, L"a REG_DWORD or no value", settings[i].text, 0);
        if (wcscmp(kSettings[i].name, L"ManifestReaderSetting") == 0)
            manifestReader = settings[i].value;
    }
    const bool logOn = settings[0].value != 0;
    test.add(L"INFO", L"log file", L"written while DebugLog is non-zero",
             (files.log.empty() ? files.logWhyNone : files.log) + (logOn ? L" (on)" : L" (off)"), 0);
    return manifestReader;
}

void checkFiles(SelfTest& test, const LibraryFiles& files)
{
    ULONGLONG start = GetTickCount64();
    if (files.folder.empty()) {
        test.add(L"FAIL", L"data folder", L"created and writable", files.folderWhyNone, since(start));
    } else {
        std::wstring seen = files.folder;
        int created = SHCreateDirectoryExW(nullptr, files.folder.c_str(), nullptr);
        bool ok = created == ERROR_SUCCESS || created == ERROR_ALREADY_EXISTS || created == ERROR_FILE_EXISTS;
        if (!ok)
            seen = files.folder + L": cannot be created, error " + std::to_wstring(created);
        else
            ok = folderIsWritable(files.folder, seen) && directoryExists(files.folder);
        test.check(ok, L"data folder", L"created and writable", seen, since(start));
    }

    start = GetTickCount64();
    if (!files.dataFile.empty()) {
        CatalogueRead data = readCatalogue(files.dataFile);
        if (!data.present)
            test.add(L"INFO", L"data file", L"loads, if present", L"not present yet (the first refresh pass writes it)",
                     since(start));
        else
            test.check(data.readCleanly, L"data file", L"loads, if present", data.seen, since(start));
    }

    start = GetTickCount64();
    if (files.preset.empty()) {
        test.add(L"INFO", L"preset file", L"loads, if present", files.presetWhyNone, since(start));
    } else {
        CatalogueRead preset = readCatalogue(files.preset);
        if (!preset.present)
            test.add(L"INFO", L"preset file", L"loads, if present", L"none (" + files.preset + L")", since(start));
        else
            test.check(preset.readCleanly, L"preset file", L"loads, if present", preset.seen, since(start));
    }
}

void checkServices(SelfTest& test, DWORD manifestReader)
{
    struct Service {
        const wchar_t* name;
        const wchar_t* expected;
        kelcli::Probe probe;
    };
    const Service services[] = {
        {L"app visibility service", L"CLSID_AppVisibility created in process", kelcli::ProbeAppVisibility},
        {L"activation manager", L"CLSID_ApplicationActivationManager created in process",
         kelcli::ProbeActivationManager},
        {L"activation manager (local server)", L"CLSID_ApplicationActivationManager created by its own process",
         kelcli::ProbeActivationManagerLocalServer},
        {L"deployment service", L"the current user's packages listed", kelcli::ProbeDeploymentService},
    };
    for (const Service& service : services) {
        const ULONGLONG start = GetTickCount64();
        const kelcli::ProbeResult result = kelcli::RunBounded(service.probe, kServiceTimeoutMs);
        test.check(result.passed, service.name, service.expected, result.seen, since(start));
    }

    // The library reads manifests through the packaging API only when
    // ManifestReaderSetting is 0; otherwise the API's absence costs nothing.
    const ULONGLONG start = GetTickCount64();
    const kelcli::ProbeResult result = kelcli::RunBounded(kelcli::ProbeManifestReaderFactory, kServiceTimeoutMs);
    if (manifestReader == 0 || result.passed)
        test.check(result.passed, L"packaging API", L"CLSID_AppxFactory created in process", result.seen, since(start));
    else
        test.add(L"INFO", L"packaging API", L"needed only when ManifestReaderSetting is 0",
                 result.seen + L"; not used with ManifestReaderSetting " + std::to_wstring(manifestReader),
                 since(start));
}

// Calls the exports a host calls first, from KelInitialize through the first
// refresh pass to KelGetMonitorMode, and answers whether the library is
// initialised (KelFinalize is then still owed). `found` is a package of one
// application the first pass catalogued, or empty.
bool checkExports(SelfTest& test, const Library& lib, const LibraryFiles& files, std::wstring& found)
{
    auto initialize = KEL(lib, KelInitialize);
    auto finalize = KEL(lib, KelFinalize);
    auto isInstalled = KEL(lib, KelIsInstalledW);
    auto displayName = KEL(lib, KelGetAppDisplayNameByPFNW);
    auto release = KEL(lib, KelReleaseStringW);
    auto monitorMode = KEL(lib, KelGetMonitorMode);
    if (!initialize || !finalize || !isInstalled || !displayName || !release || !monitorMode) {
        test.add(L"FAIL", L"exports", L"every export present", L"an export is missing (see above)", 0);
        return false;
    }

    const ULONGLONG writtenBefore = files.dataFile.empty() ? 0 : lastWrite(files.dataFile);
    ULONGLONG start = GetTickCount64();
    HRESULT hr = initialize();
    test.check(hr == S_OK, L"KelInitialize", L"S_OK", std::wstring(resultName(hr)) + L" " + hex(hr), since(start));
    if (FAILED(hr))
        return false;

    // The first pass replaces the data file as a whole, so a new write time
    // means the pass has ended.
    start = GetTickCount64();
    kelcli::CatalogueCount catalogued;
    bool written = false;
    if (!files.dataFile.empty()) {
        while (since(start) < kFirstPassTimeoutMs) {
            const ULONGLONG now = lastWrite(files.dataFile);
            if (now != 0 && now != writtenBefore) {
                written = true;
                break;
            }
            Sleep(100);
        }
    }
    const ULONGLONG passTime = since(start);
    if (written) {
        CatalogueRead data = readCatalogue(files.dataFile);
        catalogued = data.count;
        test.check(data.readCleanly, L"first refresh pass", L"the data file written",
                   L"written after " + std::to_wstring(passTime) + L" ms: " + data.seen, passTime);
    } else {
        test.add(L"FAIL", L"first refresh pass", L"the data file written",
                 files.dataFile.empty() ? L"no data file path"
                                        : L"not written within " + std::to_wstring(kFirstPassTimeoutMs / 1000) + L" s",
                 passTime);
    }

    const std::wstring pfn(catalogued.singleAppPackage.begin(), catalogued.singleAppPackage.end());
    found = pfn;
    if (pfn.empty()) {
        test.add(L"INFO", L"KelIsInstalledW", L"a package the first pass found",
                 L"skipped: the first pass found no package with one app", 0);
        test.add(L"INFO", L"KelGetAppDisplayNameByPFNW", L"a package the first pass found",
                 L"skipped: the first pass found no package with one app", 0);
    } else {
        start = GetTickCount64();
        BOOL installed = FALSE;
        hr = isInstalled(pfn.c_str(), &installed);
        test.check(hr == S_OK && installed, L"KelIsInstalledW", L"S_OK, installed, for " + pfn,
                   std::wstring(resultName(hr)) + L" " + hex(hr) + (installed ? L", installed" : L", not installed"),
                   since(start));

        start = GetTickCount64();
        LPWSTR name = nullptr;
        hr = displayName(pfn.c_str(), &name);
        std::wstring seen = std::wstring(resultName(hr)) + L" " + hex(hr);
        const bool named = name != nullptr && name[0] != L'\0';
        if (name != nullptr) {
            seen += L", \"" + std::wstring(name) + L"\"";
            release(name);
        }
        test.check(hr == S_OK && named, L"KelGetAppDisplayNameByPFNW", L"S_OK and a name, for " + pfn, seen,
                   since(start));
    }

    start = GetTickCount64();
    UINT mode = 0;
    hr = monitorMode(&mode);
    test.check(hr == S_OK && mode <= 2, L"KelGetMonitorMode", L"S_OK and a mode 0, 1 or 2",
               std::wstring(resultName(hr)) + L" " + hex(hr) + L", mode " + std::to_wstring(mode), since(start));

    return true;
}

// The launches a user would see, each with what the operator should have
// seen: made only when asked for, since they take over the screen, the
// keyboard and the clipboard.
void checkLaunches(SelfTest& test, const Library& lib, const SelfTestOptions& options, const std::wstring& pfn)
{
    auto protocol = KEL(lib, KelLaunchByProtocolW);
    auto search = KEL(lib, KelLaunchBySearchW);
    auto store = KEL(lib, KelLaunchStoreW);
    if (!protocol || !search || !store) {
        test.add(L"FAIL", L"launch exports", L"every export present", L"an export is missing (see above)", 0);
        return;
    }
    auto seenResult = [](HRESULT hr) { return std::wstring(resultName(hr)) + L" " + hex(hr); };

    if (options.url.empty()) {
        test.add(L"INFO", L"protocol launch", L"a URL given with --url", L"skipped: no --url was given", 0);
    } else {
        const ULONGLONG start = GetTickCount64();
        const HRESULT hr = protocol(options.url.c_str());
        test.check(hr == S_OK, L"protocol launch",
                   L"S_OK; you should have seen " + options.url + L" open in its default program", seenResult(hr),
                   since(start));
    }

    // Mode 1 pastes the keyword without submitting it, so the search pane
    // shows it and nothing is searched for or started.
    ULONGLONG start = GetTickCount64();
    HRESULT hr = search(kHarmlessKeyword, 1, 1);
    test.check(hr == S_OK, L"search launch",
               std::wstring(L"S_OK; you should have seen the Start screen, then the search pane with \"") +
                   kHarmlessKeyword + L"\" typed in and not searched for",
               seenResult(hr), since(start));

    if (pfn.empty()) {
        test.add(L"INFO", L"Store page", L"a package the first pass found",
                 L"skipped: the first pass found no package with one app", 0);
        return;
    }
    start = GetTickCount64();
    hr = store(pfn.c_str());
    test.check(hr == S_OK, L"Store page", L"S_OK; you should have seen the Store page of " + pfn, seenResult(hr),
               since(start));
}

void checkFinalize(SelfTest& test, const Library& lib)
{
    auto finalize = KEL(lib, KelFinalize);
    if (!finalize)
        return;
    const ULONGLONG start = GetTickCount64();
    finalize();
    const ULONGLONG finalizeTime = since(start);
    test.check(finalizeTime <= kFinalizeBoundMs, L"KelFinalize",
               L"returns within " + std::to_wstring(kFinalizeBoundMs / 1000) + L" s",
               L"returned after " + std::to_wstring(finalizeTime) + L" ms", finalizeTime);
}

// ---------------------------------------------------------------------------
// selftest --report: the lines and the library's log, for a bug report

std::string toUtf8(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                    nullptr);
    if (bytes <= 0)
        return std::string();
    std::string utf8(bytes, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &utf8[0], bytes, nullptr, nullptr);
    return utf8;
}

// The log's bytes as text: UTF-16 with its byte order mark, else UTF-8 when
// they are valid UTF-8, else the ANSI code page.
std::wstring decodeLog(const std::string& bytes)
{
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
        static_cast<unsigned char>(bytes[1]) == 0xFE) {
        std::wstring text((bytes.size() - 2) / 2, L'\0');
        memcpy(&text[0], bytes.data() + 2, text.size() * 2);
        return text;
    }
    for (UINT codePage : {static_cast<UINT>(CP_UTF8), static_cast<UINT>(CP_ACP)}) {
        DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
        int length = MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
        if (length <= 0)
            continue;
        std::wstring text(length, L'\0');
        MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), &text[0], length);
        return text;
    }
    return std::wstring();
}

// Every occurrence of `from` (ignoring case) replaced by `to`.
std::wstring replaceAll(const std::wstring& text, const std::wstring& from, const std::wstring& to)
{
    if (from.empty())
        return text;
    std::wstring lowerText = text;
    std::wstring lowerFrom = from;
    for (wchar_t& c : lowerText)
        c = static_cast<wchar_t>(towlower(c));
    for (wchar_t& c : lowerFrom)
        c = static_cast<wchar_t>(towlower(c));
    std::wstring result;
    size_t at = 0;
    for (size_t found; (found = lowerText.find(lowerFrom, at)) != std::wstring::npos; at = found + from.size())
        result += text.substr(at, found - at) + to;
    return result + text.substr(at);
}

// A report names no user: the profile folder, which carries the account
// name, is written as %USERPROFILE%. The SID stays, as in the log itself.
std::wstring withoutUser(const std::wstring& text)
{
    std::wstring profile;
    if (!environmentVariable(L"USERPROFILE", profile) || profile.size() < 4)
        return text;
    return replaceAll(text, profile, L"%USERPROFILE%");
}

std::wstring jsonString(const std::wstring& text)
{
    std::wstring result = L"\"";
    for (wchar_t c : text) {
        switch (c) {
        case L'"': result += L"\\\""; break;
        case L'\\': result += L"\\\\"; break;
        case L'\n': result += L"\\n"; break;
        case L'\r': result += L"\\r"; break;
        case L'\t': result += L"\\t"; break;
        default:
            if (c < 0x20) {
                wchar_t escaped[8];
                swprintf(escaped, 8, L"\\u%04X", static_cast<unsigned>(c));
                result += escaped;
            } else {
                result += c;
            }
        }
    }
    return result + L"\"";
}

bool writeWholeFile(const std::wstring& path, const std::string& bytes, std::wstring& error)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = L"cannot create " + path + L" (error " + std::to_wstring(GetLastError()) + L")";
        return false;
    }
    DWORD written = 0;
    bool ok = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
              written == bytes.size();
    if (!ok)
        error = L"cannot write " + path + L" (error " + std::to_wstring(GetLastError()) + L")";
    CloseHandle(file);
    return ok;
}

// What the report says about where and when it was made.
struct ReportHeading {
    std::wstring machine;
    std::wstring time;       // 2026-11-23 14:05:09
    std::wstring timeInName; // 20261123-140509
};

ReportHeading reportHeading()
{
    ReportHeading heading;
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
    heading.machine = GetComputerNameW(name, &size) ? std::wstring(name, size) : L"unknown";
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t text[32];
    swprintf(text, 32, L"%04u-%02u-%02u %02u:%02u:%02u", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
             now.wSecond);
    heading.time = text;
    swprintf(text, 32, L"%04u%02u%02u-%02u%02u%02u", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
             now.wSecond);
    heading.timeInName = text;
    return heading;
}

// FILE as given, or, when it names a folder, a file in it named by machine
// and time. The JSON twin is the same path ending in .json.
void reportPaths(const std::wstring& given, const ReportHeading& heading, std::wstring& text, std::wstring& json)
{
    text = given;
    const bool folder = directoryExists(given) || (!given.empty() && (given.back() == L'\\' || given.back() == L'/'));
    if (folder) {
        if (text.back() != L'\\' && text.back() != L'/')
            text += L'\\';
        text += L"kelcli-selftest-" + heading.machine + L"-" + heading.timeInName + L".txt";
    }
    const size_t slash = text.find_last_of(L"\\/");
    const size_t dot = text.rfind(L'.');
    const bool hasExtension = dot != std::wstring::npos && (slash == std::wstring::npos || dot > slash);
    json = (hasExtension ? text.substr(0, dot) : text) + L".json";
}

// The report and its JSON twin; false (with the error) when one cannot be
// written.
bool writeReport(const std::wstring& given, const SelfTest& test, const std::wstring& log, std::wstring& error)
{
    const ReportHeading heading = reportHeading();
    std::wstring textPath;
    std::wstring jsonPath;
    reportPaths(given, heading, textPath, jsonPath);

    const std::wstring summary = std::to_wstring(test.count(L"PASS")) + L" passed, " +
                                 std::to_wstring(test.count(L"FAIL")) + L" failed, " +
                                 std::to_wstring(test.count(L"INFO")) + L" for information";
    std::wstring text = L"kelcli selftest report\r\nMachine: " + heading.machine + L"\r\nTime: " + heading.time +
                        L"\r\nkelcli: " + ownArchitecture() + L"\r\n\r\n";
    for (const CheckLine& check : test.checks())
        text += SelfTest::format(check) + L"\r\n";
    text += L"selftest: " + summary + L"\r\n\r\nLibrary log of the run:\r\n" + log;
    if (!log.empty() && log.back() != L'\n')
        text += L"\r\n";

    std::wstring json = L"{\n  \"tool\": \"kelcli selftest\",\n  \"machine\": " + jsonString(heading.machine) +
                        L",\n  \"time\": " + jsonString(heading.time) + L",\n  \"architecture\": " +
                        jsonString(ownArchitecture()) + L",\n  \"checks\": [\n";
    for (size_t i = 0; i < test.checks().size(); ++i) {
        const CheckLine& check = test.checks()[i];
        json += L"    {\"status\": " + jsonString(check.status) + L", \"name\": " + jsonString(check.name) +
                L", \"expected\": " + jsonString(check.expected) + L", \"seen\": " + jsonString(withoutUser(check.seen)) +
                L", \"milliseconds\": " + std::to_wstring(check.milliseconds) + L"}" +
                (i + 1 < test.checks().size() ? L",\n" : L"\n");
    }
    json += L"  ],\n  \"passed\": " + std::to_wstring(test.count(L"PASS")) + L",\n  \"failed\": " +
            std::to_wstring(test.count(L"FAIL")) + L",\n  \"information\": " + std::to_wstring(test.count(L"INFO")) +
            L",\n  \"log\": " + jsonString(withoutUser(log)) + L"\n}\n";

    if (!writeWholeFile(textPath, "\xEF\xBB\xBF" + toUtf8(withoutUser(text)), error) ||
        !writeWholeFile(jsonPath, toUtf8(json), error))
        return false;
    write(L"report: " + textPath + L"\nreport (JSON): " + jsonPath + L"\n");
    return true;
}

// Turns the library's log on for the self-test's calls and puts the switch
// back as it was; the log's new lines are the run's.
class LogForTheRun {
public:
    explicit LogForTheRun(const std::wstring& logPath) : logPath_(logPath)
    {
        if (RegCreateKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key_,
                            nullptr) != ERROR_SUCCESS) {
            key_ = nullptr;
            return;
        }
        DWORD size = sizeof(previous_);
        const LONG read =
            RegQueryValueExW(key_, L"DebugLog", nullptr, &previousType_, reinterpret_cast<BYTE*>(&previous_), &size);
        // A value that could not be kept whole is left alone, log or no log.
        if (read != ERROR_SUCCESS && read != ERROR_FILE_NOT_FOUND)
            return;
        hadValue_ = read == ERROR_SUCCESS;
        previousSize_ = size;
        const DWORD on = 1;
        switched_ = RegSetValueExW(key_, L"DebugLog", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on),
                                   sizeof(on)) == ERROR_SUCCESS;
        std::string bytes;
        DWORD error = 0;
        startOffset_ = readWholeFile(logPath_, bytes, error) ? bytes.size() : 0;
    }
    LogForTheRun(const LogForTheRun&) = delete;
    LogForTheRun& operator=(const LogForTheRun&) = delete;
    ~LogForTheRun() { restore(); }

    bool switched() const { return switched_; }

    // The lines the library wrote since the switch was turned on.
    std::wstring lines() const
    {
        std::string bytes;
        DWORD error = 0;
        if (!readWholeFile(logPath_, bytes, error))
            return L"(no log was written: error " + std::to_wstring(error) + L")\r\n";
        if (bytes.size() < startOffset_)
            return decodeLog(bytes);
        return decodeLog(bytes.substr(startOffset_));
    }

    void restore()
    {
        if (key_ == nullptr)
            return;
        if (switched_) {
            if (hadValue_)
                RegSetValueExW(key_, L"DebugLog", 0, previousType_, reinterpret_cast<const BYTE*>(&previous_),
                               previousSize_);
            else
                RegDeleteValueW(key_, L"DebugLog");
        }
        RegCloseKey(key_);
        key_ = nullptr;
    }

private:
    std::wstring logPath_;
    HKEY key_ = nullptr;
    bool hadValue_ = false;
    bool switched_ = false;
    DWORD previousType_ = 0;
    // A stored value the library ignores may be longer than a DWORD; only
    // that much is put back.
    unsigned char previous_[64] = {};
    DWORD previousSize_ = 0;
    size_t startOffset_ = 0;
};

int runSelfTest(const SelfTestOptions& options)
{
    SelfTest test;
    std::wstring runLog;
    write(L"kelcli selftest " + std::wstring(ownArchitecture()) + L"\n");
    Library library;
    std::wstring error;
    ULONGLONG start = GetTickCount64();
    if (!library.load(error)) {
        while (!error.empty() && error.back() == L'\n')
            error.pop_back();
        test.add(L"FAIL", L"DLL loads", L"Kelbrook.dll loaded", error, since(start));
    } else {
        test.add(L"PASS", L"DLL loads", L"Kelbrook.dll loaded", moduleFileName(library.module()), since(start));
        checkDllAndProcess(test, library);
        const LibraryFiles files = libraryFiles();
        const DWORD manifestReader = checkSettings(test, files);
        checkFiles(test, files);
        checkServices(test, manifestReader);
        // The report carries the library's log of its calls, whatever the
        // switch was.
        std::unique_ptr<LogForTheRun> log;
        if (!options.reportPath.empty() && !files.log.empty()) {
            log = std::make_unique<LogForTheRun>(files.log);
            test.add(log->switched() ? L"INFO" : L"FAIL", L"log for the report", L"DebugLog on for the run",
                     log->switched() ? L"DebugLog set to 1, put back after the run" : L"DebugLog cannot be set", 0);
        }
        std::wstring found;
        const bool initialized = checkExports(test, library, files, found);
        if (initialized && options.intrusive)
            checkLaunches(test, library, options, found);
        if (initialized)
            checkFinalize(test, library);
        if (log) {
            log->restore();
            runLog = log->lines();
        }
        if (!options.intrusive)
            test.add(L"INFO", L"launches", L"run with --intrusive", L"skipped: no launch was made", 0);
        else if (!initialized)
            test.add(L"INFO", L"launches", L"made after KelInitialize", L"skipped: the library is not initialised",
                     0);
    }
    const unsigned failed = test.count(L"FAIL");
    write(L"selftest: " + std::to_wstring(test.count(L"PASS")) + L" passed, " + std::to_wstring(failed) + L" failed, " +
          std::to_wstring(test.count(L"INFO")) + L" for information\n");
    if (!options.reportPath.empty()) {
        std::wstring reportError;
        if (!writeReport(options.reportPath, test, runLog, reportError)) {
            writeError(L"kelcli: selftest: " + reportError + L"\n");
            return 1;
        }
    }
    return failed == 0 ? 0 : 1;
}

// ---------------------------------------------------------------------------
// The command table

using Parser = Call (*)(const wchar_t* command, Arguments& args);

struct Command {
    const wchar_t* name;
    const wchar_t* arguments;  // as the usage line shows them
    const wchar_t* help;       // the export it calls and what that does
    Parser parse;
};

const Command kCommands[] = {
    {L"info", L"",
     L"Prints what the library finds in this process, without calling any export and without changing "
     L"anything: the DLL loaded (full path, file version, x86 or x64), the Windows version this process is "
     L"told and whether the Windows 8.1 behaviour applies, each setting under HKCU\\Software\\Osk\\Kelbrook "
     L"with its value or \"(default N)\", the log file, the data folder for kelcli.exe, the data file and "
     L"the preset file with how many packages and desktop apps each holds.",
     [](const wchar_t*, Arguments&) -> Call { return printInfo; }},
    {L"selftest", L"[--report FILE|FOLDER] [--intrusive [--url URL]]",
     L"Checks that the library works on this machine, as a host would use it, and prints one line per "
     L"check: PASS, FAIL or INFO, its name, what was expected, what was seen and how long it took. It checks "
     L"the DLL and the Windows version, the settings and files info shows, that the data folder can be "
     L"written, that the app visibility service, the application activation manager, the deployment service "
     L"and the packaging API can be reached, then KelInitialize, the first refresh pass (waited for), "
     L"KelIsInstalledW and KelGetAppDisplayNameByPFNW on a package the pass found, KelGetMonitorMode and "
     L"KelFinalize. Nothing is launched unless --intrusive is given: then, before KelFinalize, "
     L"KelLaunchByProtocolW opens the URL given with --url, KelLaunchBySearchW types \"Kelbrook selftest\" "
     L"into the search pane in mode 1 (pasted, not searched for) and KelLaunchStoreW opens the Store page "
     L"of the package the pass found; each line says what you should have seen. With --report, the lines "
     L"and the library's log of the run are also written to FILE (or to a file named by computer and time "
     L"in FOLDER), with a JSON twin. Runs alone, not with other commands; exit code 0 when no check failed.",
     [](const wchar_t* c, Arguments&) -> Call {
         throw UsageError{std::wstring(c) + L" runs alone: kelcli selftest [--report FILE|FOLDER] [--intrusive [--url URL]]"};
     }},
    {L"initialize", L"",
     L"KelInitialize. The first call starts the package manager: it loads the data file (the preset file "
     L"while there is no data file) and starts the refresh thread, which finds the installed packages and "
     L"Start menu shortcuts and writes the data file. Later calls only count up.",
     [](const wchar_t*, Arguments&) -> Call {
         return [](const Library& lib) {
             auto f = KEL(lib, KelInitialize);
             return f && report("KelInitialize", f());
         };
     }},
    {L"finalize", L"",
     L"KelFinalize. Counts one initialize down; at zero it stops the refresh thread.",
     [](const wchar_t*, Arguments&) -> Call {
         return [](const Library& lib) {
             auto f = KEL(lib, KelFinalize);
             if (f) {
                 f();
                 write(L"KelFinalize -> done\n");
             }
             return f != nullptr;
         };
     }},
    {L"launch-protocol", L"URL",
     L"KelLaunchByProtocolW. Opens URL (any protocol, e.g. http:, mailto:, an app's own) with the handler "
     L"Windows has registered for it.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring url = args.take(c, L"URL");
         return [url](const Library& lib) {
             auto f = KEL(lib, KelLaunchByProtocolW);
             return f && report("KelLaunchByProtocolW", f(url.c_str()));
         };
     }},
    {L"launch-protocol-a", L"URL", L"KelLaunchByProtocolA: launch-protocol with the URL in Shift JIS.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::string url = toShiftJis(c, args.take(c, L"URL"));
         return [url](const Library& lib) {
             auto f = KEL(lib, KelLaunchByProtocolA);
             return f && report("KelLaunchByProtocolA", f(url.c_str()));
         };
     }},
    {L"launch-store", L"PFN",
     L"KelLaunchStoreW. Opens the Store page of the package family PFN (ms-windows-store:PDP?PFN=...).",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring pfn = args.take(c, L"PFN");
         return [pfn](const Library& lib) {
             auto f = KEL(lib, KelLaunchStoreW);
             return f && report("KelLaunchStoreW", f(pfn.c_str()));
         };
     }},
    {L"launch-store-a", L"PFN", L"KelLaunchStoreA: launch-store with the PFN in Shift JIS.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::string pfn = toShiftJis(c, args.take(c, L"PFN"));
         return [pfn](const Library& lib) {
             auto f = KEL(lib, KelLaunchStoreA);
             return f && report("KelLaunchStoreA", f(pfn.c_str()));
         };
     }},
    {L"is-installed", L"PFN",
     L"KelIsInstalledW. Prints \"installed = 1\" when a package of the family PFN is installed for the "
     L"current user, \"installed = 0\" otherwise.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring pfn = args.take(c, L"PFN");
         return [pfn](const Library& lib) {
             auto f = KEL(lib, KelIsInstalledW);
             if (!f)
                 return false;
             BOOL installed = FALSE;
             bool ok = report("KelIsInstalledW", f(pfn.c_str(), &installed));
             if (ok)
                 write(L"installed = " + std::to_wstring(installed) + L"\n");
             return ok;
         };
     }},
    {L"is-installed-a", L"PFN", L"KelIsInstalledA: is-installed with the PFN in Shift JIS.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::string pfn = toShiftJis(c, args.take(c, L"PFN"));
         return [pfn](const Library& lib) {
             auto f = KEL(lib, KelIsInstalledA);
             if (!f)
                 return false;
             BOOL installed = FALSE;
             bool ok = report("KelIsInstalledA", f(pfn.c_str(), &installed));
             if (ok)
                 write(L"installed = " + std::to_wstring(installed) + L"\n");
             return ok;
         };
     }},
    {L"launch-search", L"KEYWORD MODE OPTION",
     L"KelLaunchBySearchW. Opens the Start screen's search pane and types KEYWORD into it through the "
     L"clipboard and the keyboard, as MODE and OPTION say (below). Blocks for several seconds.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring text = args.take(c, L"KEYWORD");
         DWORD mode = args.takeNumber(c, L"MODE");
         INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchBySearchW);
             return f && report("KelLaunchBySearchW", f(text.c_str(), mode, option));
         };
     }},
    {L"launch-search-a", L"KEYWORD MODE OPTION", L"KelLaunchBySearchA: launch-search with the KEYWORD in Shift JIS.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::string text = toShiftJis(c, args.take(c, L"KEYWORD"));
         DWORD mode = args.takeNumber(c, L"MODE");
         INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchBySearchA);
             return f && report("KelLaunchBySearchA", f(text.c_str(), mode, option));
         };
     }},
    {L"launch-pfn", L"PFN MODE OPTION",
     L"KelLaunchByPFNW. Looks up the display name of the package family PFN and searches for it as "
     L"launch-search does.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring text = args.take(c, L"PFN");
         DWORD mode = args.takeNumber(c, L"MODE");
         INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchByPFNW);
             return f && report("KelLaunchByPFNW", f(text.c_str(), mode, option));
         };
     }},
    {L"launch-pfn-a", L"PFN MODE OPTION", L"KelLaunchByPFNA: launch-pfn with the PFN in Shift JIS.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::string text = toShiftJis(c, args.take(c, L"PFN"));
         DWORD mode = args.takeNumber(c, L"MODE");
         INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchByPFNA);
             return f && report("KelLaunchByPFNA", f(text.c_str(), mode, option));
         };
     }},
    {L"launch-browser", L"URL MODE",
     L"KelLaunchBrowserByProtocolW. Opens an http: or https: URL in Internet Explorer with the association "
     L"mode MODE (below) set for the launch.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring url = args.take(c, L"URL");
         DWORD mode = args.takeNumber(c, L"MODE");
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchBrowserByProtocolW);
             return f && report("KelLaunchBrowserByProtocolW", f(url.c_str(), mode));
         };
     }},
    {L"launch-browser-a", L"URL MODE", L"KelLaunchBrowserByProtocolA: launch-browser with the URL in Shift JIS.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::string url = toShiftJis(c, args.take(c, L"URL"));
         DWORD mode = args.takeNumber(c, L"MODE");
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchBrowserByProtocolA);
             return f && report("KelLaunchBrowserByProtocolA", f(url.c_str(), mode));
         };
     }},
    {L"launch-ie", L"TILEMODE SEARCHMODE OPTION",
     L"KelLaunchIEBySearch. Starts Internet Explorer by searching for it as launch-search does (with the "
     L"search mode SEARCHMODE and OPTION), with the tile mode TILEMODE (below) set for the launch.",
     [](const wchar_t* c, Arguments& args) -> Call {
         DWORD tileMode = args.takeNumber(c, L"TILEMODE");
         DWORD searchMode = args.takeNumber(c, L"SEARCHMODE");
         INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchIEBySearch);
             return f && report("KelLaunchIEBySearch", f(tileMode, searchMode, option));
         };
     }},
    {L"launch-app", L"AUMID [ARGS]",
     L"KelLaunchByAppUserModelIdW. Starts the Store app AUMID (PackageFamilyName!AppId) and hands it ARGS; "
     L"without ARGS the arguments are NULL. The word after AUMID is taken as ARGS unless it is a command.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring id = args.take(c, L"AUMID");
         bool hasArguments = !args.done() && !isCommandName(args.peek());
         std::wstring arguments = hasArguments ? args.take(c, L"ARGS") : std::wstring();
         return [=](const Library& lib) {
             auto f = KEL(lib, KelLaunchByAppUserModelIdW);
             return f &&
                    report("KelLaunchByAppUserModelIdW", f(id.c_str(), hasArguments ? arguments.c_str() : nullptr));
         };
     }},
    {L"launch-app-a", L"AUMID", L"KelLaunchByAppUserModelIdA: launch-app with the AUMID in Shift JIS and no ARGS.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::string id = toShiftJis(c, args.take(c, L"AUMID"));
         return [id](const Library& lib) {
             auto f = KEL(lib, KelLaunchByAppUserModelIdA);
             return f && report("KelLaunchByAppUserModelIdA", f(id.c_str()));
         };
     }},
    {L"display-name", L"PFN",
     L"KelGetAppDisplayNameByPFNW, then KelReleaseStringW. Prints the display name of the application of "
     L"the package family PFN, read from the package's manifest.",
     [](const wchar_t* c, Arguments& args) -> Call {
         std::wstring pfn = args.take(c, L"PFN");
         return [pfn](const Library& lib) {
             auto f = KEL(lib, KelGetAppDisplayNameByPFNW);
             auto release = KEL(lib, KelReleaseStringW);
             if (!f || !release)
                 return false;
             LPWSTR name = nullptr;
             bool ok = report("KelGetAppDisplayNameByPFNW", f(pfn.c_str(), &name));
             if (name != nullptr) {
                 write(L"display name = " + std::wstring(name) + L"\n");
                 release(name);
             }
             return ok;
         };
     }},
    {L"monitor-mode", L"",
     L"KelGetMonitorMode. Prints what the user has in front: mode = 0 the desktop, 1 a Store app, "
     L"2 the Start screen.",
     [](const wchar_t*, Arguments&) -> Call {
         return [](const Library& lib) {
             auto f = KEL(lib, KelGetMonitorMode);
             if (!f)
                 return false;
             UINT mode = 0;
             bool ok = report("KelGetMonitorMode", f(&mode));
             if (ok)
                 write(L"mode = " + std::to_wstring(mode) + L"\n");
             return ok;
         };
     }},
    {L"release-string-a", L"", L"KelReleaseStringA(NULL): frees nothing; shows that the export is there.",
     [](const wchar_t*, Arguments&) -> Call {
         return [](const Library& lib) {
             auto f = KEL(lib, KelReleaseStringA);
             if (f) {
                 f(nullptr);
                 write(L"KelReleaseStringA -> done\n");
             }
             return f != nullptr;
         };
     }},
    {L"release-string-w", L"", L"KelReleaseStringW(NULL): frees nothing; shows that the export is there.",
     [](const wchar_t*, Arguments&) -> Call {
         return [](const Library& lib) {
             auto f = KEL(lib, KelReleaseStringW);
             if (f) {
                 f(nullptr);
                 write(L"KelReleaseStringW -> done\n");
             }
             return f != nullptr;
         };
     }},
};

bool isCommandName(const std::wstring& word)
{
    for (const Command& command : kCommands)
        if (word == command.name)
            return true;
    return false;
}

// Reads one sub-command with its arguments and returns the call it stands for.
Call parseCommand(Arguments& args)
{
    const std::wstring word = args.take(L"kelcli", L"sub-command");
    for (const Command& command : kCommands)
        if (word == command.name)
            return command.parse(command.name, args);
    throw UsageError{L"unknown sub-command \"" + word + L"\""};
}

std::wstring synopsis(const Command& command)
{
    std::wstring text = command.name;
    if (*command.arguments != L'\0')
        text += std::wstring(L" ") + command.arguments;
    return text;
}

// The short form, shown on bad usage.
std::wstring usage()
{
    std::wstring text = L"usage: kelcli COMMAND [ARGS...] [COMMAND [ARGS...]]...\n"
                        L"Commands:\n";
    for (const Command& command : kCommands)
        text += L"  " + synopsis(command) + L"\n";
    return text + L"kelcli --help explains every command, mode and option.\n";
}

// Breaks `text` into lines of at most `width` characters, each indented.
std::wstring wrap(const std::wstring& text, size_t indent, size_t width)
{
    std::wstring result;
    std::wstring current;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find(L' ', at);
        if (end == std::wstring::npos)
            end = text.size();
        std::wstring word = text.substr(at, end - at);
        if (!current.empty() && indent + current.size() + 1 + word.size() > width) {
            result += std::wstring(indent, L' ') + current + L"\n";
            current.clear();
        }
        current += (current.empty() ? L"" : L" ") + word;
        at = end + 1;
    }
    if (!current.empty())
        result += std::wstring(indent, L' ') + current + L"\n";
    return result;
}

const wchar_t kHelpIntroduction[] =
    L"usage: kelcli COMMAND [ARGS...] [COMMAND [ARGS...]]...\n"
    L"       kelcli --help\n"
    L"\n"
    L"Loads Kelbrook.dll (the path in the environment variable KELBROOK_DLL, else the one in kelcli's own "
    L"folder) and runs the commands in the order given, one export call each; every command and argument is "
    L"checked before the first call. Each call prints \"<Export> -> <RESULT> (0x%08X)\" and what the export "
    L"handed back. The -a commands convert their text to Shift JIS (code page 932) and call the A export.\n";

const wchar_t kHelpModes[] =
    L"Search modes (MODE of launch-search and launch-pfn, SEARCHMODE of launch-ie):\n"
    L"  0  Submit a query: the keyword in double quotes (with OPTION non-zero, followed by NOT(\"name\" OR "
    L"...) to leave out the catalogued apps the keyword matches) is pasted into the search pane and Enter is "
    L"pressed, again and again while the pane stays in front.\n"
    L"  1  Paste the bare keyword: after 2 seconds the keyword is pasted, then the library waits "
    L"ClearClipboardWaitTime milliseconds; no Enter, the user picks from the results.\n"
    L"  2  Automatic: as mode 1 when OPTION is non-zero and the keyword names a catalogued app itself, "
    L"otherwise as mode 0.\n"
    L"  Any other mode gives E_INVALIDARG (0x80070057).\n"
    L"Options (OPTION of launch-search, launch-pfn and launch-ie):\n"
    L"  0         The keyword alone: the catalogue is not asked.\n"
    L"  non-zero  The catalogue (loaded by initialize) gives the names of apps the keyword matches: mode 0 "
    L"excludes them from the query, mode 2 chooses by them.\n"
    L"Association modes (MODE of launch-browser): the value AssociationActivationMode under "
    L"HKCU\\Software\\Microsoft\\Internet Explorer\\Main, by which Internet Explorer chooses its desktop or its "
    L"immersive form for links, is set for the launch and put back RestoreRegistryWaitTime milliseconds "
    L"after it (deleted again when it was absent):\n"
    L"  0  sets the value to 2.\n"
    L"  1  sets the value to 1.\n"
    L"  2  leaves the value as the user set it.\n"
    L"Tile modes (TILEMODE of launch-ie): the value ApplicationTileImmersiveActivation under the same key, "
    L"by which the Internet Explorer tile starts its desktop or its immersive form, is set for the launch "
    L"and put back right after it:\n"
    L"  0  sets the value to 0.\n"
    L"  1  sets the value to 1.\n"
    L"  2  leaves the value as the user set it.\n"
    L"The library's own results: 0xA0000001 E_KEL_PACKAGE_NOT_FOUND (no package of the family is installed "
    L"for the current user), 0xA0000002 E_KEL_MULTIPLE_APPLICATIONS (the package has more than one "
    L"application), 0xA0000003 E_KEL_DISPLAY_NAME_FAILED (launch-pfn could not get the display name).\n"
    L"Settings (REG_DWORD values under HKCU\\Software\\Osk\\Kelbrook, all optional; info shows them):\n"
    L"  DebugLog                 non-zero writes the log file (default 0, off).\n"
    L"  ManifestReaderSetting    how the names of a Store package's apps are read: 0 through the packaging "
    L"API, 1 from its AppxManifest.xml with the library's XML reader (default 1; 2 and above read as 1).\n"
    L"  RefreshInterval          minutes between the refresh thread's passes (default 720).\n"
    L"  ClearClipboardWaitTime   milliseconds a mode 1 search waits after pasting (default 1000).\n"
    L"  RestoreRegistryWaitTime  milliseconds launch-browser waits before it puts the association mode "
    L"back (default 1000).\n"
    L"Windows 8.1 behaviour: where Windows reports version 6.3 to the process (8.1, and later systems to a "
    L"program whose manifest declares 8.1 and nothing newer), three Windows 8 package family names are "
    L"replaced by their 8.1 successors and a search for the Messaging app shows a notice instead.\n"
    L"Numbers are decimal or 0x hexadecimal, 32 bits, negative allowed.\n"
    L"Exit code: 0 all calls succeeded, 1 a call failed or an export is missing, 2 bad usage.\n";

// The long form, for --help.
std::wstring help()
{
    constexpr size_t kWidth = 100;
    std::wstring text;
    std::wstring introduction = kHelpIntroduction;
    // The two usage lines stand as they are; the paragraph after them wraps.
    size_t paragraph = introduction.find(L"\n\n") + 2;
    text += introduction.substr(0, paragraph) + wrap(introduction.substr(paragraph, introduction.size() - paragraph - 1), 0, kWidth);
    text += L"\nCommands:\n";
    for (const Command& command : kCommands)
        text += L"  " + synopsis(command) + L"\n" + wrap(command.help, 6, kWidth);
    text += L"\n";
    // Each line of the modes wraps on its own, continued under its text.
    std::wstring modes = kHelpModes;
    size_t at = 0;
    while (at < modes.size()) {
        size_t end = modes.find(L'\n', at);
        std::wstring one = modes.substr(at, end - at);
        size_t indent = one.find_first_not_of(L' ');
        if (indent > 0) {
            // "  0  text" and "  DebugLog   text": continuation under the text.
            size_t gap = one.find(L"  ", indent);
            size_t textAt = gap == std::wstring::npos ? indent : one.find_first_not_of(L' ', gap);
            std::wstring head = one.substr(0, textAt);
            std::wstring body = wrap(one.substr(textAt), textAt, kWidth);
            text += head + body.substr(textAt);
        } else {
            text += wrap(one, 0, kWidth);
        }
        at = end + 1;
    }
    return text;
}

} // namespace

int main()
{
    int argc = 0;
    LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (argv == nullptr || argc < 2) {
        writeError(usage());
        return 2;
    }
    std::wstring first = argv[1];
    if (first == L"-h" || first == L"--help" || first == L"/?") {
        write(help());
        return 0;
    }

    if (first == L"selftest") {
        SelfTestOptions options;
        for (int i = 2; i < argc; ++i) {
            std::wstring option = argv[i];
            if (option == L"--report" && i + 1 < argc) {
                options.reportPath = argv[++i];
            } else if (option == L"--intrusive") {
                options.intrusive = true;
            } else if (option == L"--url" && i + 1 < argc) {
                options.url = argv[++i];
            } else {
                writeError(L"kelcli: selftest: unknown option \"" + option + L"\"\n\n" + usage());
                return 2;
            }
        }
        LocalFree(argv);
        if (!options.url.empty() && !options.intrusive) {
            writeError(L"kelcli: selftest: --url is for the protocol launch, which only --intrusive makes\n\n" +
                       usage());
            return 2;
        }
        return runSelfTest(options);
    }

    // Every sub-command is checked before the first call is made.
    std::vector<Call> calls;
    try {
        Arguments args(argv, argc);
        while (!args.done())
            calls.push_back(parseCommand(args));
    } catch (const UsageError& error) {
        writeError(L"kelcli: " + error.message + L"\n\n" + usage());
        return 2;
    }
    LocalFree(argv);

    Library library;
    std::wstring error;
    if (!library.load(error)) {
        writeError(error);
        return 1;
    }
    bool allSucceeded = true;
    for (const Call& call : calls)
        allSucceeded = call(library) && allSucceeded;
    return allSucceeded ? 0 : 1;
}
