// The fake's COM apartment and the shell's objects: app visibility, the
// packaging API's manifest reader and the application activation manager.
#include "fakes/fake_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "fakes/fake_arguments.h"
#include "fakes/fake_com_object.h"

namespace kel::fakes {

HRESULT FakePlatform::CoInitializeEx(DWORD coInit) {
  Record("CoInitializeEx", Arg(coInit));
  return ResultUnlessInjected(coInitializeResult);
}

void FakePlatform::CoUninitialize() { Record("CoUninitialize", ""); }

class FakePlatform::AppVisibilityObject final : public ComObject<platform::AppVisibility> {
 public:
  explicit AppVisibilityObject(FakePlatform& owner)
      : ComObject(owner, owner.appVisibilityObjectsAlive, "AppVisibility") {}
  HRESULT GetAppVisibilityOnMonitor(Handle monitor, int* visibility) override {
    owner_.Record("GetAppVisibilityOnMonitor", Hex(reinterpret_cast<std::uintptr_t>(monitor)));
    std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
    if (Succeeded(owner_.visibilityResult)) *visibility = owner_.visibility;
    return owner_.visibilityResult;
  }
  HRESULT IsLauncherVisible(BOOL* visible) override {
    owner_.Record("IsLauncherVisible", "");
    std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);  // host threads ask at once
    const auto& answers = owner_.launcherAnswers;
    const std::size_t index = std::min(owner_.launcherCalls_++, answers.size() - 1);
    if (Succeeded(owner_.launcherResult)) *visible = answers[index];
    return owner_.launcherResult;
  }
};

class FakePlatform::AppxApplicationObject final : public ComObject<platform::AppxApplication> {
 public:
  AppxApplicationObject(FakePlatform& owner, WString name)
      : ComObject(owner, owner.appxObjectsAlive, "AppxApplication"), name_(std::move(name)) {}
  HRESULT GetStringValue(const WCHAR* name, WCHAR** value) override {
    owner_.Record("GetStringValue", Arg(name));
    if (name_.empty()) return E_FAIL;
    auto* text = static_cast<WCHAR*>(std::malloc((name_.size() + 1) * sizeof(WCHAR)));
    std::memcpy(text, name_.c_str(), (name_.size() + 1) * sizeof(WCHAR));
    ++owner_.coTaskStringsAlive;
    *value = text;
    return S_OK;
  }

 private:
  WString name_;
};

class FakePlatform::AppxApplicationsObject final
    : public EnumeratorObject<platform::AppxApplicationsEnumerator, WString> {
 public:
  AppxApplicationsObject(FakePlatform& owner, std::vector<WString> names)
      : EnumeratorObject(owner, owner.appxObjectsAlive, "AppxApplicationsEnumerator", "GetHasCurrent",
                         std::move(names)) {}
  HRESULT GetCurrent(platform::AppxApplication** application) override {
    owner_.Record("GetCurrent", "");
    *application = nullptr;
    if (!HasCurrent()) return E_FAIL;
    {
      std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
      const auto failure = owner_.appxGetCurrentFailures.find(next_);
      if (failure != owner_.appxGetCurrentFailures.end()) return failure->second;
    }
    return owner_.NewObjectUnlessTold<AppxApplicationObject>("GetCurrent", application, items_[next_]);
  }
};

class FakePlatform::AppxManifestReaderObject final : public ComObject<platform::AppxManifestReader> {
 public:
  AppxManifestReaderObject(FakePlatform& owner, std::vector<WString> names)
      : ComObject(owner, owner.appxObjectsAlive, "AppxManifestReader"), names_(std::move(names)) {}
  HRESULT GetApplications(platform::AppxApplicationsEnumerator** applications) override {
    owner_.Record("GetApplications", "");
    return owner_.NewObjectUnlessTold<AppxApplicationsObject>("GetApplications", applications, names_);
  }

 private:
  std::vector<WString> names_;
};

HRESULT FakePlatform::CreateAppxManifestReader(const WCHAR* manifestPath, platform::AppxManifestReader** reader) {
  Record("CreateAppxManifestReader", Arg(manifestPath));
  if (Inject()) {
    *reader = nullptr;
    return E_OUTOFMEMORY;
  }
  *reader = nullptr;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Failed(createAppxManifestReaderResult)) return createAppxManifestReaderResult;
  auto it = appxApplications.find(manifestPath);
  if (it == appxApplications.end()) return HresultFromWin32(ERROR_FILE_NOT_FOUND);
  return NewObjectUnlessTold<AppxManifestReaderObject>("CreateAppxManifestReader", reader, it->second);
}

void FakePlatform::CoTaskMemFree(void* memory) {
  Record("CoTaskMemFree", "");
  if (memory == nullptr) return;
  --coTaskStringsAlive;
  std::free(memory);
}

HRESULT FakePlatform::CreateAppVisibility(DWORD context, platform::AppVisibility** object) {
  return CoCreate<AppVisibilityObject>("{7E5FE3D9-985F-4908-91F9-EE19F9FD1514}",
                                       "{2246EA2D-CAEA-4444-A3C4-6DE827E44313}", context, object,
                                       createAppVisibilityResult, createAppVisibilityGivesObject);
}

class FakePlatform::ActivationManagerObject final : public ComObject<platform::ApplicationActivationManager> {
 public:
  explicit ActivationManagerObject(FakePlatform& owner)
      : ComObject(owner, owner.activationObjectsAlive, "ApplicationActivationManager") {}
  HRESULT ActivateApplication(const WCHAR* id, const WCHAR* arguments, int options, DWORD* processId) override {
    owner_.Record("ActivateApplication", Arg(id) + ", " + Arg(arguments) + ", " + Arg(static_cast<DWORD>(options)));
    if (processId != nullptr) *processId = 4711;
    std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
    return owner_.activateResult;
  }
};

HRESULT FakePlatform::CreateApplicationActivationManager(DWORD context,
                                                         platform::ApplicationActivationManager** manager) {
  return CoCreate<ActivationManagerObject>("{45BA127D-10A8-46EA-8AB7-56EA9078943C}",
                                           "{2E941141-7F97-4756-BA1D-9DECDE894A3D}", context, manager,
                                           createActivationManagerResult, createActivationManagerGivesObject);
}

HRESULT FakePlatform::CoAllowSetForegroundWindow(platform::ApplicationActivationManager*) {
  Record("CoAllowSetForegroundWindow", "");
  if (Inject()) {
    return static_cast<HRESULT>(0x80070005u);
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return allowForegroundResult;
}

}  // namespace kel::fakes
