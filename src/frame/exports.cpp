// The export frame: argument checks, results and trace lines of the exports
// whose work is done elsewhere, and the counted initialisation.
#include "frame/exports.h"

#include "frame/export_guard.h"
#include "frame/lifecycle.h"
#include "frame/log.h"
#include "frame/pfn_substitution.h"
#include "frame/reg.h"
#include "frame/trace_exit.h"
#include "launch/monitor_mode.h"
#include "package_discovery/package_manager.h"

namespace kel {

std::atomic<std::int32_t> g_nInitCount{0};

void RereadLogSwitch() {
  const bool on = CKELReg::IsDebugLogOn();
  if (on) MakeLogFilePath();
  g_bLogEnabled.store(on ? 1 : 0);
}

}  // namespace kel

using namespace kel;

extern "C" HRESULT KELAPI KelInitialize() {
  return GuardExport([]() -> HRESULT {
    constexpr char16_t kName[] = u"KelInitialize";
    RereadLogSwitch();
    WriteDebugLog("%S IN\r\n", kName);
    HRESULT result = S_OK;
    if (g_nInitCount.load() == 0) {
      result = ThePackageManager().Initialize();
      KEL_RETURN_IF_FAILED_TRACED(kName, result);
    }
    g_nInitCount.fetch_add(1);
    return TraceExit(kName, result);
  });
}

extern "C" void KELAPI KelFinalize() {
  GuardVoidExport([] {
    constexpr char16_t kName[] = u"KelFinalize";
    WriteDebugLog("%S IN\r\n", kName);
    const std::int32_t count = g_nInitCount.fetch_sub(1) - 1;
    if (count == 0) {
      ThePackageManager().Finalize();
    } else if (count < 0) {
      g_nInitCount.store(0);
    }
    WriteDebugLog("%S OUT\r\n", kName);
  });
}

extern "C" HRESULT KELAPI KelLaunchStoreW(const char16_t* pszPackageFamilyName) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchStoreW";
    RereadLogSwitch();
    WriteDebugLog("%S(%S) IN\r\n", kName, pszPackageFamilyName);
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(pszPackageFamilyName));
    const char16_t* name = EffectivePFN(pszPackageFamilyName);
    return TraceExit(kName, ThePackageManager().LaunchStore(name));
  });
}

extern "C" HRESULT KELAPI KelIsInstalledW(const char16_t* pszPackageFamilyName, BOOL* pIsInstalled) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelIsInstalledW";
    RereadLogSwitch();
    WriteDebugLog("%S(%S) IN\r\n", kName, pszPackageFamilyName);
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(pszPackageFamilyName, pIsInstalled));
    const char16_t* name = EffectivePFN(pszPackageFamilyName);
    return TraceExit(kName, ThePackageManager().IsInstalled(name, pIsInstalled));
  });
}

extern "C" HRESULT KELAPI KelGetAppDisplayNameByPFNW(const char16_t* pszPackageFamilyName, char16_t** ppszDisplayName) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelGetAppDisplayNameByPFNW";
    WriteDebugLog("%S(%S, 0x%08X) IN\r\n", kName, pszPackageFamilyName,
                  static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ppszDisplayName)));
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(pszPackageFamilyName, ppszDisplayName));
    const char16_t* name = EffectivePFN(pszPackageFamilyName);
    const HRESULT result = ThePackageManager().GetAppDisplayNameByPFN(name, ppszDisplayName);
    WriteDebugLog("%S OUT(0x%08X) DisplayName = %s\r\n", kName, result, static_cast<const char16_t*>(*ppszDisplayName));
    return result;
  });
}

extern "C" HRESULT KELAPI KelLaunchByPFNW(const char16_t* pszPackageFamilyName, DWORD dwMode, std::int32_t nOption) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchByPFNW";
    WriteDebugLog("%S(%S, %d, %d) IN\r\n", kName, pszPackageFamilyName, dwMode, nOption);
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckLaunchArguments(pszPackageFamilyName, dwMode));
    const char16_t* name = EffectivePFN(pszPackageFamilyName);
    char16_t* displayName = nullptr;
    const HRESULT lookup = ThePackageManager().GetAppDisplayNameByPFN(name, &displayName);
    HRESULT result;
    if (Succeeded(lookup) && displayName != nullptr) {
      result = KelLaunchBySearchW(displayName, dwMode, nOption);
    } else {
      result = lookup == E_KEL_PACKAGE_NOT_FOUND ? E_KEL_PACKAGE_NOT_FOUND : E_KEL_DISPLAY_NAME_FAILED;
    }
    if (displayName != nullptr) KelReleaseStringW(displayName);
    return TraceExit(kName, result);
  });
}

extern "C" HRESULT KELAPI KelLaunchByAppUserModelIdW(const char16_t* pszAppUserModelId, const char16_t* pszArguments) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchByAppUserModelIdW";
    RereadLogSwitch();
    WriteDebugLog("%S(%S) IN\r\n", kName, pszAppUserModelId);
    if (pszAppUserModelId == nullptr) return TraceExit(kName, E_POINTER);
    const HRESULT result = pszArguments != nullptr ? ThePackageManager().LaunchStoreApp(pszAppUserModelId, pszArguments)
                                                   : ThePackageManager().LaunchStoreApp(pszAppUserModelId);
    return TraceExit(kName, result);
  });
}

extern "C" HRESULT KELAPI KelGetMonitorMode(UINT* puMonitorMode) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelGetMonitorMode";
    WriteDebugLog("%S IN\r\n", kName);
    if (puMonitorMode == nullptr) return TraceExit(kName, E_POINTER);
    return TraceExit(kName, CKELMonitorMode::GetMonitorMode(puMonitorMode));
  });
}
