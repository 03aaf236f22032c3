// deployment_service.dll: the objects that describe the fixture's packages
// (Windows.ApplicationModel.Package with its PackageId, the installed
// location as a Windows.Storage.StorageFolder) and the IIterable<Package>
// and IIterator<Package> the package manager hands them out in.

#include "deployment_service.h"

#include <cwchar>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace deployment_service {

namespace {

// E_BOUNDS: an iterator asked for an element past the end.
constexpr HRESULT kOutOfBounds = static_cast<HRESULT>(0x8000000BL);

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
  ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&references_); }
  ULONG STDMETHODCALLTYPE Release() override {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) override {
    return CopyIids({kIidStorageFolder, kIidStorageItem}, count, ids);
  }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override {
    return NewString(L"Windows.Storage.StorageFolder", name);
  }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override { return BaseTrustLevel(level); }

  // IStorageFolder: nothing of it is served.
  HRESULT STDMETHODCALLTYPE CreateFileAsyncOverloadDefaultOptions(HSTRING, IInspectable**) override {
    return E_NOTIMPL;
  }
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
    return Answer(16, value);  // FileAttributes.Directory
  }
  HRESULT STDMETHODCALLTYPE get_DateCreated(INT64*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE IsOfType(INT32 type, boolean* value) override {
    return Answer(type == 2, value);  // StorageItemTypes.Folder
  }

 private:
  ~StorageFolder() = default;
  Live live_;
  LONG references_ = 1;
  std::wstring path_;
};

// ---------------------------------------------------------------------------
// Windows.ApplicationModel.PackageId

class PackageIdObject final : public RuntimeObject<IPackageId, kIidPackageId> {
 public:
  explicit PackageIdObject(std::shared_ptr<const PackageRecord> record)
      : RuntimeObject(L"Windows.ApplicationModel.PackageId"), record_(std::move(record)) {}

  HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) override { return NewString(record_->name, value); }
  HRESULT STDMETHODCALLTYPE get_Version(PackageVersion* value) override { return Answer(record_->version, value); }
  HRESULT STDMETHODCALLTYPE get_Architecture(INT32* value) override { return Answer(record_->architecture, value); }
  HRESULT STDMETHODCALLTYPE get_ResourceId(HSTRING* value) override { return NewString(record_->resourceId, value); }
  HRESULT STDMETHODCALLTYPE get_Publisher(HSTRING* value) override { return NewString(record_->publisher, value); }
  HRESULT STDMETHODCALLTYPE get_PublisherId(HSTRING* value) override { return NewString(record_->publisherId, value); }
  HRESULT STDMETHODCALLTYPE get_FullName(HSTRING* value) override { return NewString(record_->fullName, value); }
  HRESULT STDMETHODCALLTYPE get_FamilyName(HSTRING* value) override { return NewString(record_->familyName, value); }

 private:
  ~PackageIdObject() override = default;
  std::shared_ptr<const PackageRecord> record_;
};

// ---------------------------------------------------------------------------
// Windows.ApplicationModel.Package

class PackageObject final : public RuntimeObject<IPackage, kIidPackage> {
 public:
  explicit PackageObject(std::shared_ptr<const PackageRecord> record)
      : RuntimeObject(L"Windows.ApplicationModel.Package"), record_(std::move(record)) {}

  HRESULT STDMETHODCALLTYPE get_Id(IPackageId** value) override { return HandOutNew<PackageIdObject>(value, record_); }
  HRESULT STDMETHODCALLTYPE get_InstalledLocation(IStorageFolder** value) override {
    return HandOutNew<StorageFolder>(value, record_->installedLocation);
  }
  HRESULT STDMETHODCALLTYPE get_IsFramework(boolean* value) override { return Answer(record_->isFramework, value); }
  HRESULT STDMETHODCALLTYPE get_Dependencies(IPackageVectorView**) override { return E_NOTIMPL; }

 private:
  ~PackageObject() override = default;
  std::shared_ptr<const PackageRecord> record_;
};

// ---------------------------------------------------------------------------
// IIterable<Package> and IIterator<Package> over a snapshot of the fixture.

class PackageIterator final : public RuntimeObject<IPackageIterator, kIidIteratorOfPackage> {
 public:
  explicit PackageIterator(std::shared_ptr<const PackageList> packages)
      : RuntimeObject(L"Windows.Foundation.Collections.IIterator`1<Windows.ApplicationModel.Package>"),
        packages_(std::move(packages)) {}

  HRESULT STDMETHODCALLTYPE get_Current(IPackage** current) override {
    if (current == nullptr) return E_POINTER;
    *current = nullptr;
    if (position_ >= packages_->size()) return kOutOfBounds;
    *current = new (std::nothrow) PackageObject((*packages_)[position_]);
    return *current != nullptr ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT STDMETHODCALLTYPE get_HasCurrent(boolean* hasCurrent) override {
    return Answer(position_ < packages_->size(), hasCurrent);
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
  ~PackageIterator() override = default;
  std::shared_ptr<const PackageList> packages_;
  std::size_t position_ = 0;
};

class PackageIterable final : public RuntimeObject<IPackageIterable, kIidIterableOfPackage> {
 public:
  explicit PackageIterable(PackageList packages)
      : RuntimeObject(L"Windows.Foundation.Collections.IIterable`1<Windows.ApplicationModel.Package>"),
        packages_(std::make_shared<const PackageList>(std::move(packages))) {}

  HRESULT STDMETHODCALLTYPE First(IPackageIterator** first) override {
    return HandOutNew<PackageIterator>(first, packages_);
  }

 private:
  ~PackageIterable() override = default;
  std::shared_ptr<const PackageList> packages_;
};

}  // namespace

PackageList PackagesOf(const Fixture& fixture) {
  PackageList packages;
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

IPackageIterable* NewPackageIterable(PackageList packages) {
  return new (std::nothrow) PackageIterable(std::move(packages));
}

}  // namespace deployment_service
