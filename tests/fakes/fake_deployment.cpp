// The fake's runtime apartment and deployment service: packages installed
// for each user, listed in the order the service keeps them, and queries a
// test can hold part-way.
#include "fakes/fake_platform.h"

#include <chrono>
#include <utility>

#include "fakes/fake_arguments.h"
#include "fakes/fake_com_object.h"
#include "frame/format.h"

namespace kel::fakes {

void FakePlatform::HoldPackageQueries(bool hold) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  holdPackageQueries_ = hold;
  eventChanged_.notify_all();
}

bool FakePlatform::WaitForHeldPackageQuery(std::chrono::milliseconds timeout) {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  return eventChanged_.wait_for(lock, timeout, [&] { return heldPackageQueries_ > 0; });
}

void FakePlatform::ReleasePackageQueries() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  ++packageQueryReleases_;
  eventChanged_.notify_all();
}

int FakePlatform::HeldPackageQueries() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return heldPackageQueries_;
}

// The caller holds no lock of the fake: the wait gives the mutex up, so the
// other threads go on using the fake meanwhile.
void FakePlatform::HoldIfPackageQueriesAreHeld() {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  if (!holdPackageQueries_ || shuttingDown_) return;
  const unsigned releases = packageQueryReleases_;
  ++heldPackageQueries_;
  eventChanged_.notify_all();
  eventChanged_.wait(lock, [&] { return !holdPackageQueries_ || shuttingDown_ || packageQueryReleases_ != releases; });
  --heldPackageQueries_;
  eventChanged_.notify_all();
}

HRESULT FakePlatform::RoInitialize(int initType) {
  Record("RoInitialize", Arg(static_cast<DWORD>(initType)));
  return ResultUnlessInjected(roInitializeResult);
}

void FakePlatform::RoUninitialize() { Record("RoUninitialize", ""); }

class FakePlatform::PackageIteratorObject final : public EnumeratorObject<platform::PackageIterator, FakePackage*> {
 public:
  PackageIteratorObject(FakePlatform& owner, std::vector<FakePackage*> packages)
      : EnumeratorObject(owner, owner.deploymentObjectsAlive, "PackageIterator", "get_HasCurrent",
                         std::move(packages)) {}
  HRESULT GetCurrent(platform::Package** package) override {
    owner_.Record("get_Current", "");
    if (!HasCurrent()) return E_FAIL;
    if (owner_.GivesNoObject("get_Current")) {
      *package = nullptr;
      return S_OK;
    }
    items_[next_]->AddRef();
    *package = items_[next_];
    Handle eventToSet = nullptr;
    {
      std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
      if (++owner_.packagesHandedOut_ == owner_.setEventAfterPackages) eventToSet = owner_.eventToSet;
    }
    if (eventToSet != nullptr) owner_.SetEvent(eventToSet);
    return S_OK;
  }
};

class FakePlatform::PackageCollectionObject final : public ComObject<platform::PackageCollection> {
 public:
  PackageCollectionObject(FakePlatform& owner, std::vector<FakePackage*> packages)
      : ComObject(owner, owner.deploymentObjectsAlive, "PackageCollection"), packages_(std::move(packages)) {}
  HRESULT First(platform::PackageIterator** iterator) override {
    owner_.Record("First", "");
    return owner_.NewObjectUnlessTold<PackageIteratorObject>("First", iterator, packages_);
  }

 private:
  std::vector<FakePackage*> packages_;
};

class FakePlatform::PackageManagerObject final : public ComObject<platform::DeploymentPackageManager> {
 public:
  explicit PackageManagerObject(FakePlatform& owner)
      : ComObject(owner, owner.deploymentObjectsAlive, "PackageManager") {}
  HRESULT FindPackagesByUserSecurityId(const WCHAR* sid, platform::PackageCollection** packages) override {
    owner_.Record("FindPackagesByUserSecurityId", Arg(sid));
    owner_.HoldIfPackageQueriesAreHeld();
    return Find(sid, nullptr, packages);
  }
  HRESULT FindPackagesByUserSecurityIdPackageFamilyName(const WCHAR* sid, const WCHAR* familyName,
                                                        platform::PackageCollection** packages) override {
    owner_.Record("FindPackagesByUserSecurityIdPackageFamilyName", Arg(sid) + ", " + Arg(familyName));
    owner_.HoldIfPackageQueriesAreHeld();
    return Find(sid, familyName, packages);
  }

 private:
  HRESULT Find(const WCHAR* sid, const WCHAR* familyName, platform::PackageCollection** packages) {
    *packages = nullptr;
    std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
    if (Failed(owner_.findPackagesResult)) return owner_.findPackagesResult;
    std::vector<FakePackage*> found;
    for (const auto& entry : owner_.deployed) {
      if (entry.userSid != sid) continue;
      if (familyName != nullptr && entry.package->StoredFamilyName() != familyName)
        continue;  // exact, as the service compares
      found.push_back(entry.package);
    }
    return owner_.NewObjectUnlessTold<PackageCollectionObject>("FindPackagesByUserSecurityId...", packages,
                                                               std::move(found));
  }
};

HRESULT FakePlatform::ActivatePackageManager(platform::DeploymentPackageManager** manager) {
  Record("RoActivateInstance", "Windows.Management.Deployment.PackageManager");
  if (Inject()) {
    *manager = nullptr;
    return E_OUTOFMEMORY;
  }
  *manager = nullptr;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Failed(activatePackageManagerResult)) return activatePackageManagerResult;
  return NewObjectUnlessTold<PackageManagerObject>("RoActivateInstance", manager);
}

WString FakePlatform::DescribeError(HRESULT error) { return FormatWide(u"runtime error 0x%08X", {error}); }

}  // namespace kel::fakes
