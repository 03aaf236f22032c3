// A fake of the platform's installed package: identity, version and
// installed folder, each query able to fail like the runtime object's.
#pragma once

#include <atomic>
#include <mutex>

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
    const HRESULT failure = failWith;
    if (Failed(failure)) return failure;
    std::lock_guard<std::mutex> lock(mutex_);
    value = version_;
    return S_OK;
  }
  HRESULT GetInstalledLocationPath(WString& value) override { return Answer(installedPath_, value); }
  void AddRef() override { ++references; }
  void Release() override { --references; }

  void SetVersion(platform::PackageVersion version) {
    std::lock_guard<std::mutex> lock(mutex_);
    version_ = version;
  }
  // The identity the fake deployment service files the package under.
  const WString& StoredFamilyName() const { return familyName_; }

  // Every query fails with this code when it is a failure. The refresh
  // thread and the host's threads query one package at once.
  std::atomic<HRESULT> failWith{S_OK};
  std::atomic<int> references{1};

 private:
  HRESULT Answer(const WString& stored, WString& value) const {
    const HRESULT failure = failWith;
    if (Failed(failure)) return failure;
    value = stored;
    return S_OK;
  }

  mutable std::mutex mutex_;  // guards version_; the identity never changes
  WString familyName_;
  WString fullName_;
  WString name_;
  platform::PackageVersion version_;
  WString installedPath_;
};

}  // namespace kel::fakes
