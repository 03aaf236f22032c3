#include "frame/reg.h"

#include "frame/constants.h"
#include "frame/log.h"
#include "platform/handles.h"

namespace kel {
namespace {

using platform::UniqueRegKey;

LONG OpenKey(const char16_t* subKey, DWORD access, UniqueRegKey& key) {
  return Sys().RegOpenKeyEx(platform::RootKey::CurrentUser, subKey, 0, access, key.put());
}

// The reader pattern every own setting follows: start from the default, keep
// the stored value only when it was read as a DWORD.
DWORD ReadSetting(const char16_t* traceName, const char16_t* valueName, DWORD defaultValue) {
  WriteDebugLog("%S IN\r\n", traceName);
  DWORD value = defaultValue;
  DWORD stored = 0;
  if (CKELReg::GetDWORDRegVal(valueName, &stored)) value = stored;
  return value;
}

LONG GetBrowserValue(const char16_t* traceName, const char16_t* valueName, const char* exitFormat, DWORD* value) {
  WriteDebugLog("%S IN\r\n", traceName);
  if (value == nullptr) {
    WriteDebugLog("%S OUT(%d)\r\n", traceName, ERROR_INVALID_PARAMETER);
    return ERROR_INVALID_PARAMETER;
  }
  UniqueRegKey key;
  LONG code = OpenKey(kBrowserKey, platform::KEY_READ, key);
  if (code == ERROR_SUCCESS) {
    DWORD type = platform::REG_DWORD;
    DWORD size = sizeof(DWORD);
    code = Sys().RegQueryValueEx(key.get(), valueName, &type, reinterpret_cast<std::uint8_t*>(value), &size);
    key.reset();
    if (code == ERROR_SUCCESS && type != platform::REG_DWORD) code = ERROR_BAD_FILE_TYPE;
  }
  WriteDebugLog(exitFormat, traceName, *value);
  return code;
}

bool SetBrowserValue(const char16_t* traceName, const char16_t* valueName, DWORD value) {
  WriteDebugLog("%S(%d) IN\r\n", traceName, value);
  UniqueRegKey key;
  if (OpenKey(kBrowserKey, platform::KEY_WRITE, key) != ERROR_SUCCESS) {
    WriteDebugLog("%S OUT(%d)\r\n", traceName, 0);
    return false;
  }
  const LONG code = Sys().RegSetValueEx(key.get(), valueName, platform::REG_DWORD,
                                        reinterpret_cast<const std::uint8_t*>(&value), sizeof(DWORD));
  key.reset();
  WriteDebugLog("%S OUT\r\n", traceName);
  return code == ERROR_SUCCESS;
}

bool DeleteBrowserValue(const char16_t* traceName, const char16_t* valueName) {
  WriteDebugLog("%S IN\r\n", traceName);
  UniqueRegKey key;
  if (OpenKey(kBrowserKey, platform::KEY_WRITE, key) != ERROR_SUCCESS) {
    WriteDebugLog("%S OUT(%d)\r\n", traceName, 0);
    return false;
  }
  const LONG code = Sys().RegDeleteValue(key.get(), valueName);
  key.reset();
  WriteDebugLog("%S OUT\r\n", traceName);
  return code == ERROR_SUCCESS;
}

}  // namespace

bool CKELReg::GetDWORDRegVal(const char16_t* name, DWORD* value) {
  constexpr char16_t kName[] = u"CKELReg::GetDWORDRegVal";
  WriteDebugLog("%S IN\r\n", kName);
  if (name == nullptr || name[0] == 0 || value == nullptr) return false;
  UniqueRegKey key;
  if (OpenKey(kSettingsKey, platform::KEY_READ, key) != ERROR_SUCCESS) {
    WriteDebugLog("%S OUT\r\n", kName);
    return false;
  }
  // The caller's variable is the query buffer itself: a value of another type
  // that fits may land in it even though the read counts as failed.
  DWORD type = platform::REG_DWORD;
  DWORD size = sizeof(DWORD);
  const LONG code = Sys().RegQueryValueEx(key.get(), name, &type, reinterpret_cast<std::uint8_t*>(value), &size);
  key.reset();
  const bool ok = code == ERROR_SUCCESS && type == platform::REG_DWORD;
  WriteDebugLog("%S OUT(%d)\r\n", kName, ok ? 1 : 0);
  return ok;
}

bool CKELReg::IsDebugLogOn() {
  constexpr char16_t kName[] = u"CKELReg::IsDebugLogOn";
  const bool on = ReadSetting(kName, kDebugLogValue, 0) != 0;
  WriteDebugLog("%S OUT(%d)\r\n", kName, on ? 1 : 0);
  return on;
}

DWORD CKELReg::GetManifestReaderSetting() {
  constexpr char16_t kName[] = u"CKELReg::GetManifestReaderSetting";
  DWORD value = ReadSetting(kName, kManifestReaderSettingValue, kDefaultManifestReaderSetting);
  if (value >= 2) value = 1;
  WriteDebugLog("%S OUT(%d)\r\n", kName, value);
  return value;
}

DWORD CKELReg::GetRefreshInterval() {
  constexpr char16_t kName[] = u"CKELReg::GetRefreshInterval";
  const DWORD value = ReadSetting(kName, kRefreshIntervalValue, kDefaultRefreshInterval);
  WriteDebugLog("%S OUT(%d)\r\n", kName, value);
  return value;
}

DWORD CKELReg::GetClearClipboardWaitTime() {
  constexpr char16_t kName[] = u"CKELReg::GetClearClipboardWaitTime";
  const DWORD value = ReadSetting(kName, kClearClipboardWaitTimeValue, kDefaultClearClipboardWaitTime);
  WriteDebugLog("%S OUT(%d)\r\n", kName, value);
  return value;
}

DWORD CKELReg::GetRestoreRegistryWaitTime() {
  constexpr char16_t kName[] = u"CKELReg::GetRestoreRegistryWaitTime";
  const DWORD value = ReadSetting(kName, kRestoreRegistryWaitTimeValue, kDefaultRestoreRegistryWaitTime);
  WriteDebugLog("%S OUT(%d)\r\n", kName, value);
  return value;
}

LONG CKELReg::GetCurrentAssociationMode(DWORD* pdwAssociationMode) {
  return GetBrowserValue(u"CKELReg::GetCurrentAssociationMode", kAssociationActivationModeValue,
                         "%S OUT(*pdwAssociationMode = %d)\r\n", pdwAssociationMode);
}

LONG CKELReg::GetCurrentTileImmersiveActivation(DWORD* pdwTileImmersiveActivation) {
  return GetBrowserValue(u"CKELReg::GetCurrentTileImmersiveActivation", kTileImmersiveActivationValue,
                         "%S OUT(*pdwTileImmersiveActivation = %d)\r\n", pdwTileImmersiveActivation);
}

bool CKELReg::SetCurrentAssociationMode(DWORD value) {
  return SetBrowserValue(u"CKELReg::SetCurrentAssociationMode", kAssociationActivationModeValue, value);
}

bool CKELReg::SetCurrentTileImmersiveActivation(DWORD value) {
  return SetBrowserValue(u"CKELReg::SetCurrentTileImmersiveActivation", kTileImmersiveActivationValue, value);
}

bool CKELReg::DeleteAssociationMode() {
  return DeleteBrowserValue(u"CKELReg::DeleteAssociationMode", kAssociationActivationModeValue);
}

bool CKELReg::DeleteTileImmersiveActivation() {
  return DeleteBrowserValue(u"CKELReg::DeleteTileImmersiveActivation", kTileImmersiveActivationValue);
}

}  // namespace kel
