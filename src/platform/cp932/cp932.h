// Code page 932 (Windows Shift JIS) to UTF-16, without asking the operating
// system. The result is the one MultiByteToWideChar(932, MB_PRECOMPOSED, ...)
// gives, replacement characters included, so code that has to agree with
// Windows on how a Shift JIS string decodes can do so on any platform.
#pragma once

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

}  // namespace kel::cp932
