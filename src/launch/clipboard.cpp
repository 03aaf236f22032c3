#include "launch/clipboard.h"

#include <cstring>

#include "frame/log.h"
#include "frame/wide.h"
#include "platform/platform.h"

namespace kel {

HRESULT CKELClipboard::SetClipboardData(const char16_t* text) {
  constexpr char16_t kName[] = u"CKELClipboard::SetClipboardData";
  WriteDebugLog("%S(%S) IN\r\n", kName, text);
  HRESULT result = S_OK;
  if (text == nullptr) {
    result = E_POINTER;
  } else if (text[0] == 0) {
    result = E_INVALIDARG;
  } else {
    auto& sys = platform::Current();
    if (!sys.OpenClipboard(nullptr)) {
      result = E_FAIL;
    } else {
      const std::size_t length = WideLength(text);
      Handle block = sys.GlobalAlloc(platform::GHND, (length + 1) * sizeof(char16_t));
      void* locked = nullptr;
      if (block == nullptr) {
        WriteDebugLog("%S ERROR GlobalAlloc(GHND, szLen) Failed\r\n", kName);
        result = E_FAIL;
      } else if ((locked = sys.GlobalLock(block)) == nullptr) {
        WriteDebugLog("%S ERROR GlobalLock(hg) Failed\r\n", kName);
        sys.GlobalFree(block);
        result = E_FAIL;
      } else {
        std::memcpy(locked, text, (length + 1) * sizeof(char16_t));
        sys.GlobalUnlock(block);
        sys.EmptyClipboard();
        if (sys.SetClipboardData(platform::CF_UNICODETEXT, block) == nullptr) {
          WriteDebugLog("%S ERROR SetClipboardData(CF_UNICODETEXT, hg) Failed. ErrCode = %d\r\n", kName,
                        sys.GetLastError());
        }
        // The block is freed after the hand-over as well: this is the
        // library's long-standing behaviour and hosts rely on it unchanged.
        sys.GlobalFree(block);
      }
      sys.CloseClipboard();
    }
  }
  WriteDebugLog("%S OUT(0x%08X)\r\n", kName, result);
  return result;
}

}  // namespace kel
