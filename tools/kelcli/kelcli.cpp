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
// the export handed back. Arguments come from the wide command line; the A
// sub-commands convert theirs to Shift JIS (code page 932), which is what the
// library expects of narrow strings. Output is UTF-8 (wide text when writing to
// a console). Exit code: 0 when every call succeeded, 1 when one failed or an
// export is missing, 2 on bad usage.

#include <windows.h>
#include <shellapi.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <functional>
#include <string>
#include <vector>

#include "Kelbrook.h"

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

const wchar_t* const kCommandNames[] = {
    L"initialize",      L"finalize",        L"launch-protocol",  L"launch-protocol-a", L"launch-store",
    L"launch-store-a",  L"is-installed",    L"is-installed-a",   L"launch-search",     L"launch-search-a",
    L"launch-pfn",      L"launch-pfn-a",    L"launch-browser",   L"launch-browser-a",  L"launch-ie",
    L"launch-app",      L"launch-app-a",    L"display-name",     L"monitor-mode",      L"release-string-a",
    L"release-string-w",
};

bool isCommandName(const std::wstring& word)
{
    for (const wchar_t* name : kCommandNames)
        if (word == name)
            return true;
    return false;
}

// Reads one sub-command with its arguments and returns the call it stands for.
Call parseCommand(Arguments& args)
{
    const std::wstring command = args.take(L"kelcli", L"sub-command");
    const wchar_t* c = command.c_str();

    if (command == L"initialize")
        return [](const Library& lib) {
            auto f = KEL(lib, KelInitialize);
            return f && report("KelInitialize", f());
        };
    if (command == L"finalize")
        return [](const Library& lib) {
            auto f = KEL(lib, KelFinalize);
            if (f) {
                f();
                write(L"KelFinalize -> done\n");
            }
            return f != nullptr;
        };
    if (command == L"launch-protocol") {
        std::wstring url = args.take(c, L"URL");
        return [url](const Library& lib) {
            auto f = KEL(lib, KelLaunchByProtocolW);
            return f && report("KelLaunchByProtocolW", f(url.c_str()));
        };
    }
    if (command == L"launch-protocol-a") {
        std::string url = toShiftJis(c, args.take(c, L"URL"));
        return [url](const Library& lib) {
            auto f = KEL(lib, KelLaunchByProtocolA);
            return f && report("KelLaunchByProtocolA", f(url.c_str()));
        };
    }
    if (command == L"launch-store") {
        std::wstring pfn = args.take(c, L"PFN");
        return [pfn](const Library& lib) {
            auto f = KEL(lib, KelLaunchStoreW);
            return f && report("KelLaunchStoreW", f(pfn.c_str()));
        };
    }
    if (command == L"launch-store-a") {
        std::string pfn = toShiftJis(c, args.take(c, L"PFN"));
        return [pfn](const Library& lib) {
            auto f = KEL(lib, KelLaunchStoreA);
            return f && report("KelLaunchStoreA", f(pfn.c_str()));
        };
    }
    if (command == L"is-installed") {
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
    }
    if (command == L"is-installed-a") {
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
    }
    if (command == L"launch-search" || command == L"launch-pfn") {
        std::wstring text = args.take(c, command == L"launch-search" ? L"KEYWORD" : L"PFN");
        DWORD mode = args.takeNumber(c, L"MODE");
        INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
        if (command == L"launch-search")
            return [=](const Library& lib) {
                auto f = KEL(lib, KelLaunchBySearchW);
                return f && report("KelLaunchBySearchW", f(text.c_str(), mode, option));
            };
        return [=](const Library& lib) {
            auto f = KEL(lib, KelLaunchByPFNW);
            return f && report("KelLaunchByPFNW", f(text.c_str(), mode, option));
        };
    }
    if (command == L"launch-search-a" || command == L"launch-pfn-a") {
        std::string text = toShiftJis(c, args.take(c, command == L"launch-search-a" ? L"KEYWORD" : L"PFN"));
        DWORD mode = args.takeNumber(c, L"MODE");
        INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
        if (command == L"launch-search-a")
            return [=](const Library& lib) {
                auto f = KEL(lib, KelLaunchBySearchA);
                return f && report("KelLaunchBySearchA", f(text.c_str(), mode, option));
            };
        return [=](const Library& lib) {
            auto f = KEL(lib, KelLaunchByPFNA);
            return f && report("KelLaunchByPFNA", f(text.c_str(), mode, option));
        };
    }
    if (command == L"launch-browser") {
        std::wstring url = args.take(c, L"URL");
        DWORD mode = args.takeNumber(c, L"MODE");
        return [=](const Library& lib) {
            auto f = KEL(lib, KelLaunchBrowserByProtocolW);
            return f && report("KelLaunchBrowserByProtocolW", f(url.c_str(), mode));
        };
    }
    if (command == L"launch-browser-a") {
        std::string url = toShiftJis(c, args.take(c, L"URL"));
        DWORD mode = args.takeNumber(c, L"MODE");
        return [=](const Library& lib) {
            auto f = KEL(lib, KelLaunchBrowserByProtocolA);
            return f && report("KelLaunchBrowserByProtocolA", f(url.c_str(), mode));
        };
    }
    if (command == L"launch-ie") {
        DWORD tileMode = args.takeNumber(c, L"TILEMODE");
        DWORD searchMode = args.takeNumber(c, L"SEARCHMODE");
        INT option = static_cast<INT>(args.takeNumber(c, L"OPTION"));
        return [=](const Library& lib) {
            auto f = KEL(lib, KelLaunchIEBySearch);
            return f && report("KelLaunchIEBySearch", f(tileMode, searchMode, option));
        };
    }
    if (command == L"launch-app") {
        std::wstring id = args.take(c, L"AUMID");
        // The optional ARGS is the next word unless that is a sub-command.
        bool hasArguments = !args.done() && !isCommandName(args.peek());
        std::wstring arguments = hasArguments ? args.take(c, L"ARGS") : std::wstring();
        return [=](const Library& lib) {
            auto f = KEL(lib, KelLaunchByAppUserModelIdW);
            return f && report("KelLaunchByAppUserModelIdW", f(id.c_str(), hasArguments ? arguments.c_str() : nullptr));
        };
    }
    if (command == L"launch-app-a") {
        std::string id = toShiftJis(c, args.take(c, L"AUMID"));
        return [id](const Library& lib) {
            auto f = KEL(lib, KelLaunchByAppUserModelIdA);
            return f && report("KelLaunchByAppUserModelIdA", f(id.c_str()));
        };
    }
    if (command == L"display-name") {
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
    }
    if (command == L"monitor-mode")
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
    if (command == L"release-string-a")
        return [](const Library& lib) {
            auto f = KEL(lib, KelReleaseStringA);
            if (f) {
                f(nullptr);
                write(L"KelReleaseStringA -> done\n");
            }
            return f != nullptr;
        };
    if (command == L"release-string-w")
        return [](const Library& lib) {
            auto f = KEL(lib, KelReleaseStringW);
            if (f) {
                f(nullptr);
                write(L"KelReleaseStringW -> done\n");
            }
            return f != nullptr;
        };
    throw UsageError{L"unknown sub-command \"" + command + L"\""};
}

const wchar_t kUsage[] =
    L"usage: kelcli SUBCOMMAND [ARGS...] [SUBCOMMAND [ARGS...]]...\n"
    L"Calls the exports of Kelbrook.dll (from KELBROOK_DLL, else kelcli's folder) in order.\n"
    L"Sub-commands (-a forms pass the text as Shift JIS):\n"
    L"  initialize                          KelInitialize\n"
    L"  finalize                            KelFinalize\n"
    L"  launch-protocol URL                 KelLaunchByProtocolW\n"
    L"  launch-protocol-a URL               KelLaunchByProtocolA\n"
    L"  launch-store PFN                    KelLaunchStoreW\n"
    L"  launch-store-a PFN                  KelLaunchStoreA\n"
    L"  is-installed PFN                    KelIsInstalledW\n"
    L"  is-installed-a PFN                  KelIsInstalledA\n"
    L"  launch-search KEYWORD MODE OPTION   KelLaunchBySearchW\n"
    L"  launch-search-a KEYWORD MODE OPTION KelLaunchBySearchA\n"
    L"  launch-pfn PFN MODE OPTION          KelLaunchByPFNW\n"
    L"  launch-pfn-a PFN MODE OPTION        KelLaunchByPFNA\n"
    L"  launch-browser URL MODE             KelLaunchBrowserByProtocolW\n"
    L"  launch-browser-a URL MODE           KelLaunchBrowserByProtocolA\n"
    L"  launch-ie TILEMODE SEARCHMODE OPTION KelLaunchIEBySearch\n"
    L"  launch-app AUMID [ARGS]             KelLaunchByAppUserModelIdW (no ARGS: NULL)\n"
    L"  launch-app-a AUMID                  KelLaunchByAppUserModelIdA\n"
    L"  display-name PFN                    KelGetAppDisplayNameByPFNW, then KelReleaseStringW\n"
    L"  monitor-mode                        KelGetMonitorMode\n"
    L"  release-string-a                    KelReleaseStringA(NULL)\n"
    L"  release-string-w                    KelReleaseStringW(NULL)\n"
    L"Numbers are decimal or 0x hexadecimal, 32 bits, negative allowed.\n"
    L"Exit code: 0 all calls succeeded, 1 a call failed, 2 bad usage.\n";

} // namespace

int main()
{
    int argc = 0;
    LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (argv == nullptr || argc < 2) {
        writeError(kUsage);
        return 2;
    }
    std::wstring first = argv[1];
    if (first == L"-h" || first == L"--help" || first == L"/?") {
        write(kUsage);
        return 0;
    }

    // Every sub-command is checked before the first call is made.
    std::vector<Call> calls;
    try {
        Arguments args(argv, argc);
        while (!args.done())
            calls.push_back(parseCommand(args));
    } catch (const UsageError& error) {
        writeError(L"kelcli: " + error.message + L"\n\n" + kUsage);
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
