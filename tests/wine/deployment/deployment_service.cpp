// deployment_service.dll: a stand-in for the Windows deployment service, the
// runtime class "Windows.Management.Deployment.PackageManager", for the Wine
// tests. Registered under
// HKLM\Software\Microsoft\WindowsRuntime\ActivatableClassId\<class> with its
// DllPath (register_doubles.sh), it is what RoActivateInstance of that class
// gives in the prefix.
//
// It serves the [Package] sections of the fixture file (double_fixture.h) to
// the current user only: FindPackagesByUserSecurityId and
// FindPackagesByUserSecurityIdPackageFamilyName compare the SID they are
// given with the current user's; another user's SID (or a malformed one) gets
// an empty collection and a "SidMismatch" line in the journal. Every call is
// journalled. The objects handed out are the runtime's: IIterable<Package> and
// IIterator<Package> under their derived interface IDs, packages answering
// IPackage with an IPackageId of their own, and an installed location
// answering IStorageFolder and IStorageItem (with its Path). Everything the
// library does not use answers E_NOTIMPL. docs/wine-doubles.md has the
// details.

#include <windows.h>
#include <inspectable.h>
#include <activation.h>
#include <winstring.h>

#include <cwchar>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "deployment_abi.h"
#include "double_fixture.h"

using namespace deployment_abi;
using deployment_double::Fixture;
using deployment_double::FixtureSection;

namespace {

LONG g_liveObjects = 0;  // for DllCanUnloadNow

// E_BOUNDS: an iterator asked for an element past the end.
constexpr HRESULT kOutOfBounds = static_cast<HRESULT>(0x8000000BL);

#define DOUBLE_REFERENCE_COUNT                                   \
  ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&references_); } \
  ULONG STDMETHODCALLTYPE Release() override {                  \
    const LONG left = InterlockedDecrement(&references_);       \
    if (left == 0) delete this;                                 \
    return left;                                                \
  }                                                             \
  LONG references_ = 1;

// Counts the objects alive, for DllCanUnloadNow.
struct Live {
  Live() { InterlockedIncrement(&g_liveObjects); }
  ~Live() { InterlockedDecrement(&g_liveObjects); }
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;
};

HRESULT NewString(const std::wstring& text, HSTRING* out) {
  if (out == nullptr) return E_POINTER;
  return WindowsCreateString(text.c_str(), static_cast<UINT32>(text.size()), out);
}

std::wstring StringOf(HSTRING text) {
  UINT32 length = 0;
  const wchar_t* raw = WindowsGetStringRawBuffer(text, &length);
  return std::wstring(raw != nullptr ? raw : L"", length);
}

// The interface IDs an object implements, as GetIids hands them out.
HRESULT CopyIids(std::initializer_list<GUID> ids, ULONG* count, IID** out) {
  if (count == nullptr || out == nullptr) return E_POINTER;
  *out = static_cast<IID*>(CoTaskMemAlloc(sizeof(IID) * ids.size()));
  if (*out == nullptr) return E_OUTOFMEMORY;
  ULONG i = 0;
  for (const GUID& id : ids) (*out)[i++] = id;
  *count = i;
  return S_OK;
}

// What the fixture says of one package.
struct PackageRecord {
  std::wstring familyName;
  std::wstring fullName;
  std::wstring name;
  std::wstring publisher;
  std::wstring publisherId;
  std::wstring resourceId;
  std::wstring installedLocation;
  PackageVersion version{};
  INT32 architecture = 9;  // x64
  bool isFramework = false;
};

PackageVersion ParseVersion(const std::wstring& text) {
  PackageVersion version{};
  UINT16* parts[] = {&version.Major, &version.Minor, &version.Build, &version.Revision};
  std::size_t start = 0;
  for (UINT16* part : parts) {
    if (start > text.size()) break;
    std::size_t dot = text.find(L'.', start);
    if (dot == std::wstring::npos) dot = text.size();
    *part = static_cast<UINT16>(deployment_double::ParseNumber(text.substr(start, dot - start), 0));
    start = dot + 1;
  }
  return version;
}

std::vector<std::shared_ptr<const PackageRecord>> PackagesOf(const Fixture& fixture) {
  std::vector<std::shared_ptr<const PackageRecord>> packages;
  for (const FixtureSection* section : fixture.All(L"Package")) {
    auto record = std::make_shared<PackageRecord>();
    record->familyName = section->Get(L"FamilyName");
    record->fullName = section->Get(L"FullName");
    record->name = section->Get(L"Name");
    record->publisher = section->Get(L"Publisher", L"CN=Kelbrook Test Packages");
    record->publisherId = section->Get(L"PublisherId");
    record->resourceId = section->Get(L"ResourceId");
    record->installedLocation = section->Get(L"InstalledLocation");
    record->version = ParseVersion(section->Get(L"Version"));
    record->architecture = static_cast<INT32>(deployment_double::ParseNumber(section->Get(L"Architecture"), 9));
    record->isFramework = deployment_double::ParseNumber(section->Get(L"IsFramework"), 0) != 0;
    packages.push_back(record);
  }
  return packages;
}

// ---------------------------------------------------------------------------
// Windows.Storage.StorageFolder: the installed location.

class StorageFolder final : public IStorageFolder, public IStorageItem {
 public:
  explicit StorageFolder(std::wstring path) : path_(std::move(path)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid == IID_IUnknown || iid == kIidInspectable || iid == kIidStorageFolder || iid == kIidAgileObject) {
      *object = static_cast<IStorageFolder*>(this);
    } else if (iid == kIidStorageItem) {
      *object = static_cast<IStorageItem*>(this);
    } else {
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  DOUBLE_REFERENCE_COUNT

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override {
    return CopyIids({kIidStorageFolder, kIidStorageItem}, count, ids);
  }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override {
    return NewString(L"Windows.Storage.StorageFolder", name);
  }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
    if (level == nullptr) return E_POINTER;
    *level = BaseTrust;
    return S_OK;
  }

  // IStorageFolder: nothing of it is served.
  HRESULT STDMETHODCALLTYPE CreateFileAsyncOverloadDefaultOptions(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CreateFileAsync(HSTRING, INT32, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CreateFolderAsyncOverloadDefaultOptions(HSTRING, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE CreateFolderAsync(HSTRING, INT32, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetFileAsync(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetFolderAsync(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetItemAsync(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetFilesAsyncOverloadDefaultOptionsStartAndCount(IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetFoldersAsyncOverloadDefaultOptionsStartAndCount(IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetItemsAsyncOverloadDefaultStartAndCount(IInspectable**) override { return E_NOTIMPL; }

  // IStorageItem: the name and the path.
  HRESULT STDMETHODCALLTYPE RenameAsyncOverloadDefaultOptions(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE RenameAsync(HSTRING, INT32, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteAsyncOverloadDefaultOptions(IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE DeleteAsync(INT32, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetBasicPropertiesAsync(IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) override {
    const std::size_t slash = path_.find_last_of(L'\\');
    return NewString(slash == std::wstring::npos ? path_ : path_.substr(slash + 1), value);
  }
  HRESULT STDMETHODCALLTYPE get_Path(HSTRING* value) override { return NewString(path_, value); }
  HRESULT STDMETHODCALLTYPE get_Attributes(UINT32* value) override {
    if (value == nullptr) return E_POINTER;
    *value = 16;  // FileAttributes.Directory
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_DateCreated(INT64*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE IsOfType(INT32 type, boolean* value) override {
    if (value == nullptr) return E_POINTER;
    *value = type == 2;  // StorageItemTypes.Folder
    return S_OK;
  }

 private:
  ~StorageFolder() = default;
  Live live_;
  std::wstring path_;
};

// ---------------------------------------------------------------------------
// Windows.ApplicationModel.PackageId

class PackageIdObject final : public IPackageId {
 public:
  explicit PackageIdObject(std::shared_ptr<const PackageRecord> record) : record_(std::move(record)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid != IID_IUnknown && iid != kIidInspectable && iid != kIidPackageId && iid != kIidAgileObject) {
      return E_NOINTERFACE;
    }
    *object = static_cast<IPackageId*>(this);
    AddRef();
    return S_OK;
  }
  DOUBLE_REFERENCE_COUNT

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override { return CopyIids({kIidPackageId}, count, ids); }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override {
    return NewString(L"Windows.ApplicationModel.PackageId", name);
  }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
    if (level == nullptr) return E_POINTER;
    *level = BaseTrust;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) override { return NewString(record_->name, value); }
  HRESULT STDMETHODCALLTYPE get_Version(PackageVersion* value) override {
    if (value == nullptr) return E_POINTER;
    *value = record_->version;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Architecture(INT32* value) override {
    if (value == nullptr) return E_POINTER;
    *value = record_->architecture;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ResourceId(HSTRING* value) override { return NewString(record_->resourceId, value); }
  HRESULT STDMETHODCALLTYPE get_Publisher(HSTRING* value) override { return NewString(record_->publisher, value); }
  HRESULT STDMETHODCALLTYPE get_PublisherId(HSTRING* value) override {
    return NewString(record_->publisherId, value);
  }
  HRESULT STDMETHODCALLTYPE get_FullName(HSTRING* value) override { return NewString(record_->fullName, value); }
  HRESULT STDMETHODCALLTYPE get_FamilyName(HSTRING* value) override { return NewString(record_->familyName, value); }

 private:
  ~PackageIdObject() = default;
  Live live_;
  std::shared_ptr<const PackageRecord> record_;
};

// ---------------------------------------------------------------------------
// Windows.ApplicationModel.Package

class PackageObject final : public IPackage {
 public:
  explicit PackageObject(std::shared_ptr<const PackageRecord> record) : record_(std::move(record)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid != IID_IUnknown && iid != kIidInspectable && iid != kIidPackage && iid != kIidAgileObject) {
      return E_NOINTERFACE;
    }
    *object = static_cast<IPackage*>(this);
    AddRef();
    return S_OK;
  }
  DOUBLE_REFERENCE_COUNT

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override { return CopyIids({kIidPackage}, count, ids); }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override {
    return NewString(L"Windows.ApplicationModel.Package", name);
  }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
    if (level == nullptr) return E_POINTER;
    *level = BaseTrust;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE get_Id(IPackageId** value) override {
    if (value == nullptr) return E_POINTER;
    *value = new (std::nothrow) PackageIdObject(record_);
    return *value != nullptr ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE get_InstalledLocation(IStorageFolder** value) override {
    if (value == nullptr) return E_POINTER;
    *value = new (std::nothrow) StorageFolder(record_->installedLocation);
    return *value != nullptr ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE get_IsFramework(boolean* value) override {
    if (value == nullptr) return E_POINTER;
    *value = record_->isFramework;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Dependencies(IPackageVectorView**) override { return E_NOTIMPL; }

 private:
  ~PackageObject() = default;
  Live live_;
  std::shared_ptr<const PackageRecord> record_;
};

// ---------------------------------------------------------------------------
// IIterable<Package> and IIterator<Package> over a snapshot of the fixture.

using PackageList = std::vector<std::shared_ptr<const PackageRecord>>;

class PackageIterator final : public IPackageIterator {
 public:
  explicit PackageIterator(std::shared_ptr<const PackageList> packages) : packages_(std::move(packages)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid != IID_IUnknown && iid != kIidInspectable && iid != kIidIteratorOfPackage && iid != kIidAgileObject) {
      return E_NOINTERFACE;
    }
    *object = static_cast<IPackageIterator*>(this);
    AddRef();
    return S_OK;
  }
  DOUBLE_REFERENCE_COUNT

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override {
    return CopyIids({kIidIteratorOfPackage}, count, ids);
  }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override {
    return NewString(L"Windows.Foundation.Collections.IIterator`1<Windows.ApplicationModel.Package>", name);
  }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
    if (level == nullptr) return E_POINTER;
    *level = BaseTrust;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE get_Current(IPackage** current) override {
    if (current == nullptr) return E_POINTER;
    *current = nullptr;
    if (position_ >= packages_->size()) return kOutOfBounds;
    *current = new (std::nothrow) PackageObject((*packages_)[position_]);
    return *current != nullptr ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE get_HasCurrent(boolean* hasCurrent) override {
    if (hasCurrent == nullptr) return E_POINTER;
    *hasCurrent = position_ < packages_->size();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE MoveNext(boolean* hasCurrent) override {
    if (hasCurrent == nullptr) return E_POINTER;
    if (position_ < packages_->size()) ++position_;
    *hasCurrent = position_ < packages_->size();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetMany(UINT32 capacity, IPackage** items, UINT32* actual) override {
    if (actual == nullptr || (items == nullptr && capacity != 0)) return E_POINTER;
    UINT32 count = 0;
    while (count < capacity && position_ < packages_->size()) {
      items[count] = new (std::nothrow) PackageObject((*packages_)[position_]);
      if (items[count] == nullptr) break;
      ++count;
      ++position_;
    }
    *actual = count;
    return S_OK;
  }

 private:
  ~PackageIterator() = default;
  Live live_;
  std::shared_ptr<const PackageList> packages_;
  std::size_t position_ = 0;
};

class PackageIterable final : public IPackageIterable {
 public:
  explicit PackageIterable(PackageList packages)
      : packages_(std::make_shared<const PackageList>(std::move(packages))) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid != IID_IUnknown && iid != kIidInspectable && iid != kIidIterableOfPackage && iid != kIidAgileObject) {
      return E_NOINTERFACE;
    }
    *object = static_cast<IPackageIterable*>(this);
    AddRef();
    return S_OK;
  }
  DOUBLE_REFERENCE_COUNT

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override {
    return CopyIids({kIidIterableOfPackage}, count, ids);
  }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override {
    return NewString(L"Windows.Foundation.Collections.IIterable`1<Windows.ApplicationModel.Package>", name);
  }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
    if (level == nullptr) return E_POINTER;
    *level = BaseTrust;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE First(IPackageIterator** first) override {
    if (first == nullptr) return E_POINTER;
    *first = new (std::nothrow) PackageIterator(packages_);
    return *first != nullptr ? S_OK : E_OUTOFMEMORY;
  }

 private:
  ~PackageIterable() = default;
  Live live_;
  std::shared_ptr<const PackageList> packages_;
};

// ---------------------------------------------------------------------------
// Windows.Management.Deployment.PackageManager

class PackageManager final : public IPackageManager {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid != IID_IUnknown && iid != kIidInspectable && iid != kIidPackageManager && iid != kIidAgileObject) {
      return E_NOINTERFACE;
    }
    *object = static_cast<IPackageManager*>(this);
    AddRef();
    return S_OK;
  }
  DOUBLE_REFERENCE_COUNT

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override {
    return CopyIids({kIidPackageManager}, count, ids);
  }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override { return NewString(kPackageManagerClass, name); }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
    if (level == nullptr) return E_POINTER;
    *level = BaseTrust;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE AddPackageAsync(IInspectable*, IInspectable*, INT32, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UpdatePackageAsync(IInspectable*, IInspectable*, INT32, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE RemovePackageAsync(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE StagePackageAsync(IInspectable*, IInspectable*, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE RegisterPackageAsync(IInspectable*, IInspectable*, INT32, IInspectable**) override {
    return E_NOTIMPL;
  }
  // All users' packages need administrator rights on Windows; refused here.
  HRESULT STDMETHODCALLTYPE FindPackages(IPackageIterable**) override {
    Journal(deployment_double::LoadFixture(), L"FindPackages\t" + deployment_double::Hex(E_ACCESSDENIED));
    return E_ACCESSDENIED;
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityId(HSTRING userSecurityId, IPackageIterable** packages) override {
    return Find(L"FindPackagesByUserSecurityId", userSecurityId, nullptr, packages);
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByNamePublisher(HSTRING, HSTRING, IPackageIterable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdNamePublisher(HSTRING, HSTRING, HSTRING,
                                                                      IPackageIterable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE FindUsers(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPackageState(HSTRING, INT32) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE FindPackageByPackageFullName(HSTRING, IPackage**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CleanupPackageForUserAsync(HSTRING, HSTRING, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByPackageFamilyName(HSTRING, IPackageIterable**) override {
    Journal(deployment_double::LoadFixture(),
            L"FindPackagesByPackageFamilyName\t" + deployment_double::Hex(E_ACCESSDENIED));
    return E_ACCESSDENIED;
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdPackageFamilyName(HSTRING userSecurityId,
                                                                          HSTRING packageFamilyName,
                                                                          IPackageIterable** packages) override {
    return Find(L"FindPackagesByUserSecurityIdPackageFamilyName", userSecurityId, &packageFamilyName, packages);
  }
  HRESULT STDMETHODCALLTYPE FindPackageByUserSecurityIdPackageFullName(HSTRING, HSTRING, IPackage**) override {
    return E_NOTIMPL;
  }

 private:
  ~PackageManager() = default;

  // The packages of the fixture for the given user, all or those of one
  // family. Journal lines (tab-separated):
  //   <method> <sid> [<family>] <count>       what was answered
  //   <method> <sid> [<family>] <code>        a failure the fixture asked for
  //   SidMismatch <method> <sid> <current user's sid>
  HRESULT Find(const wchar_t* method, HSTRING userSecurityId, const HSTRING* familyName, IPackageIterable** packages) {
    const Fixture fixture = deployment_double::LoadFixture();
    const std::wstring sid = StringOf(userSecurityId);
    std::wstring call = std::wstring(method) + L"\t" + sid;
    const std::wstring family = familyName != nullptr ? StringOf(*familyName) : std::wstring();
    if (familyName != nullptr) call += L"\t" + family;
    if (packages == nullptr) return E_POINTER;
    *packages = nullptr;

    // A failure the fixture asks for, as the runtime would raise it.
    if (const FixtureSection* service = fixture.First(L"Service")) {
      const HRESULT failure = static_cast<HRESULT>(deployment_double::ParseNumber(service->Get(L"FindResult"), 0));
      if (FAILED(failure)) {
        Journal(fixture, call + L"\t" + deployment_double::Hex(failure));
        return failure;
      }
    }

    PackageList found;
    // An empty SID stands for the current user, as it does for the service.
    const std::wstring currentUser = deployment_double::CurrentUserSid();
    if (!sid.empty() && (currentUser.empty() || !deployment_double::SameSid(sid, currentUser))) {
      Journal(fixture, std::wstring(L"SidMismatch\t") + method + L"\t" + sid + L"\t" + currentUser);
    } else {
      for (const auto& record : PackagesOf(fixture)) {
        // Family names are compared as the service compares them: ignoring case.
        if (familyName != nullptr && CompareStringOrdinal(record->familyName.c_str(), -1, family.c_str(), -1,
                                                          TRUE) != CSTR_EQUAL) {
          continue;
        }
        found.push_back(record);
      }
    }
    Journal(fixture, call + L"\t" + std::to_wstring(found.size()));
    *packages = new (std::nothrow) PackageIterable(std::move(found));
    return *packages != nullptr ? S_OK : E_OUTOFMEMORY;
  }

  Live live_;
};

// ---------------------------------------------------------------------------
// The activation factory of the class.

class PackageManagerFactory final : public IActivationFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid != IID_IUnknown && iid != kIidInspectable && iid != kIidActivationFactory && iid != kIidAgileObject) {
      return E_NOINTERFACE;
    }
    *object = static_cast<IActivationFactory*>(this);
    AddRef();
    return S_OK;
  }
  DOUBLE_REFERENCE_COUNT

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override {
    return CopyIids({kIidActivationFactory}, count, ids);
  }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override { return NewString(kPackageManagerClass, name); }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
    if (level == nullptr) return E_POINTER;
    *level = BaseTrust;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE ActivateInstance(IInspectable** instance) override {
    if (instance == nullptr) return E_POINTER;
    *instance = new (std::nothrow) PackageManager();
    const HRESULT hr = *instance != nullptr ? S_OK : E_OUTOFMEMORY;
    Journal(deployment_double::LoadFixture(),
            std::wstring(L"ActivateInstance\t") + kPackageManagerClass + L"\t" + deployment_double::Hex(hr));
    return hr;
  }

 private:
  ~PackageManagerFactory() = default;
  Live live_;
};

}  // namespace

extern "C" HRESULT WINAPI DllGetActivationFactory(HSTRING activatableClassId, IActivationFactory** factory) {
  if (factory == nullptr) return E_POINTER;
  *factory = nullptr;
  if (StringOf(activatableClassId) != kPackageManagerClass) return CLASS_E_CLASSNOTAVAILABLE;
  *factory = new (std::nothrow) PackageManagerFactory();
  return *factory != nullptr ? S_OK : E_OUTOFMEMORY;
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return g_liveObjects == 0 ? S_OK : S_FALSE; }
