// Starts the browser in a chosen mode: its per-user association value is set
// for the moment of the launch and put back afterwards, so the user's
// settings end as they were found.
#include "frame/export_guard.h"
#include "frame/exports.h"
#include "frame/log.h"
#include "frame/reg.h"
#include "frame/trace_exit.h"
#include "frame/wide.h"
#include "platform/platform.h"

using namespace kel;

namespace {

constexpr char16_t kInternetExplorer[] = u"Internet Explorer";

// The first five characters against "http:", else the first six against
// "https:", ignoring case.
bool HasWebScheme(const char16_t* url) {
  const std::size_t length = WideLength(url);
  auto prefixIs = [&](const char16_t* scheme, std::size_t count) {
    if (length < count) return false;
    for (std::size_t i = 0; i < count; ++i) {
      if (AsciiLower(url[i]) != scheme[i]) return false;
    }
    return true;
  };
  return prefixIs(u"http:", 5) || prefixIs(u"https:", 6);
}

// What each mode writes: mode 0 stands for 2 in the association value but for
// 0 in the tile value; mode 2 writes nothing.
constexpr DWORD kAssociationValueOfMode[] = {2, 1};
constexpr DWORD kTileValueOfMode[] = {0, 1};

// Puts the browser's value back when the scope ends, however it ends: the
// user's setting must not stay changed because something failed on the way.
template <typename Restore>
class RestoredAtEnd {
 public:
  explicit RestoredAtEnd(Restore restore) : restore_(restore) {}
  ~RestoredAtEnd() {
    try {
      restore_();
    } catch (...) {
      // Only a trace line can fail here, and it must not take the host down.
    }
  }
  RestoredAtEnd(const RestoredAtEnd&) = delete;
  RestoredAtEnd& operator=(const RestoredAtEnd&) = delete;

 private:
  Restore restore_;
};

}  // namespace

extern "C" HRESULT KELAPI KelLaunchBrowserByProtocolW(const char16_t* pszUrl, DWORD dwAssociationMode) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchBrowserByProtocolW";
    WriteDebugLog("%S(%S, %d) IN\r\n", kName, pszUrl, dwAssociationMode);
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckLaunchArguments(pszUrl, dwAssociationMode));
    if (!HasWebScheme(pszUrl)) return TraceExit(kName, E_INVALIDARG);

    DWORD current = 0;  // an absent value reads as 0
    const LONG readCode = CKELReg::GetCurrentAssociationMode(&current);
    bool changed = false;
    HRESULT result = S_OK;
    {
      // The wait gives the browser time to read the value before it goes
      // back.
      const RestoredAtEnd restore([&] {
        if (readCode == ERROR_SUCCESS && changed) {
          platform::Current().Sleep(CKELReg::GetRestoreRegistryWaitTime());
          CKELReg::SetCurrentAssociationMode(current);
        } else if (readCode == ERROR_FILE_NOT_FOUND) {
          platform::Current().Sleep(CKELReg::GetRestoreRegistryWaitTime());
          CKELReg::DeleteAssociationMode();
        }
      });
      if ((readCode == ERROR_SUCCESS || readCode == ERROR_FILE_NOT_FOUND) && dwAssociationMode < 2 &&
          current != kAssociationValueOfMode[dwAssociationMode]) {
        changed = true;
        CKELReg::SetCurrentAssociationMode(kAssociationValueOfMode[dwAssociationMode]);
      }
      result = KelLaunchByProtocolW(pszUrl);
    }
    return TraceExit(kName, result);
  });
}

extern "C" HRESULT KELAPI KelLaunchIEBySearch(DWORD dwTileMode, DWORD dwSearchMode, std::int32_t nOption) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchIEBySearch";
    WriteDebugLog("%S(%d, %d, %d) IN\r\n", kName, dwTileMode, dwSearchMode, nOption);
    if (dwTileMode > 2 || dwSearchMode > 2) return TraceExit(kName, E_INVALIDARG);

    DWORD current = 1;  // an absent value reads as 1
    const LONG readCode = CKELReg::GetCurrentTileImmersiveActivation(&current);
    bool changed = false;
    HRESULT result = S_OK;
    {
      // The search launch has taken its own time: the value goes back at
      // once.
      const RestoredAtEnd restore([&] {
        if (readCode == ERROR_SUCCESS && changed) {
          CKELReg::SetCurrentTileImmersiveActivation(current);
        } else if (readCode == ERROR_FILE_NOT_FOUND) {
          CKELReg::DeleteTileImmersiveActivation();
        }
      });
      if ((readCode == ERROR_SUCCESS || readCode == ERROR_FILE_NOT_FOUND) && dwTileMode < 2 &&
          current != kTileValueOfMode[dwTileMode]) {
        changed = true;
        CKELReg::SetCurrentTileImmersiveActivation(kTileValueOfMode[dwTileMode]);
      }
      result = KelLaunchBySearchW(kInternetExplorer, dwSearchMode, nOption);
    }
    return TraceExit(kName, result);
  });
}
