// Code page 932 (Windows Shift JIS) to UTF-16, without asking the operating
// system. The result is the one MultiByteToWideChar(932, MB_PRECOMPOSED, ...)
// gives, replacement characters included, so code that has to agree with
// Windows on how a Shift JIS string decodes can do so on any platform.
#pragma once

#include <cstddef>

namespace kel::cp932 {

// Decodes sourceLength bytes of source into buffer, with the contract of
// MultiByteToWideChar:
//   - sourceLength -1 converts the zero-terminated string including its
//     terminating zero byte, so the result is terminated as well;
//   - capacity 0 returns the number of char16_t units the conversion needs
//     and writes nothing (buffer may be null);
//   - otherwise at most capacity units are written and the number written is
//     returned, or 0 when they do not fit (Windows then reports
//     ERROR_INSUFFICIENT_BUFFER; the part that fitted may have been written);
//   - 0 as well when source is null, sourceLength is 0 or below -1, capacity
//     is negative, or buffer is null with a capacity above 0.
// Byte sequences without a character decode to U+30FB (KATAKANA MIDDLE DOT),
// the code page's default character; the conversion never fails on content.
int MultiByteToWide(const char* source, int sourceLength, char16_t* buffer, int capacity);

// How far DecodeValid got.
struct Decoded {
  std::size_t bytes;  // the source bytes taken
  std::size_t units;  // the char16_t units written for them
};

// Decodes `length` bytes of `source` into `buffer`, which must have room for
// `length` units (no byte sequence gives more than one), and stops before the
// first sequence that has no character: a lead byte whose trail byte is
// missing, zero or out of the trail range, a pair nothing is assigned to, and
// the single bytes 0xA0 and 0xFD-0xFF, whose private-use units
// MultiByteToWide gives only as stand-ins. These are exactly the sequences
// MultiByteToWideChar(932, MB_ERR_INVALID_CHARS, ...) refuses; what is
// decoded is what MultiByteToWide gives. All bytes were taken when
// `bytes == length`.
Decoded DecodeValid(const unsigned char* source, std::size_t length, char16_t* buffer);

}  // namespace kel::cp932
