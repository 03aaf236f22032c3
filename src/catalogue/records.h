// The catalogue's records: applications of Store packages grouped under
// their package, and desktop applications known by a Start menu shortcut.
// Display and short names are kept lower-cased; ruby readings and localised
// names are kept as given.
#pragma once

#include <list>
#include <memory>

#include "catalogue/exclude_list.h"
#include "platform/platform.h"

namespace kel {

namespace xml {
class XmlReader;
class XmlWriter;
}  // namespace xml

class CKELApp {
 public:
  virtual ~CKELApp() = default;
  virtual HRESULT AddToExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                          BOOL* pFound) = 0;
  virtual HRESULT ToXmlNode(xml::XmlWriter* writer) const = 0;

  // Whether every significant piece of `part` occurs in `whole`, in any order.
  static BOOL IsSubStrNoOrder(const char16_t* part, const char16_t* whole);

  WString DisplayName;      // lower-cased
  WString RubyDisplayName;  // as given

 protected:
  CKELApp(const char16_t* displayName, const char16_t* rubyDisplayName);
};

class CKELMetroApp : public CKELApp {
 public:
  CKELMetroApp(const char16_t* displayName, const char16_t* shortName, const char16_t* rubyDisplayName,
               const char16_t* rubyShortName);
  HRESULT AddToExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                  BOOL* pFound) override;
  HRESULT ToXmlNode(xml::XmlWriter* writer) const override;
  static HRESULT FromXmlNode(xml::XmlReader* reader, CKELMetroApp** ppApp);

  WString ShortName;      // lower-cased
  WString RubyShortName;  // as given
};

class CKELDesktopApp : public CKELApp {
 public:
  CKELDesktopApp(const char16_t* displayName, const char16_t* lnkFileName, const char16_t* localizeName,
                 const char16_t* rubyDisplayName, BOOL needReserve, BOOL isInstalled, BOOL isDualMode);
  HRESULT AddToExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                  BOOL* pFound) override;
  HRESULT ToXmlNode(xml::XmlWriter* writer) const override;
  static HRESULT FromXmlNode(xml::XmlReader* reader, CKELDesktopApp** ppApp);

  BOOL IsSameShortcut(const char16_t* path) const;

  BOOL NeedReserve = 0;
  WString LocalizeName;
  WString LnkFileName;
  BOOL IsInstalled = 1;
  BOOL IsDualMode = 0;
};

using PackageVersion = platform::PackageVersion;

class CKELPackage {
 public:
  // From the platform's package; a failing query throws PlatformError.
  explicit CKELPackage(platform::Package& package);
  // From stored values (the catalogue file).
  CKELPackage(const char16_t* packageFamilyName, PackageVersion version, BOOL needReserve, BOOL isInstalled);
  virtual ~CKELPackage();
  CKELPackage(const CKELPackage&) = delete;
  CKELPackage& operator=(const CKELPackage&) = delete;

  BOOL IsThisPackage(const char16_t* packageFamilyName) const;
  // Takes `app` over on every path: one that cannot be listed is deleted.
  HRESULT AddApplication(CKELMetroApp* app);
  HRESULT AddApplication(const char16_t* displayName, const char16_t* shortName);
  void DeleteAllApp();
  HRESULT AddAppNameToExcludeList(const char16_t* searchWord, ExcludeAppNameList* excludeList, BOOL* pFound);
  HRESULT ToXmlNode(xml::XmlWriter* writer) const;
  static HRESULT FromXmlNode(xml::XmlReader* reader, CKELPackage** ppPackage);

  const std::list<std::unique_ptr<CKELMetroApp>>& Applications() const { return m_Applications; }
  // Moves the other record's applications to the end of this one's.
  void TakeApplicationsFrom(CKELPackage& other) { m_Applications.splice(m_Applications.end(), other.m_Applications); }
  // Whether deleting the record writes DeleteAllApp's trace lines. A record
  // that is not in the catalogue (one being filled before it is listed, or
  // one that only carries applications over to a listed record) deletes no
  // catalogued application when it goes, so it goes without a trace.
  void SetCatalogued(bool catalogued) noexcept { m_Catalogued = catalogued; }

  WString PackageFamilyName;
  WString FullName;
  WString Name;
  PackageVersion Version;
  BOOL NeedReserve = 0;
  BOOL IsInstalled = 1;

 private:
  std::list<std::unique_ptr<CKELMetroApp>> m_Applications;
  bool m_Catalogued = true;
};

}  // namespace kel
