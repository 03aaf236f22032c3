// Table-driven code page 932 decoder. The tables come from
// tools/cp932/gen_cp932_table.py; this file holds only the rules for walking
// the bytes, which follow what MultiByteToWideChar does with code page 932.
#include "text/cp932/cp932.h"

#include <cstddef>

namespace kel::cp932 {
namespace {

#include "text/cp932/cp932_table.inc"

// The code page's default character, given for every sequence that does
// not decode to a character.
constexpr char16_t kDefaultChar = u'\u30FB';

// Code unit for the lead byte `lead` followed by `trail`. A trail byte that
// cannot carry a character (below 0x40, 0x7F, above 0xFC) still belongs to
// the lead byte, so the pair gives a single default character, as does a
// valid-looking pair nothing is assigned to.
char16_t DecodePair(unsigned char lead, unsigned char trail) {
  if (trail < kTrailFirst || trail > kTrailLast) return kDefaultChar;
  const char16_t unit = kDoubleByte[kLeadSlot[lead] - 1][trail - kTrailFirst];
  return unit != 0 ? unit : kDefaultChar;
}

// The single bytes that are not lead bytes and still have no character of
// their own: the table gives them private-use stand-ins U+F8F0-U+F8F3.
bool IsStandInByte(unsigned char byte) { return byte == 0xA0 || byte >= 0xFD; }

}  // namespace

int MultiByteToWide(const char* source, int sourceLength, char16_t* buffer, int capacity) {
  if (source == nullptr || sourceLength == 0 || sourceLength < -1) return 0;
  if (capacity < 0 || (capacity > 0 && buffer == nullptr)) return 0;

  const auto* bytes = reinterpret_cast<const unsigned char*>(source);
  std::size_t length = 0;
  if (sourceLength == -1) {
    while (bytes[length] != 0) ++length;
    ++length;  // the terminating zero is converted too
  } else {
    length = static_cast<std::size_t>(sourceLength);
  }

  const bool sizeOnly = capacity == 0;
  int written = 0;
  std::size_t i = 0;
  while (i < length) {
    const unsigned char byte = bytes[i];
    char16_t unit;
    if (kLeadSlot[byte] == 0) {
      unit = kSingleByte[byte];
      i += 1;
    } else if (i + 1 < length && bytes[i + 1] != 0) {
      unit = DecodePair(byte, bytes[i + 1]);
      i += 2;
    } else {
      // A lead byte with nothing after it, or with a zero byte after
      // it, gives the default character on its own, and a following
      // zero is never taken as its trail byte: it is decoded as U+0000
      // next. With sourceLength -1 that zero is the terminator, so a
      // string ending in a lead byte still comes out terminated
      // ("81 00", length -1: U+30FB U+0000, size 2). We chose this
      // over swallowing the terminator into the pair; Wine 8.0's
      // MultiByteToWideChar gives the same, also for an explicit
      // length of 2 over "81 00" (U+30FB U+0000).
      unit = kDefaultChar;
      i += 1;
    }

    if (!sizeOnly) {
      if (written == capacity) return 0;  // buffer too small
      buffer[written] = unit;
    }
    ++written;
  }
  return written;
}

Decoded DecodeValid(const unsigned char* source, std::size_t length, char16_t* buffer) {
  std::size_t i = 0;
  std::size_t written = 0;
  while (i < length) {
    const unsigned char byte = source[i];
    if (byte < 0x80) {
      // ASCII, the bulk of any markup, maps to itself.
      buffer[written++] = byte;
      i += 1;
      continue;
    }
    if (kLeadSlot[byte] == 0) {
      if (IsStandInByte(byte)) break;
      buffer[written++] = kSingleByte[byte];
      i += 1;
      continue;
    }
    if (i + 1 >= length) break;
    const unsigned char trail = source[i + 1];
    if (trail < kTrailFirst || trail > kTrailLast) break;
    const char16_t unit = kDoubleByte[kLeadSlot[byte] - 1][trail - kTrailFirst];
    // The table holds 0 where nothing is assigned; the default character
    // itself (81 45) is a real entry.
    if (unit == 0) break;
    buffer[written++] = unit;
    i += 2;
  }
  return {i, written};
}

}  // namespace kel::cp932
