// The Windows Runtime interfaces of the deployment service and the
// application model, as the test doubles implement them and the test host
// calls them: declared here from their published definitions, in their
// published vtable order, independently of the library's own declarations,
// so that a slot the library gets wrong shows up as a failed test rather than
// as two copies of the same mistake. Methods nobody calls keep their slot
// with opaque arguments.
#pragma once

#include <windows.h>
#include <activation.h>
#include <inspectable.h>
#include <winstring.h>

namespace deployment_abi {

// Windows.Management.Deployment.IPackageManager
inline constexpr GUID kIidPackageManager = {
    0x9A7D4B65, 0x5E8F, 0x4FC7, {0xA2, 0xE5, 0x7F, 0x69, 0x25, 0xCB, 0x8B, 0x53}};
// Windows.ApplicationModel.IPackage
inline constexpr GUID kIidPackage = {0x163C792F, 0xBD75, 0x413C, {0xBF, 0x23, 0xB1, 0xFE, 0x7B, 0x95, 0xD8, 0x25}};
// Windows.ApplicationModel.IPackageId
inline constexpr GUID kIidPackageId = {0x1ADB665E, 0x37C7, 0x4790, {0x99, 0x80, 0xDD, 0x7A, 0xE7, 0x4E, 0x8B, 0xB2}};
// Windows.Storage.IStorageItem
inline constexpr GUID kIidStorageItem = {0x4207A996, 0xCA2F, 0x42F7, {0xBD, 0xE8, 0x8B, 0x10, 0x45, 0x7A, 0x7F, 0x30}};
// Windows.Storage.IStorageFolder
inline constexpr GUID kIidStorageFolder = {
    0x72D1CB78, 0xB3EF, 0x4F75, {0xA8, 0x0B, 0x6F, 0xD9, 0xDA, 0xE2, 0x94, 0x4B}};
// Windows.Foundation.Collections.IIterable<Windows.ApplicationModel.Package>
inline constexpr GUID kIidIterableOfPackage = {
    0x69AD6AA7, 0x0C49, 0x5F27, {0xA5, 0xEB, 0xEF, 0x4D, 0x59, 0x46, 0x7B, 0x6D}};
// Windows.Foundation.Collections.IIterator<Windows.ApplicationModel.Package>
inline constexpr GUID kIidIteratorOfPackage = {
    0x0217F069, 0x025C, 0x5EE6, {0xA8, 0x7F, 0xE7, 0x82, 0xE3, 0xB6, 0x23, 0xAE}};
// IInspectable, IActivationFactory and IAgileObject (not all in libuuid).
inline constexpr GUID kIidInspectable = {0xAF86E2E0, 0xB12D, 0x4C6A, {0x9C, 0x5A, 0xD7, 0xAA, 0x65, 0x10, 0x1E, 0x90}};
inline constexpr GUID kIidActivationFactory = {
    0x00000035, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr GUID kIidAgileObject = {0x94EA2B94, 0xE9CC, 0x49E0, {0xC0, 0xFF, 0xEE, 0x64, 0xCA, 0x8F, 0x5B, 0x90}};

inline constexpr wchar_t kPackageManagerClass[] = L"Windows.Management.Deployment.PackageManager";

// Windows.ApplicationModel.PackageVersion
struct PackageVersion {
  UINT16 Major;
  UINT16 Minor;
  UINT16 Build;
  UINT16 Revision;
};

struct IStorageItem : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE RenameAsyncOverloadDefaultOptions(HSTRING desiredName, IInspectable** action) = 0;
  virtual HRESULT STDMETHODCALLTYPE RenameAsync(HSTRING desiredName, INT32 option, IInspectable** action) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteAsyncOverloadDefaultOptions(IInspectable** action) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteAsync(INT32 option, IInspectable** action) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBasicPropertiesAsync(IInspectable** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Path(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Attributes(UINT32* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_DateCreated(INT64* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsOfType(INT32 type, boolean* value) = 0;
};

struct IStorageFolder : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE CreateFileAsyncOverloadDefaultOptions(HSTRING, IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateFileAsync(HSTRING, INT32, IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateFolderAsyncOverloadDefaultOptions(HSTRING, IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateFolderAsync(HSTRING, INT32, IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFileAsync(HSTRING, IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFolderAsync(HSTRING, IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetItemAsync(HSTRING, IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFilesAsyncOverloadDefaultOptionsStartAndCount(IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFoldersAsyncOverloadDefaultOptionsStartAndCount(IInspectable**) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetItemsAsyncOverloadDefaultStartAndCount(IInspectable**) = 0;
};

struct IPackageId : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Version(PackageVersion* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Architecture(INT32* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_ResourceId(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Publisher(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_PublisherId(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_FullName(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_FamilyName(HSTRING* value) = 0;
};

struct IPackage;

// IVectorView<Package>, as get_Dependencies hands it out; never called here.
struct IPackageVectorView;

struct IPackage : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Id(IPackageId** value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_InstalledLocation(IStorageFolder** value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsFramework(boolean* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Dependencies(IPackageVectorView** value) = 0;
};

struct IPackageIterator : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Current(IPackage** current) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_HasCurrent(boolean* hasCurrent) = 0;
  virtual HRESULT STDMETHODCALLTYPE MoveNext(boolean* hasCurrent) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMany(UINT32 capacity, IPackage** items, UINT32* actual) = 0;
};

struct IPackageIterable : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE First(IPackageIterator** first) = 0;
};

struct IPackageManager : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE AddPackageAsync(IInspectable* packageUri, IInspectable* dependencyPackageUris,
                                                    INT32 deploymentOptions, IInspectable** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE UpdatePackageAsync(IInspectable* packageUri, IInspectable* dependencyPackageUris,
                                                       INT32 deploymentOptions, IInspectable** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemovePackageAsync(HSTRING packageFullName, IInspectable** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE StagePackageAsync(IInspectable* packageUri, IInspectable* dependencyPackageUris,
                                                      IInspectable** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE RegisterPackageAsync(IInspectable* manifestUri, IInspectable* dependencyPackageUris,
                                                         INT32 deploymentOptions, IInspectable** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackages(IPackageIterable** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityId(HSTRING userSecurityId,
                                                                 IPackageIterable** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByNamePublisher(HSTRING packageName, HSTRING packagePublisher,
                                                                IPackageIterable** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdNamePublisher(HSTRING userSecurityId,
                                                                              HSTRING packageName,
                                                                              HSTRING packagePublisher,
                                                                              IPackageIterable** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindUsers(HSTRING packageFullName, IInspectable** users) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPackageState(HSTRING packageFullName, INT32 packageState) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackageByPackageFullName(HSTRING packageFullName, IPackage** package) = 0;
  virtual HRESULT STDMETHODCALLTYPE CleanupPackageForUserAsync(HSTRING packageName, HSTRING userSecurityId,
                                                               IInspectable** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByPackageFamilyName(HSTRING packageFamilyName,
                                                                    IPackageIterable** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdPackageFamilyName(HSTRING userSecurityId,
                                                                                  HSTRING packageFamilyName,
                                                                                  IPackageIterable** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackageByUserSecurityIdPackageFullName(HSTRING userSecurityId,
                                                                               HSTRING packageFullName,
                                                                               IPackage** package) = 0;
};

}  // namespace deployment_abi
