#include "catalogue/app_name_list.h"

#include <new>

#include "catalogue/catalogue_lock.h"
#include "frame/exports.h"
#include "frame/format.h"
#include "frame/log.h"
#include "frame/trace_exit.h"
#include "frame/wide.h"
#include "manifest/manifest_reader.h"
#include "platform/platform.h"
#include "text/xml/xml_reader.h"
#include "text/xml/xml_writer.h"

namespace kel {
namespace {

bool NameIs(const char16_t* name, UINT length, std::u16string_view wanted) {
  return name != nullptr && EqualsIgnoreCase(std::u16string_view(name, length), wanted);
}

// A failed query of the platform's package, raised as the platform raises
// it: its own code and its own text for that code.
void ThrowIfFailed(HRESULT hr) {
  if (Failed(hr)) throw platform::PlatformError{hr, Sys().DescribeError(hr)};
}

// The manifest beside a package: installed folder, a backslash, the file.
// The installed location is asked anew each time.
[[nodiscard]] bool ManifestPathOf(platform::Package& package, WString& path) {
  WString folder;
  ThrowIfFailed(package.GetInstalledLocationPath(folder));
  return FormatWideInto(path, kMaxPath, u"%s\\%s", {folder, u"AppxManifest.xml"});
}

void TraceOverlongManifestPath(const char16_t* name) {
  WriteDebugLog("%S manifest path longer than %d characters, skipped\r\n", name, static_cast<int>(kMaxPath - 1));
}

// The records the calling thread is bound to, if any (BindThisThread).
thread_local const CKELAppNameList* t_BoundList = nullptr;
thread_local std::uint64_t t_BoundGeneration = 0;

// What Load and Save share around their work: the entry line and the path's
// check first, the exit line with what `body` answers last, and
// E_OUTOFMEMORY when memory runs out on the way.
template <typename Body>
[[nodiscard]] HRESULT FileOperation(const char16_t* name, const char16_t* path, Body body) {
  WriteDebugLog("%S(%S) IN\r\n", name, path);
  KEL_RETURN_IF_FAILED_TRACED(name, CheckStringArgument(path));
  try {
    return TraceExit(name, body());
  } catch (const std::bad_alloc&) {
    return TraceExit(name, E_OUTOFMEMORY);
  }
}

}  // namespace

CKELAppNameList::~CKELAppNameList() { Clear(); }

CKELAppNameList::ThreadBinding::ThreadBinding(const CKELAppNameList& list, std::uint64_t generation)
    : previousList_(t_BoundList), previousGeneration_(t_BoundGeneration) {
  t_BoundList = &list;
  t_BoundGeneration = generation;
}

CKELAppNameList::ThreadBinding::~ThreadBinding() {
  t_BoundList = previousList_;
  t_BoundGeneration = previousGeneration_;
}

CKELAppNameList::ThreadBinding CKELAppNameList::BindThisThread() {
  std::uint64_t generation = 0;
  {
    CatalogueLock lock(m_Lock);
    generation = m_Generation;
  }
  return ThreadBinding(*this, generation);
}

bool CKELAppNameList::IsStaleForThisThreadHeld() const {
  return t_BoundList == this && t_BoundGeneration != m_Generation;
}

HRESULT CKELAppNameList::Load(const char16_t* path) {
  return FileOperation(u"CKELAppNameList::Load", path, [&]() -> HRESULT {
    std::string bytes;
    HRESULT hr = Sys().ReadFileBytes(path, bytes);
    if (Failed(hr)) return hr;
    xml::XmlReader reader;
    hr = reader.SetInput(bytes);
    if (Failed(hr)) return hr;
    CatalogueLock lock(m_Lock);
    return ScanDocument(reader);
  });
}

HRESULT CKELAppNameList::ScanDocument(xml::XmlReader& reader) {
  HRESULT status = S_OK;
  for (;;) {
    xml::XmlNodeType type = xml::XmlNodeType_None;
    status = reader.GetNodeType(&type);
    if (status != S_OK) break;
    const char16_t* name = nullptr;
    UINT length = 0;
    if (type == xml::XmlNodeType_Element && Succeeded(reader.GetLocalName(&name, &length))) {
      if (NameIs(name, length, u"Package")) {
        CKELPackage* package = nullptr;
        if (Succeeded(CKELPackage::FromXmlNode(&reader, &package)) && package != nullptr) {
          (void)AppendPackageHeld(package);  // a record that cannot be listed is only traced
        } else {
          delete package;
        }
        continue;  // the package's parse has moved the reader on
      }
      if (NameIs(name, length, u"DesktopApps")) {
        (void)ReadDesktopAppsHeld(&reader);  // the scan goes on where the list's ended
        continue;
      }
    }
    // A clean end of input (S_FALSE) ends the scan as a failure does.
    status = reader.Read(nullptr);
    if (status != S_OK) break;
  }
  return status;
}

HRESULT CKELAppNameList::ReadDesktopApps(xml::XmlReader* reader) {
  CatalogueLock lock(m_Lock);
  return ReadDesktopAppsHeld(reader);
}

HRESULT CKELAppNameList::ReadDesktopAppsHeld(xml::XmlReader* reader) {
  constexpr char16_t kName[] = u"CKELAppNameList::ReadDesktopApps";
  WriteDebugLog("%S IN\r\n", kName);
  if (reader == nullptr) return TraceExit(kName, E_POINTER);
  UINT listDepth = 0;
  (void)reader->GetDepth(&listDepth);  // a reader with a node always has its depth
  HRESULT hr;
  xml::XmlNodeType type = xml::XmlNodeType_None;
  while ((hr = reader->Read(&type)) == S_OK) {
    UINT depth = 0;
    (void)reader->GetDepth(&depth);  // a reader with a node always has its depth
    if (type == xml::XmlNodeType_Element) {
      if (depth <= listDepth) break;  // belongs to the outer scan
      const char16_t* name = nullptr;
      UINT length = 0;
      if (Succeeded(reader->GetLocalName(&name, &length)) && NameIs(name, length, u"DesktopApp")) {
        CKELDesktopApp* app = nullptr;
        if (Succeeded(CKELDesktopApp::FromXmlNode(reader, &app)) && app != nullptr) {
          RecordRef<CKELDesktopApp> owned = RecordRef<CKELDesktopApp>::Adopt(app);
          try {
            m_DesktopApps.push_back(std::move(owned));
          } catch (...) {
            WriteDebugLog("%S Error (0x%08X)\r\n", kName, E_OUTOFMEMORY);
          }
        }
      }
    } else if (type == xml::XmlNodeType_EndElement && depth - 1 <= listDepth) {
      break;
    }
  }
  return TraceExit(kName, hr);
}

HRESULT CKELAppNameList::Save(const char16_t* path) {
  return FileOperation(u"CKELAppNameList::Save", path, [&]() -> HRESULT {
    xml::XmlWriter writer;
    HRESULT hr = writer.WriteStartDocument();
    if (Failed(hr)) return hr;
    const std::lock_guard<std::mutex> saving(m_SaveLock);
    {
      CatalogueLock held(m_Lock);
      if (IsStaleForThisThreadHeld()) return E_ABORT;
      // "Applications" stays open and the document is never ended: the file's
      // long-standing form, which every reader of it accepts.
      if (Succeeded(writer.WriteStartElement(nullptr, u"Applications", nullptr))) {
        if (Succeeded(writer.WriteStartElement(nullptr, u"MetroApps", nullptr))) {
          // A record that cannot be written is left out; the writer's own
          // failure shows in Flush.
          for (const auto& package : m_Packages) (void)package->ToXmlNode(&writer);
          (void)writer.WriteEndElement();  // a failure stays in the writer for the save to see
        }
        if (Succeeded(writer.WriteStartElement(nullptr, u"DesktopApps", nullptr))) {
          for (const auto& app : m_DesktopApps) (void)app->ToXmlNode(&writer);
          (void)writer.WriteEndElement();  // a failure stays in the writer for the save to see
        }
      }
    }  // the file is written without holding the catalogue
    hr = writer.Flush();
    if (Succeeded(hr)) hr = Sys().ReplaceFileAtomically(path, writer.Output());
    return hr;
  });
}

void CKELAppNameList::Clear() {
  constexpr char16_t kName[] = u"CKELAppNameList::Clear";
  WriteDebugLog("%S IN\r\n", kName);
  CatalogueLock lock(m_Lock);
  ++m_Generation;
  ReleaseRecordsHeld();
  WriteDebugLog("%S OUT\r\n", kName);
}

void CKELAppNameList::Reset() {
  CatalogueLock lock(m_Lock);
  ++m_Generation;
  ReleaseRecordsHeld();
}

void CKELAppNameList::ReleaseRecordsHeld() noexcept {
  // Front to back, as they were listed (a package's deletion is traced).
  for (auto& package : m_Packages) package.reset();
  m_Packages.clear();
  for (auto& app : m_DesktopApps) app.reset();
  m_DesktopApps.clear();
}

CKELPackage* CKELAppNameList::GetPackage(const char16_t* packageFamilyName) {
  CatalogueLock lock(m_Lock);
  return FindPackageHeld(packageFamilyName);
}

CKELPackage* CKELAppNameList::FindPackageHeld(const char16_t* packageFamilyName) {
  constexpr char16_t kName[] = u"CKELAppNameList::GetPackage";
  WriteDebugLog("%S IN\r\n", kName);
  CKELPackage* found = nullptr;
  if (packageFamilyName != nullptr && packageFamilyName[0] != 0) {
    for (const auto& package : m_Packages) {
      if (package->IsThisPackage(packageFamilyName)) {
        found = package.get();
        break;
      }
    }
  }
  WriteDebugLog("%S OUT\r\n", kName);
  return found;
}

HRESULT CKELAppNameList::AddMetroPackage(CKELPackage* package) {
  CatalogueLock lock(m_Lock);
  return AppendPackageHeld(package);
}

HRESULT CKELAppNameList::AppendPackageHeld(CKELPackage* package) {
  constexpr char16_t kName[] = u"CKELAppNameList::AddMetroPackage";
  WriteDebugLog("%S IN\r\n", kName);
  if (package == nullptr) return TraceExit(kName, E_POINTER);
  // A record that cannot be listed never was in the catalogue: it goes
  // without the trace of a catalogued record's deletion.
  if (IsStaleForThisThreadHeld()) {
    package->SetCatalogued(false);
    delete package;
    return TraceExit(kName, E_ABORT);
  }
  try {
    m_Packages.emplace_back(package);
  } catch (...) {
    package->SetCatalogued(false);
    delete package;
    return TraceExit(kName, E_OUTOFMEMORY);
  }
  return TraceExit(kName, S_OK);
}

HRESULT CKELAppNameList::AddMetroPackage(platform::Package* package) {
  constexpr char16_t kName[] = u"CKELAppNameList::AddMetroPackage";
  WriteDebugLog("%S IN\r\n", kName);
  if (package == nullptr) return TraceExit(kName, E_POINTER);
  // The platform and the manifest are asked without holding the catalogue;
  // the lock is taken for each look at or change of the records, and a
  // record found under it is only touched again under it, after checking
  // that the records were not emptied meanwhile. Records that are not in the
  // catalogue (the new one until it is listed, the one that carries a
  // manifest's applications over) leave no trace lines when they go.
  try {
    WString familyName;
    ThrowIfFailed(package->GetFamilyName(familyName));
    CKELPackage* record = nullptr;
    {
      CatalogueLock lock(m_Lock);
      if (IsStaleForThisThreadHeld()) return TraceExit(kName, E_ABORT);
      record = FindPackageHeld(familyName.c_str());
    }
    const HRESULT result =
        record == nullptr ? AddNewMetroPackage(*package) : RefreshMetroPackage(*package, record, familyName);
    return TraceExit(kName, result);
  } catch (const platform::PlatformError& error) {
    WriteDebugLog("%S OUT(%S)\r\n", kName, error.message);
    return TraceExit(kName, E_FAIL);
  } catch (const std::bad_alloc&) {
    return TraceExit(kName, E_OUTOFMEMORY);
  }
}

HRESULT CKELAppNameList::AddNewMetroPackage(platform::Package& package) {
  constexpr char16_t kName[] = u"CKELAppNameList::AddMetroPackage";
  auto created = std::make_unique<CKELPackage>(package);
  created->SetCatalogued(false);
  WString manifestPath;
  if (ManifestPathOf(package, manifestPath)) {
    (void)CKELManifestReader::AddAppsToPackage(manifestPath.c_str(), created.get());  // only traced
  } else {
    TraceOverlongManifestPath(kName);
  }
  created->SetCatalogued(true);
  CatalogueLock lock(m_Lock);
  return AppendPackageHeld(created.release());
}

HRESULT CKELAppNameList::RefreshMetroPackage(platform::Package& package, CKELPackage* record,
                                             const WString& familyName) {
  constexpr char16_t kName[] = u"CKELAppNameList::AddMetroPackage";
  platform::PackageVersion known;
  {
    CatalogueLock lock(m_Lock);
    if (IsStaleForThisThreadHeld()) return E_ABORT;
    if (record->NeedReserve) return S_OK;  // reserved records are never refreshed
    known = record->Version;
  }
  platform::PackageVersion version;
  ThrowIfFailed(package.GetVersion(version));
  if (version == known) return S_OK;
  WString fullName, name;
  ThrowIfFailed(package.GetFullName(fullName));
  ThrowIfFailed(package.GetName(name));
  {
    CatalogueLock lock(m_Lock);
    if (IsStaleForThisThreadHeld()) return E_ABORT;
    record->FullName = fullName;
    record->Name = name;
  }
  WString manifestPath;
  if (!ManifestPathOf(package, manifestPath)) {
    TraceOverlongManifestPath(kName);
    return E_FAIL;
  }
  // The manifest is read, twice, into a record of this call's own with the
  // catalogued one's names, so nothing catalogued is read unlocked. The
  // catalogued record's own applications are deleted under the lock in
  // between, where a refresh deletes them, and the new ones are moved over.
  CKELPackage carrier(familyName.c_str(), version, 0, 1);
  carrier.SetCatalogued(false);
  carrier.FullName = fullName;
  carrier.Name = name;
  BOOL canGet = 0;
  const HRESULT changeResult = CKELManifestReader::IsCanGetAppNameFromManifest(manifestPath.c_str(), &carrier, &canGet);
  // Without readable names the record keeps its old version and apps, so
  // the next refresh tries again.
  if (Failed(changeResult) || !canGet) return changeResult;
  {
    CatalogueLock lock(m_Lock);
    if (IsStaleForThisThreadHeld()) return E_ABORT;
    record->Version = version;
    record->DeleteAllApp();
  }
  if (!ManifestPathOf(package, manifestPath)) {
    TraceOverlongManifestPath(kName);
    return changeResult;
  }
  (void)CKELManifestReader::AddAppsToPackage(manifestPath.c_str(), &carrier);  // only traced
  CatalogueLock lock(m_Lock);
  if (IsStaleForThisThreadHeld()) return E_ABORT;
  record->TakeApplicationsFrom(carrier);
  return changeResult;
}

HRESULT CKELAppNameList::AddDesktopApp(const char16_t* displayName, const char16_t* shortcutPath) {
  constexpr char16_t kName[] = u"CKELAppNameList::AddDesktopApp";
  WriteDebugLog("%S(%S) IN\r\n", kName, displayName);
  if (displayName == nullptr || shortcutPath == nullptr) return TraceExit(kName, E_POINTER);
  if (displayName[0] == 0 || shortcutPath[0] == 0) return TraceExit(kName, E_INVALIDARG);
  CatalogueLock lock(m_Lock);
  if (IsStaleForThisThreadHeld()) return TraceExit(kName, E_ABORT);
  if (IsInDesktopAppListHeld(shortcutPath)) return S_FALSE;  // the catalogued record stays as it is
  try {
    m_DesktopApps.push_back(CKELDesktopApp::Create(displayName, shortcutPath, nullptr, nullptr, 0, 1, 0));
  } catch (...) {
    return TraceExit(kName, E_OUTOFMEMORY);
  }
  return TraceExit(kName, S_OK);
}

BOOL CKELAppNameList::IsInDesktopAppList(const char16_t* shortcutPath) {
  CatalogueLock lock(m_Lock);
  return IsInDesktopAppListHeld(shortcutPath);
}

BOOL CKELAppNameList::IsInDesktopAppListHeld(const char16_t* shortcutPath) {
  constexpr char16_t kName[] = u"CKELAppNameList::IsInDesktopAppList";
  WriteDebugLog("%S(%S) IN\r\n", kName, shortcutPath);
  BOOL found = 0;
  if (shortcutPath != nullptr && shortcutPath[0] != 0) {
    for (const auto& app : m_DesktopApps) {
      if (app->IsSameShortcut(shortcutPath)) {
        found = 1;
        break;
      }
    }
  }
  WriteDebugLog("%S OUT(%d)\r\n", kName, found);
  return found;
}

HRESULT CKELAppNameList::GetExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                               BOOL* pFound) {
  constexpr char16_t kName[] = u"CKELAppNameList::GetExcludeAppNameList";
  KEL_RETURN_IF_FAILED_TRACED(kName, EnterExclusionWalk(kName, searchWord, excludeList, pFound));
  *pFound = 0;
  BOOL flag = 0;
  // The records let go of the lock for their installed checks; the lists
  // only ever grow while it is released, so the walk stays valid.
  // The word is lower-cased once for the whole walk; without the memory for
  // that, each record tries on its own as it always has.
  WString lowered;
  const WString* word = TryLoweredCopy(searchWord, lowered) ? &lowered : nullptr;
  CatalogueLock lock(m_Lock);
  // Positions are indexes: the lists may grow (and move) while a record has
  // let go of the lock. Each record's own result is only traced.
  // Records leave only when the catalogue is emptied: a walk that meets
  // that leaves the package it was at untouched and ends.
  const WalkGeneration walk{&m_Generation, m_Generation};
  for (std::size_t i = 0; i < m_Packages.size(); ++i) {
    const HRESULT hr = m_Packages[i]->AddAppNameToExcludeList(searchWord, word, excludeList, &flag, &walk);
    if (hr == E_ABORT) break;
    if (flag) *pFound = 1;
  }
  for (std::size_t i = 0; i < m_DesktopApps.size(); ++i) {
    // The walk's own reference keeps the record while it lets go of the lock.
    const RecordRef<CKELDesktopApp> app = RecordRef<CKELDesktopApp>::Share(m_DesktopApps[i].get());
    (void)app->AddToExcludeAppNameList(searchWord, word, excludeList, &flag);
    if (flag) *pFound = 1;
  }
  WriteDebugLog("%S OUT\r\n", kName);
  return S_OK;
}

void CKELAppNameList::RefreshInstalledFlags() {
  // The lock is let go for each query. The lists only grow while it is
  // released, so the walk's place stays valid, unless the records were
  // emptied meanwhile: then the walk ends without touching them.
  CatalogueLock lock(m_Lock);
  if (IsStaleForThisThreadHeld()) return;
  const std::uint64_t generation = m_Generation;
  for (std::size_t i = 0; i < m_Packages.size(); ++i) {
    const WString familyName = m_Packages[i]->PackageFamilyName;
    BOOL installed = 1;
    {
      CatalogueUnlocked unlocked;
      if (Failed(KelIsInstalledW(familyName.c_str(), &installed))) installed = 1;
    }
    if (m_Generation != generation) return;
    m_Packages[i]->IsInstalled = installed;
  }
  for (std::size_t i = 0; i < m_DesktopApps.size(); ++i) {
    // The record's path is read unlocked; this reference keeps it.
    const RecordRef<CKELDesktopApp> app = RecordRef<CKELDesktopApp>::Share(m_DesktopApps[i].get());
    BOOL exists = 0;
    {
      CatalogueUnlocked unlocked;
      exists = Sys().PathFileExists(app->LnkFileName().c_str()) != 0 ? 1 : 0;
    }
    if (m_Generation != generation) return;
    app->IsInstalled = exists;
  }
}

}  // namespace kel
