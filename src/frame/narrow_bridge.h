// The narrow-string bridge: every A export takes Shift JIS (code page 932)
// text whatever the system's ANSI code page, converts it into a wide copy,
// calls its W partner and frees the copy.
#pragma once

#include "platform/types.h"

namespace kel {

// On success *ppWideChar receives a malloc'ed, zero-terminated wide copy of
// `source` that the caller frees with free().
[[nodiscard]] HRESULT ShiftJisToWideChar(const char* source, char16_t** ppWideChar);

}  // namespace kel
