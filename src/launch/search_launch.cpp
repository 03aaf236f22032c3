// Starts something by typing into the Windows search pane.
#include "frame/export_guard.h"
#include "frame/exports.h"
#include "frame/log.h"

using namespace kel;

extern "C" HRESULT KELAPI KelLaunchBySearchW(const char16_t* pszKeyword, DWORD dwMode, std::int32_t nOption) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchBySearchW";
    WriteDebugLog("%S(%S, %d, %d) IN\r\n", kName, pszKeyword, dwMode, nOption);
    HRESULT result;
    if (pszKeyword == nullptr) {
      result = E_POINTER;
    } else if (pszKeyword[0] == 0 || dwMode > 2) {
      result = E_INVALIDARG;
    } else {
      // Typing into the search pane joins once the keyboard, clipboard and
      // Start screen drivers are in place.
      result = E_NOTIMPL;
    }
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, result);
    return result;
  });
}
