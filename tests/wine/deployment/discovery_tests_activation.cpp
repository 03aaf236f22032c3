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
    if (FAILED(hr)) Fail("CoInitializeEx returned " + Hex(hr));
  }
  ~ComScope() { CoUninitialize(); }
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;
};

std::string ActivationLine(const char* server, const std::wstring& id, const wchar_t* arguments, HRESULT result) {
  return "ActivateApplication\t" + std::string(server) + "\t" + Narrow(id) + "\t" +
         (arguments != nullptr ? Narrow(arguments) : std::string("<null>")) + "\t0\t" + Hex(result);
}

// The in-process server of the activation manager double, as registered.
std::wstring RegisteredActivationServer() {
  wchar_t path[MAX_PATH + 1] = {};
  LONG size = sizeof path - sizeof(wchar_t);
  const LONG status =
      RegQueryValueW(HKEY_LOCAL_MACHINE,
                     L"Software\\Classes\\CLSID\\{45BA127D-10A8-46EA-8AB7-56EA9078943C}\\InprocServer32", path, &size);
  if (status != ERROR_SUCCESS) {
    Fail(
        Format("the activation manager double is not registered (RegQueryValueW gave %ld); run "
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
    const std::wstring path = RegisteredActivationServer();
    HMODULE module = LoadLibraryW(path.c_str());
    if (module == nullptr) Fail(Format("LoadLibraryW(%s) failed with %lu", Narrow(path).c_str(), GetLastError()));
    using Create = HRESULT(WINAPI*)(IClassFactory**);
    auto create =
        reinterpret_cast<Create>(reinterpret_cast<void*>(GetProcAddress(module, "CreateLocalServerClassObject")));
    if (create == nullptr) Fail(Narrow(path) + " has no CreateLocalServerClassObject");
    HRESULT hr = create(&factory_);
    if (FAILED(hr)) Fail("CreateLocalServerClassObject returned " + Hex(hr));
    hr = CoRegisterClassObject(CLSID_ApplicationActivationManager, factory_, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                               &cookie_);
    if (FAILED(hr)) {
      factory_->Release();
      Fail("CoRegisterClassObject(CLSID_ApplicationActivationManager, CLSCTX_LOCAL_SERVER) returned " + Hex(hr));
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
  ExpectResult(launch(kReaderApp, L"x"), CO_E_NOTINITIALIZED,
               "KelLaunchByAppUserModelIdW(Kel.Reader!App, L\"x\") on a thread without COM",
               [&] { return world.Detail(); });
  if (CountStartingWith(world.JournalLines(), "ActivateApplication\t") != 0) {
    Fail("an activation reached the activation manager on a thread without COM", world.Detail());
  }

  ComScope com;
  const wchar_t arguments[] = L"--page 2 \"quoted text\"";
  ExpectResult(launch(kReaderApp, arguments), S_OK, "KelLaunchByAppUserModelIdW(Kel.Reader!App, arguments)",
               [&] { return world.Detail(); });
  ExpectJournalLine(world, ActivationLine("inproc", kReaderApp, arguments, S_OK), "the activation with arguments");

  // An empty arguments string is still the form with arguments.
  ExpectResult(launch(kTwinsLeftApp, L""), S_OK, "KelLaunchByAppUserModelIdW(Kel.Twins!Left, L\"\")",
               [&] { return world.Detail(); });
  ExpectJournalLine(world, ActivationLine("inproc", kTwinsLeftApp, L"", S_OK), "the activation with empty arguments");

  // The activation manager's failure comes back unchanged.
  ExpectResult(launch(kUnknownApp, L"x"), kUnknownAppResult, "KelLaunchByAppUserModelIdW(Kel.Unknown!App, L\"x\")",
               [&] { return world.Detail(); });
  ExpectJournalLine(world, ActivationLine("inproc", kUnknownApp, L"x", kUnknownAppResult),
                    "the activation of an unknown application");
  if (CountStartingWith(world.JournalLines(), "ActivateApplication\tlocalserver\t") != 0) {
    Fail("an activation with arguments reached the local server", world.Detail());
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
  ExpectResult(launch(kReaderApp, nullptr), REGDB_E_CLASSNOTREG,
               "KelLaunchByAppUserModelIdW(Kel.Reader!App, NULL) without a local server",
               [&] { return world.Detail(); });

  {
    LocalActivationServer server;
    ExpectResult(launch(kReaderApp, nullptr), S_OK, "KelLaunchByAppUserModelIdW(Kel.Reader!App, NULL)",
                 [&] { return world.Detail(); });
    ExpectJournalLine(world, ActivationLine("localserver", kReaderApp, nullptr, S_OK),
                      "the activation without arguments");

    // The narrow export has no arguments: the same form.
    ExpectResult(KEL(library, KelLaunchByAppUserModelIdA)("Kel.Twins_8h9j0k1m2n3p4!Left"), S_OK,
                 "KelLaunchByAppUserModelIdA(Kel.Twins!Left)", [&] { return world.Detail(); });
    ExpectJournalLine(world, ActivationLine("localserver", kTwinsLeftApp, nullptr, S_OK), "the narrow activation");

    ExpectResult(launch(kUnknownApp, nullptr), kUnknownAppResult, "KelLaunchByAppUserModelIdW(Kel.Unknown!App, NULL)",
                 [&] { return world.Detail(); });
    ExpectJournalLine(world, ActivationLine("localserver", kUnknownApp, nullptr, kUnknownAppResult),
                      "the activation of an unknown application");
  }
  if (CountStartingWith(world.JournalLines(), "ActivateApplication\tinproc\t") != 0) {
    Fail("an activation without arguments reached the in-process server", world.Detail());
  }
  const std::string log = ReadBytes(world.LogFile());
  if (log.find("CKELPackageManager::LaunchStoreApp OUT(ActivateApplication hr = 0)") == std::string::npos) {
    Fail("the log has no line of the one-argument form's successful activation", world.Detail());
  }
}

}  // namespace discovery_tests
