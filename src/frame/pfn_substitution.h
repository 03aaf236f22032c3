// Package family names of Windows 8 apps whose Windows 8.1 successors carry
// another name. Four exports look up the successor where the system is 8.1.
#pragma once

#include "platform/types.h"

namespace kel {

// True with the successor's name in `replacement` when the system's minor
// version is 3 or more and `name` is one of the old names (ignoring case).
bool ReplaceObsoletePFN(const char16_t* name, WString& replacement);

// The name to work with: the successor where ReplaceObsoletePFN would give
// one, else `name` itself. Nothing is copied.
const char16_t* EffectivePFN(const char16_t* name);

}  // namespace kel
