// Plain value types shared by the portable logic and the platform seam.
// They mirror the Windows types the library deals in without including any
// Windows header, so the logic builds on every platform.
#pragma once

#include <cstdint>
#include <string>

namespace kel {

using HRESULT = std::int32_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using BOOL = std::int32_t;
using LONG = std::int32_t;
using WORD = std::uint16_t;
using WCHAR = char16_t;

// The library's one string type.
using WString = std::u16string;

// Opaque handles the platform hands out (files, events, threads, registry
// keys, global memory, windows, monitors). Null means "none".
using Handle = void*;

constexpr HRESULT S_OK = 0x00000000;
constexpr HRESULT S_FALSE = 0x00000001;
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106u);
constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154u);
constexpr HRESULT E_KEL_PACKAGE_NOT_FOUND = static_cast<HRESULT>(0xA0000001u);
constexpr HRESULT E_KEL_MULTIPLE_APPLICATIONS = static_cast<HRESULT>(0xA0000002u);
constexpr HRESULT E_KEL_DISPLAY_NAME_FAILED = static_cast<HRESULT>(0xA0000003u);

inline bool Succeeded(HRESULT hr) { return hr >= 0; }
inline constexpr HRESULT HresultFromWin32(std::uint32_t code) {
  return code == 0 ? 0 : static_cast<HRESULT>((code & 0xFFFF) | 0x80070000u);
}
inline bool Failed(HRESULT hr) { return hr < 0; }

// Win32 error codes the logic looks at.
constexpr LONG ERROR_SUCCESS = 0;
constexpr LONG ERROR_FILE_NOT_FOUND = 2;
constexpr LONG ERROR_PATH_NOT_FOUND = 3;
constexpr LONG ERROR_ACCESS_DENIED = 5;
constexpr LONG ERROR_INVALID_PARAMETER = 87;
constexpr LONG ERROR_BAD_FILE_TYPE = 222;
constexpr LONG ERROR_MORE_DATA = 234;
constexpr LONG ERROR_ALREADY_EXISTS = 183;
constexpr LONG ERROR_NO_MORE_FILES = 18;

// Fixed buffer sizes, in wide characters including the terminator.
constexpr std::size_t kMaxPath = 260;

}  // namespace kel
