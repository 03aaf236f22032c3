// CKELManifestReader: the names of a Store package's applications, read
// from its AppxManifest.xml either with the library's XML reader or with the
// packaging API, as "ManifestReaderSetting" chooses.
#pragma once

#include "catalogue/records.h"
#include "platform/types.h"

namespace kel {

namespace xml {
class XmlReader;
}  // namespace xml

class CKELManifestReader {
 public:
  static constexpr DWORD kPackagingApi = 0;
  static constexpr DWORD kXmlReader = 1;
  static constexpr UINT kNameBufferCharacters = 256;

  static DWORD LoadSetting();
  [[nodiscard]] static HRESULT AddAppsToPackage(const char16_t* manifestPath, CKELPackage* package);

  [[nodiscard]] static HRESULT MoveToElementByName(xml::XmlReader* reader, const char16_t* name);
  [[nodiscard]] static HRESULT GetAttributeValueByName(xml::XmlReader* reader, const char16_t* name, WString& value);

  [[nodiscard]] static HRESULT GetAppNameUsingXmlParser(const char16_t* manifestPath, CKELPackage* package);
  [[nodiscard]] static HRESULT IsCanGetAppNameFromManifest(const char16_t* manifestPath, CKELPackage* package,
                                                           BOOL* canGet);
  [[nodiscard]] static HRESULT GetAppNameUsingAPI(const char16_t* manifestPath, CKELPackage* package);

  // The display name of a package with exactly one application, in a
  // LocalAlloc'ed buffer of 256 characters that the caller frees. A query of
  // the package that fails throws platform::PlatformError with the
  // platform's code and its text for it.
  [[nodiscard]] static HRESULT GetAppDisplayName(platform::Package* package, char16_t** displayName);

  // Resolves an "ms-resource:" reference through the shell's indirect
  // strings into `buffer` (256 characters).
  static BOOL ConvertMsResourceToString(WString reference, const char16_t* packageFullName, const char16_t* packageName,
                                        char16_t* buffer);
};

}  // namespace kel
