// Windows Runtime interfaces of the deployment service and the application
// model, declared from their published definitions in their published
// vtable order (mingw-w64 declares none of them). Slots the library does not
// call keep their place with opaque arguments.
#pragma once

#include "platform/win32/windows_headers.h"

namespace kel::platform::win32 {

// {9A7D4B65-5E8F-4FC7-A2E5-7F6925CB8B53}
inline constexpr GUID kIidPackageManager = {
    0x9A7D4B65, 0x5E8F, 0x4FC7, {0xA2, 0xE5, 0x7F, 0x69, 0x25, 0xCB, 0x8B, 0x53}};
// {163C792F-BD75-413C-BF23-B1FE7B95D825}
inline constexpr GUID kIidPackage = {0x163C792F, 0xBD75, 0x413C, {0xBF, 0x23, 0xB1, 0xFE, 0x7B, 0x95, 0xD8, 0x25}};
// {1ADB665E-37C7-4790-9980-DD7AE74E8BB2}
inline constexpr GUID kIidPackageId = {0x1ADB665E, 0x37C7, 0x4790, {0x99, 0x80, 0xDD, 0x7A, 0xE7, 0x4E, 0x8B, 0xB2}};
// {4207A996-CA2F-42F7-BDE8-8B10457A7F30}
inline constexpr GUID kIidStorageItem = {0x4207A996, 0xCA2F, 0x42F7, {0xBD, 0xE8, 0x8B, 0x10, 0x45, 0x7A, 0x7F, 0x30}};

struct RuntimePackageVersion {
  UINT16 Major;
  UINT16 Minor;
  UINT16 Build;
  UINT16 Revision;
};

struct IRuntimeInspectable : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* className) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTrustLevel(int* trustLevel) = 0;
};

struct IStorageItemAbi : public IRuntimeInspectable {
  virtual HRESULT STDMETHODCALLTYPE RenameAsyncOverloadDefaultOptions(HSTRING desiredName, IUnknown** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE RenameAsync(HSTRING desiredName, int option, IUnknown** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteAsyncOverloadDefaultOptions(IUnknown** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteAsync(int option, IUnknown** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBasicPropertiesAsync(IUnknown** operation) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Path(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Attributes(UINT32* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_DateCreated(INT64* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsOfType(int type, ::BOOLEAN* value) = 0;
};

struct IPackageIdAbi : public IRuntimeInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Version(RuntimePackageVersion* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Architecture(int* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_ResourceId(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Publisher(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_PublisherId(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_FullName(HSTRING* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_FamilyName(HSTRING* value) = 0;
};

struct IPackageAbi : public IRuntimeInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Id(IPackageIdAbi** value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_InstalledLocation(IUnknown** value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsFramework(::BOOLEAN* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Dependencies(IUnknown** value) = 0;
};

// IIterator<Windows.ApplicationModel.Package>.
struct IPackageIteratorAbi : public IRuntimeInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Current(IPackageAbi** current) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_HasCurrent(::BOOLEAN* hasCurrent) = 0;
  virtual HRESULT STDMETHODCALLTYPE MoveNext(::BOOLEAN* hasCurrent) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMany(UINT32 capacity, IPackageAbi** items, UINT32* actual) = 0;
};

// IIterable<Windows.ApplicationModel.Package>.
struct IPackageIterableAbi : public IRuntimeInspectable {
  virtual HRESULT STDMETHODCALLTYPE First(IPackageIteratorAbi** first) = 0;
};

struct IPackageManagerAbi : public IRuntimeInspectable {
  virtual HRESULT STDMETHODCALLTYPE AddPackageAsync(void*, void*, int, IUnknown**) = 0;
  virtual HRESULT STDMETHODCALLTYPE UpdatePackageAsync(void*, void*, int, IUnknown**) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemovePackageAsync(HSTRING, IUnknown**) = 0;
  virtual HRESULT STDMETHODCALLTYPE StagePackageAsync(void*, void*, IUnknown**) = 0;
  virtual HRESULT STDMETHODCALLTYPE RegisterPackageAsync(void*, void*, int, IUnknown**) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackages(IPackageIterableAbi** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityId(HSTRING userSecurityId,
                                                                 IPackageIterableAbi** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByNamePublisher(HSTRING, HSTRING, IPackageIterableAbi**) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdNamePublisher(HSTRING, HSTRING, HSTRING,
                                                                              IPackageIterableAbi**) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindUsers(HSTRING, IUnknown**) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPackageState(HSTRING, int) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackageByPackageFullName(HSTRING, IPackageAbi**) = 0;
  virtual HRESULT STDMETHODCALLTYPE CleanupPackageForUserAsync(HSTRING, HSTRING, IUnknown**) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByPackageFamilyName(HSTRING, IPackageIterableAbi**) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdPackageFamilyName(HSTRING userSecurityId,
                                                                                  HSTRING packageFamilyName,
                                                                                  IPackageIterableAbi** packages) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPackageByUserSecurityIdPackageFullName(HSTRING, HSTRING, IPackageAbi**) = 0;
};

}  // namespace kel::platform::win32
