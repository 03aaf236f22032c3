// The fake platform as the library sees it during an allocation-failure run.
// Every call, and every call on an object the platform hands out, runs with
// the counting paused: the fake's own bookkeeping (its call record, its maps)
// is no part of the library and must neither fail nor shift the numbering.
// Threads the library starts through CreateThread are armed as their creator
// was. The platform's package objects are handed on as they are: their
// queries fill strings, and a real one can run out of memory there too.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "failing_allocations.h"
#include "platform/platform.h"

namespace kel::testing {

class ShieldedPlatform final : public platform::Platform {
 public:
  explicit ShieldedPlatform(platform::Platform& inner) : inner_(inner) { platform::Install(this); }
  ~ShieldedPlatform() override { platform::Install(&inner_); }
  ShieldedPlatform(const ShieldedPlatform&) = delete;
  ShieldedPlatform& operator=(const ShieldedPlatform&) = delete;

  bool GetEnvironmentVariable(const WCHAR* name, WString& value) override {
    return Uncounted([&] { return inner_.GetEnvironmentVariable(name, value); });
  }
  DWORD ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) override {
    return Uncounted([&] { return inner_.ExpandEnvironmentStrings(source, buffer, capacity); });
  }
  DWORD GetModuleFileName(WCHAR* buffer, DWORD capacity) override {
    return Uncounted([&] { return inner_.GetModuleFileName(buffer, capacity); });
  }
  DWORD GetCurrentProcessId() override {
    return Uncounted([&] { return inner_.GetCurrentProcessId(); });
  }
  DWORD GetLastError() override {
    return Uncounted([&] { return inner_.GetLastError(); });
  }
  platform::SystemTime GetLocalTime() override {
    return Uncounted([&] { return inner_.GetLocalTime(); });
  }
  void Sleep(DWORD milliseconds) override {
    Uncounted([&] { inner_.Sleep(milliseconds); });
  }
  Handle CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override {
    return Uncounted([&] { return inner_.CreateFile(path, access, share, disposition, attributes); });
  }
  DWORD SetFilePointer(Handle file, LONG distance, DWORD method) override {
    return Uncounted([&] { return inner_.SetFilePointer(file, distance, method); });
  }
  BOOL WriteFile(Handle file, const void* data, DWORD length, DWORD* written) override {
    return Uncounted([&] { return inner_.WriteFile(file, data, length, written); });
  }
  BOOL CloseHandle(Handle handle) override {
    return Uncounted([&] { return inner_.CloseHandle(handle); });
  }
  DWORD GetFileAttributes(const WCHAR* path) override {
    return Uncounted([&] { return inner_.GetFileAttributes(path); });
  }
  BOOL PathFileExists(const WCHAR* path) override {
    return Uncounted([&] { return inner_.PathFileExists(path); });
  }
  int SHCreateDirectoryEx(const WCHAR* path) override {
    return Uncounted([&] { return inner_.SHCreateDirectoryEx(path); });
  }
  HRESULT ReadFileBytes(const WCHAR* path, std::string& bytes) override {
    return Uncounted([&] { return inner_.ReadFileBytes(path, bytes); });
  }
  HRESULT ReplaceFileAtomically(const WCHAR* path, const std::string& bytes) override {
    return Uncounted([&] { return inner_.ReplaceFileAtomically(path, bytes); });
  }
  Handle FindFirstFile(const WCHAR* pattern, platform::FindData& found) override {
    return Uncounted([&] { return inner_.FindFirstFile(pattern, found); });
  }
  BOOL FindNextFile(Handle search, platform::FindData& found) override {
    return Uncounted([&] { return inner_.FindNextFile(search, found); });
  }
  BOOL FindClose(Handle search) override {
    return Uncounted([&] { return inner_.FindClose(search); });
  }
  LONG RegOpenKeyEx(platform::RootKey root, const WCHAR* subKey, DWORD options, DWORD access, Handle* key) override {
    return Uncounted([&] { return inner_.RegOpenKeyEx(root, subKey, options, access, key); });
  }
  LONG RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data, DWORD* size) override {
    return Uncounted([&] { return inner_.RegQueryValueEx(key, name, type, data, size); });
  }
  LONG RegSetValueEx(Handle key, const WCHAR* name, DWORD type, const std::uint8_t* data, DWORD size) override {
    return Uncounted([&] { return inner_.RegSetValueEx(key, name, type, data, size); });
  }
  LONG RegDeleteValue(Handle key, const WCHAR* name) override {
    return Uncounted([&] { return inner_.RegDeleteValue(key, name); });
  }
  LONG RegCloseKey(Handle key) override {
    return Uncounted([&] { return inner_.RegCloseKey(key); });
  }
  std::uint64_t VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) override {
    return Uncounted([&] { return inner_.VerSetConditionMask(mask, typeBit, condition); });
  }
  BOOL VerifyVersionInfo(platform::OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) override {
    return Uncounted([&] { return inner_.VerifyVersionInfo(info, typeMask, conditionMask); });
  }
  int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* buffer,
                          int capacity) override {
    return Uncounted(
        [&] { return inner_.MultiByteToWideChar(codePage, flags, source, sourceLength, buffer, capacity); });
  }
  void* LocalAlloc(UINT flags, std::size_t bytes) override {
    return Uncounted([&] { return inner_.LocalAlloc(flags, bytes); });
  }
  void* LocalFree(void* memory) override {
    return Uncounted([&] { return inner_.LocalFree(memory); });
  }
  std::intptr_t ShellExecute(Handle window, const WCHAR* verb, const WCHAR* file, const WCHAR* parameters,
                             const WCHAR* directory, int showCommand) override {
    return Uncounted([&] { return inner_.ShellExecute(window, verb, file, parameters, directory, showCommand); });
  }
  Handle CreateEvent(bool manualReset, bool initialState, const WCHAR* name) override {
    return Uncounted([&] { return inner_.CreateEvent(manualReset, initialState, name); });
  }
  BOOL SetEvent(Handle event) override {
    return Uncounted([&] { return inner_.SetEvent(event); });
  }
  BOOL ResetEvent(Handle event) override {
    return Uncounted([&] { return inner_.ResetEvent(event); });
  }
  DWORD WaitForSingleObject(Handle object, DWORD milliseconds) override {
    return Uncounted([&] { return inner_.WaitForSingleObject(object, milliseconds); });
  }
  // The new thread starts armed if its creator was.
  Handle CreateThread(platform::ThreadProc start, void* parameter) override {
    AllocationsUncounted shield;
    std::lock_guard<std::mutex> lock(startsLock_);
    starts_.push_back(
        std::make_unique<ThreadStart>(ThreadStart{start, parameter, FailingAllocations::ThisThreadArmed()}));
    return inner_.CreateThread(&ShieldedPlatform::StartArmed, starts_.back().get());
  }
  UINT SendInput(const platform::KeyboardInput& input) override {
    return Uncounted([&] { return inner_.SendInput(input); });
  }
  UINT MapVirtualKey(UINT code, UINT mapType) override {
    return Uncounted([&] { return inner_.MapVirtualKey(code, mapType); });
  }
  BOOL OpenClipboard(Handle owner) override {
    return Uncounted([&] { return inner_.OpenClipboard(owner); });
  }
  BOOL EmptyClipboard() override {
    return Uncounted([&] { return inner_.EmptyClipboard(); });
  }
  Handle SetClipboardData(UINT format, Handle memory) override {
    return Uncounted([&] { return inner_.SetClipboardData(format, memory); });
  }
  BOOL CloseClipboard() override {
    return Uncounted([&] { return inner_.CloseClipboard(); });
  }
  Handle GlobalAlloc(UINT flags, std::size_t bytes) override {
    return Uncounted([&] { return inner_.GlobalAlloc(flags, bytes); });
  }
  void* GlobalLock(Handle memory) override {
    return Uncounted([&] { return inner_.GlobalLock(memory); });
  }
  BOOL GlobalUnlock(Handle memory) override {
    return Uncounted([&] { return inner_.GlobalUnlock(memory); });
  }
  Handle GlobalFree(Handle memory) override {
    return Uncounted([&] { return inner_.GlobalFree(memory); });
  }
  Handle GetForegroundWindow() override {
    return Uncounted([&] { return inner_.GetForegroundWindow(); });
  }
  int GetClassName(Handle window, WCHAR* buffer, int capacity) override {
    return Uncounted([&] { return inner_.GetClassName(window, buffer, capacity); });
  }
  Handle MonitorFromPoint(platform::Point point, DWORD flags) override {
    return Uncounted([&] { return inner_.MonitorFromPoint(point, flags); });
  }
  int MessageBox(Handle owner, const WCHAR* text, const WCHAR* caption, UINT type) override {
    return Uncounted([&] { return inner_.MessageBox(owner, text, caption, type); });
  }
  HRESULT CoInitializeEx(DWORD coInit) override {
    return Uncounted([&] { return inner_.CoInitializeEx(coInit); });
  }
  HRESULT CreateAppVisibility(DWORD context, platform::AppVisibility** object) override {
    return Wrapped<AppVisibility>([&] { return inner_.CreateAppVisibility(context, object); }, object);
  }
  HRESULT CreateAppxManifestReader(const WCHAR* manifestPath, platform::AppxManifestReader** reader) override {
    return Wrapped<AppxManifestReader>([&] { return inner_.CreateAppxManifestReader(manifestPath, reader); }, reader);
  }
  void CoTaskMemFree(void* memory) override {
    Uncounted([&] { inner_.CoTaskMemFree(memory); });
  }
  void CoUninitialize() override {
    Uncounted([&] { inner_.CoUninitialize(); });
  }
  HRESULT RoInitialize(int initType) override {
    return Uncounted([&] { return inner_.RoInitialize(initType); });
  }
  void RoUninitialize() override {
    Uncounted([&] { inner_.RoUninitialize(); });
  }
  HRESULT ActivatePackageManager(platform::DeploymentPackageManager** manager) override {
    return Wrapped<DeploymentPackageManager>([&] { return inner_.ActivatePackageManager(manager); }, manager);
  }
  WString DescribeError(HRESULT error) override {
    return Uncounted([&] { return inner_.DescribeError(error); });
  }
  HRESULT CreateApplicationActivationManager(DWORD context, platform::ApplicationActivationManager** manager) override {
    return Wrapped<ActivationManager>([&] { return inner_.CreateApplicationActivationManager(context, manager); },
                                      manager);
  }
  HRESULT CoAllowSetForegroundWindow(platform::ApplicationActivationManager* manager) override {
    return Uncounted([&] {
      return inner_.CoAllowSetForegroundWindow(manager == nullptr ? nullptr
                                                                  : static_cast<ActivationManager*>(manager)->inner);
    });
  }
  BOOL GetUserName(WCHAR* buffer, DWORD* size) override {
    return Uncounted([&] { return inner_.GetUserName(buffer, size); });
  }
  BOOL LookupAccountName(const WCHAR* systemName, const WCHAR* accountName, void* sid, DWORD* sidSize, WCHAR* domain,
                         DWORD* domainSize) override {
    return Uncounted(
        [&] { return inner_.LookupAccountName(systemName, accountName, sid, sidSize, domain, domainSize); });
  }
  BOOL ConvertSidToStringSid(void* sid, WCHAR** stringSid) override {
    return Uncounted([&] { return inner_.ConvertSidToStringSid(sid, stringSid); });
  }
  HRESULT SHLoadIndirectString(const WCHAR* source, WCHAR* buffer, UINT capacity) override {
    return Uncounted([&] { return inner_.SHLoadIndirectString(source, buffer, capacity); });
  }

 private:
  struct ThreadStart {
    platform::ThreadProc start;
    void* parameter;
    bool armed;
  };
  static DWORD StartArmed(void* parameter) {
    const auto& thread = *static_cast<ThreadStart*>(parameter);
    FailingAllocations::ArmThisThread(thread.armed);
    return thread.start(thread.parameter);
  }

  // Runs `call` with the counting paused.
  template <typename Call>
  static auto Uncounted(Call call) -> decltype(call()) {
    AllocationsUncounted shield;
    return call();
  }

  // Runs `call` with the counting paused and wraps the object it handed out,
  // so the wrapper owns its one reference; a call that failed or handed out
  // nothing stays as it was.
  template <typename Wrapper, typename Interface, typename Call>
  static HRESULT Wrapped(Call call, Interface** object) {
    AllocationsUncounted shield;
    const HRESULT hr = call();
    if (Succeeded(hr) && *object != nullptr) *object = new Wrapper(*object);
    return hr;
  }

  // Each wrapper owns one reference of the object it wraps and goes with it,
  // giving it back with the counting paused.
  template <typename Interface>
  class Shielded : public Interface {
   public:
    explicit Shielded(Interface* inner) : inner_(inner) {}
    void Release() override {
      {
        AllocationsUncounted shield;
        inner_->Release();
      }
      delete this;
    }

   protected:
    ~Shielded() override = default;
    Interface* inner_;
  };

  class AppVisibility final : public Shielded<platform::AppVisibility> {
   public:
    using Shielded::Shielded;
    HRESULT GetAppVisibilityOnMonitor(Handle monitor, int* visibility) override {
      return Uncounted([&] { return inner_->GetAppVisibilityOnMonitor(monitor, visibility); });
    }
    HRESULT IsLauncherVisible(BOOL* visible) override {
      return Uncounted([&] { return inner_->IsLauncherVisible(visible); });
    }
  };

  class AppxApplication final : public Shielded<platform::AppxApplication> {
   public:
    using Shielded::Shielded;
    HRESULT GetStringValue(const WCHAR* name, WCHAR** value) override {
      return Uncounted([&] { return inner_->GetStringValue(name, value); });
    }
  };

  class AppxApplications final : public Shielded<platform::AppxApplicationsEnumerator> {
   public:
    using Shielded::Shielded;
    HRESULT GetCurrent(platform::AppxApplication** application) override {
      return Wrapped<AppxApplication>([&] { return inner_->GetCurrent(application); }, application);
    }
    HRESULT GetHasCurrent(BOOL* hasCurrent) override {
      return Uncounted([&] { return inner_->GetHasCurrent(hasCurrent); });
    }
    HRESULT MoveNext(BOOL* hasNext) override {
      return Uncounted([&] { return inner_->MoveNext(hasNext); });
    }
  };

  class AppxManifestReader final : public Shielded<platform::AppxManifestReader> {
   public:
    using Shielded::Shielded;
    HRESULT GetApplications(platform::AppxApplicationsEnumerator** applications) override {
      return Wrapped<AppxApplications>([&] { return inner_->GetApplications(applications); }, applications);
    }
  };

  class PackageIterator final : public Shielded<platform::PackageIterator> {
   public:
    using Shielded::Shielded;
    HRESULT GetHasCurrent(BOOL* hasCurrent) override {
      return Uncounted([&] { return inner_->GetHasCurrent(hasCurrent); });
    }
    HRESULT GetCurrent(platform::Package** package) override {
      return Uncounted([&] { return inner_->GetCurrent(package); });
    }
    HRESULT MoveNext(BOOL* hasCurrent) override {
      return Uncounted([&] { return inner_->MoveNext(hasCurrent); });
    }
  };

  class PackageCollection final : public Shielded<platform::PackageCollection> {
   public:
    using Shielded::Shielded;
    HRESULT First(platform::PackageIterator** iterator) override {
      return Wrapped<PackageIterator>([&] { return inner_->First(iterator); }, iterator);
    }
  };

  class DeploymentPackageManager final : public platform::DeploymentPackageManager {
   public:
    explicit DeploymentPackageManager(platform::DeploymentPackageManager* inner) : inner_(inner) {}
    HRESULT FindPackagesByUserSecurityId(const WCHAR* userSecurityId, platform::PackageCollection** packages) override {
      return Wrapped<PackageCollection>([&] { return inner_->FindPackagesByUserSecurityId(userSecurityId, packages); },
                                        packages);
    }
    HRESULT FindPackagesByUserSecurityIdPackageFamilyName(const WCHAR* userSecurityId, const WCHAR* packageFamilyName,
                                                          platform::PackageCollection** packages) override {
      return Wrapped<PackageCollection>(
          [&] {
            return inner_->FindPackagesByUserSecurityIdPackageFamilyName(userSecurityId, packageFamilyName, packages);
          },
          packages);
    }
    void Release() override {
      AllocationsUncounted shield;
      inner_->Release();
      delete this;
    }

   private:
    platform::DeploymentPackageManager* inner_;
  };

  class ActivationManager final : public platform::ApplicationActivationManager {
   public:
    explicit ActivationManager(platform::ApplicationActivationManager* wrapped) : inner(wrapped) {}
    HRESULT ActivateApplication(const WCHAR* appUserModelId, const WCHAR* arguments, int options,
                                DWORD* processId) override {
      return Uncounted([&] { return inner->ActivateApplication(appUserModelId, arguments, options, processId); });
    }
    void Release() override {
      AllocationsUncounted shield;
      inner->Release();
      delete this;
    }
    platform::ApplicationActivationManager* inner;
  };

  platform::Platform& inner_;
  std::mutex startsLock_;
  std::vector<std::unique_ptr<ThreadStart>> starts_;
};

}  // namespace kel::testing
