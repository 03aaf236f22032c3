// Small helpers over the library's wide strings. Case folding is ASCII-only
// (A to Z) everywhere, so names compare the same on every platform.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

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

// The same for counted text: equal lengths, equal units ignoring ASCII case.
// Units that are already equal, the usual case, cost one comparison.
inline bool EqualsIgnoreCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

// Whether `text` begins with `prefix`, ignoring ASCII case.
inline bool StartsWithIgnoreCase(const char16_t* text, const char16_t* prefix) {
  for (; *prefix != 0; ++text, ++prefix) {
    if (AsciiLower(*text) != AsciiLower(*prefix)) return false;
  }
  return true;
}

// Whether `text` holds the unit `c`; four units at a time, for the long
// paths of a catalogue file.
inline bool HasUnit(std::u16string_view text, char16_t c) {
  constexpr std::uint64_t kOnes = 0x0001000100010001ull;
  constexpr std::uint64_t kHighs = 0x8000800080008000ull;
  const std::uint64_t pattern = kOnes * c;
  const char16_t* p = text.data();
  std::size_t n = text.size();
  for (; n >= 4; p += 4, n -= 4) {
    std::uint64_t lanes;
    std::memcpy(&lanes, p, sizeof lanes);
    const std::uint64_t x = lanes ^ pattern;  // a lane holding c becomes zero
    if (((x - kOnes) & ~x & kHighs) != 0) return true;
  }
  for (; n > 0; ++p, --n) {
    if (*p == c) return true;
  }
  return false;
}

inline void LowerInPlace(WString& text) {
  for (char16_t& c : text) c = AsciiLower(c);
}

// A lower-cased copy of `text` in `lowered`; false, with nothing thrown, when
// the memory for the copy cannot be had.
[[nodiscard]] inline bool TryLoweredCopy(const char16_t* text, WString& lowered) noexcept {
  try {
    lowered = text;
  } catch (...) {
    return false;
  }
  LowerInPlace(lowered);
  return true;
}

}  // namespace kel
