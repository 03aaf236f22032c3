// How the fake writes a call's arguments into its record: text as UTF-8 (a
// null pointer as "null"), numbers in decimal, flags and handles in hex.
#pragma once

#include <cstdint>
#include <string>

#include "frame/format.h"
#include "frame/wide.h"
#include "platform/types.h"

namespace kel::fakes {

inline std::string Arg(const WCHAR* text) { return text == nullptr ? "null" : ToUtf8(text); }
inline std::string Arg(DWORD value) { return std::to_string(value); }
inline std::string Hex(std::uint64_t value) { return FormatNarrow("0x%X", {static_cast<std::uint32_t>(value)}); }

}  // namespace kel::fakes
