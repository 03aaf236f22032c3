// An HSTRING owned for its scope: the text the Windows Runtime's calls take
// and hand out.
#pragma once

// Before the Windows headers: the seam's constants share names with their
// macros.
#include "platform/types.h"

#include <string_view>

#include "platform/win32/windows_headers.h"

namespace kel::platform::win32 {

class RuntimeString {
 public:
  RuntimeString() = default;
  RuntimeString(const RuntimeString&) = delete;
  RuntimeString& operator=(const RuntimeString&) = delete;
  ~RuntimeString() {
    if (value_ != nullptr) ::WindowsDeleteString(value_);
  }
  // A null text makes the empty string, as the runtime has it.
  [[nodiscard]] HRESULT Create(const WCHAR* text) {
    const wchar_t* wide = reinterpret_cast<const wchar_t*>(text);
    return Create(wide != nullptr ? std::wstring_view(wide) : std::wstring_view());
  }
  [[nodiscard]] HRESULT Create(std::wstring_view text) {
    return ::WindowsCreateString(text.data(), static_cast<UINT32>(text.size()), put());
  }
  [[nodiscard]] HSTRING get() const { return value_; }
  // The out argument of a call that hands out a string; a string held
  // before is deleted first.
  HSTRING* put() {
    if (value_ != nullptr) ::WindowsDeleteString(value_);
    value_ = nullptr;
    return &value_;
  }
  [[nodiscard]] WString Text() const {
    UINT32 length = 0;
    const wchar_t* raw = ::WindowsGetStringRawBuffer(value_, &length);
    return WString(reinterpret_cast<const char16_t*>(raw), length);
  }

 private:
  HSTRING value_ = nullptr;
};

}  // namespace kel::platform::win32
