// A platform for measurements that are about the library's own work rather
// than the recording fake's bookkeeping.
#pragma once

#include <memory>

#include "fakes/fake_platform.h"

namespace kel::bench {

// The fake, with the calls a package's installed check, a shortcut's
// existence check and a shortcut path's expansion make answered at once and
// without recording: no settings key (the log stays off), Windows 8 (6.2),
// the fake's user and SID, every family name installed for that user, every
// shortcut file present. Everything else is the recording fake's.
class QuickPlatform final : public fakes::FakePlatform {
 public:
  QuickPlatform();
  ~QuickPlatform() override;

  // A value without a reference is copied as it is; one with a reference
  // goes to the fake.
  DWORD ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) override;
  BOOL PathFileExists(const WCHAR* path) override;
  LONG RegOpenKeyEx(platform::RootKey root, const WCHAR* subKey, DWORD options, DWORD access, Handle* key) override;
  LONG RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data, DWORD* size) override;
  LONG RegCloseKey(Handle key) override;
  std::uint64_t VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) override;
  BOOL VerifyVersionInfo(platform::OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) override;
  void* LocalAlloc(UINT flags, std::size_t bytes) override;
  void* LocalFree(void* memory) override;
  BOOL GetUserName(WCHAR* buffer, DWORD* size) override;
  BOOL LookupAccountName(const WCHAR* systemName, const WCHAR* accountName, void* sid, DWORD* sidSize, WCHAR* domain,
                         DWORD* domainSize) override;
  BOOL ConvertSidToStringSid(void* sid, WCHAR** stringSid) override;
  HRESULT RoInitialize(int initType) override;
  void RoUninitialize() override;
  HRESULT ActivatePackageManager(platform::DeploymentPackageManager** manager) override;

 private:
  class Manager;
  std::unique_ptr<Manager> manager_;
};

}  // namespace kel::bench
