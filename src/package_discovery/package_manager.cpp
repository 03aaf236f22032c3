#include "package_discovery/package_manager.h"

#include <vector>

#include "frame/constants.h"
#include "frame/log.h"
#include "platform/platform.h"

namespace kel {
namespace {

platform::Platform& Sys() { return platform::Current(); }

CKELPackageManager g_PackageManager;

// Full path of the host executable, or empty when it cannot be had.
WString HostExecutablePath() {
  std::vector<char16_t> buffer(kMaxPath, 0);
  const DWORD length = Sys().GetModuleFileName(buffer.data(), static_cast<DWORD>(buffer.size()));
  if (length == 0) return {};
  buffer.back() = 0;
  return WString(buffer.data());
}

// The data file path: the data folder with the file name appended.
WString DataFilePath() {
  WString folder;
  CKELPackageManager::CreateAppNameListFolder(folder);
  return folder + u"\\" + kAppNameListFileName;
}

}  // namespace

CKELPackageManager& ThePackageManager() { return g_PackageManager; }

HRESULT CKELPackageManager::CreateAppNameListFolder(WString& path) {
  constexpr char16_t kName[] = u"CKELPackageManager::CreateAppNameListFolder";
  WriteDebugLog("%S IN\r\n", kName);
  WString localAppData;
  if (!Sys().GetEnvironmentVariable(kLocalAppDataVariable, localAppData) || localAppData.size() + 1 > kMaxPath) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return E_FAIL;
  }
  if (!localAppData.empty() && localAppData.back() == u'\\') localAppData.pop_back();

  WString host = HostExecutablePath();
  if (host.empty()) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return E_FAIL;
  }
  // The suffix is "\<file name>" with the name cut at its first dot.
  const std::size_t lastSlash = host.rfind(u'\\');
  WString suffix = lastSlash == WString::npos ? host : host.substr(lastSlash);
  const std::size_t dot = suffix.find(u'.');
  if (dot != WString::npos) suffix.resize(dot);

  WString folder;
  if (!FormatWideInto(folder, kMaxPath, u"%s\\Osk\\Kelbrook%s", {localAppData, suffix})) {
    WriteDebugLog("%S data folder path longer than %d characters, skipped\r\n", kName,
                  static_cast<int>(kMaxPath - 1));
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return E_FAIL;
  }
  const int code = Sys().SHCreateDirectoryEx(folder.c_str());
  if (code != 0) WriteDebugLog("%S SHCreateDirectoryEx failed. ErrCode = (%d)\r\n", kName, code);
  WriteDebugLog("%S OUT(%s)\r\n", kName, folder);
  path = folder;
  return S_OK;
}

bool CKELPackageManager::GetPresetAppNameFullPath(WString& path) {
  constexpr char16_t kName[] = u"CKELPackageManager::GetPresetAppNameFullPath";
  WString host = HostExecutablePath();
  if (host.empty()) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return false;
  }
  const std::size_t lastSlash = host.rfind(u'\\');
  if (lastSlash == WString::npos) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return false;
  }
  host.resize(lastSlash);
  WString preset;
  if (!FormatWideInto(preset, kMaxPath, u"%s\\%s", {host, kPresetAppNameListFileName})) {
    WriteDebugLog("%S preset file path longer than %d characters, skipped\r\n", kName,
                  static_cast<int>(kMaxPath - 1));
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return false;
  }
  WriteDebugLog("%S OUT(%s)\r\n", kName, preset);
  path = preset;
  return true;
}

HRESULT CKELPackageManager::Initialize() {
  constexpr char16_t kName[] = u"CKELPackageManager::Initialize";
  WriteDebugLog("%S IN\r\n", kName);
  const WString dataFile = DataFilePath();
  if (Sys().GetFileAttributes(dataFile.c_str()) == platform::INVALID_FILE_ATTRIBUTES) {
    WString preset;
    if (!GetPresetAppNameFullPath(preset)) {
      WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_FAIL);
      return E_FAIL;
    }
  }
  // Loading the catalogue and starting the refresh thread join here once the
  // catalogue and package discovery exist.
  WriteDebugLog("%S OUT(0x%08X)\r\n", kName, S_OK);
  return S_OK;
}

void CKELPackageManager::Finalize() {
  constexpr char16_t kName[] = u"CKELPackageManager::Finalize";
  WriteDebugLog("%S IN\r\n", kName);
  WriteDebugLog("%S OUT\r\n", kName);
}

HRESULT CKELPackageManager::LaunchStore(const char16_t* packageFamilyName) {
  constexpr char16_t kName[] = u"CKELPackageManager::LaunchStore";
  WriteDebugLog("%S(%S) IN\r\n", kName, packageFamilyName);
  if (packageFamilyName == nullptr) {
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_POINTER);
    return E_POINTER;
  }
  if (packageFamilyName[0] == 0) {
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_INVALIDARG);
    return E_INVALIDARG;
  }
  const WString address = FormatWide(u"%s%s", {kStorePageAddressPrefix, packageFamilyName});
  const std::intptr_t code =
      Sys().ShellExecute(nullptr, kOpenVerb, address.c_str(), nullptr, nullptr, platform::SW_SHOW);
  WriteDebugLog("%S OUT\r\n", kName);
  return static_cast<std::int32_t>(code) <= 32 ? E_FAIL : S_OK;
}

// Store app activation and the package queries come with package discovery.
HRESULT CKELPackageManager::LaunchStoreApp(const char16_t*) { return E_NOTIMPL; }
HRESULT CKELPackageManager::LaunchStoreApp(const char16_t*, const char16_t*) { return E_NOTIMPL; }
HRESULT CKELPackageManager::IsInstalled(const char16_t*, BOOL*) { return E_NOTIMPL; }
HRESULT CKELPackageManager::GetAppDisplayNameByPFN(const char16_t*, char16_t**) { return E_NOTIMPL; }

}  // namespace kel
