#include "manifest/manifest_reader.h"

#include <cstring>
#include <vector>

#include "frame/format.h"
#include "frame/log.h"
#include "frame/reg.h"
#include "frame/trace_exit.h"
#include "frame/wide.h"
#include "platform/apartment.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "platform/platform.h"
#include "text/xml/xml_reader.h"

namespace kel {
namespace {

constexpr char16_t kResourcePrefix[] = u"ms-resource:";

bool SameNameIgnoringCase(const char16_t* name, UINT length, const char16_t* wanted) {
  if (name == nullptr || length != WideLength(wanted)) return false;
  for (UINT i = 0; i < length; ++i) {
    if (AsciiLower(name[i]) != AsciiLower(wanted[i])) return false;
  }
  return true;
}

bool IsResourceReference(const WString& name) { return name.rfind(kResourcePrefix, 0) == 0; }

// Lower-cases the name; a resource reference is replaced by its resolved
// text, which keeps its own case.
void ResolveName(WString& name, const CKELPackage& package) {
  LowerInPlace(name);
  if (!IsResourceReference(name)) return;
  std::vector<char16_t> buffer(CKELManifestReader::kNameBufferCharacters, 0);
  if (CKELManifestReader::ConvertMsResourceToString(name, package.FullName.c_str(), package.Name.c_str(),
                                                    buffer.data())) {
    name = buffer.data();
  }
}

// Opens the manifest with the library's XML reader.
[[nodiscard]] HRESULT OpenManifest(const char16_t* name, const char16_t* path, xml::XmlReader& reader) {
  std::string bytes;
  HRESULT hr = Sys().ReadFileBytes(path, bytes);
  if (Failed(hr)) {
    WriteDebugLog("%S SHCreateStreamOnFile failed. ErrCode = 0x%08X\r\n", name, hr);
    return hr;
  }
  hr = reader.SetInput(bytes);
  if (Failed(hr)) WriteDebugLog("%S SetInput failed. ErrCode = 0x%08X\r\n", name, hr);
  return hr;
}

// Opens the manifest and moves to its Applications element, where every
// reading of the applications starts.
[[nodiscard]] HRESULT OpenApplications(const char16_t* name, const char16_t* path, xml::XmlReader& reader) {
  const HRESULT hr = OpenManifest(name, path, reader);
  if (Failed(hr)) return hr;
  return CKELManifestReader::MoveToElementByName(&reader, u"Applications");
}

// Whether a walk goes on past a name that is still a resource reference
// after resolving: adding applications keeps it as it is, the test whether
// the names can be had yet stops at it.
enum class UnresolvedName { Keep, Stop };

// One application's names: the walk both XML readings share. The result is
// that of the last step; `displayName` and `shortName` are resolved. With
// Stop the walk ends right after the first name that is still a reference,
// with the result of that name's read, and `unresolved` is set.
HRESULT ReadApplication(xml::XmlReader& reader, const CKELPackage& package, UnresolvedName atUnresolved,
                        WString& displayName, WString& shortName, bool& unresolved) {
  unresolved = false;
  HRESULT hr = CKELManifestReader::MoveToElementByName(&reader, u"VisualElements");
  if (Failed(hr)) return hr;
  displayName.clear();
  hr = CKELManifestReader::GetAttributeValueByName(&reader, u"DisplayName", displayName);
  if (Failed(hr)) return hr;
  ResolveName(displayName, package);
  if (atUnresolved == UnresolvedName::Stop && IsResourceReference(displayName)) {
    unresolved = true;
    return hr;
  }
  // Without a DefaultTile the search runs on into the next application (or
  // to the end), as it always has.
  hr = CKELManifestReader::MoveToElementByName(&reader, u"DefaultTile");
  if (Failed(hr)) return hr;
  shortName.clear();
  hr = CKELManifestReader::GetAttributeValueByName(&reader, u"ShortName", shortName);
  if (Failed(hr)) return hr;
  ResolveName(shortName, package);
  unresolved = atUnresolved == UnresolvedName::Stop && IsResourceReference(shortName);
  return hr;
}

// The packaging API's reading of the manifest, in an apartment of its own.
// The objects are released, and the apartment left, before this returns.
[[nodiscard]] HRESULT AddApplicationsThroughApi(const char16_t* manifestPath, CKELPackage& package) {
  platform::ScopedComApartment apartment(platform::COINIT_APARTMENTTHREADED);
  if (!apartment) return apartment.Result();
  platform::ComPtr<platform::AppxManifestReader> manifest;
  platform::ComPtr<platform::AppxApplicationsEnumerator> applications;
  HRESULT hr = platform::RequireObject(Sys().CreateAppxManifestReader(manifestPath, manifest.put()), manifest);
  if (Succeeded(hr)) hr = platform::RequireObject(manifest->GetApplications(applications.put()), applications);
  BOOL hasCurrent = 0;
  if (Succeeded(hr)) hr = applications->GetHasCurrent(&hasCurrent);
  while (Succeeded(hr) && hasCurrent) {
    // An application that cannot be had, or whose name cannot be read, is
    // skipped; only the enumerator's own failure ends the walk.
    platform::ComPtr<platform::AppxApplication> application;
    if (Succeeded(platform::RequireObject(applications->GetCurrent(application.put()), application))) {
      WCHAR* rawName = nullptr;
      HRESULT named = application->GetStringValue(u"DisplayName", &rawName);
      platform::UniqueCoTaskMem displayName(rawName);
      named = platform::RequireObject(named, rawName);
      if (Succeeded(named)) (void)package.AddApplication(rawName, nullptr);  // traced by the package
    }
    application.reset();
    hr = applications->MoveNext(&hasCurrent);
  }
  return hr;
}

}  // namespace

DWORD CKELManifestReader::LoadSetting() {
  constexpr char16_t kName[] = u"CKELManifestReader::LoadSetting";
  WriteDebugLog("%S IN\r\n", kName);
  const DWORD setting = CKELReg::GetManifestReaderSetting();
  WriteDebugLog("%S OUT\r\n", kName);
  return setting;
}

HRESULT CKELManifestReader::AddAppsToPackage(const char16_t* manifestPath, CKELPackage* package) {
  constexpr char16_t kName[] = u"CKELManifestReader::AddAppsToPackage";
  WriteDebugLog("%S IN\r\n", kName);
  const HRESULT result = LoadSetting() == kXmlReader ? GetAppNameUsingXmlParser(manifestPath, package)
                                                     : GetAppNameUsingAPI(manifestPath, package);
  return TraceExit(kName, result);
}

// The entry line comes before the checks and shows the name as given, a
// null one included; a refused argument writes its exit line at once.
HRESULT CKELManifestReader::MoveToElementByName(xml::XmlReader* reader, const char16_t* name) {
  constexpr char16_t kName[] = u"CKELManifestReader::MoveToElementByName";
  WriteDebugLog("%S(%S) IN\r\n", kName, name);
  if (reader == nullptr || name == nullptr) return TraceExit(kName, E_POINTER);
  xml::XmlNodeType type = xml::XmlNodeType_None;
  HRESULT hr = reader->Read(&type);
  while (hr == S_OK) {
    const char16_t* localName = nullptr;
    UINT length = 0;
    if (type == xml::XmlNodeType_Element && Succeeded(reader->GetLocalName(&localName, &length)) &&
        SameNameIgnoringCase(localName, length, name)) {
      return TraceExit(kName, S_OK);
    }
    hr = reader->Read(&type);
  }
  return TraceExit(kName, hr);
}

HRESULT CKELManifestReader::GetAttributeValueByName(xml::XmlReader* reader, const char16_t* name, WString& value) {
  constexpr char16_t kName[] = u"CKELManifestReader::GetAttributeValueByName";
  WriteDebugLog("%S(%S) IN\r\n", kName, name);
  KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(name, reader));
  for (HRESULT move = reader->MoveToFirstAttribute(); move == S_OK; move = reader->MoveToNextAttribute()) {
    const char16_t* attributeValue = nullptr;
    UINT valueLength = 0;
    KEL_RETURN_IF_FAILED_TRACED(kName, reader->GetValue(&attributeValue, &valueLength));
    const char16_t* localName = nullptr;
    UINT nameLength = 0;
    KEL_RETURN_IF_FAILED_TRACED(kName, reader->GetLocalName(&localName, &nameLength));
    if (SameNameIgnoringCase(localName, nameLength, name)) {
      value.assign(attributeValue, valueLength);
      (void)reader->MoveToElement();  // S_FALSE when already on the element
      return TraceExit(kName, S_OK);
    }
  }
  return TraceExit(kName, S_FALSE);  // missing: the caller's value stays as it was
}

HRESULT CKELManifestReader::GetAppNameUsingXmlParser(const char16_t* manifestPath, CKELPackage* package) {
  constexpr char16_t kName[] = u"CKELManifestReader::GetAppNameUsingXmlParser";
  WriteDebugLog("%S IN\r\n", kName);
  if (manifestPath == nullptr || package == nullptr) return TraceExit(kName, E_POINTER);
  xml::XmlReader reader;
  KEL_RETURN_IF_FAILED_TRACED(kName, OpenApplications(kName, manifestPath, reader));
  HRESULT hr = S_OK;
  for (;;) {
    hr = MoveToElementByName(&reader, u"Application");
    if (hr != S_OK) break;
    WString displayName, shortName;
    bool unresolved = false;
    hr = ReadApplication(reader, *package, UnresolvedName::Keep, displayName, shortName, unresolved);
    if (Failed(hr)) break;
    (void)package->AddApplication(displayName.c_str(), shortName.c_str());  // traced by the package
  }
  return TraceExit(kName, hr);
}

HRESULT CKELManifestReader::IsCanGetAppNameFromManifest(const char16_t* manifestPath, CKELPackage* package,
                                                        BOOL* canGet) {
  constexpr char16_t kName[] = u"CKELManifestReader::IsCanGetAppNameFromManifest";
  WriteDebugLog("%S IN\r\n", kName);
  if (manifestPath == nullptr || package == nullptr || canGet == nullptr) return TraceExit(kName, E_POINTER);
  *canGet = 0;
  xml::XmlReader reader;
  KEL_RETURN_IF_FAILED_TRACED(kName, OpenApplications(kName, manifestPath, reader));
  HRESULT hr = S_OK;
  for (;;) {
    hr = MoveToElementByName(&reader, u"Application");
    if (hr == S_FALSE) {
      *canGet = 1;  // every application's names were readable
      break;
    }
    if (hr != S_OK) break;
    WString displayName, shortName;
    bool unresolved = false;
    hr = ReadApplication(reader, *package, UnresolvedName::Stop, displayName, shortName, unresolved);
    // A reference that did not resolve means the names cannot be had yet.
    if (Failed(hr) || unresolved) break;
  }
  return TraceExit(kName, hr);
}

HRESULT CKELManifestReader::GetAppNameUsingAPI(const char16_t* manifestPath, CKELPackage* package) {
  constexpr char16_t kName[] = u"CKELManifestReader::GetAppNameUsingAPI";
  WriteDebugLog("%S IN\r\n", kName);
  KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(manifestPath, package));
  return TraceExit(kName, AddApplicationsThroughApi(manifestPath, *package));
}

HRESULT CKELManifestReader::GetAppDisplayName(platform::Package* package, char16_t** displayName) {
  constexpr char16_t kName[] = u"CKELManifestReader::GetAppDisplayName";
  WriteDebugLog("%S IN\r\n", kName);
  if (package == nullptr || displayName == nullptr) return E_POINTER;
  WString folder;
  HRESULT hr = package->GetInstalledLocationPath(folder);
  if (Failed(hr)) throw platform::PlatformError{hr, Sys().DescribeError(hr)};
  const WString path = folder + u"\\" + u"AppxManifest.xml";
  xml::XmlReader reader;
  KEL_RETURN_IF_FAILED_TRACED(kName, OpenApplications(kName, path.c_str(), reader));
  hr = MoveToElementByName(&reader, u"Application");
  if (hr != S_OK) return TraceExit(kName, hr);
  hr = MoveToElementByName(&reader, u"VisualElements");
  if (hr != S_OK) return TraceExit(kName, hr);
  WString name;
  KEL_RETURN_IF_FAILED_TRACED(kName, GetAttributeValueByName(&reader, u"DisplayName", name));
  if (MoveToElementByName(&reader, u"Application") == S_OK) return TraceExit(kName, E_KEL_MULTIPLE_APPLICATIONS);

  auto* buffer =
      static_cast<char16_t*>(Sys().LocalAlloc(platform::LMEM_ZEROINIT, kNameBufferCharacters * sizeof(char16_t)));
  *displayName = buffer;
  if (buffer == nullptr) return TraceExit(kName, E_OUTOFMEMORY);
  LowerInPlace(name);
  if (!IsResourceReference(name)) {
    // The lower-cased text, cut to the buffer: what hosts have always got.
    const std::size_t length = std::min<std::size_t>(name.size(), kNameBufferCharacters - 1);
    std::memcpy(buffer, name.data(), length * sizeof(char16_t));
    buffer[length] = 0;
    return TraceExit(kName, S_OK);
  }
  WString fullName, identityName;
  hr = package->GetFullName(fullName);
  if (Succeeded(hr)) hr = package->GetName(identityName);
  if (Failed(hr)) throw platform::PlatformError{hr, Sys().DescribeError(hr)};
  if (!ConvertMsResourceToString(name, fullName.c_str(), identityName.c_str(), buffer)) return TraceExit(kName, E_FAIL);
  return TraceExit(kName, S_OK);
}

}  // namespace kel
