// Uses arbitrary bytes as a format string with every kind of argument.
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/format.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string format(reinterpret_cast<const char*>(data), size);
  const std::u16string wideFormat(format.begin(), format.end());
  const char16_t wide[] = {u'w', 0xD800, u'\u3042', 0};
  kel::FormatNarrow(format.c_str(), {wide, "narrow", -1, 0xFFFFFFFFu, static_cast<const char16_t*>(nullptr),
                                     static_cast<const char*>(nullptr), 42});
  kel::FormatWide(wideFormat.c_str(), {wide, "narrow", -1, 0xFFFFFFFFu, static_cast<const char16_t*>(nullptr)});
  return 0;
}
