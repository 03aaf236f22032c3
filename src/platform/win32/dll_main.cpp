// The library's entry point. It does no work of its own: the real platform
// is installed during static construction, before the host's first call.
// The seam first: its constants share names with the Windows macros.
#include "platform/win32/win32_platform.h"
#include "platform/win32/windows_headers.h"

#include <new>

namespace {

// The real platform lives in storage that is never given back and is never
// destroyed: the library's static objects that trace on their way out at
// unload (the package manager and its records) still find it, whatever order
// the linker put their destructors in.
alignas(
    kel::platform::win32::Win32Platform) unsigned char g_platformStorage[sizeof(kel::platform::win32::Win32Platform)];

// Installs it before every other static constructor of the library runs
// (the lowest priority number a program may use), so none of them can reach
// the seam before it is there. The installer has no destructor to run.
struct InstallRealPlatform {
  InstallRealPlatform() { kel::platform::Install(new (g_platformStorage) kel::platform::win32::Win32Platform()); }
};

__attribute__((init_priority(101))) InstallRealPlatform g_installRealPlatform;

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
