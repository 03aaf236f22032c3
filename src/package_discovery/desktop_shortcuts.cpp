// Desktop applications enter the catalogue as the shortcut files of the
// Start menu, found folder by folder, depth first.
#include "frame/format.h"
#include "frame/log.h"
#include "frame/trace_exit.h"
#include "frame/wide.h"
#include "package_discovery/package_manager.h"
#include "platform/handles.h"

namespace kel {
namespace {

// The shortcut name is the file name without its last four characters,
// whatever the real extension is (".lnk", ".url", or longer ones the
// platform matched through their short names).
WString ShortcutName(const WString& fileName) {
  return fileName.size() >= 4 ? fileName.substr(0, fileName.size() - 4) : WString();
}

bool IsDotEntry(const WString& name) {
  return EqualsIgnoreCase(name.c_str(), u".") || EqualsIgnoreCase(name.c_str(), u"..");
}

}  // namespace

HRESULT CKELPackageManager::RefreshDesktopApps(const char16_t* folder) {
  constexpr char16_t kName[] = u"CKELPackageManager::RefreshDesktopApps";
  WriteDebugLog("%S(%S) IN\r\n", kName, folder);
  KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(folder));
  AddLinkFileToList(folder, u"\\*.lnk");
  AddLinkFileToList(folder, u"\\*.url");

  auto& sys = Sys();
  WString pattern;
  if (!FormatWideInto(pattern, kMaxPath, u"%s\\*", {folder})) {
    WriteDebugLog("%S folder path longer than %d characters, skipped\r\n", kName, static_cast<int>(kMaxPath - 1));
    return E_FAIL;
  }
  platform::FindData found;
  platform::UniqueFind search(sys.FindFirstFile(pattern.c_str(), found));
  if (!search) {
    WriteDebugLog("Errcode = %d \r\n", sys.GetLastError());
    return E_FAIL;
  }
  do {
    if ((found.dwFileAttributes & platform::FILE_ATTRIBUTE_DIRECTORY) != 0 && !IsDotEntry(found.cFileName)) {
      WString subfolder;
      if (FormatWideInto(subfolder, kMaxPath, u"%s\\%s", {folder, found.cFileName})) {
        (void)RefreshDesktopApps(subfolder.c_str());  // a nested failure is only logged
      } else {
        WriteDebugLog("%S folder path longer than %d characters, skipped\r\n", kName, static_cast<int>(kMaxPath - 1));
      }
    }
  } while (sys.FindNextFile(search.get(), found));
  search.reset();
  return TraceExit(kName, S_OK);
}

void CKELPackageManager::AddLinkFileToList(const char16_t* folder, const char16_t* pattern) {
  constexpr char16_t kName[] = u"CKELPackageManager::AddLinkFileToList";
  WriteDebugLog("%S(%S) IN\r\n", kName, folder);
  auto& sys = Sys();
  WString searchPath;
  if (!FormatWideInto(searchPath, kMaxPath, u"%s%s", {folder, pattern})) {
    WriteDebugLog("%S search path longer than %d characters, skipped\r\n", kName, static_cast<int>(kMaxPath - 1));
    return;
  }
  platform::FindData found;
  platform::UniqueFind search(sys.FindFirstFile(searchPath.c_str(), found));
  if (!search) {
    WriteDebugLog("%S Errcode = %d \r\n", searchPath, sys.GetLastError());
    return;
  }
  do {
    WString fullPath;
    if (!FormatWideInto(fullPath, kMaxPath, u"%s\\%s", {folder, found.cFileName})) {
      WriteDebugLog("%S shortcut path longer than %d characters, skipped\r\n", kName, static_cast<int>(kMaxPath - 1));
      continue;
    }
    // A shortcut already listed (S_FALSE) or one that cannot be is traced there.
    (void)m_AppNameList.AddDesktopApp(ShortcutName(found.cFileName).c_str(), fullPath.c_str());
  } while (sys.FindNextFile(search.get(), found));
  search.reset();
  WriteDebugLog("%S OUT\r\n", kName);
}

}  // namespace kel
