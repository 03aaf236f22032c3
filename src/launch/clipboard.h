// CKELClipboard: puts a wide string on the clipboard as CF_UNICODETEXT.
#pragma once

#include "platform/types.h"

namespace kel {

class CKELClipboard {
 public:
  [[nodiscard]] static HRESULT SetClipboardData(const char16_t* text);
};

}  // namespace kel
