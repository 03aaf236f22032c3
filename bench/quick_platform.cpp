#include "quick_platform.h"

#include <cstdlib>
#include <cstring>

#include "fakes/system_answers.h"
#include "frame/wide.h"

namespace kel::bench {

namespace {

// The one package every lookup finds. The collection and its iterator are
// handed out again and again; their Release keeps them.
class OnePackageIterator final : public platform::PackageIterator {
 public:
  void Reset(fakes::FakePackage* package) { package_ = package; }
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    *hasCurrent = package_ != nullptr ? 1 : 0;
    return S_OK;
  }
  HRESULT GetCurrent(platform::Package** package) override {
    if (package_ == nullptr) return E_FAIL;
    package_->AddRef();
    *package = package_;
    return S_OK;
  }
  HRESULT MoveNext(BOOL* hasCurrent) override {
    package_ = nullptr;
    *hasCurrent = 0;
    return S_OK;
  }
  void Release() override {}

 private:
  fakes::FakePackage* package_ = nullptr;
};

class OnePackageCollection final : public platform::PackageCollection {
 public:
  void Reset(fakes::FakePackage* package) { package_ = package; }
  HRESULT First(platform::PackageIterator** iterator) override {
    iterator_.Reset(package_);
    *iterator = &iterator_;
    return S_OK;
  }
  void Release() override {}

 private:
  fakes::FakePackage* package_ = nullptr;
  OnePackageIterator iterator_;
};

}  // namespace

// One service object for the platform's lifetime; Release keeps it. Every
// family name is installed for the fake's user.
class QuickPlatform::Manager final : public platform::DeploymentPackageManager {
 public:
  explicit Manager(QuickPlatform& owner)
      : owner_(owner),
        package_(u"Quick.Package_8wekyb3d8bbwe", u"Quick.Package", u"Quick.Package_1.0.0.0_x64__8wekyb3d8bbwe",
                 platform::PackageVersion{1, 0, 0, 0}, u"C:\\Program Files\\WindowsApps\\Quick.Package") {}
  ~Manager() override = default;
  HRESULT FindPackagesByUserSecurityId(const WCHAR*, platform::PackageCollection**) override { return E_FAIL; }
  HRESULT FindPackagesByUserSecurityIdPackageFamilyName(const WCHAR* sid, const WCHAR* familyName,
                                                        platform::PackageCollection** packages) override {
    const bool found = familyName != nullptr && familyName[0] != 0 && owner_.userSid == sid;
    collection_.Reset(found ? &package_ : nullptr);
    *packages = &collection_;
    return S_OK;
  }
  void Release() override {}

 private:
  QuickPlatform& owner_;
  fakes::FakePackage package_;
  OnePackageCollection collection_;
};

QuickPlatform::QuickPlatform() : manager_(std::make_unique<Manager>(*this)) {}
QuickPlatform::~QuickPlatform() = default;

DWORD QuickPlatform::ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) {
  const std::size_t length = WideLength(source);
  if (std::u16string_view(source, length).find(u'%') != std::u16string_view::npos) {
    return FakePlatform::ExpandEnvironmentStrings(source, buffer, capacity);
  }
  const DWORD needed = static_cast<DWORD>(length + 1);
  if (buffer != nullptr && capacity >= needed) std::memcpy(buffer, source, needed * sizeof(char16_t));
  return needed;
}

BOOL QuickPlatform::PathFileExists(const WCHAR* path) { return path != nullptr && path[0] != 0 ? 1 : 0; }

LONG QuickPlatform::RegOpenKeyEx(platform::RootKey, const WCHAR*, DWORD, DWORD, Handle*) {
  return ERROR_FILE_NOT_FOUND;
}

LONG QuickPlatform::RegQueryValueEx(Handle, const WCHAR*, DWORD*, std::uint8_t*, DWORD*) {
  return ERROR_FILE_NOT_FOUND;
}

LONG QuickPlatform::RegCloseKey(Handle) { return ERROR_SUCCESS; }

std::uint64_t QuickPlatform::VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) {
  return fakes::AddVersionCondition(mask, typeBit, condition);
}

// As the recording fake answers on its default system, Windows 8 (6.2).
BOOL QuickPlatform::VerifyVersionInfo(platform::OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) {
  return fakes::VerifyVersion(6, 2, info, typeMask, conditionMask);
}

void* QuickPlatform::LocalAlloc(UINT, std::size_t bytes) { return std::calloc(1, bytes == 0 ? 1 : bytes); }

void* QuickPlatform::LocalFree(void* memory) {
  std::free(memory);
  return nullptr;
}

BOOL QuickPlatform::GetUserName(WCHAR* buffer, DWORD* size) {
  if (userName.size() + 1 > *size) return 0;
  std::memcpy(buffer, userName.c_str(), (userName.size() + 1) * 2);
  *size = static_cast<DWORD>(userName.size() + 1);
  return 1;
}

BOOL QuickPlatform::LookupAccountName(const WCHAR*, const WCHAR*, void* sid, DWORD* sidSize, WCHAR* domain,
                                      DWORD* domainSize) {
  return fakes::LookupFixedAccount(sid, sidSize, domain, domainSize);
}

BOOL QuickPlatform::ConvertSidToStringSid(void*, WCHAR** stringSid) {
  auto* text = static_cast<WCHAR*>(LocalAlloc(platform::LPTR, (userSid.size() + 1) * 2));
  std::memcpy(text, userSid.c_str(), (userSid.size() + 1) * 2);
  *stringSid = text;
  return 1;
}

HRESULT QuickPlatform::RoInitialize(int) { return S_OK; }
void QuickPlatform::RoUninitialize() {}

HRESULT QuickPlatform::ActivatePackageManager(platform::DeploymentPackageManager** manager) {
  *manager = manager_.get();
  return S_OK;
}

}  // namespace kel::bench
