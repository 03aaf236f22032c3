// Values under HKEY_CURRENT_USER: the library's settings and the test
// desktop's control values, each cleared around a test by a scope.
#pragma once

#include "support/windows_headers.h"

#include <cstring>
#include <string>

#include "support/failure.h"
#include "support/text.h"

namespace wine_test {

// ---------------------------------------------------------------------------
// Values under HKEY_CURRENT_USER

inline void WriteUserValue(const wchar_t* keyName, const wchar_t* name, DWORD type, const void* data, DWORD size) {
  HKEY key = nullptr;
  LONG status = RegCreateKeyExW(HKEY_CURRENT_USER, keyName, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
  if (status != ERROR_SUCCESS)
    Fail(Format("RegCreateKeyExW(HKCU\\%s) failed with %ld", Narrow(keyName).c_str(), status));
  status = RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), size);
  RegCloseKey(key);
  if (status != ERROR_SUCCESS) Fail(Format("RegSetValueExW(%s) failed with %ld", Narrow(name).c_str(), status));
}

inline void WriteUserString(const wchar_t* keyName, const wchar_t* name, const wchar_t* value) {
  const std::size_t bytes = (wcslen(value) + 1) * sizeof(wchar_t);
  WriteUserValue(keyName, name, REG_SZ, value, static_cast<DWORD>(bytes));
}

// ---------------------------------------------------------------------------
// The library's registry settings

inline constexpr wchar_t kSettingsKey[] = L"Software\\Osk\\Kelbrook";

inline void SetDwordSetting(const wchar_t* name, DWORD value) {
  WriteUserValue(kSettingsKey, name, REG_DWORD, &value, sizeof value);
}

inline void SetStringSetting(const wchar_t* name, const wchar_t* value) { WriteUserString(kSettingsKey, name, value); }

inline void DeleteSetting(const wchar_t* name) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, KEY_SET_VALUE, &key) == ERROR_SUCCESS) {
    RegDeleteValueW(key, name);
    RegCloseKey(key);
  }
}

// Runs `Clear` when the test starts and when it ends (whether it passed or
// not), so that no test sees another one's values.
template <void (*Clear)()>
class ClearedScope {
 public:
  ClearedScope() { Clear(); }
  ~ClearedScope() { Clear(); }
  ClearedScope(const ClearedScope&) = delete;
  ClearedScope& operator=(const ClearedScope&) = delete;
};

inline void ClearSettings() {
  for (const wchar_t* name : {L"DebugLog", L"RefreshInterval", L"ManifestReaderSetting", L"ClearClipboardWaitTime",
                              L"RestoreRegistryWaitTime"}) {
    DeleteSetting(name);
  }
}

// The library's settings, removed around the test.
using SettingsScope = ClearedScope<ClearSettings>;

// The same with the log on (DebugLog 1) in between: the other settings at
// their defaults for the test's lifetime.
class LogOnSettingsScope : public SettingsScope {
 public:
  LogOnSettingsScope() { SetDwordSetting(L"DebugLog", 1); }
};

// ---------------------------------------------------------------------------
// The test desktop's control values (docs/test-desktop.md)

inline constexpr wchar_t kControlKey[] = L"Software\\KelbrookTestDesktop";

// The value, or `fallback` when it is absent or no DWORD.
inline DWORD ReadControl(const wchar_t* name, DWORD fallback) {
  DWORD value = 0;
  DWORD size = sizeof value;
  if (RegGetValueW(HKEY_CURRENT_USER, kControlKey, name, RRF_RT_REG_DWORD, nullptr, &value, &size) != ERROR_SUCCESS) {
    return fallback;
  }
  return value;
}

inline void SetControl(const wchar_t* name, DWORD value) {
  WriteUserValue(kControlKey, name, REG_DWORD, &value, sizeof value);
}

inline void SetControlString(const wchar_t* name, const wchar_t* value) { WriteUserString(kControlKey, name, value); }

inline void ClearControls() { RegDeleteTreeW(HKEY_CURRENT_USER, kControlKey); }

// The control key, removed around the test.
using ControlScope = ClearedScope<ClearControls>;

}  // namespace wine_test
