// The fake's core: its call record, fault injection, handles and the
// installation for a test. Each concern's calls live in a file of their own.
#include "fakes/fake_platform.h"

#include <cstdlib>
#include <utility>

#include "fakes/fake_arguments.h"
#include "frame/log.h"
#include "frame/wide.h"

namespace kel::fakes {

std::string Narrow(const WString& text) { return ToUtf8(text); }

thread_local DWORD FakePlatform::lastError_ = 0;

FakePlatform::FakePlatform() {
  lastError_ = 0;
  env_[u"LOCALAPPDATA"] = u"C:\\Users\\kel\\AppData\\Local";
  env_[u"APPDATA"] = u"C:\\Users\\kel\\AppData\\Roaming";
  env_[u"ALLUSERSPROFILE"] = u"C:\\ProgramData";
  AddDirectory(u"C:\\Users\\kel\\AppData\\Local");
  AddDirectory(u"C:\\Program Files\\Launcher");
}

FakePlatform::~FakePlatform() {
  StopThreads();
  for (void* p : localAllocations_) std::free(p);
  for (Handle h : globalAllocations_) std::free(h);
}

bool FakePlatform::Inject() {
  if (failCallAt_ == 0) return false;  // negative: count without failing
  return injectableCalls_.fetch_add(1) + 1 == failCallAt_;
}

HRESULT FakePlatform::ResultUnlessInjected(const HRESULT& result) {
  if (Inject()) return E_OUTOFMEMORY;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return result;
}

void FakePlatform::FailCall(int n) {
  injectableCalls_ = 0;
  failCallAt_ = n;
}

std::size_t FakePlatform::OpenHandles() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return openFiles_.size() + openKeys_.size() + searches_.size() + globalAllocations_.size() + localAllocations_.size();
}

void FakePlatform::Record(const char* name, std::string args) {
  if (onCall) onCall(Call{name, args});
  if (!recordCalls) return;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  calls_.push_back({name, std::move(args)});
}

// Called with the mutex held.
Handle FakePlatform::NewHandle() { return reinterpret_cast<Handle>(nextHandle_ += 4); }

WString FakePlatform::Key(const WString& path) {
  WString key = path;
  LowerInPlace(key);
  while (key.size() > 3 && key.back() == u'\\') key.pop_back();
  return key;
}

WString FakePlatform::Parent(const WString& key) {
  const std::size_t slash = key.rfind(u'\\');
  return slash == WString::npos ? WString() : key.substr(0, slash);
}

// Files, events and threads share one handle space, as on Windows.
BOOL FakePlatform::CloseHandle(Handle handle) {
  Record("CloseHandle", Hex(reinterpret_cast<std::uintptr_t>(handle)));
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (openFiles_.erase(handle) != 0 || events_.erase(handle) != 0) {
    eventChanged_.notify_all();
    return 1;
  }
  // Closing a thread handle leaves the thread running, as on Windows.
  auto it = threads_.find(handle);
  if (it == threads_.end() || it->second->closed) return 0;
  it->second->closed = true;
  return 1;
}

std::vector<Call> FakePlatform::Calls() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return calls_;
}

std::vector<Call> FakePlatform::CallsNamed(std::initializer_list<const char*> names) const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  std::vector<Call> out;
  for (const Call& call : calls_) {
    for (const char* name : names) {
      if (call.name == name) out.push_back(call);
    }
  }
  return out;
}

std::vector<std::string> FakePlatform::CallNames() const {
  std::vector<std::string> names;
  for (const Call& call : Calls()) names.push_back(call.name);
  return names;
}

void FakePlatform::ClearCalls() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  calls_.clear();
  sleeps_.clear();
  inputs.clear();
}

void FakePlatform::ForgetHistory() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  std::vector<Call>().swap(calls_);
  std::vector<DWORD>().swap(sleeps_);
  std::vector<platform::KeyboardInput>().swap(inputs);
  std::vector<WString>().swap(pasted);
  std::vector<WString>().swap(submitted);
}

std::vector<DWORD> FakePlatform::Sleeps() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return sleeps_;
}

ScopedFakePlatform::ScopedFakePlatform() {
  ResetLog();
  platform::Install(&fake_);
}

ScopedFakePlatform::~ScopedFakePlatform() {
  fake_.StopThreads();
  ResetLog();
  platform::Install(nullptr);
}

}  // namespace kel::fakes
