#include "frame/reg.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "frame/constants.h"
#include "frame/log.h"
#include "platform/handles.h"

namespace kel {
namespace {

using platform::UniqueRegKey;

// The library's own settings. Each reads the same way: start from the
// default, keep the stored value only when it was read as a DWORD, and take
// a value above the largest allowed as that largest.
enum class OwnSetting : std::size_t {
  DebugLog,
  ManifestReader,
  RefreshInterval,
  ClearClipboardWaitTime,
  RestoreRegistryWaitTime,
};

struct SettingEntry {
  OwnSetting setting;
  const char16_t* traceName;
  const char16_t* valueName;
  DWORD defaultValue;
  DWORD largest;
};

constexpr DWORD kAnyDword = 0xFFFFFFFFu;

constexpr SettingEntry kOwnSettings[] = {
    // The switch: any value other than 0 turns the log on.
    {OwnSetting::DebugLog, u"CKELReg::IsDebugLogOn", kDebugLogValue, 0, 1},
    // 1 reads manifests with the library's XML reader, 0 through the packaging API.
    {OwnSetting::ManifestReader, u"CKELReg::GetManifestReaderSetting", kManifestReaderSettingValue,
     CKELReg::kDefaultManifestReaderSetting, 1},
    {OwnSetting::RefreshInterval, u"CKELReg::GetRefreshInterval", kRefreshIntervalValue,
     CKELReg::kDefaultRefreshInterval, kAnyDword},
    {OwnSetting::ClearClipboardWaitTime, u"CKELReg::GetClearClipboardWaitTime", kClearClipboardWaitTimeValue,
     CKELReg::kDefaultClearClipboardWaitTime, kAnyDword},
    {OwnSetting::RestoreRegistryWaitTime, u"CKELReg::GetRestoreRegistryWaitTime", kRestoreRegistryWaitTimeValue,
     CKELReg::kDefaultRestoreRegistryWaitTime, kAnyDword},
};

constexpr bool IsInSettingOrder() {
  for (std::size_t i = 0; i < std::size(kOwnSettings); ++i) {
    if (static_cast<std::size_t>(kOwnSettings[i].setting) != i) return false;
  }
  return true;
}
static_assert(IsInSettingOrder(), "the table lists every setting at its own index");

DWORD ReadSetting(OwnSetting setting) {
  const SettingEntry& entry = kOwnSettings[static_cast<std::size_t>(setting)];
  WriteDebugLog("%S IN\r\n", entry.traceName);
  DWORD value = entry.defaultValue;
  DWORD stored = 0;
  if (CKELReg::GetDWORDRegVal(entry.valueName, &stored)) value = stored;
  if (value > entry.largest) value = entry.largest;
  WriteDebugLog("%S OUT(%d)\r\n", entry.traceName, value);
  return value;
}

// The two browser values a browser launch changes for its duration, each
// with the trace names of its operations.
struct BrowserValue {
  const char16_t* valueName;
  const char16_t* getName;
  const char* getExitFormat;
  const char16_t* setName;
  const char16_t* deleteName;
};

constexpr BrowserValue kAssociationMode{kAssociationActivationModeValue, u"CKELReg::GetCurrentAssociationMode",
                                        "%S OUT(*pdwAssociationMode = %d)\r\n", u"CKELReg::SetCurrentAssociationMode",
                                        u"CKELReg::DeleteAssociationMode"};

constexpr BrowserValue kTileImmersiveActivation{
    kTileImmersiveActivationValue, u"CKELReg::GetCurrentTileImmersiveActivation",
    "%S OUT(*pdwTileImmersiveActivation = %d)\r\n", u"CKELReg::SetCurrentTileImmersiveActivation",
    u"CKELReg::DeleteTileImmersiveActivation"};

[[nodiscard]] LONG OpenKey(const char16_t* subKey, DWORD access, UniqueRegKey& key) {
  return Sys().RegOpenKeyEx(platform::RootKey::CurrentUser, subKey, 0, access, key.put());
}

[[nodiscard]] LONG GetBrowserValue(const BrowserValue& browserValue, DWORD* value) {
  WriteDebugLog("%S IN\r\n", browserValue.getName);
  if (value == nullptr) {
    WriteDebugLog("%S OUT(%d)\r\n", browserValue.getName, ERROR_INVALID_PARAMETER);
    return ERROR_INVALID_PARAMETER;
  }
  UniqueRegKey key;
  LONG code = OpenKey(kBrowserKey, platform::KEY_READ, key);
  if (code == ERROR_SUCCESS) {
    DWORD type = platform::REG_DWORD;
    DWORD size = sizeof(DWORD);
    code =
        Sys().RegQueryValueEx(key.get(), browserValue.valueName, &type, reinterpret_cast<std::uint8_t*>(value), &size);
    key.reset();
    if (code == ERROR_SUCCESS && type != platform::REG_DWORD) code = ERROR_BAD_FILE_TYPE;
  }
  WriteDebugLog(browserValue.getExitFormat, browserValue.getName, *value);
  return code;
}

// Opens the browser key for writing and makes one change through the open
// key; true when the change was made.
template <typename Change>
bool ChangeBrowserValue(const char16_t* traceName, Change change) {
  UniqueRegKey key;
  if (OpenKey(kBrowserKey, platform::KEY_WRITE, key) != ERROR_SUCCESS) {
    WriteDebugLog("%S OUT(%d)\r\n", traceName, 0);
    return false;
  }
  const LONG code = change(key.get());
  key.reset();
  WriteDebugLog("%S OUT\r\n", traceName);
  return code == ERROR_SUCCESS;
}

bool SetBrowserValue(const BrowserValue& browserValue, DWORD value) {
  WriteDebugLog("%S(%d) IN\r\n", browserValue.setName, value);
  return ChangeBrowserValue(browserValue.setName, [&](Handle key) {
    return Sys().RegSetValueEx(key, browserValue.valueName, platform::REG_DWORD,
                               reinterpret_cast<const std::uint8_t*>(&value), sizeof(DWORD));
  });
}

bool DeleteBrowserValue(const BrowserValue& browserValue) {
  WriteDebugLog("%S IN\r\n", browserValue.deleteName);
  return ChangeBrowserValue(browserValue.deleteName,
                            [&](Handle key) { return Sys().RegDeleteValue(key, browserValue.valueName); });
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

bool CKELReg::IsDebugLogOn() { return ReadSetting(OwnSetting::DebugLog) != 0; }

DWORD CKELReg::GetManifestReaderSetting() { return ReadSetting(OwnSetting::ManifestReader); }

DWORD CKELReg::GetRefreshInterval() { return ReadSetting(OwnSetting::RefreshInterval); }

DWORD CKELReg::GetClearClipboardWaitTime() { return ReadSetting(OwnSetting::ClearClipboardWaitTime); }

DWORD CKELReg::GetRestoreRegistryWaitTime() { return ReadSetting(OwnSetting::RestoreRegistryWaitTime); }

LONG CKELReg::GetCurrentAssociationMode(DWORD* pdwAssociationMode) {
  return GetBrowserValue(kAssociationMode, pdwAssociationMode);
}

LONG CKELReg::GetCurrentTileImmersiveActivation(DWORD* pdwTileImmersiveActivation) {
  return GetBrowserValue(kTileImmersiveActivation, pdwTileImmersiveActivation);
}

bool CKELReg::SetCurrentAssociationMode(DWORD value) { return SetBrowserValue(kAssociationMode, value); }

bool CKELReg::SetCurrentTileImmersiveActivation(DWORD value) {
  return SetBrowserValue(kTileImmersiveActivation, value);
}

bool CKELReg::DeleteAssociationMode() { return DeleteBrowserValue(kAssociationMode); }

bool CKELReg::DeleteTileImmersiveActivation() { return DeleteBrowserValue(kTileImmersiveActivation); }

}  // namespace kel
