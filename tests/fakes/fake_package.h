// A fake of the platform's installed package: identity, version and
// installed folder, each query able to fail like the runtime object's.
#pragma once

#include <atomic>

#include "platform/platform.h"

namespace kel::fakes {

class FakePackage final : public platform::Package {
 public:
  FakePackage(WString familyName, WString fullName, WString name, platform::PackageVersion version,
              WString installedPath)
      : familyName_(std::move(familyName)),
        fullName_(std::move(fullName)),
        name_(std::move(name)),
        version_(version),
        installedPath_(std::move(installedPath)) {}

  HRESULT GetFamilyName(WString& value) override { return Answer(familyName_, value); }
  HRESULT GetFullName(WString& value) override { return Answer(fullName_, value); }
  HRESULT GetName(WString& value) override { return Answer(name_, value); }
  HRESULT GetVersion(platform::PackageVersion& value) override {
    if (Failed(failWith)) return failWith;
    value = version_;
    return S_OK;
  }
  HRESULT GetInstalledLocationPath(WString& value) override { return Answer(installedPath_, value); }
  void AddRef() override { ++references; }
  void Release() override { --references; }

  void SetVersion(platform::PackageVersion version) { version_ = version; }
  // The identity the fake deployment service files the package under.
  const WString& StoredFamilyName() const { return familyName_; }

  // Every query fails with this code when it is a failure.
  HRESULT failWith = S_OK;
  std::atomic<int> references{1};

 private:
  HRESULT Answer(const WString& stored, WString& value) const {
    if (Failed(failWith)) return failWith;
    value = stored;
    return S_OK;
  }

  WString familyName_;
  WString fullName_;
  WString name_;
  platform::PackageVersion version_;
  WString installedPath_;
};

}  // namespace kel::fakes
