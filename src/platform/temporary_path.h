// The name of the temporary file that an atomic replacement writes before it
// renames it over its target.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/types.h"

namespace kel::platform {

// The temporary file lies in the target's folder, so the final rename stays
// on one volume, and its path is never longer than the target's, so a target
// that fits a 260-character path buffer never fails for its temporary file.
// The name is "~kel" and the eight hex digits of `unique` when the target's
// file name has room for those twelve characters; else "~" and as many of
// the low hex digits as it has room for. An empty result: the target's file
// name has no room for even "~" and one digit.
inline WString TemporaryPathBeside(const WString& path, std::uint32_t unique) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  static constexpr char16_t kPrefix[] = u"~kel";
  constexpr std::size_t kPrefixLength = 4;
  constexpr std::size_t kHexDigits = 8;
  const std::size_t folderEnd = path.find_last_of(u"\\/:") + 1;  // 0 without a folder
  const std::size_t room = path.size() - folderEnd;
  if (room < 2) return WString();
  WString temporary = path.substr(0, folderEnd);
  std::size_t digits = kHexDigits;
  if (room >= kPrefixLength + kHexDigits) {
    temporary += kPrefix;
  } else {
    temporary += u'~';
    digits = room - 1 < kHexDigits ? room - 1 : kHexDigits;
  }
  for (std::size_t i = digits; i-- > 0;) temporary += kDigits[(unique >> (4 * i)) & 0xF];
  return temporary;
}

}  // namespace kel::platform
