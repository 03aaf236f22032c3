// What the benchmarks share: the generated catalogue (10,000 desktop apps,
// 2,000 packages of two apps each) and its file, the names a search looks
// at, and two platforms for measurements that are about the library's own
// work rather than the recording fake's bookkeeping.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/app_name_list.h"
#include "fakes/fake_platform.h"
#include "frame/wide.h"

namespace kel::bench {

inline const WString kFolder = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher";
inline const WString kFile = kFolder + u"\\AppNameList1.0.4.0.xml";
inline const WString kSavedFile = kFolder + u"\\Saved.xml";

constexpr int kDesktopApps = 10000;
constexpr int kPackages = 2000;
constexpr int kAppsPerPackage = 2;

// The word every exclusion benchmark searches for.
inline constexpr char16_t kSearchWord[] = u"app 1";

struct MetroAppEntry {
  WString displayName;  // lower-cased, as the catalogue keeps it
  WString shortName;    // lower-cased
  WString rubyDisplayName;
};

struct PackageEntry {
  WString familyName;
  PackageVersion version;
  MetroAppEntry apps[kAppsPerPackage];
};

struct DesktopAppEntry {
  WString displayName;  // lower-cased
  WString lnkFileName;
  WString localizeName;
};

const std::vector<PackageEntry>& GeneratedPackages();
const std::vector<DesktopAppEntry>& GeneratedDesktopApps();

// The catalogue file, in the form Save writes. Made once; on first use it is
// checked by loading it and saving it again, which must give the same bytes.
// That check installs a fake of its own and then none, so call this before
// installing the platform a benchmark works on.
const std::string& CatalogueFileBytes();

// The strings a search matches the word against, lower-cased: each Store
// app's display, short and ruby names, each desktop app's localised name
// (or its display name when it has none).
const std::vector<WString>& SearchedNames();

// Sum of (length + 1) * 2 over every non-empty string the catalogue stores.
std::size_t StoredStringBytes(const CKELAppNameList& list);

// Installs a platform for a scope, as ScopedFakePlatform does with its own.
class ScopedPlatform {
 public:
  explicit ScopedPlatform(platform::Platform& installed);
  ~ScopedPlatform();
  ScopedPlatform(const ScopedPlatform&) = delete;
  ScopedPlatform& operator=(const ScopedPlatform&) = delete;
};

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

// The fake, with the log's file calls made by POSIX on one real file: every
// CreateFile opens `path` (whatever Windows path it is given), SetFilePointer
// is lseek, WriteFile is write, CloseHandle is close.
class PosixFilePlatform final : public fakes::FakePlatform {
 public:
  explicit PosixFilePlatform(std::string path) : path_(std::move(path)) {}

  Handle CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override;
  DWORD SetFilePointer(Handle file, LONG distance, DWORD method) override;
  BOOL WriteFile(Handle file, const void* data, DWORD length, DWORD* written) override;
  BOOL CloseHandle(Handle handle) override;

 private:
  std::string path_;
};

// A fresh temporary file name (the file itself is not created).
std::string TemporaryPath(const char* stem);

}  // namespace kel::bench
