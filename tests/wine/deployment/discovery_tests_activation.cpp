// discovery_tests.exe: launches by application user model ID, which reach
// the activation manager double's in-process server with arguments and its
// local server without.

#include "discovery_tests.h"

#include <objbase.h>
#include <shobjidl.h>

#include <string>

#include "Kelbrook.h"

namespace discovery_tests {

namespace {

// COM initialised on the calling thread for the test's lifetime: the library
// uses the caller's COM state for activation.
class ComScope {
 public:
  ComScope() {
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr)) fail("CoInitializeEx returned " + hex(hr));
  }
  ~ComScope() { CoUninitialize(); }
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;
};

std::string activationLine(const char* server, const std::wstring& id, const wchar_t* arguments, HRESULT result) {
  return "ActivateApplication\t" + std::string(server) + "\t" + narrow(id) + "\t" +
         (arguments != nullptr ? narrow(arguments) : std::string("<null>")) + "\t0\t" + hex(result);
}

// The in-process server of the activation manager double, as registered.
std::wstring registeredActivationServer() {
  wchar_t path[MAX_PATH + 1] = {};
  LONG size = sizeof path - sizeof(wchar_t);
  const LONG status = RegQueryValueW(
      HKEY_LOCAL_MACHINE, L"Software\\Classes\\CLSID\\{45BA127D-10A8-46EA-8AB7-56EA9078943C}\\InprocServer32", path,
      &size);
  if (status != ERROR_SUCCESS) {
    fail(format("the activation manager double is not registered (RegQueryValueW gave %ld); run "
                "register_doubles.sh register",
                status));
  }
  return path;
}

// Plays the activation manager's own process: the double's local-server
// class object registered with CLSCTX_LOCAL_SERVER in this process.
class LocalActivationServer {
 public:
  LocalActivationServer() {
    const std::wstring path = registeredActivationServer();
    HMODULE module = LoadLibraryW(path.c_str());
    if (module == nullptr) fail(format("LoadLibraryW(%s) failed with %lu", narrow(path).c_str(), GetLastError()));
    using Create = HRESULT(WINAPI*)(IClassFactory**);
    auto create = reinterpret_cast<Create>(reinterpret_cast<void*>(GetProcAddress(module, "CreateLocalServerClassObject")));
    if (create == nullptr) fail(narrow(path) + " has no CreateLocalServerClassObject");
    HRESULT hr = create(&factory_);
    if (FAILED(hr)) fail("CreateLocalServerClassObject returned " + hex(hr));
    hr = CoRegisterClassObject(CLSID_ApplicationActivationManager, factory_, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                               &cookie_);
    if (FAILED(hr)) {
      factory_->Release();
      fail("CoRegisterClassObject(CLSID_ApplicationActivationManager, CLSCTX_LOCAL_SERVER) returned " + hex(hr));
    }
  }
  ~LocalActivationServer() {
    CoRevokeClassObject(cookie_);
    factory_->Release();
  }
  LocalActivationServer(const LocalActivationServer&) = delete;
  LocalActivationServer& operator=(const LocalActivationServer&) = delete;

 private:
  IClassFactory* factory_ = nullptr;
  DWORD cookie_ = 0;
};

}  // namespace

// With arguments the library asks for the in-process server (the one
// registered under InprocServer32) and passes the arguments on.
void ActivationWithArgumentsUsesTheInProcessServer(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  auto launch = KEL(library, KelLaunchByAppUserModelIdW);

  // The library relies on the caller's COM: without it nothing is activated.
  expectResult(launch(kReaderApp, L"x"), CO_E_NOTINITIALIZED,
               "KelLaunchByAppUserModelIdW(Kel.Reader!App, L\"x\") on a thread without COM",
               [&] { return world.detail(); });
  if (countStartingWith(world.journalLines(), "ActivateApplication\t") != 0) {
    fail("an activation reached the activation manager on a thread without COM", world.detail());
  }

  ComScope com;
  const wchar_t arguments[] = L"--page 2 \"quoted text\"";
  expectResult(launch(kReaderApp, arguments), S_OK, "KelLaunchByAppUserModelIdW(Kel.Reader!App, arguments)",
               [&] { return world.detail(); });
  expectJournalLine(world, activationLine("inproc", kReaderApp, arguments, S_OK), "the activation with arguments");

  // An empty arguments string is still the form with arguments.
  expectResult(launch(kTwinsLeftApp, L""), S_OK, "KelLaunchByAppUserModelIdW(Kel.Twins!Left, L\"\")",
               [&] { return world.detail(); });
  expectJournalLine(world, activationLine("inproc", kTwinsLeftApp, L"", S_OK), "the activation with empty arguments");

  // The activation manager's failure comes back unchanged.
  expectResult(launch(kUnknownApp, L"x"), kUnknownAppResult, "KelLaunchByAppUserModelIdW(Kel.Unknown!App, L\"x\")",
               [&] { return world.detail(); });
  expectJournalLine(world, activationLine("inproc", kUnknownApp, L"x", kUnknownAppResult),
                    "the activation of an unknown application");
  if (countStartingWith(world.journalLines(), "ActivateApplication\tlocalserver\t") != 0) {
    fail("an activation with arguments reached the local server", world.detail());
  }
}

// Without arguments the library asks for the local server (on Windows the
// activation manager's own process), lets it take the foreground and passes
// no arguments.
void ActivationWithoutArgumentsUsesTheLocalServer(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  ComScope com;
  Library library(dllPath);
  auto launch = KEL(library, KelLaunchByAppUserModelIdW);

  // Before the local server is there, the in-process server registered for
  // the class is not taken instead.
  expectResult(launch(kReaderApp, nullptr), REGDB_E_CLASSNOTREG,
               "KelLaunchByAppUserModelIdW(Kel.Reader!App, NULL) without a local server",
               [&] { return world.detail(); });

  {
    LocalActivationServer server;
    expectResult(launch(kReaderApp, nullptr), S_OK, "KelLaunchByAppUserModelIdW(Kel.Reader!App, NULL)",
                 [&] { return world.detail(); });
    expectJournalLine(world, activationLine("localserver", kReaderApp, nullptr, S_OK),
                      "the activation without arguments");

    // The narrow export has no arguments: the same form.
    expectResult(KEL(library, KelLaunchByAppUserModelIdA)("Kel.Twins_8h9j0k1m2n3p4!Left"), S_OK,
                 "KelLaunchByAppUserModelIdA(Kel.Twins!Left)", [&] { return world.detail(); });
    expectJournalLine(world, activationLine("localserver", kTwinsLeftApp, nullptr, S_OK),
                      "the narrow activation");

    expectResult(launch(kUnknownApp, nullptr), kUnknownAppResult, "KelLaunchByAppUserModelIdW(Kel.Unknown!App, NULL)",
                 [&] { return world.detail(); });
    expectJournalLine(world, activationLine("localserver", kUnknownApp, nullptr, kUnknownAppResult),
                      "the activation of an unknown application");
  }
  if (countStartingWith(world.journalLines(), "ActivateApplication\tinproc\t") != 0) {
    fail("an activation without arguments reached the in-process server", world.detail());
  }
  const std::string log = readFile(world.logFile());
  if (log.find("CKELPackageManager::LaunchStoreApp OUT(ActivateApplication hr = 0)") == std::string::npos) {
    fail("the log has no line of the one-argument form's successful activation", world.detail());
  }
}

}  // namespace discovery_tests
