// The search launch's version-dependent notice.
#pragma once

#include "platform/types.h"

namespace kel {

// Whether the keyword is the Messaging app's name on a system (8.1) that no
// longer has it.
BOOL IsMessagingUnavailable(const char16_t* keyword);

}  // namespace kel
