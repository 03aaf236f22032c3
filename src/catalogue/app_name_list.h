// CKELAppNameList: the catalogue of Store packages and desktop applications,
// its file, what discovery adds to it, and the exclusion list of a word.
#pragma once

#include <list>
#include <memory>
#include <mutex>

#include "catalogue/records.h"

namespace kel {

namespace xml {
class XmlReader;
}  // namespace xml

class CKELAppNameList {
 public:
  CKELAppNameList() = default;
  CKELAppNameList(const CKELAppNameList&) = delete;
  CKELAppNameList& operator=(const CKELAppNameList&) = delete;
  virtual ~CKELAppNameList();

  HRESULT Load(const char16_t* path);
  HRESULT Save(const char16_t* path);
  void Clear();
  // Clear without trace lines, for a fresh start of the package manager.
  void Reset();
  CKELPackage* GetPackage(const char16_t* packageFamilyName);
  HRESULT AddMetroPackage(platform::Package* package);
  HRESULT AddMetroPackage(CKELPackage* package);
  HRESULT AddDesktopApp(const char16_t* displayName, const char16_t* shortcutPath);
  BOOL IsInDesktopAppList(const char16_t* shortcutPath);
  HRESULT GetExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList, BOOL* pFound);
  HRESULT ReadDesktopApps(xml::XmlReader* reader);
  void RefreshInstalledFlags();

  const std::list<std::unique_ptr<CKELPackage>>& Packages() const { return m_Packages; }
  const std::list<std::unique_ptr<CKELDesktopApp>>& DesktopApps() const { return m_DesktopApps; }

 private:
  // The operations' bodies, for callers that already hold the lock.
  HRESULT ScanDocument(xml::XmlReader& reader);
  HRESULT ReadDesktopAppsHeld(xml::XmlReader* reader);
  HRESULT AppendPackageHeld(CKELPackage* package);
  CKELPackage* FindPackageHeld(const char16_t* packageFamilyName);
  BOOL IsInDesktopAppListHeld(const char16_t* shortcutPath);

  std::mutex m_Lock;
  std::list<std::unique_ptr<CKELPackage>> m_Packages;
  std::list<std::unique_ptr<CKELDesktopApp>> m_DesktopApps;
};

}  // namespace kel
