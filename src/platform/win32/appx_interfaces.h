// The packaging API's manifest-reading interfaces, declared from their
// published definitions (mingw-w64 ships no declaration of them). Methods the
// library does not call keep their vtable slots with opaque arguments.
#pragma once

#include "platform/win32/windows_headers.h"

namespace kel::platform::win32 {

// {5842A140-FF9F-4166-8F5C-62F5B7B0C781}
inline constexpr GUID kClsidAppxFactory = {
    0x5842A140, 0xFF9F, 0x4166, {0x8F, 0x5C, 0x62, 0xF5, 0xB7, 0xB0, 0xC7, 0x81}};
// {BEB94909-E451-438B-B5A7-D79E767B75D8}
inline constexpr GUID kIidAppxFactory = {0xBEB94909, 0xE451, 0x438B, {0xB5, 0xA7, 0xD7, 0x9E, 0x76, 0x7B, 0x75, 0xD8}};

struct IAppxManifestApplication : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetStringValue(LPCWSTR name, LPWSTR* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAppUserModelId(LPWSTR* appUserModelId) = 0;
};

struct IAppxManifestApplicationsEnumerator : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetCurrent(IAppxManifestApplication** application) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHasCurrent(::BOOL* hasCurrent) = 0;
  virtual HRESULT STDMETHODCALLTYPE MoveNext(::BOOL* hasNext) = 0;
};

struct IAppxManifestReader : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetPackageId(IUnknown** packageId) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetProperties(IUnknown** properties) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPackageDependencies(IUnknown** dependencies) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCapabilities(::DWORD* capabilities) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetResources(IUnknown** resources) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDeviceCapabilities(IUnknown** deviceCapabilities) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPrerequisite(LPCWSTR name, UINT64* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetApplications(IAppxManifestApplicationsEnumerator** applications) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStream(IStream** manifestStream) = 0;
};

struct IAppxFactory : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreatePackageWriter(IStream* outputStream, void* settings, IUnknown** writer) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreatePackageReader(IStream* inputStream, IUnknown** reader) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateManifestReader(IStream* inputStream, IAppxManifestReader** reader) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateBlockMapReader(IStream* inputStream, IUnknown** reader) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateValidatedBlockMapReader(IStream* blockMapStream, LPCWSTR signatureFileName,
                                                                  IUnknown** reader) = 0;
};

}  // namespace kel::platform::win32
