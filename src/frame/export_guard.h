// Exports never let an exception reach the host: whatever escapes the body
// becomes a failing result (or nothing, for the void exports).
#pragma once

#include <new>
#include <utility>

#include "platform/types.h"

namespace kel {

// The result of `body`, or E_OUTOFMEMORY / E_FAIL for whatever it throws.
// Also for the steps of a background pass, which must not end their thread.
template <typename Body>
[[nodiscard]] HRESULT CaughtResult(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

template <typename Body>
[[nodiscard]] HRESULT GuardExport(Body&& body) noexcept {
  return CaughtResult(std::forward<Body>(body));
}

template <typename Body>
void GuardVoidExport(Body&& body) noexcept {
  try {
    body();
  } catch (...) {
  }
}

}  // namespace kel
