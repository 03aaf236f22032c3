#include "frame/version_test.h"

#include "platform/platform.h"

namespace kel {

bool IsMinorVersionAtLeastThree() {
  using namespace platform;
  auto& sys = Current();
  OsVersionInfoEx info;
  info.dwOSVersionInfoSize = kOsVersionInfoExSize;
  info.dwMajorVersion = 6;
  info.dwMinorVersion = 3;
  std::uint64_t mask = sys.VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
  mask = sys.VerSetConditionMask(mask, VER_MINORVERSION, VER_GREATER_EQUAL);
  return sys.VerifyVersionInfo(info, VER_MINORVERSION, mask) != 0;
}

}  // namespace kel
