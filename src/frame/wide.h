// Small helpers over the library's wide strings. Case folding is ASCII-only
// (A to Z) everywhere, so names compare the same on every platform.
#pragma once

#include <cstddef>

#include "platform/types.h"

namespace kel {

inline char16_t AsciiLower(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; }

inline std::size_t WideLength(const char16_t* text) {
  std::size_t n = 0;
  if (text != nullptr) {
    while (text[n] != 0) ++n;
  }
  return n;
}

// _wcsicmp == 0 with ASCII folding.
inline bool EqualsIgnoreCase(const char16_t* a, const char16_t* b) {
  for (;; ++a, ++b) {
    if (AsciiLower(*a) != AsciiLower(*b)) return false;
    if (*a == 0) return true;
  }
}

// Whether `text` begins with `prefix`, ignoring ASCII case.
inline bool StartsWithIgnoreCase(const char16_t* text, const char16_t* prefix) {
  for (; *prefix != 0; ++text, ++prefix) {
    if (AsciiLower(*text) != AsciiLower(*prefix)) return false;
  }
  return true;
}

inline void LowerInPlace(WString& text) {
  for (char16_t& c : text) c = AsciiLower(c);
}

}  // namespace kel
