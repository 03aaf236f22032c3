#include "launch/monitor_mode.h"

#include <string_view>
#include <utility>

#include "frame/log.h"
#include "frame/non_copyable.h"
#include "frame/trace_exit.h"
#include "launch/key_emulate.h"
#include "platform/apartment.h"
#include "platform/com_ptr.h"

namespace kel {
namespace {

constexpr char16_t kSearchPaneClass[] = u"SearchPane";
constexpr int kClassNameCapacity = 260;
constexpr int kStartScreenPolls = 100;
constexpr int kSearchPanePolls = 200;
constexpr DWORD kPollInterval = 100;

// The app visibility object and the apartment it was made in, given back
// through ReleaseIMetroMode: explicitly where the trace wants it, and on
// every other way out, an exception's included.
class AppVisibilityScope : NonCopyable {
 public:
  AppVisibilityScope() = default;
  ~AppVisibilityScope() { Release(); }

  [[nodiscard]] HRESULT Create() {
    const HRESULT hr = CKELMonitorMode::GetIMetroMode(object_.put(), &needUninitialize_);
    open_ = Succeeded(hr);
    return hr;
  }
  platform::AppVisibility* operator->() const { return object_.get(); }
  void Release() {
    if (!std::exchange(open_, false)) return;
    CKELMonitorMode::ReleaseIMetroMode(object_.detach(), needUninitialize_);
  }

 private:
  platform::ComPtr<platform::AppVisibility> object_;
  BOOL needUninitialize_ = 0;
  bool open_ = false;
};

}  // namespace

HRESULT CKELMonitorMode::GetIMetroMode(platform::AppVisibility** object, BOOL* needUninitialize) {
  constexpr char16_t kName[] = u"CKELMonitorMode::GetIMetroMode";
  WriteDebugLog("%S IN\r\n", kName);
  if (object == nullptr || needUninitialize == nullptr) return TraceExit(kName, E_POINTER);
  platform::ScopedComApartment apartment(platform::COINIT_APARTMENTTHREADED);
  if (!apartment) return TraceExit(kName, apartment.Result());
  *needUninitialize = apartment.Owned() ? 1 : 0;
  *object = nullptr;
  platform::ComPtr<platform::AppVisibility> created;
  const HRESULT hr =
      platform::RequireObject(Sys().CreateAppVisibility(platform::CLSCTX_INPROC_SERVER, created.put()), created);
  if (Failed(hr)) {
    // Uninitialised even when the thread's apartment was set before the
    // call: long-standing behaviour that hosts see and that is kept.
    apartment.UninitializeEvenIfNotOwned();
    return TraceExit(kName, hr);
  }
  // The caller's ReleaseIMetroMode undoes the initialisation, told by the flag.
  static_cast<void>(apartment.Detach());
  *object = created.detach();
  return TraceExit(kName, hr);
}

void CKELMonitorMode::ReleaseIMetroMode(platform::AppVisibility* object, BOOL needUninitialize) {
  constexpr char16_t kName[] = u"CKELMonitorMode::ReleaseIMetroMode";
  WriteDebugLog("%S IN\r\n", kName);
  if (object != nullptr) object->Release();
  if (needUninitialize) Sys().CoUninitialize();
  WriteDebugLog("%S OUT\r\n", kName);
}

HRESULT CKELMonitorMode::GetMonitorMode(UINT* mode) {
  constexpr char16_t kName[] = u"CKELMonitorMode::GetMonitorMode";
  WriteDebugLog("%S IN\r\n", kName);
  if (mode == nullptr) return TraceExit(kName, E_POINTER);
  AppVisibilityScope visibilityObject;
  HRESULT result = visibilityObject.Create();
  // GetIMetroMode has traced the failure with its own exit line; this one
  // returns without a line of its own.
  if (Failed(result)) return result;

  Handle monitor = Sys().MonitorFromPoint(platform::Point{0, 0}, platform::MONITOR_DEFAULTTOPRIMARY);
  int visibility = platform::MAV_UNKNOWN;
  BOOL launcher = 0;
  result = visibilityObject->GetAppVisibilityOnMonitor(monitor, &visibility);
  if (Succeeded(result)) result = visibilityObject->IsLauncherVisible(&launcher);
  if (Succeeded(result)) {
    if (launcher) {
      *mode = StartScreen;
    } else if (visibility == platform::MAV_NO_APP_VISIBLE) {
      *mode = Desktop;
    } else if (visibility == platform::MAV_APP_VISIBLE) {
      *mode = StoreApp;
    } else {
      result = E_FAIL;  // the shell does not know: the caller's value stays
    }
  }
  visibilityObject.Release();
  return TraceExit(kName, result);
}

HRESULT CKELMonitorMode::SwitchToStartScreen() {
  constexpr char16_t kName[] = u"CKELMonitorMode::SwitchToStartScreen";
  WriteDebugLog("%S IN\r\n", kName);
  AppVisibilityScope visibilityObject;
  const HRESULT created = visibilityObject.Create();
  KEL_RETURN_IF_FAILED_TRACED(kName, created);

  BOOL visible = 0;
  const HRESULT result = visibilityObject->IsLauncherVisible(&visible);
  if (Failed(result)) {
    // Given back without an exit line: the switch traces its end only after
    // the key press and the wait.
    visibilityObject.Release();
    return result;
  }
  WriteDebugLog("launcherVisibility = %d \r\n", visible);
  CKELKeyEmulate::Sendinput_Win();
  for (int pass = 0; pass < kStartScreenPolls && !visible; ++pass) {
    Sys().Sleep(kPollInterval);
    (void)visibilityObject->IsLauncherVisible(&visible);  // a failed poll just polls again
    WriteDebugLog("launcherVisibility = %d\r\n", visible);
  }
  visibilityObject.Release();
  return TraceExit(kName, result);
}

HRESULT CKELMonitorMode::OpenAppSearchUI() {
  constexpr char16_t kName[] = u"CKELMonitorMode::OpenAppSearchUI";
  WriteDebugLog("%S IN\r\n", kName);
  UINT mode = Desktop;
  // A switch that failed is traced by itself; the search keys follow anyway.
  if (Succeeded(GetMonitorMode(&mode)) && mode != StartScreen) (void)SwitchToStartScreen();
  CKELKeyEmulate::SendInput_Win_Q();
  bool seen = false;
  for (int pass = 0; pass < kSearchPanePolls && !seen; ++pass) {
    Sys().Sleep(kPollInterval);
    seen = IsSearchPaneForeground() != 0;
  }
  Sys().Sleep(200);
  // The exit line always shows 0, whatever the outcome.
  WriteExitLine(kName, S_OK);
  return seen ? S_OK : E_FAIL;
}

BOOL CKELMonitorMode::IsSearchPaneForeground() {
  Handle window = Sys().GetForegroundWindow();
  if (window == nullptr) return 0;
  // On the stack: the search launch polls this between its key strokes, with
  // the query on the clipboard, and must not fail for want of memory there.
  char16_t className[kClassNameCapacity] = {};
  const int length = Sys().GetClassName(window, className, kClassNameCapacity);
  if (length <= 0) return 0;
  return std::u16string_view(className) == kSearchPaneClass ? 1 : 0;
}

}  // namespace kel
