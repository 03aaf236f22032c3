// CKELReg: the library's only door to the registry. It reads the library's
// own optional settings and reads, writes and deletes the two browser values
// that a browser launch changes for its duration. Every operation opens its
// key, makes one access and closes the key again.
#pragma once

#include "platform/types.h"

namespace kel {

class CKELReg {
 public:
  static constexpr DWORD kDefaultManifestReaderSetting = 1;
  static constexpr DWORD kDefaultRefreshInterval = 720;           // minutes
  static constexpr DWORD kDefaultClearClipboardWaitTime = 1000;   // milliseconds
  static constexpr DWORD kDefaultRestoreRegistryWaitTime = 1000;  // milliseconds

  // Own settings under HKCU\Software\Osk\Kelbrook.
  static bool GetDWORDRegVal(const char16_t* name, DWORD* value);
  static bool IsDebugLogOn();
  static DWORD GetManifestReaderSetting();
  static DWORD GetRefreshInterval();
  static DWORD GetClearClipboardWaitTime();
  static DWORD GetRestoreRegistryWaitTime();

  // The browser's values; the getters return a Win32 error code.
  [[nodiscard]] static LONG GetCurrentAssociationMode(DWORD* pdwAssociationMode);
  [[nodiscard]] static LONG GetCurrentTileImmersiveActivation(DWORD* pdwTileImmersiveActivation);
  static bool SetCurrentAssociationMode(DWORD value);
  static bool SetCurrentTileImmersiveActivation(DWORD value);
  static bool DeleteAssociationMode();
  static bool DeleteTileImmersiveActivation();
};

}  // namespace kel
