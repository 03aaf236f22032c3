// The character classes and small comparisons that the XML reader and its
// decoder share. They run for every character of a document, so they live
// in a header where every user can inline them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// The scanner's small helpers run for every character; they are forced
// inline so that unoptimised (debug) builds read large documents at a
// reasonable speed too.
#if defined(__GNUC__)
#define KEL_XML_INLINE inline __attribute__((always_inline))
#else
#define KEL_XML_INLINE inline
#endif

namespace kel::xml::scan {

// Where an empty name or value points.
inline constexpr char16_t kEmpty[1] = {0};

KEL_XML_INLINE bool IsSpace(char16_t c) { return c == 0x20 || c == 0x0A || c == 0x09 || c == 0x0D; }

KEL_XML_INLINE bool IsXmlChar(std::uint32_t v) {
  if (v >= 0x20) return v <= 0xD7FF || (v >= 0xE000 && v <= 0xFFFD) || (v >= 0x10000 && v <= 0x10FFFF);
  return v == 0x09 || v == 0x0A || v == 0x0D;
}

// Name characters of the ASCII range, without the colon: namespaces give the
// colon its own meaning, so every name is scanned as colon-free parts.
inline constexpr std::uint8_t kNameStart = 1;
inline constexpr std::uint8_t kNamePart = 2;

struct AsciiNameTable {
  std::uint8_t bits[128] = {};
  constexpr AsciiNameTable() {
    for (int c = 'A'; c <= 'Z'; ++c) bits[c] = kNameStart | kNamePart;
    for (int c = 'a'; c <= 'z'; ++c) bits[c] = kNameStart | kNamePart;
    bits[static_cast<int>('_')] = kNameStart | kNamePart;
    for (int c = '0'; c <= '9'; ++c) bits[c] = kNamePart;
    bits[static_cast<int>('-')] = kNamePart;
    bits[static_cast<int>('.')] = kNamePart;
  }
};
inline constexpr AsciiNameTable kAsciiNames;

inline bool IsWideNameStart(char16_t c) {
  return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
         (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) ||
         (c >= 0x2070 && c <= 0x218F) || (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
         (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD);
}

inline bool IsWideNamePart(char16_t c) {
  return IsWideNameStart(c) || c == 0xB7 || (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// Supplementary characters U+10000..U+EFFFF may appear in names; their high
// surrogates are D800..DB7F. Decoding already paired every surrogate.
KEL_XML_INLINE bool IsNameSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDB7F; }

// Steps over one name start character (colon excluded); false if there is none.
KEL_XML_INLINE bool StepNameStart(char16_t*& p) {
  const char16_t c = *p;
  if (c < 0x80) {
    if (kAsciiNames.bits[c] & kNameStart) {
      ++p;
      return true;
    }
    return false;
  }
  if (IsNameSurrogate(c)) {
    p += 2;
    return true;
  }
  if (IsWideNameStart(c)) {
    ++p;
    return true;
  }
  return false;
}

KEL_XML_INLINE void SkipNameParts(char16_t*& p) {
  for (;;) {
    const char16_t c = *p;
    if (c < 0x80) {
      if (!(kAsciiNames.bits[c] & kNamePart)) return;
      ++p;
    } else if (IsNameSurrogate(c)) {
      p += 2;
    } else if (IsWideNamePart(c)) {
      ++p;
    } else {
      return;
    }
  }
}

// A CR, alone or before an LF, is one line end: writes `lineEnd` in its
// place and steps `p` past it. `p` is at the CR.
KEL_XML_INLINE void FoldLineEnd(char16_t*& p, char16_t*& out, char16_t lineEnd) {
  *out++ = lineEnd;
  ++p;
  if (*p == '\n') ++p;
}

template <std::size_t N>
KEL_XML_INLINE bool Equals(const char16_t* a, std::size_t length, const char16_t (&word)[N]) {
  return length == N - 1 && std::memcmp(a, word, (N - 1) * sizeof(char16_t)) == 0;
}

KEL_XML_INLINE bool SameText(const char16_t* a, std::size_t aLength, const char16_t* b, std::size_t bLength) {
  return aLength == bLength && std::memcmp(a, b, aLength * sizeof(char16_t)) == 0;
}

inline bool AsciiEqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i];
    char y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// Compares `p` with the ASCII `word`: 1 when it matches, 0 when it does not,
// -1 when the input ends first (a truncated document, not a mismatch).
inline int MatchWord(const char16_t* p, std::string_view word) {
  for (char w : word) {
    if (*p == 0) return -1;
    if (*p != static_cast<char16_t>(w)) return 0;
    ++p;
  }
  return 1;
}

KEL_XML_INLINE bool IsHexDigit(char16_t c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

KEL_XML_INLINE std::uint32_t HexValue(char16_t c) {
  if (c <= '9') return c - '0';
  if (c >= 'a') return c - 'a' + 10;
  return c - 'A' + 10;
}

}  // namespace kel::xml::scan
