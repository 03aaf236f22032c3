// Converts arbitrary bytes from code page 932: the size query and the
// conversion must agree, and nothing may be written past the buffer.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "text/cp932/cp932.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const int length = static_cast<int>(size);
  for (int sourceLength : {length, -1}) {
    if (sourceLength == 0) continue;
    const int needed = kel::cp932::MultiByteToWide(bytes.c_str(), sourceLength, nullptr, 0);
    std::vector<char16_t> buffer(static_cast<std::size_t>(needed) + 1, 0);
    const int written = kel::cp932::MultiByteToWide(bytes.c_str(), sourceLength, buffer.data(), needed);
    if (written != needed) __builtin_trap();
    if (needed > 1 && kel::cp932::MultiByteToWide(bytes.c_str(), sourceLength, buffer.data(), needed - 1) != 0) {
      __builtin_trap();
    }
  }
  return 0;
}
