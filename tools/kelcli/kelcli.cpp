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

#include <string>
#include <vector>

#include "commands.h"
#include "console.h"
#include "library.h"
#include "selftest.h"

using namespace kelcli;

int main() {
  int argc = 0;
  LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argv == nullptr || argc < 2) {
    WriteError(Usage());
    return 2;
  }
  std::wstring first = argv[1];
  if (first == L"-h" || first == L"--help" || first == L"/?") {
    Write(Help());
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
        WriteError(L"kelcli: selftest: unknown option \"" + option + L"\"\n\n" + Usage());
        return 2;
      }
    }
    LocalFree(argv);
    if (!options.url.empty() && !options.intrusive) {
      WriteError(L"kelcli: selftest: --url is for the protocol launch, which only --intrusive makes\n\n" + Usage());
      return 2;
    }
    return RunSelfTest(options);
  }

  // Every sub-command is checked before the first call is made.
  std::vector<Call> calls;
  try {
    Arguments args(argv, argc);
    while (!args.Done()) calls.push_back(ParseCommand(args));
  } catch (const UsageError& error) {
    WriteError(L"kelcli: " + error.message + L"\n\n" + Usage());
    return 2;
  }
  LocalFree(argv);

  Library library;
  std::wstring error;
  if (!library.Load(error)) {
    WriteError(error);
    return 1;
  }
  bool allSucceeded = true;
  for (const Call& call : calls) allSucceeded = call(library) && allSucceeded;
  return allSucceeded ? 0 : 1;
}
