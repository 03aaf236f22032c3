// discovery_tests.exe: the deployment service double itself, driven
// directly through the runtime.

#include "discovery_tests.h"

#include <roapi.h>
#include <winstring.h>

#include <string>
#include <vector>

#include "deployment_abi.h"

namespace discovery_tests {

namespace {

template <typename Interface>
struct Held {
  Interface* p = nullptr;
  ~Held() {
    if (p != nullptr) p->Release();
  }
};

class RuntimeString {
 public:
  explicit RuntimeString(const std::wstring& text) {
    if (FAILED(WindowsCreateString(text.c_str(), static_cast<UINT32>(text.size()), &value_))) {
      Fail("WindowsCreateString failed");
    }
  }
  RuntimeString() = default;
  ~RuntimeString() {
    if (value_ != nullptr) WindowsDeleteString(value_);
  }
  RuntimeString(const RuntimeString&) = delete;
  RuntimeString& operator=(const RuntimeString&) = delete;
  [[nodiscard]] HSTRING get() const { return value_; }
  HSTRING* put() { return &value_; }
  [[nodiscard]] std::wstring Text() const {
    UINT32 length = 0;
    const wchar_t* raw = WindowsGetStringRawBuffer(value_, &length);
    return std::wstring(raw != nullptr ? raw : L"", length);
  }

 private:
  HSTRING value_ = nullptr;
};

// Family name and installed location of every package of a collection.
std::vector<std::wstring> Describe(deployment_abi::IPackageIterable* found) {
  using namespace deployment_abi;
  Held<IPackageIterable> iterable;
  HRESULT hr = found->QueryInterface(kIidIterableOfPackage, reinterpret_cast<void**>(&iterable.p));
  if (FAILED(hr)) Fail("the collection does not answer IIterable<Package>: " + Hex(hr));
  Held<IPackageIterator> iterator;
  hr = iterable.p->First(&iterator.p);
  if (FAILED(hr)) Fail("IIterable<Package>::First returned " + Hex(hr));
  Held<IPackageIterator> checked;
  hr = iterator.p->QueryInterface(kIidIteratorOfPackage, reinterpret_cast<void**>(&checked.p));
  if (FAILED(hr)) Fail("the iterator does not answer IIterator<Package>: " + Hex(hr));
  std::vector<std::wstring> packages;
  boolean hasCurrent = 0;
  hr = iterator.p->get_HasCurrent(&hasCurrent);
  while (SUCCEEDED(hr) && hasCurrent) {
    Held<IPackage> package;
    hr = iterator.p->get_Current(&package.p);
    if (FAILED(hr)) Fail("IIterator<Package>::get_Current returned " + Hex(hr));
    Held<IPackageId> id;
    if (FAILED(package.p->get_Id(&id.p))) Fail("IPackage::get_Id failed");
    RuntimeString family;
    if (FAILED(id.p->get_FamilyName(family.put()))) Fail("IPackageId::get_FamilyName failed");
    Held<IStorageFolder> folder;
    if (FAILED(package.p->get_InstalledLocation(&folder.p))) Fail("IPackage::get_InstalledLocation failed");
    Held<IStorageItem> item;
    if (FAILED(folder.p->QueryInterface(kIidStorageItem, reinterpret_cast<void**>(&item.p)))) {
      Fail("the installed location does not answer IStorageItem");
    }
    RuntimeString path;
    if (FAILED(item.p->get_Path(path.put()))) Fail("IStorageItem::get_Path failed");
    packages.push_back(family.Text() + L" " + path.Text());
    hr = iterator.p->MoveNext(&hasCurrent);
  }
  if (FAILED(hr)) Fail("walking the collection failed with " + Hex(hr));
  return packages;
}

}  // namespace

// The deployment service double itself, driven directly: the packages of the
// fixture for the current user, none for another user. This is what makes
// the library's answers above mean that it asked for the right user.
void DeploymentDoubleAnswersTheCurrentUserOnly(const std::wstring&) {
  using namespace deployment_abi;
  World world;
  HRESULT hr = RoInitialize(RO_INIT_SINGLETHREADED);
  if (FAILED(hr)) Fail("RoInitialize returned " + Hex(hr));
  struct Uninitialize {
    ~Uninitialize() { RoUninitialize(); }
  } uninitialize;

  Held<IInspectable> instance;
  {
    RuntimeString className(kPackageManagerClass);
    hr = RoActivateInstance(className.get(), &instance.p);
  }
  if (FAILED(hr)) {
    Fail("RoActivateInstance(Windows.Management.Deployment.PackageManager) returned " + Hex(hr) +
         " (is the deployment service double registered? run register_doubles.sh register)");
  }
  Held<IPackageManager> manager;
  hr = instance.p->QueryInterface(kIidPackageManager, reinterpret_cast<void**>(&manager.p));
  if (FAILED(hr)) Fail("the package manager does not answer IPackageManager: " + Hex(hr));

  std::vector<std::wstring> expected;
  for (const TestPackage& package : FixturePackages()) {
    expected.push_back(std::wstring(package.familyName) + L" " + world.PackageFolder(package));
  }

  {
    RuntimeString sid(world.CurrentUserSid());
    Held<IPackageIterable> found;
    hr = manager.p->FindPackagesByUserSecurityId(sid.get(), &found.p);
    if (FAILED(hr)) Fail("FindPackagesByUserSecurityId(current user) returned " + Hex(hr), world.Detail());
    if (Describe(found.p) != expected)
      Fail("FindPackagesByUserSecurityId(current user) gave other packages", world.Detail());
  }
  {
    RuntimeString sid(world.CurrentUserSid());
    RuntimeString family(kTwins);
    Held<IPackageIterable> found;
    hr = manager.p->FindPackagesByUserSecurityIdPackageFamilyName(sid.get(), family.get(), &found.p);
    if (FAILED(hr)) Fail("FindPackagesByUserSecurityIdPackageFamilyName returned " + Hex(hr), world.Detail());
    if (Describe(found.p) != std::vector<std::wstring>{expected[1]}) {
      Fail("FindPackagesByUserSecurityIdPackageFamilyName(current user, Kel.Twins) gave other packages",
           world.Detail());
    }
  }
  const std::wstring otherUser = L"S-1-5-21-1111111111-2222222222-3333333333-1001";
  {
    RuntimeString sid(otherUser);
    Held<IPackageIterable> found;
    hr = manager.p->FindPackagesByUserSecurityId(sid.get(), &found.p);
    if (FAILED(hr)) Fail("FindPackagesByUserSecurityId(another user) returned " + Hex(hr), world.Detail());
    if (!Describe(found.p).empty()) Fail("FindPackagesByUserSecurityId(another user) gave packages", world.Detail());
  }
  ExpectJournalLine(
      world, "SidMismatch\tFindPackagesByUserSecurityId\t" + Narrow(otherUser) + "\t" + Narrow(world.CurrentUserSid()),
      "a query for another user");
}

}  // namespace discovery_tests
