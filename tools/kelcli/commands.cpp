#include "commands.h"

#include <cstdlib>
#include <cwchar>
#include <type_traits>
#include <vector>

#include "Kelbrook.h"
#include "console.h"
#include "info.h"

namespace kelcli {
namespace {

// Prints the result line and answers whether the result is a success.
bool Report(const char* exportName, HRESULT result) {
  Write(Widen(exportName) + L" -> " + ResultName(result) + L" (" + Hex(result) + L")\n");
  return SUCCEEDED(result);
}

// Whether the word starts the next command (the table is further down).
bool IsCommandName(const std::wstring& word);

// Wide text as Shift JIS, the narrow encoding of the library's A exports.
std::string ToShiftJis(const wchar_t* command, const std::wstring& text) {
  if (text.empty()) return std::string();
  int bytes = WideCharToMultiByte(932, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  if (bytes <= 0)
    throw UsageError{std::wstring(command) + L": cannot convert \"" + text + L"\" to Shift JIS (error " +
                     std::to_wstring(GetLastError()) + L")"};
  std::string result(bytes, '\0');
  WideCharToMultiByte(932, 0, text.c_str(), static_cast<int>(text.size()), &result[0], bytes, nullptr, nullptr);
  return result;
}

using Parser = std::function<Call(const wchar_t* command, Arguments& args)>;

// An export by its type and name, for the calls the table builds.
template <typename Function>
struct Export {
  using Type = Function;
  const char* name;
};
#define KEL_EXPORT(name) \
  Export<decltype(name)> { #name }

// The text argument of a W export as given, of an A export in Shift JIS.
std::wstring TakeWide(const wchar_t* command, Arguments& args, const wchar_t* what) { return args.Take(command, what); }
std::string TakeNarrow(const wchar_t* command, Arguments& args, const wchar_t* what) {
  return ToShiftJis(command, args.Take(command, what));
}

// What an export is handed for a value kept in a call: strings as their text.
template <typename Value>
auto Passed(const Value& value) {
  if constexpr (std::is_same_v<Value, std::wstring> || std::is_same_v<Value, std::string>)
    return value.c_str();
  else
    return value;
}

// A call of the export with the values, reporting its result.
template <typename Function, typename... Values>
Call Reporting(Export<Function> e, Values... values) {
  return [=](const Library& lib) {
    auto f = lib.get<Function*>(e.name);
    return f && Report(e.name, f(Passed(values)...));
  };
}

// A call of an export that returns nothing, saying it was made.
template <typename Function, typename... Values>
Call Done(Export<Function> e, Values... values) {
  return [=](const Library& lib) {
    auto f = lib.get<Function*>(e.name);
    if (f) {
      f(Passed(values)...);
      Write(Widen(e.name) + L" -> done\n");
    }
    return f != nullptr;
  };
}

// The patterns of arguments the W exports and their A twins share. Each
// builds the call from the export, the command's name, its arguments, the
// name of its text argument and how that text is taken (TakeWide for a W
// export, TakeNarrow for an A one).

// TEXT alone.
constexpr auto kText = [](auto e, const wchar_t* c, Arguments& args, const wchar_t* what, auto take) {
  return Reporting(e, take(c, args, what));
};

// TEXT MODE OPTION, the arguments of the search-style exports, in order.
constexpr auto kTextModeOption = [](auto e, const wchar_t* c, Arguments& args, const wchar_t* what, auto take) {
  auto text = take(c, args, what);
  DWORD mode = args.TakeNumber(c, L"MODE");
  INT option = static_cast<INT>(args.TakeNumber(c, L"OPTION"));
  return Reporting(e, text, mode, option);
};

// TEXT MODE, the arguments of the browser launch, in order.
constexpr auto kTextMode = [](auto e, const wchar_t* c, Arguments& args, const wchar_t* what, auto take) {
  auto text = take(c, args, what);
  DWORD mode = args.TakeNumber(c, L"MODE");
  return Reporting(e, text, mode);
};

// TEXT for the installed check, printing the answer when the call succeeded.
constexpr auto kInstalled = [](auto e, const wchar_t* c, Arguments& args, const wchar_t* what, auto take) -> Call {
  auto pfn = take(c, args, what);
  return [=](const Library& lib) {
    auto f = lib.get<typename decltype(e)::Type*>(e.name);
    if (!f) return false;
    BOOL installed = FALSE;
    bool ok = Report(e.name, f(pfn.c_str(), &installed));
    if (ok) Write(L"installed = " + std::to_wstring(installed) + L"\n");
    return ok;
  };
};

struct Command {
  std::wstring name;
  std::wstring arguments;  // as the usage line shows them
  std::wstring help;       // the export it calls and what that does
  Parser parse;
};

// A W export's command and its A twin's, named "-a", which takes its text
// (the first of the arguments) in Shift JIS. The W command's help names its
// export and goes on with `help`.
template <typename Wide, typename Narrow, typename Pattern>
void AddTwins(std::vector<Command>& commands, const wchar_t* name, const wchar_t* arguments, const wchar_t* help,
              Export<Wide> wide, Export<Narrow> narrow, Pattern pattern) {
  const std::wstring text(arguments, wcscspn(arguments, L" "));
  commands.push_back({name, arguments, Widen(wide.name) + L". " + help, [=](const wchar_t* c, Arguments& args) {
                        return pattern(wide, c, args, text.c_str(), TakeWide);
                      }});
  commands.push_back(
      {std::wstring(name) + L"-a", arguments,
       Widen(narrow.name) + L": " + name + L" with the " + text + L" in Shift JIS.",
       [=](const wchar_t* c, Arguments& args) { return pattern(narrow, c, args, text.c_str(), TakeNarrow); }});
}

// launch-app's arguments: the word after AUMID is ARGS unless it starts the
// next command; without it the export is handed NULL.
Call LaunchApp(const wchar_t* c, Arguments& args) {
  std::wstring id = args.Take(c, L"AUMID");
  bool hasArguments = !args.Done() && !IsCommandName(args.Peek());
  std::wstring arguments = hasArguments ? args.Take(c, L"ARGS") : std::wstring();
  return [=](const Library& lib) {
    auto f = KEL(lib, KelLaunchByAppUserModelIdW);
    return f && Report("KelLaunchByAppUserModelIdW", f(id.c_str(), hasArguments ? arguments.c_str() : nullptr));
  };
}

// display-name: the name, printed and handed back to the library.
Call DisplayName(const wchar_t* c, Arguments& args) {
  std::wstring pfn = args.Take(c, L"PFN");
  return [pfn](const Library& lib) {
    auto f = KEL(lib, KelGetAppDisplayNameByPFNW);
    auto release = KEL(lib, KelReleaseStringW);
    if (!f || !release) return false;
    LPWSTR name = nullptr;
    bool ok = Report("KelGetAppDisplayNameByPFNW", f(pfn.c_str(), &name));
    if (name != nullptr) {
      Write(L"display name = " + std::wstring(name) + L"\n");
      release(name);
    }
    return ok;
  };
}

bool PrintMonitorMode(const Library& lib) {
  auto f = KEL(lib, KelGetMonitorMode);
  if (!f) return false;
  UINT mode = 0;
  bool ok = Report("KelGetMonitorMode", f(&mode));
  if (ok) Write(L"mode = " + std::to_wstring(mode) + L"\n");
  return ok;
}

// launch-ie's numbers, taken in the order the usage line gives them.
Call LaunchIe(const wchar_t* c, Arguments& args) {
  DWORD tileMode = args.TakeNumber(c, L"TILEMODE");
  DWORD searchMode = args.TakeNumber(c, L"SEARCHMODE");
  INT option = static_cast<INT>(args.TakeNumber(c, L"OPTION"));
  return Reporting(KEL_EXPORT(KelLaunchIEBySearch), tileMode, searchMode, option);
}

std::vector<Command> MakeCommands() {
  std::vector<Command> commands;
  commands.push_back(
      {L"info", L"",
       L"Prints what the library finds in this process, without calling any export and without changing "
       L"anything: the DLL loaded (full path, file version, x86 or x64), the Windows version this process is "
       L"told and whether the Windows 8.1 behaviour applies, each setting under HKCU\\Software\\Osk\\Kelbrook "
       L"with its value or \"(default N)\", the log file, the data folder for kelcli.exe, the data file and "
       L"the preset file with how many packages and desktop apps each holds.",
       [](const wchar_t*, Arguments&) -> Call { return PrintInfo; }});
  commands.push_back(
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
         throw UsageError{std::wstring(c) +
                          L" runs alone: kelcli selftest [--report FILE|FOLDER] [--intrusive [--url URL]]"};
       }});
  commands.push_back({L"initialize", L"",
                      L"KelInitialize. The first call starts the package manager: it loads the data file (the preset "
                      L"file while there is no data file) and starts the refresh thread, which finds the installed "
                      L"packages and Start menu shortcuts and writes the data file. Later calls only count up.",
                      [](const wchar_t*, Arguments&) { return Reporting(KEL_EXPORT(KelInitialize)); }});
  commands.push_back({L"finalize", L"",
                      L"KelFinalize. Counts one initialize down; at zero it stops the refresh thread.",
                      [](const wchar_t*, Arguments&) { return Done(KEL_EXPORT(KelFinalize)); }});
  AddTwins(commands, L"launch-protocol", L"URL",
           L"Opens URL (any protocol, e.g. http:, mailto:, an app's own) with the handler Windows has registered "
           L"for it.",
           KEL_EXPORT(KelLaunchByProtocolW), KEL_EXPORT(KelLaunchByProtocolA), kText);
  AddTwins(commands, L"launch-store", L"PFN",
           L"Opens the Store page of the package family PFN (ms-windows-store:PDP?PFN=...).",
           KEL_EXPORT(KelLaunchStoreW), KEL_EXPORT(KelLaunchStoreA), kText);
  AddTwins(commands, L"is-installed", L"PFN",
           L"Prints \"installed = 1\" when a package of the family PFN is installed for the current user, "
           L"\"installed = 0\" otherwise.",
           KEL_EXPORT(KelIsInstalledW), KEL_EXPORT(KelIsInstalledA), kInstalled);
  AddTwins(commands, L"launch-search", L"KEYWORD MODE OPTION",
           L"Opens the Start screen's search pane and types KEYWORD into it through the clipboard and the "
           L"keyboard, as MODE and OPTION say (below). Blocks for several seconds.",
           KEL_EXPORT(KelLaunchBySearchW), KEL_EXPORT(KelLaunchBySearchA), kTextModeOption);
  AddTwins(commands, L"launch-pfn", L"PFN MODE OPTION",
           L"Looks up the display name of the package family PFN and searches for it as launch-search does.",
           KEL_EXPORT(KelLaunchByPFNW), KEL_EXPORT(KelLaunchByPFNA), kTextModeOption);
  AddTwins(commands, L"launch-browser", L"URL MODE",
           L"Opens an http: or https: URL in Internet Explorer with the association mode MODE (below) set for "
           L"the launch.",
           KEL_EXPORT(KelLaunchBrowserByProtocolW), KEL_EXPORT(KelLaunchBrowserByProtocolA), kTextMode);
  commands.push_back({L"launch-ie", L"TILEMODE SEARCHMODE OPTION",
                      L"KelLaunchIEBySearch. Starts Internet Explorer by searching for it as launch-search does "
                      L"(with the search mode SEARCHMODE and OPTION), with the tile mode TILEMODE (below) set for "
                      L"the launch.",
                      LaunchIe});
  commands.push_back({L"launch-app", L"AUMID [ARGS]",
                      L"KelLaunchByAppUserModelIdW. Starts the Store app AUMID (PackageFamilyName!AppId) and hands "
                      L"it ARGS; without ARGS the arguments are NULL. The word after AUMID is taken as ARGS unless "
                      L"it is a command.",
                      LaunchApp});
  commands.push_back({L"launch-app-a", L"AUMID",
                      L"KelLaunchByAppUserModelIdA: launch-app with the AUMID in Shift JIS and no ARGS.",
                      [](const wchar_t* c, Arguments& args) {
                        return kText(KEL_EXPORT(KelLaunchByAppUserModelIdA), c, args, L"AUMID", TakeNarrow);
                      }});
  commands.push_back({L"display-name", L"PFN",
                      L"KelGetAppDisplayNameByPFNW, then KelReleaseStringW. Prints the display name of the "
                      L"application of the package family PFN, read from the package's manifest.",
                      DisplayName});
  commands.push_back({L"monitor-mode", L"",
                      L"KelGetMonitorMode. Prints what the user has in front: mode = 0 the desktop, 1 a Store app, "
                      L"2 the Start screen.",
                      [](const wchar_t*, Arguments&) -> Call { return PrintMonitorMode; }});
  commands.push_back({L"release-string-a", L"",
                      L"KelReleaseStringA(NULL): frees nothing; shows that the export is there.",
                      [](const wchar_t*, Arguments&) { return Done(KEL_EXPORT(KelReleaseStringA), nullptr); }});
  commands.push_back({L"release-string-w", L"",
                      L"KelReleaseStringW(NULL): frees nothing; shows that the export is there.",
                      [](const wchar_t*, Arguments&) { return Done(KEL_EXPORT(KelReleaseStringW), nullptr); }});
  return commands;
}

const std::vector<Command>& Commands() {
  static const std::vector<Command> kCommands = MakeCommands();
  return kCommands;
}

bool IsCommandName(const std::wstring& word) {
  for (const Command& command : Commands())
    if (word == command.name) return true;
  return false;
}

std::wstring Synopsis(const Command& command) {
  std::wstring text = command.name;
  if (!command.arguments.empty()) text += L" " + command.arguments;
  return text;
}

// Breaks `text` into lines of at most `width` characters, each indented.
std::wstring Wrap(const std::wstring& text, size_t indent, size_t width) {
  std::wstring result;
  std::wstring current;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find(L' ', at);
    if (end == std::wstring::npos) end = text.size();
    std::wstring word = text.substr(at, end - at);
    if (!current.empty() && indent + current.size() + 1 + word.size() > width) {
      result += std::wstring(indent, L' ') + current + L"\n";
      current.clear();
    }
    current += (current.empty() ? L"" : L" ") + word;
    at = end + 1;
  }
  if (!current.empty()) result += std::wstring(indent, L' ') + current + L"\n";
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

}  // namespace

// Reads one sub-command with its arguments and returns the call it stands for.
Call ParseCommand(Arguments& args) {
  const std::wstring word = args.Take(L"kelcli", L"sub-command");
  for (const Command& command : Commands())
    if (word == command.name) return command.parse(command.name.c_str(), args);
  throw UsageError{L"unknown sub-command \"" + word + L"\""};
}

// The short form, shown on bad usage.
std::wstring Usage() {
  std::wstring text =
      L"usage: kelcli COMMAND [ARGS...] [COMMAND [ARGS...]]...\n"
      L"Commands:\n";
  for (const Command& command : Commands()) text += L"  " + Synopsis(command) + L"\n";
  return text + L"kelcli --help explains every command, mode and option.\n";
}

// The long form, for --help.
std::wstring Help() {
  constexpr size_t kWidth = 100;
  std::wstring text;
  std::wstring introduction = kHelpIntroduction;
  // The two usage lines stand as they are; the paragraph after them wraps.
  size_t paragraph = introduction.find(L"\n\n") + 2;
  text += introduction.substr(0, paragraph) +
          Wrap(introduction.substr(paragraph, introduction.size() - paragraph - 1), 0, kWidth);
  text += L"\nCommands:\n";
  for (const Command& command : Commands()) text += L"  " + Synopsis(command) + L"\n" + Wrap(command.help, 6, kWidth);
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
      std::wstring body = Wrap(one.substr(textAt), textAt, kWidth);
      text += head + body.substr(textAt);
    } else {
      text += Wrap(one, 0, kWidth);
    }
    at = end + 1;
  }
  return text;
}

}  // namespace kelcli
