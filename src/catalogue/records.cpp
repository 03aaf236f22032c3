#include "catalogue/records.h"

#include <new>

#include "catalogue/catalogue_lock.h"
#include "frame/exports.h"
#include "frame/log.h"
#include "frame/wide.h"

namespace kel {
namespace {

WString Lowered(const char16_t* text) {
  WString value = text == nullptr ? WString() : WString(text);
  LowerInPlace(value);
  return value;
}

WString Copied(const char16_t* text) { return text == nullptr ? WString() : WString(text); }

// The search word's lower-cased copy for the exclusion walk; false when the
// copy cannot be had, which the walk answers with E_OUTOFMEMORY.
[[nodiscard]] bool LoweredWord(const char16_t* searchWord, WString& word) noexcept {
  try {
    word = searchWord;
  } catch (...) {
    return false;
  }
  LowerInPlace(word);
  return true;
}

bool Contains(const WString& part, const WString& whole) {
  return CKELApp::IsSubStrNoOrder(part.c_str(), whole.c_str()) != 0;
}

// A failed query of the platform's package, raised as the platform raises
// it: its own code and its own text for that code.
void ThrowIfFailed(HRESULT hr) {
  if (Failed(hr)) throw platform::PlatformError{hr, platform::Current().DescribeError(hr)};
}

}  // namespace

// --- applications ------------------------------------------------------------

CKELApp::CKELApp(const char16_t* displayName, const char16_t* rubyDisplayName)
    : DisplayName(Lowered(displayName)), RubyDisplayName(Copied(rubyDisplayName)) {}

CKELMetroApp::CKELMetroApp(const char16_t* displayName, const char16_t* shortName, const char16_t* rubyDisplayName,
                           const char16_t* rubyShortName)
    : CKELApp(displayName, rubyDisplayName), ShortName(Lowered(shortName)), RubyShortName(Copied(rubyShortName)) {}

HRESULT CKELMetroApp::AddToExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                              BOOL* pFound) {
  constexpr char16_t kName[] = u"CKELMetroApp::AddToExcludeAppNameList";
  WriteDebugLog("%S(%S) IN\r\n", kName, searchWord);
  if (searchWord == nullptr || excludeList == nullptr || pFound == nullptr) return TraceExit(kName, E_POINTER);
  if (searchWord[0] == 0) return TraceExit(kName, E_INVALIDARG);
  *pFound = 0;
  WString word;
  if (!LoweredWord(searchWord, word)) return TraceExit(kName, E_OUTOFMEMORY);
  HRESULT result = S_OK;
  // An app whose display name is the word itself adds nothing and is not
  // counted as found: its short name is not looked at either.
  if (DisplayName.empty() || EqualsIgnoreCase(DisplayName.c_str(), word.c_str())) return TraceExit(kName, result);

  if (Contains(word, DisplayName)) {
    if (Contains(DisplayName, word)) {
      *pFound = 1;
    } else {
      result = AddUniqueName(*excludeList, DisplayName);
      if (Failed(result)) return TraceExit(kName, result);
    }
  }
  if (!RubyDisplayName.empty() && Contains(word, RubyDisplayName)) result = AddUniqueName(*excludeList, DisplayName);
  if (Succeeded(result) && !ShortName.empty()) {
    if (Contains(word, ShortName)) {
      if (Contains(ShortName, word)) {
        *pFound = 1;
      } else {
        result = AddUniqueName(*excludeList, ShortName);
      }
    }
    if (Succeeded(result) && !RubyShortName.empty() && Contains(word, RubyShortName)) {
      result = AddUniqueName(*excludeList, ShortName);
    }
  }
  return TraceExit(kName, result);
}

CKELDesktopApp::CKELDesktopApp(const char16_t* displayName, const char16_t* lnkFileName, const char16_t* localizeName,
                               const char16_t* rubyDisplayName, BOOL needReserve, BOOL isInstalled, BOOL isDualMode)
    : CKELApp(displayName, rubyDisplayName),
      NeedReserve(needReserve),
      LocalizeName(Copied(localizeName)),
      LnkFileName(Copied(lnkFileName)),
      IsInstalled(isInstalled),
      IsDualMode(isDualMode) {}

BOOL CKELDesktopApp::IsSameShortcut(const char16_t* path) const {
  constexpr char16_t kName[] = u"CKELDesktopApp::IsSameShortcut";
  WriteDebugLog("%S IN(%S)\r\n", kName, path);
  const BOOL same = (path != nullptr && path[0] != 0 && EqualsIgnoreCase(path, LnkFileName.c_str())) ? 1 : 0;
  WriteDebugLog("%S OUT(%d)\r\n", kName, same);
  return same;
}

HRESULT CKELDesktopApp::AddToExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                                BOOL* pFound) {
  constexpr char16_t kName[] = u"CKELDesktopApp::AddToExcludeAppNameList";
  WriteDebugLog("%S(%S) IN\r\n", kName, searchWord);
  if (searchWord == nullptr || excludeList == nullptr || pFound == nullptr) return TraceExit(kName, E_POINTER);
  if (searchWord[0] == 0) return TraceExit(kName, E_INVALIDARG);
  BOOL exists = 0;
  {
    // A file system query may be slow. The path is read without the lock:
    // it never changes once the record exists, and records leave only with
    // the whole catalogue.
    CatalogueUnlocked unlocked;
    exists = platform::Current().PathFileExists(LnkFileName.c_str()) != 0 ? 1 : 0;
  }
  IsInstalled = exists;
  if (!IsInstalled) return S_FALSE;  // a missing shortcut contributes nothing

  *pFound = 0;
  WString word;
  if (!LoweredWord(searchWord, word)) return TraceExit(kName, E_OUTOFMEMORY);
  HRESULT result = S_OK;
  const WString& name = LocalizeName.empty() ? DisplayName : LocalizeName;
  if (name.empty()) return TraceExit(kName, result);
  // Unlike a Store app, a desktop app named exactly by the word counts as
  // found, unless it is marked dual-mode.
  if (EqualsIgnoreCase(name.c_str(), word.c_str())) {
    if (!IsDualMode) *pFound = 1;
    return TraceExit(kName, result);
  }
  if (Contains(word, name)) {
    if (Contains(name, word)) {
      *pFound = 1;
    } else {
      result = AddUniqueName(*excludeList, name);
      if (Failed(result)) return TraceExit(kName, result);
    }
  }
  if (!RubyDisplayName.empty() && Contains(word, RubyDisplayName)) result = AddUniqueName(*excludeList, name);
  return TraceExit(kName, result);
}

// --- packages ----------------------------------------------------------------

CKELPackage::CKELPackage(platform::Package& package) {
  ThrowIfFailed(package.GetFamilyName(PackageFamilyName));
  ThrowIfFailed(package.GetFullName(FullName));
  ThrowIfFailed(package.GetName(Name));
  ThrowIfFailed(package.GetVersion(Version));
  NeedReserve = 0;
  IsInstalled = 1;
}

CKELPackage::CKELPackage(const char16_t* packageFamilyName, PackageVersion version, BOOL needReserve,
                         BOOL isInstalled)
    : PackageFamilyName(Copied(packageFamilyName)), Version(version), NeedReserve(needReserve),
      IsInstalled(isInstalled) {}

CKELPackage::~CKELPackage() {
  if (m_Catalogued) DeleteAllApp();
}

BOOL CKELPackage::IsThisPackage(const char16_t* packageFamilyName) const {
  constexpr char16_t kName[] = u"CKELPackage::IsThisPackage";
  WriteDebugLog("%S(%S) IN\r\n", kName, packageFamilyName);
  // Exact and case-sensitive, unlike the shortcut comparison.
  const BOOL same =
      (!PackageFamilyName.empty() && packageFamilyName != nullptr && PackageFamilyName == packageFamilyName) ? 1 : 0;
  WriteDebugLog("%S OUT(%d)\r\n", kName, same);
  return same;
}

HRESULT CKELPackage::AddApplication(CKELMetroApp* app) {
  constexpr char16_t kName[] = u"CKELPackage::AddApplication";
  WriteDebugLog("%S IN\r\n", kName);
  if (app == nullptr) return TraceExit(kName, E_POINTER);
  // The package owns the app from here on, also when it cannot be listed:
  // then it is deleted at once.
  std::unique_ptr<CKELMetroApp> owned(app);
  try {
    m_Applications.push_back(std::move(owned));
  } catch (...) {
    return TraceExit(kName, E_OUTOFMEMORY);
  }
  return TraceExit(kName, S_OK);
}

HRESULT CKELPackage::AddApplication(const char16_t* displayName, const char16_t* shortName) {
  constexpr char16_t kName[] = u"CKELPackage::AddApplication";
  WriteDebugLog("%S(%S, %S) IN\r\n", kName, displayName, shortName);
  try {
    m_Applications.push_back(std::make_unique<CKELMetroApp>(displayName, shortName, nullptr, nullptr));
  } catch (...) {
    return TraceExit(kName, E_OUTOFMEMORY);
  }
  return TraceExit(kName, S_OK);
}

void CKELPackage::DeleteAllApp() {
  constexpr char16_t kName[] = u"CKELPackage::DeleteAllApp";
  WriteDebugLog("%S IN\r\n", kName);
  while (!m_Applications.empty()) m_Applications.pop_front();
  WriteDebugLog("%S OUT\r\n", kName);
}

HRESULT CKELPackage::AddAppNameToExcludeList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                             BOOL* pFound) {
  constexpr char16_t kName[] = u"CKELPackage::AddAppNameToExcludeList";
  WriteDebugLog("%S(%S) IN\r\n", kName, searchWord);
  if (searchWord == nullptr || excludeList == nullptr || pFound == nullptr) return TraceExit(kName, E_POINTER);
  if (searchWord[0] == 0) return TraceExit(kName, E_INVALIDARG);
  BOOL installed = 1;
  {
    CatalogueUnlocked unlocked;  // the deployment service may take its time
    if (Failed(KelIsInstalledW(PackageFamilyName.c_str(), &installed))) installed = 1;
  }
  IsInstalled = installed;
  if (!IsInstalled) return S_FALSE;  // an uninstalled package contributes nothing

  *pFound = 0;
  BOOL found = 0;  // not reset between applications
  for (const auto& app : m_Applications) {
    app->AddToExcludeAppNameList(searchWord, excludeList, &found);
    if (found) *pFound = 1;
  }
  WriteDebugLog("%S OUT\r\n", kName);
  return S_OK;
}

}  // namespace kel
