// The library's entry point. It does no work of its own: the real platform
// is installed during static construction, before the host's first call.
// The seam first: its constants share names with the Windows macros.
#include "platform/win32/win32_platform.h"
#include "platform/win32/windows_headers.h"

namespace {

struct InstallRealPlatform {
  InstallRealPlatform() { kel::platform::Install(&platform); }
  kel::platform::win32::Win32Platform platform;
};

InstallRealPlatform g_realPlatform;

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
