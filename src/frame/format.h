// The library's one printf-style formatter. Log lines, paths, names and
// addresses are all formatted here.
//
// Arguments are typed (FormatArg), so the conversions never read the wrong
// thing off a va_list:
//   %S   wide string; written as UTF-8 into narrow text, as is into wide text
//   %s   narrow string into narrow text; wide string into wide text. A wide
//        argument of %s in narrow text is printed as the bytes of its UTF-16
//        form up to the first zero byte (for Latin text: its first letter),
//        which is what the narrow conversion of a wide string does.
//   %d %u %hu %X %x %c with the flags '0' and '-' and a field width
//   %%
// A null string argument prints as "(null)".
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <type_traits>

#include "platform/types.h"

namespace kel {

class FormatArg {
 public:
  enum class Kind { Integer, Narrow, Wide };

  template <typename T, typename = std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>>>
  FormatArg(T value) noexcept  // NOLINT(google-explicit-constructor): built from call arguments
      : kind_(Kind::Integer), bits_(static_cast<std::uint32_t>(value)) {}
  FormatArg(const char* text) noexcept : kind_(Kind::Narrow), narrow_(text) {}                 // NOLINT
  FormatArg(const char16_t* text) noexcept : kind_(Kind::Wide), wide_(text) {}                 // NOLINT
  FormatArg(const std::string& text) noexcept : kind_(Kind::Narrow), narrow_(text.c_str()) {}  // NOLINT
  FormatArg(const WString& text) noexcept : kind_(Kind::Wide), wide_(text.c_str()) {}          // NOLINT

  [[nodiscard]] Kind GetKind() const { return kind_; }
  [[nodiscard]] std::uint32_t Bits() const { return bits_; }
  [[nodiscard]] const char* Narrow() const { return narrow_; }
  [[nodiscard]] const char16_t* Wide() const { return wide_; }

 private:
  Kind kind_;
  std::uint32_t bits_ = 0;
  const char* narrow_ = nullptr;
  const char16_t* wide_ = nullptr;
};

using FormatArgs = std::initializer_list<FormatArg>;

// Narrow text (the log's). Wide arguments of %S are written as UTF-8.
std::string FormatNarrow(const char* format, FormatArgs args);
std::string FormatNarrow(const char* format, const FormatArg* args, std::size_t count);

// Narrow text straight into a fixed buffer of `capacity` bytes, terminator
// included, without touching the heap however long the arguments are. Text
// that would not fit is cut: never inside a UTF-8 sequence, and text that
// ended in "\r\n" keeps its line end. Returns the length kept (the
// terminator not counted); the bytes are what FormatNarrow gives whenever
// that fits.
std::size_t FormatNarrowInto(char* buffer, std::size_t capacity, const char* format, const FormatArg* args,
                             std::size_t count) noexcept;

// Wide text (paths, names, addresses, queries).
WString FormatWide(const char16_t* format, FormatArgs args);

// Wide text for a fixed buffer of `capacity` characters including the
// terminator: false when the result would not fit (nothing is cut).
bool FormatWideInto(WString& out, std::size_t capacity, const char16_t* format, FormatArgs args);

// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD.
std::string ToUtf8(const char16_t* text);
std::string ToUtf8(const WString& text);

}  // namespace kel
