// Starts the browser in a chosen mode: its per-user association value is set
// for the moment of the launch and put back afterwards, so the user's
// settings end as they were found.
#include "frame/export_guard.h"
#include "frame/exports.h"
#include "frame/log.h"
#include "frame/non_copyable.h"
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

// A browser value a launch sets for its own duration: how it is read, set
// and removed, what it reads as when absent, what modes 0 and 1 write (mode
// 2 leaves it as it is), and whether the browser needs a while to read it
// before it goes back.
struct LaunchValue {
  LONG (*read)(DWORD*);
  bool (*write)(DWORD);
  bool (*remove)();
  DWORD absent;
  DWORD valueOfMode[2];
  bool waitBeforeRestore;
};

// Mode 0 stands for 2 in the association value but for 0 in the tile value.
constexpr LaunchValue kAssociationMode{&CKELReg::GetCurrentAssociationMode,
                                       &CKELReg::SetCurrentAssociationMode,
                                       &CKELReg::DeleteAssociationMode,
                                       /*absent=*/0,
                                       /*valueOfMode=*/{2, 1},
                                       /*waitBeforeRestore=*/true};
// The tile value serves a search launch, which has taken its own time: the
// value goes back at once.
constexpr LaunchValue kTileImmersiveActivation{&CKELReg::GetCurrentTileImmersiveActivation,
                                               &CKELReg::SetCurrentTileImmersiveActivation,
                                               &CKELReg::DeleteTileImmersiveActivation,
                                               /*absent=*/1,
                                               /*valueOfMode=*/{0, 1},
                                               /*waitBeforeRestore=*/false};

// Puts the browser's value back when the scope ends, however it ends: the
// user's setting must not stay changed because something failed on the way.
template <typename Restore>
class RestoredAtEnd : NonCopyable {
 public:
  explicit RestoredAtEnd(Restore restore) : restore_(restore) {}
  ~RestoredAtEnd() {
    try {
      restore_();
    } catch (...) {
      // Only a trace line can fail here, and it must not take the host down.
    }
  }

 private:
  Restore restore_;
};

// Runs `launch` with `value` set as `mode` wants it, and puts the value back
// as it was found once the launch has ended (removed if it was absent); a
// value that could not be read is left alone.
template <typename Launch>
[[nodiscard]] HRESULT LaunchWithValue(const LaunchValue& value, DWORD mode, Launch launch) {
  DWORD current = value.absent;
  const LONG readCode = value.read(&current);
  bool changed = false;
  const RestoredAtEnd restore([&] {
    const bool putBack = readCode == ERROR_SUCCESS && changed;
    if (!putBack && readCode != ERROR_FILE_NOT_FOUND) return;
    if (value.waitBeforeRestore) platform::Current().Sleep(CKELReg::GetRestoreRegistryWaitTime());
    if (putBack) {
      value.write(current);
    } else {
      value.remove();
    }
  });
  if ((readCode == ERROR_SUCCESS || readCode == ERROR_FILE_NOT_FOUND) && mode < 2 &&
      current != value.valueOfMode[mode]) {
    changed = true;
    value.write(value.valueOfMode[mode]);
  }
  return launch();
}

}  // namespace

extern "C" HRESULT KELAPI KelLaunchBrowserByProtocolW(const char16_t* pszUrl, DWORD dwAssociationMode) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchBrowserByProtocolW";
    WriteDebugLog("%S(%S, %d) IN\r\n", kName, pszUrl, dwAssociationMode);
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckLaunchArguments(pszUrl, dwAssociationMode));
    if (!HasWebScheme(pszUrl)) return TraceExit(kName, E_INVALIDARG);
    return TraceExit(
        kName, LaunchWithValue(kAssociationMode, dwAssociationMode, [&] { return KelLaunchByProtocolW(pszUrl); }));
  });
}

extern "C" HRESULT KELAPI KelLaunchIEBySearch(DWORD dwTileMode, DWORD dwSearchMode, std::int32_t nOption) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchIEBySearch";
    WriteDebugLog("%S(%d, %d, %d) IN\r\n", kName, dwTileMode, dwSearchMode, nOption);
    if (dwTileMode > 2 || dwSearchMode > 2) return TraceExit(kName, E_INVALIDARG);
    return TraceExit(kName, LaunchWithValue(kTileImmersiveActivation, dwTileMode, [&] {
                       return KelLaunchBySearchW(kInternetExplorer, dwSearchMode, nOption);
                     }));
  });
}
