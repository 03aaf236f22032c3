// activation_manager.dll: a stand-in for the shell's application activation
// manager (CLSID_ApplicationActivationManager, IApplicationActivationManager)
// for the Wine tests, which have none.
//
// Two ways in, one implementation:
//   - as the in-process server of the class: register_doubles.sh registers
//     the DLL under HKLM\Software\Classes\CLSID\{45BA127D-...}\InprocServer32,
//     so CoCreateInstance with CLSCTX_INPROC_SERVER loads it and
//     DllGetClassObject hands out its class object;
//   - as a local server: Windows runs the activation manager in another
//     process. A test host stands in for that process by registering the
//     class object of CreateLocalServerClassObject with
//     CoRegisterClassObject(CLSID, ..., CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE)
//     in its own process, which is where Wine then finds it.
// The objects of the two class objects differ only in the server name they
// journal ("inproc" or "localserver").
//
// ActivateApplication answers what the fixture file (double_fixture.h) says
// for the application user model ID in its [Application] sections (Result=,
// ProcessId=), and [Activation] UnknownResult= (default 0x80070002,
// ERROR_FILE_NOT_FOUND) for any other ID. Each call is journalled as
//   ActivateApplication <server> <id> <arguments or "<null>"> <options> <result>
// (tab-separated). ActivateForFile and ActivateForProtocol answer E_NOTIMPL.

#include "support/com_object.h"

#include <shobjidl.h>

#include <string>

#include "double_fixture.h"

using deployment_double::Fixture;
using deployment_double::FixtureSection;
using wine_test::ComObject;
using wine_test::CreateAs;

namespace {

LONG g_liveObjects = 0;  // for DllCanUnloadNow
LONG g_locks = 0;        // IClassFactory::LockServer

constexpr HRESULT kDefaultUnknownResult = static_cast<HRESULT>(0x80070002L);

struct Live {
  Live() { InterlockedIncrement(&g_liveObjects); }
  ~Live() { InterlockedDecrement(&g_liveObjects); }
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;
};

class ActivationManager final : public ComObject<IApplicationActivationManager, IID_IApplicationActivationManager> {
 public:
  explicit ActivationManager(const wchar_t* server) : server_(server) {}

  HRESULT STDMETHODCALLTYPE ActivateApplication(LPCWSTR appUserModelId, LPCWSTR arguments, ACTIVATEOPTIONS options,
                                                DWORD* processId) override {
    const Fixture fixture = deployment_double::LoadFixture();
    const std::wstring id = appUserModelId != nullptr ? appUserModelId : L"<null>";
    HRESULT result = kDefaultUnknownResult;
    DWORD process = 0;
    if (const FixtureSection* activation = fixture.First(L"Activation")) {
      result = static_cast<HRESULT>(
          deployment_double::ParseNumber(activation->Get(L"UnknownResult"), static_cast<unsigned long>(result)));
    }
    if (appUserModelId != nullptr) {
      for (const FixtureSection* application : fixture.All(L"Application")) {
        // Application user model IDs are compared ignoring case, as the shell does.
        if (CompareStringOrdinal(application->Get(L"AppUserModelId").c_str(), -1, appUserModelId, -1, TRUE) !=
            CSTR_EQUAL) {
          continue;
        }
        result = static_cast<HRESULT>(deployment_double::ParseNumber(application->Get(L"Result"), S_OK));
        process = deployment_double::ParseNumber(application->Get(L"ProcessId"), 0);
        break;
      }
    }
    if (processId != nullptr) *processId = SUCCEEDED(result) ? process : 0;
    Journal(fixture, std::wstring(L"ActivateApplication\t") + server_ + L"\t" + id + L"\t" +
                         (arguments != nullptr ? std::wstring(arguments) : std::wstring(L"<null>")) + L"\t" +
                         std::to_wstring(static_cast<int>(options)) + L"\t" +
                         deployment_double::Hex(static_cast<unsigned long>(result)));
    return result;
  }
  HRESULT STDMETHODCALLTYPE ActivateForFile(LPCWSTR, IShellItemArray*, LPCWSTR, DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ActivateForProtocol(LPCWSTR, IShellItemArray*, DWORD*) override { return E_NOTIMPL; }

 private:
  ~ActivationManager() override = default;
  Live live_;
  const wchar_t* server_;
};

class ClassObject final : public ComObject<IClassFactory, IID_IClassFactory> {
 public:
  explicit ClassObject(const wchar_t* server) : server_(server) {}

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    return CreateAs<ActivationManager>(outer, iid, object, server_);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock) {
      InterlockedIncrement(&g_locks);
    } else {
      InterlockedDecrement(&g_locks);
    }
    return S_OK;
  }

 private:
  ~ClassObject() override = default;
  Live live_;
  const wchar_t* server_;
};

}  // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (clsid != CLSID_ApplicationActivationManager) return CLASS_E_CLASSNOTAVAILABLE;
  return CreateAs<ClassObject>(nullptr, iid, object, L"inproc");
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return g_liveObjects == 0 && g_locks == 0 ? S_OK : S_FALSE; }

// The class object a test host registers with CLSCTX_LOCAL_SERVER to play the
// activation manager's own process. One reference for the caller.
extern "C" HRESULT WINAPI CreateLocalServerClassObject(IClassFactory** factory) {
  if (factory == nullptr) return E_POINTER;
  *factory = new (std::nothrow) ClassObject(L"localserver");
  return *factory != nullptr ? S_OK : E_OUTOFMEMORY;
}
