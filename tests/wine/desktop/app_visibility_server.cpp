// app_visibility_server.dll: an in-process COM server for CLSID_AppVisibility
// {7E5FE3D9-985F-4908-91F9-EE19F9FD1514} whose IAppVisibility answers from
// the values the test desktop works with, under
// HKCU\Software\KelbrookTestDesktop (read afresh on every call):
//
//   AppVisibility        DWORD, what GetAppVisibilityOnMonitor reports for any
//                        monitor: 0 MAV_UNKNOWN, 1 MAV_NO_APP_VISIBLE (the
//                        default), 2 MAV_APP_VISIBLE
//   LauncherVisible      DWORD, what IsLauncherVisible reports: 0 (the
//                        default) or 1; the test desktop sets it when it sees
//                        the Windows key alone
//   AppVisibilityResult  DWORD, an HRESULT that GetAppVisibilityOnMonitor
//                        returns instead of answering (default 0, answer)
//   LauncherResult       DWORD, the same for IsLauncherVisible
//   FirstCreationDelayMs DWORD, how long the first request for the class
//                        object in a process takes (default 0): a service
//                        that does not answer, once
//
// GetAppVisibilityOnMonitor rejects a handle that is not a monitor with
// E_INVALIDARG, and either call rejects a null output with E_POINTER. Advise
// and Unadvise are not implemented. wine_prefix.sh registers the DLL under
// HKLM\Software\Classes\CLSID (ThreadingModel Both).

#include "support/com_object.h"
#include "support/wine_test_support.h"

#include <shobjidl.h>

#include <atomic>

namespace {

using wine_test::ComObject;
using wine_test::CreateAs;
using wine_test::QueryOneInterface;
using wine_test::ReadControl;

// {7E5FE3D9-985F-4908-91F9-EE19F9FD1514}
const CLSID kClsidAppVisibility = {0x7E5FE3D9, 0x985F, 0x4908, {0x91, 0xF9, 0xEE, 0x19, 0xF9, 0xFD, 0x15, 0x14}};
// {2246EA2D-CAEA-4444-A3C4-6DE827E44313}
const IID kIidAppVisibility = {0x2246EA2D, 0xCAEA, 0x4444, {0xA3, 0xC4, 0x6D, 0xE8, 0x27, 0xE4, 0x43, 0x13}};

// Live objects and server locks: the DLL may be unloaded when both are 0.
std::atomic<long> g_objects{0};
std::atomic<long> g_locks{0};

class AppVisibility final : public ComObject<IAppVisibility, kIidAppVisibility> {
 public:
  AppVisibility() { ++g_objects; }

  HRESULT STDMETHODCALLTYPE GetAppVisibilityOnMonitor(HMONITOR monitor, MONITOR_APP_VISIBILITY* mode) override {
    if (mode == nullptr) return E_POINTER;
    MONITORINFO info = {};
    info.cbSize = sizeof info;
    if (monitor == nullptr || !GetMonitorInfoW(monitor, &info)) return E_INVALIDARG;
    HRESULT forced = static_cast<HRESULT>(ReadControl(L"AppVisibilityResult", S_OK));
    if (forced != S_OK) return forced;
    *mode = static_cast<MONITOR_APP_VISIBILITY>(ReadControl(L"AppVisibility", MAV_NO_APP_VISIBLE));
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE IsLauncherVisible(BOOL* visible) override {
    if (visible == nullptr) return E_POINTER;
    HRESULT forced = static_cast<HRESULT>(ReadControl(L"LauncherResult", S_OK));
    if (forced != S_OK) return forced;
    *visible = ReadControl(L"LauncherVisible", 0) != 0 ? TRUE : FALSE;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Advise(IAppVisibilityEvents*, DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Unadvise(DWORD) override { return E_NOTIMPL; }

 private:
  ~AppVisibility() override { --g_objects; }
};

class ClassFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    return QueryOneInterface(static_cast<IClassFactory*>(this), IID_IClassFactory, iid, object);
  }

  // The factory is a static object: its references only keep the DLL loaded.
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++g_locks); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--g_locks); }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    return CreateAs<AppVisibility>(outer, iid, object);
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock)
      ++g_locks;
    else
      --g_locks;
    return S_OK;
  }
};

ClassFactory g_factory;

}  // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (!IsEqualCLSID(clsid, kClsidAppVisibility)) return CLASS_E_CLASSNOTAVAILABLE;
  static std::atomic<bool> firstAsked{false};
  if (!firstAsked.exchange(true)) Sleep(ReadControl(L"FirstCreationDelayMs", 0));
  return g_factory.QueryInterface(iid, object);
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return g_objects == 0 && g_locks == 0 ? S_OK : S_FALSE; }
