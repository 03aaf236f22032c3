// What the fakes answer as a system: VerSetConditionMask and
// VerifyVersionInfo as Windows computes them for a system of a given
// version, and one fixed account. The recording fake and the benchmarks'
// quick platform both answer so.
#pragma once

#include <cstdint>
#include <cstring>

#include "platform/platform.h"

namespace kel::fakes {

// The condition's three bits, placed where the type bit's index puts them.
inline std::uint64_t AddVersionCondition(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) {
  unsigned index = 0;
  while (index < 32 && (typeBit & (1u << index)) == 0) ++index;
  return mask | (static_cast<std::uint64_t>(condition & 7) << (index * 3));
}

// VER_EQUAL (1) to VER_LESS_EQUAL (5); any other condition fails.
inline bool MeetsVersionCondition(DWORD actual, DWORD wanted, unsigned condition) {
  switch (condition) {
    case 1:
      return actual == wanted;
    case 2:
      return actual > wanted;
    case 3:
      return actual >= wanted;
    case 4:
      return actual < wanted;
    case 5:
      return actual <= wanted;
    default:
      return false;
  }
}

// Whether a system of version major.minor meets the minor and major
// conditions the masks ask for.
inline BOOL VerifyVersion(DWORD major, DWORD minor, const platform::OsVersionInfoEx& info, DWORD typeMask,
                          std::uint64_t conditionMask) {
  bool ok = true;
  if (typeMask & platform::VER_MINORVERSION)
    ok = ok && MeetsVersionCondition(minor, info.dwMinorVersion, conditionMask & 7);
  if (typeMask & platform::VER_MAJORVERSION)
    ok = ok && MeetsVersionCondition(major, info.dwMajorVersion, (conditionMask >> 3) & 7);
  return ok ? 1 : 0;
}

// LookupAccountName for every account: a 28-byte SID of 0x5A bytes in the
// domain "KELPC"; too small a buffer gets the sizes needed and 0.
inline BOOL LookupFixedAccount(void* sid, DWORD* sidSize, WCHAR* domain, DWORD* domainSize) {
  constexpr DWORD kSidSize = 28;
  constexpr char16_t kDomain[] = u"KELPC";
  constexpr DWORD kDomainSize = sizeof(kDomain) / sizeof(kDomain[0]);
  if (sid == nullptr || *sidSize < kSidSize || domain == nullptr || *domainSize < kDomainSize) {
    *sidSize = kSidSize;
    *domainSize = kDomainSize;
    return 0;
  }
  std::memset(sid, 0x5A, kSidSize);
  std::memcpy(domain, kDomain, sizeof(kDomain));
  return 1;
}

}  // namespace kel::fakes
