// activation_local_server.exe: the application activation manager's own
// process, for the Wine tests that ask for it the way a caller on Windows
// does, with CoCreateInstance(..., CLSCTX_LOCAL_SERVER, ...) from another
// process.
//
// Registered as the LocalServer32 of CLSID_ApplicationActivationManager, it is
// started by COM with "-Embedding" and registers the class object that
// activation_manager.dll hands out for a local server (its objects journal
// the server name "localserver"). Wine marshals the interface between the
// processes with its own proxy of IApplicationActivationManager.
//
// It ends on its own: 10 seconds after the last object was asked for, or 30
// seconds after it started when none was, so no test has to stop it.
//
//   activation_local_server.exe -Embedding   serve (how COM starts it)

#include "support/com_object.h"

#include <shobjidl.h>

#include <string>

extern "C" HRESULT WINAPI CreateLocalServerClassObject(IClassFactory** factory);

namespace {

constexpr DWORD kIdleMs = 10000;
constexpr DWORD kFirstRequestMs = 30000;

LONG g_lastRequest = 0;  // GetTickCount() of the last CreateInstance, 0 before any

// Forwards to the double's class object and notes when an object is asked
// for, which is all this process needs to know to end when idle.
class CountingClassObject final : public IClassFactory {
 public:
  explicit CountingClassObject(IClassFactory* inner) : inner_(inner) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    return wine_test::QueryOneInterface(static_cast<IClassFactory*>(this), IID_IClassFactory, iid, object);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&references_); }
  ULONG STDMETHODCALLTYPE Release() override { return InterlockedDecrement(&references_); }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    InterlockedExchange(&g_lastRequest, static_cast<LONG>(GetTickCount() | 1));
    return inner_->CreateInstance(outer, iid, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override { return inner_->LockServer(lock); }

 private:
  IClassFactory* inner_;
  LONG references_ = 1;  // lives on main's stack
};

bool Idle(DWORD started) {
  const LONG last = InterlockedCompareExchange(&g_lastRequest, 0, 0);
  if (last == 0) return GetTickCount() - started >= kFirstRequestMs;
  return GetTickCount() - static_cast<DWORD>(last) >= kIdleMs;
}

}  // namespace

int main() {
  const DWORD started = GetTickCount();
  if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return 3;
  IClassFactory* inner = nullptr;
  if (FAILED(CreateLocalServerClassObject(&inner)) || inner == nullptr) {
    CoUninitialize();
    return 4;
  }
  CountingClassObject factory(inner);
  DWORD cookie = 0;
  const HRESULT hr = CoRegisterClassObject(CLSID_ApplicationActivationManager, &factory, CLSCTX_LOCAL_SERVER,
                                           REGCLS_MULTIPLEUSE, &cookie);
  if (SUCCEEDED(hr)) {
    while (!Idle(started)) Sleep(200);
    CoRevokeClassObject(cookie);
  }
  inner->Release();
  CoUninitialize();
  return SUCCEEDED(hr) ? 0 : 5;
}
