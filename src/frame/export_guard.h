// Exports never let an exception reach the host: whatever escapes the body
// becomes a failing result (or nothing, for the void exports).
#pragma once

#include <new>

#include "platform/types.h"

namespace kel {

template <typename Body>
HRESULT GuardExport(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

template <typename Body>
void GuardVoidExport(Body&& body) noexcept {
  try {
    body();
  } catch (...) {
  }
}

}  // namespace kel
