// Turns a document's raw bytes into the UTF-16 text the reader scans: UTF-8
// with or without a byte-order mark, UTF-16 LE or BE (by mark or by the
// shape of the first character), or the 8-bit encoding or Shift JIS that the
// declaration names.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "platform/types.h"

namespace kel::xml {

struct DecodedText {
  // `length` units, then a NUL: the decoded text holds no NUL of its own
  // (that is not an XML character), so a scan can stop there unchecked.
  std::unique_ptr<char16_t[]> text;
  std::size_t length = 0;
  // Why the text ends where it does: S_OK when it holds the whole input.
  // Invalid bytes or characters do not fail the decoding; the text stops
  // before them, so a reader reports the nodes before the fault and then
  // the fault itself, as a streaming reader would.
  HRESULT error = S_OK;
};

// Decodes the whole document at once. Throws std::bad_alloc when its text
// cannot be held.
[[nodiscard]] DecodedText DecodeDocument(std::string_view bytes);

}  // namespace kel::xml
