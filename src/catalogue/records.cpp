#include "catalogue/records.h"

#include <cstring>
#include <new>

#include "catalogue/catalogue_lock.h"
#include "frame/exports.h"
#include "frame/log.h"
#include "frame/trace_exit.h"
#include "frame/wide.h"

namespace kel {
namespace {

std::u16string_view ViewOf(const char16_t* text) {
  return text == nullptr ? std::u16string_view() : std::u16string_view(text, WideLength(text));
}

// The word as the walk compares it: the caller's lower-cased copy when it
// made one, else one of this call's own (`own`); null when none can be had,
// which the walk answers with E_OUTOFMEMORY.
const WString* WordToCompare(const char16_t* searchWord, const WString* lowered, WString& own) noexcept {
  if (lowered != nullptr) return lowered;
  return TryLoweredCopy(searchWord, own) ? &own : nullptr;
}

bool Contains(std::u16string_view part, std::u16string_view whole) {
  return CKELApp::IsSubStrNoOrder(part.data(), whole.data()) != 0;
}

// One app's names matched against the search word.
struct NameMatch {
  const CKELApp& app;
  std::u16string_view word;
  ExcludeAppNameList& excludeList;
  BOOL& found;
  // The list's answer for the last name excluded (S_OK before any); a
  // failure ends the match.
  HRESULT result = S_OK;

  // A name that holds every piece of the word is the app the word means when
  // the word holds every piece of it back; otherwise the name is excluded, as
  // it is when its reading holds the word.
  void Add(const RecordText& name, const RecordText& reading) {
    if (Contains(word, name)) {
      if (Contains(name, word)) {
        found = 1;
      } else {
        result = excludeList.AddUnique(app, name);
        if (Failed(result)) return;
      }
    }
    if (!reading.empty() && Contains(word, reading)) result = excludeList.AddUnique(app, name);
  }
};

// A failed query of the platform's package, raised as the platform raises
// it: its own code and its own text for that code.
void ThrowIfFailed(HRESULT hr) {
  if (Failed(hr)) throw platform::PlatformError{hr, platform::Current().DescribeError(hr)};
}

}  // namespace

// --- applications ------------------------------------------------------------

void* CKELApp::operator new(std::size_t size, Trailing trailing) { return ::operator new(size + trailing.bytes); }

void CKELApp::operator delete(void* block, Trailing) noexcept { ::operator delete(block); }

void CKELApp::operator delete(void* block) noexcept { ::operator delete(block); }

std::size_t CKELApp::TrailingBytes(const std::u16string_view (&texts)[kStrings]) noexcept {
  std::size_t units = 0;
  for (const std::u16string_view& text : texts) units += text.size() + 1;
  return units * sizeof(char16_t);
}

CKELApp::CKELApp(char16_t* strings, const std::u16string_view (&texts)[kStrings], unsigned lowered) noexcept
    : stringsAt_(static_cast<std::uint32_t>(reinterpret_cast<char*>(strings) - reinterpret_cast<char*>(this))) {
  std::uint32_t at = 0;
  for (int i = 0; i < kStrings; ++i) {
    const std::u16string_view text = texts[i];
    char16_t* out = strings + at;
    if ((lowered >> i) & 1u) {
      for (std::size_t k = 0; k < text.size(); ++k) out[k] = AsciiLower(text[k]);
    } else if (!text.empty()) {
      std::memcpy(out, text.data(), text.size() * sizeof(char16_t));
    }
    out[text.size()] = 0;
    ends_[i] = at + static_cast<std::uint32_t>(text.size());
    at = ends_[i] + 1;
  }
}

CKELMetroApp::CKELMetroApp(const std::u16string_view (&texts)[kStrings]) noexcept
    : CKELApp(reinterpret_cast<char16_t*>(reinterpret_cast<char*>(this) + sizeof(CKELMetroApp)), texts,
              (1u << kDisplayName) | (1u << kShortName)) {}

RecordRef<CKELMetroApp> CKELMetroApp::Create(std::u16string_view displayName, std::u16string_view shortName,
                                             std::u16string_view rubyDisplayName, std::u16string_view rubyShortName) {
  std::u16string_view texts[kStrings];
  texts[kDisplayName] = displayName;
  texts[kRubyDisplayName] = rubyDisplayName;
  texts[kShortName] = shortName;
  texts[kRubyShortName] = rubyShortName;
  return RecordRef<CKELMetroApp>::Adopt(new (Trailing{TrailingBytes(texts)}) CKELMetroApp(texts));
}

RecordRef<CKELMetroApp> CKELMetroApp::Create(const char16_t* displayName, const char16_t* shortName,
                                             const char16_t* rubyDisplayName, const char16_t* rubyShortName) {
  return Create(ViewOf(displayName), ViewOf(shortName), ViewOf(rubyDisplayName), ViewOf(rubyShortName));
}

HRESULT CKELMetroApp::AddToExcludeAppNameList(const char16_t* searchWord, const WString* lowered,
                                              ExcludeAppNameList* excludeList, BOOL* pFound) {
  constexpr char16_t kName[] = u"CKELMetroApp::AddToExcludeAppNameList";
  KEL_RETURN_IF_FAILED_TRACED(kName, EnterExclusionWalk(kName, searchWord, excludeList, pFound));
  *pFound = 0;
  WString own;
  const WString* compared = WordToCompare(searchWord, lowered, own);
  if (compared == nullptr) return TraceExit(kName, E_OUTOFMEMORY);
  const std::u16string_view word(*compared);
  const RecordText displayName = DisplayName();
  const RecordText shortName = ShortName();
  // An app whose display name is the word itself adds nothing and is not
  // counted as found: its short name is not looked at either.
  if (displayName.empty() || EqualsIgnoreCase(displayName.c_str(), compared->c_str())) {
    return TraceExit(kName, S_OK);
  }
  NameMatch match{*this, word, *excludeList, *pFound};
  match.Add(displayName, RubyDisplayName());
  if (Succeeded(match.result) && !shortName.empty()) match.Add(shortName, RubyShortName());
  return TraceExit(kName, match.result);
}

CKELDesktopApp::CKELDesktopApp(const std::u16string_view (&texts)[kStrings], BOOL needReserve, BOOL isInstalled,
                               BOOL isDualMode) noexcept
    : CKELApp(reinterpret_cast<char16_t*>(reinterpret_cast<char*>(this) + sizeof(CKELDesktopApp)), texts,
              1u << kDisplayName),
      NeedReserve(needReserve),
      IsInstalled(isInstalled),
      IsDualMode(isDualMode) {}

RecordRef<CKELDesktopApp> CKELDesktopApp::Create(std::u16string_view displayName, std::u16string_view lnkFileName,
                                                 std::u16string_view localizeName, std::u16string_view rubyDisplayName,
                                                 BOOL needReserve, BOOL isInstalled, BOOL isDualMode) {
  std::u16string_view texts[kStrings];
  texts[kDisplayName] = displayName;
  texts[kRubyDisplayName] = rubyDisplayName;
  texts[kLocalizeName] = localizeName;
  texts[kLnkFileName] = lnkFileName;
  return RecordRef<CKELDesktopApp>::Adopt(new (Trailing{TrailingBytes(texts)})
                                              CKELDesktopApp(texts, needReserve, isInstalled, isDualMode));
}

RecordRef<CKELDesktopApp> CKELDesktopApp::Create(const char16_t* displayName, const char16_t* lnkFileName,
                                                 const char16_t* localizeName, const char16_t* rubyDisplayName,
                                                 BOOL needReserve, BOOL isInstalled, BOOL isDualMode) {
  return Create(ViewOf(displayName), ViewOf(lnkFileName), ViewOf(localizeName), ViewOf(rubyDisplayName), needReserve,
                isInstalled, isDualMode);
}

BOOL CKELDesktopApp::IsSameShortcut(const char16_t* path) const {
  constexpr char16_t kName[] = u"CKELDesktopApp::IsSameShortcut";
  WriteDebugLog("%S IN(%S)\r\n", kName, path);
  const BOOL same = (path != nullptr && path[0] != 0 && EqualsIgnoreCase(path, LnkFileName().c_str())) ? 1 : 0;
  WriteDebugLog("%S OUT(%d)\r\n", kName, same);
  return same;
}

HRESULT CKELDesktopApp::AddToExcludeAppNameList(const char16_t* searchWord, const WString* lowered,
                                                ExcludeAppNameList* excludeList, BOOL* pFound) {
  constexpr char16_t kName[] = u"CKELDesktopApp::AddToExcludeAppNameList";
  KEL_RETURN_IF_FAILED_TRACED(kName, EnterExclusionWalk(kName, searchWord, excludeList, pFound));
  BOOL exists = 0;
  {
    // A file system query may be slow. The path is read without the lock:
    // it never changes once the record exists, and the caller's reference
    // keeps the record.
    CatalogueUnlocked unlocked;
    exists = platform::Current().PathFileExists(LnkFileName().c_str()) != 0 ? 1 : 0;
  }
  IsInstalled = exists;
  if (!IsInstalled) return S_FALSE;  // a missing shortcut contributes nothing

  *pFound = 0;
  WString own;
  const WString* compared = WordToCompare(searchWord, lowered, own);
  if (compared == nullptr) return TraceExit(kName, E_OUTOFMEMORY);
  const std::u16string_view word(*compared);
  const RecordText name = LocalizeName().empty() ? DisplayName() : LocalizeName();
  if (name.empty()) return TraceExit(kName, S_OK);
  // Unlike a Store app, a desktop app named exactly by the word counts as
  // found, unless it is marked dual-mode.
  if (EqualsIgnoreCase(name.c_str(), compared->c_str())) {
    if (!IsDualMode) *pFound = 1;
    return TraceExit(kName, S_OK);
  }
  NameMatch match{*this, word, *excludeList, *pFound};
  match.Add(name, RubyDisplayName());
  return TraceExit(kName, match.result);
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

CKELPackage::CKELPackage(const char16_t* packageFamilyName, PackageVersion version, BOOL needReserve, BOOL isInstalled)
    : PackageFamilyName(packageFamilyName == nullptr ? WString() : WString(packageFamilyName)),
      Version(version),
      NeedReserve(needReserve),
      IsInstalled(isInstalled) {}

CKELPackage::~CKELPackage() {
  if (m_Catalogued) {
    DeleteAllApp();
  } else {
    ReleaseApplications();
  }
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
  Append(app);
  return TraceExit(kName, S_OK);
}

HRESULT CKELPackage::AddApplication(const char16_t* displayName, const char16_t* shortName) {
  constexpr char16_t kName[] = u"CKELPackage::AddApplication";
  WriteDebugLog("%S(%S, %S) IN\r\n", kName, displayName, shortName);
  RecordRef<CKELMetroApp> app;
  try {
    app = CKELMetroApp::Create(displayName, shortName, nullptr, nullptr);
  } catch (...) {
    return TraceExit(kName, E_OUTOFMEMORY);
  }
  Append(app.release());
  return TraceExit(kName, S_OK);
}

void CKELPackage::Append(CKELMetroApp* app) noexcept {
  app->next_ = nullptr;
  if (lastApp_ == nullptr) {
    firstApp_ = app;
  } else {
    lastApp_->next_ = app;
  }
  lastApp_ = app;
  ++appCount_;
}

void CKELPackage::ReleaseApplications() noexcept {
  // Front to back, as they were listed.
  while (firstApp_ != nullptr) {
    CKELMetroApp* app = firstApp_;
    firstApp_ = app->next_;
    app->next_ = nullptr;
    app->Release();
  }
  lastApp_ = nullptr;
  appCount_ = 0;
}

void CKELPackage::DeleteAllApp() {
  constexpr char16_t kName[] = u"CKELPackage::DeleteAllApp";
  WriteDebugLog("%S IN\r\n", kName);
  ReleaseApplications();
  WriteDebugLog("%S OUT\r\n", kName);
}

void CKELPackage::TakeApplicationsFrom(CKELPackage& other) noexcept {
  if (other.firstApp_ == nullptr) return;
  if (lastApp_ == nullptr) {
    firstApp_ = other.firstApp_;
  } else {
    lastApp_->next_ = other.firstApp_;
  }
  lastApp_ = other.lastApp_;
  appCount_ += other.appCount_;
  other.firstApp_ = nullptr;
  other.lastApp_ = nullptr;
  other.appCount_ = 0;
}

HRESULT CKELPackage::AddAppNameToExcludeList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                             BOOL* pFound) {
  return AddAppNameToExcludeList(searchWord, nullptr, excludeList, pFound);
}

HRESULT CKELPackage::AddAppNameToExcludeList(const char16_t* searchWord, const WString* lowered,
                                             ExcludeAppNameList* excludeList, BOOL* pFound,
                                             const WalkGeneration* walk) {
  constexpr char16_t kName[] = u"CKELPackage::AddAppNameToExcludeList";
  KEL_RETURN_IF_FAILED_TRACED(kName, EnterExclusionWalk(kName, searchWord, excludeList, pFound));
  BOOL installed = 1;
  {
    // The name is asked about from a copy: the record may be gone by the
    // time the answer comes (the copy fits on the stack for every real name).
    char16_t shortCopy[kMaxPath];
    WString longCopy;
    const char16_t* familyName = shortCopy;
    if (PackageFamilyName.size() < kMaxPath) {
      std::memcpy(shortCopy, PackageFamilyName.c_str(), (PackageFamilyName.size() + 1) * sizeof(char16_t));
    } else {
      longCopy = PackageFamilyName;
      familyName = longCopy.c_str();
    }
    CatalogueUnlocked unlocked;  // the deployment service may take its time
    if (Failed(KelIsInstalledW(familyName, &installed))) installed = 1;
  }
  if (walk != nullptr && *walk->current != walk->expected) return E_ABORT;  // the record is gone
  IsInstalled = installed;
  if (!IsInstalled) return S_FALSE;  // an uninstalled package contributes nothing

  *pFound = 0;
  BOOL found = 0;  // not reset between applications
  // The applications as they are now, after the lock was taken back: a
  // refresh may have replaced them meanwhile.
  for (CKELMetroApp* app = firstApp_; app != nullptr; app = app->next_) {
    // Each application's own result is only traced.
    (void)app->AddToExcludeAppNameList(searchWord, lowered, excludeList, &found);
    if (found) *pFound = 1;
  }
  WriteDebugLog("%S OUT\r\n", kName);
  return S_OK;
}

}  // namespace kel
