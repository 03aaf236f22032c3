#pragma once
// The layouts of the records that cross into Windows, checked against the
// published 32-bit and 64-bit ones. The headers of the compiler in use
// define most of them; the runtime's package version is declared by this
// library. Should a header or a packing option ever disagree, the build
// fails here instead of a call handing Windows a record it misreads.

#include <cstddef>

#include "platform/win32/windows_headers.h"
#include "platform/win32/winrt_interfaces.h"

namespace kel::platform::win32::abi {

constexpr bool kX86 = sizeof(void*) == 4;

// SendInput's records: a type, then a union whose largest member is the
// mouse record (its last field pointer-sized).
static_assert(sizeof(KEYBDINPUT) == (kX86 ? 16 : 24));
static_assert(offsetof(KEYBDINPUT, wVk) == 0 && offsetof(KEYBDINPUT, wScan) == 2);
static_assert(offsetof(KEYBDINPUT, dwFlags) == 4 && offsetof(KEYBDINPUT, time) == 8);
static_assert(offsetof(KEYBDINPUT, dwExtraInfo) == (kX86 ? 12 : 16));
static_assert(sizeof(INPUT) == (kX86 ? 28 : 40));
static_assert(offsetof(INPUT, type) == 0 && offsetof(INPUT, ki) == (kX86 ? 4 : 8));

// VerifyVersionInfoW: the same record on both, and a 64-bit condition mask
// that x86 passes in two stack slots.
static_assert(sizeof(OSVERSIONINFOEXW) == 284);
static_assert(offsetof(OSVERSIONINFOEXW, dwMajorVersion) == 4 && offsetof(OSVERSIONINFOEXW, dwMinorVersion) == 8);
static_assert(offsetof(OSVERSIONINFOEXW, szCSDVersion) == 20);
static_assert(offsetof(OSVERSIONINFOEXW, wServicePackMajor) == 276 &&
              offsetof(OSVERSIONINFOEXW, wServicePackMinor) == 278);
static_assert(offsetof(OSVERSIONINFOEXW, wProductType) == 282);
static_assert(sizeof(DWORDLONG) == 8);

// MonitorFromPoint takes its point by value: two 32-bit coordinates.
static_assert(sizeof(POINT) == 8 && offsetof(POINT, y) == 4);

// Windows.ApplicationModel.PackageVersion: four 16-bit fields, no padding.
static_assert(sizeof(RuntimePackageVersion) == 8);
static_assert(offsetof(RuntimePackageVersion, Minor) == 2 && offsetof(RuntimePackageVersion, Build) == 4 &&
              offsetof(RuntimePackageVersion, Revision) == 6);

}  // namespace kel::platform::win32::abi
