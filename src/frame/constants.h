// The library's fixed names: files, folders, registry keys and values,
// environment variables, kernel objects and addresses. One place each.
#pragma once

namespace kel {

// Environment variables.
inline constexpr char16_t kLocalAppDataVariable[] = u"LOCALAPPDATA";
inline constexpr char16_t kAllUsersProfileVariable[] = u"ALLUSERSPROFILE";
inline constexpr char16_t kAppDataVariable[] = u"APPDATA";

// Files and folders.
inline constexpr char16_t kLogFileName[] = u"KelbrookLogFS.txt";
inline constexpr char16_t kAppNameListFileName[] = u"AppNameList1.0.4.0.xml";
inline constexpr char16_t kPresetAppNameListFileName[] = u"PresetAppNameList.xml";
inline constexpr char16_t kManifestFileName[] = u"AppxManifest.xml";
inline constexpr char16_t kStartMenuProgramsFolder[] = u"Microsoft\\Windows\\Start Menu\\Programs";

// Registry: the library's own settings, read only.
inline constexpr char16_t kSettingsKey[] = u"Software\\Osk\\Kelbrook";
inline constexpr char16_t kDebugLogValue[] = u"DebugLog";
inline constexpr char16_t kManifestReaderSettingValue[] = u"ManifestReaderSetting";
inline constexpr char16_t kRefreshIntervalValue[] = u"RefreshInterval";
inline constexpr char16_t kClearClipboardWaitTimeValue[] = u"ClearClipboardWaitTime";
inline constexpr char16_t kRestoreRegistryWaitTimeValue[] = u"RestoreRegistryWaitTime";

// Registry: the browser's per-user values changed for one launch.
inline constexpr char16_t kBrowserKey[] = u"Software\\Microsoft\\Internet Explorer\\Main";
inline constexpr char16_t kAssociationActivationModeValue[] = u"AssociationActivationMode";
inline constexpr char16_t kTileImmersiveActivationValue[] = u"ApplicationTileImmersiveActivation";

// Kernel objects and addresses.
inline constexpr char16_t kExitEventNamePrefix[] = u"Local\\KEL_Event_Exit_RefreshThread";
inline constexpr char16_t kStorePageAddressPrefix[] = u"ms-windows-store:PDP?PFN=";
inline constexpr char16_t kOpenVerb[] = u"open";

}  // namespace kel
