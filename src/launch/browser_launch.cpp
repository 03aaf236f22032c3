// Starts the browser in a chosen mode, changing its per-user association
// values for the moment of the launch.
#include "frame/export_guard.h"
#include "frame/exports.h"
#include "frame/log.h"

using namespace kel;

namespace {

HRESULT Exit(const char16_t* name, HRESULT result) {
  WriteDebugLog("%S OUT(0x%08X)\r\n", name, result);
  return result;
}

}  // namespace

extern "C" HRESULT KELAPI KelLaunchBrowserByProtocolW(const char16_t* pszUrl, DWORD dwAssociationMode) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchBrowserByProtocolW";
    WriteDebugLog("%S(%S, %d) IN\r\n", kName, pszUrl, dwAssociationMode);
    if (pszUrl == nullptr) return Exit(kName, E_POINTER);
    if (pszUrl[0] == 0 || dwAssociationMode > 2) return Exit(kName, E_INVALIDARG);
    // The association-mode launch joins with the search launch.
    return Exit(kName, E_NOTIMPL);
  });
}

extern "C" HRESULT KELAPI KelLaunchIEBySearch(DWORD dwTileMode, DWORD dwSearchMode, std::int32_t nOption) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchIEBySearch";
    WriteDebugLog("%S(%d, %d, %d) IN\r\n", kName, dwTileMode, dwSearchMode, nOption);
    if (dwTileMode > 2 || dwSearchMode > 2) return Exit(kName, E_INVALIDARG);
    // The tile-mode launch joins with the search launch.
    return Exit(kName, E_NOTIMPL);
  });
}
