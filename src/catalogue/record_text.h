// A string where a record (or a list of names) keeps it: a view that is
// always followed by a NUL, so it can also be handed on as a C string.
#pragma once

#include <string_view>

namespace kel {

class RecordText : public std::u16string_view {
 public:
  constexpr RecordText(const char16_t* text, size_type length) noexcept : std::u16string_view(text, length) {}
  [[nodiscard]] const char16_t* c_str() const noexcept { return data(); }
};

}  // namespace kel
