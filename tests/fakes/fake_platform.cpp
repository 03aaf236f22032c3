#include "fakes/fake_platform.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "frame/format.h"
#include "frame/log.h"
#include "frame/wide.h"
#include "text/cp932/cp932.h"
#include "text/xml/xml_reader.h"

namespace kel::fakes {
namespace {

std::string Arg(const WCHAR* text) { return text == nullptr ? "null" : ToUtf8(text); }
std::string Arg(DWORD value) { return std::to_string(value); }
std::string Hex(std::uint64_t value) { return FormatNarrow("0x%X", {static_cast<std::uint32_t>(value)}); }

// Wildcard match of '*' and '?' without regard to ASCII case.
bool Matches(const char16_t* pattern, const char16_t* name) {
  if (*pattern == 0) return *name == 0;
  if (*pattern == u'*') return Matches(pattern + 1, name) || (*name != 0 && Matches(pattern, name + 1));
  if (*name == 0) return false;
  if (*pattern != u'?' && AsciiLower(*pattern) != AsciiLower(*name)) return false;
  return Matches(pattern + 1, name + 1);
}


}  // namespace

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

void FakePlatform::StartThreadLocked(ThreadState& state) {
  if (state.started) return;
  state.started = true;
  ThreadState* raw = &state;
  state.thread = std::thread([this, raw] {
    raw->start(raw->parameter);
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    raw->finished = true;
    eventChanged_.notify_all();
  });
}

void FakePlatform::StartThreads() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  for (auto& [handle, state] : threads_) StartThreadLocked(*state);
}

void FakePlatform::GrantTimeouts(int count) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  grantedTimeouts_ += count;
  eventChanged_.notify_all();
}

bool FakePlatform::WaitForBlockedWaits(int count) {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  return eventChanged_.wait_for(lock, std::chrono::seconds(30), [&] { return blockedWaits_ >= count; });
}

bool FakePlatform::WaitForBlockedWaitsOrThreadsToFinish(int count) {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  return eventChanged_.wait_for(lock, std::chrono::seconds(30), [&] {
    if (blockedWaits_ >= count) return true;
    for (auto& [handle, state] : threads_) {
      if (state->started && !state->finished) return false;
    }
    return true;
  });
}

bool FakePlatform::WaitForThreadsToFinish() {
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  return eventChanged_.wait_for(lock, std::chrono::seconds(30), [&] {
    for (auto& [handle, state] : threads_) {
      if (state->started && !state->finished) return false;
    }
    return true;
  });
}

void FakePlatform::GrantThreadWaitTimeouts(int count) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  grantedThreadWaitTimeouts_ += count;
  eventChanged_.notify_all();
}

void FakePlatform::StopThreads() {
  std::vector<std::thread*> toJoin;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    shuttingDown_ = true;  // also releases the threads held in package queries
    eventChanged_.notify_all();
    for (auto& [handle, state] : threads_) {
      if (state->thread.joinable()) toJoin.push_back(&state->thread);
    }
  }
  for (std::thread* thread : toJoin) thread->join();
}

bool FakePlatform::Inject() {
  if (failCallAt_ == 0) return false;  // negative: count without failing
  return injectableCalls_.fetch_add(1) + 1 == failCallAt_;
}

void FakePlatform::FailCall(int n) {
  injectableCalls_ = 0;
  failCallAt_ = n;
}

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
  eventChanged_.wait(lock, [&] {
    return !holdPackageQueries_ || shuttingDown_ || packageQueryReleases_ != releases;
  });
  --heldPackageQueries_;
  eventChanged_.notify_all();
}

std::size_t FakePlatform::OpenHandles() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return openFiles_.size() + openKeys_.size() + searches_.size() + globalAllocations_.size() +
         localAllocations_.size();
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

void FakePlatform::SetEnv(const WString& name, const WString& value) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  env_[name] = value;
}

void FakePlatform::UnsetEnv(const WString& name) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  env_.erase(name);
}

void FakePlatform::SetModulePath(const WString& path) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  modulePath_ = path;
}

void FakePlatform::SetVersion(DWORD major, DWORD minor) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  major_ = major;
  minor_ = minor;
}

void FakePlatform::SetLocalTime(const platform::SystemTime& t) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  time_ = t;
}

void FakePlatform::SetShellExecuteResult(std::intptr_t result) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  shellExecuteResult_ = result;
}

void FakePlatform::FailMultiByteToWideChar(bool fail) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  failMultiByte_ = fail;
}

void FakePlatform::AddDirectory(const WString& path) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  WString key = Key(path);
  WString display = path;
  while (!key.empty() && key.size() > 2) {
    auto& node = files_[key];
    node.directory = true;
    if (node.displayPath.empty()) node.displayPath = display.substr(0, key.size());
    key = Parent(key);
  }
}

void FakePlatform::AddFile(const WString& path, const std::string& bytes) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  const WString key = Key(path);
  AddDirectory(path.substr(0, path.rfind(u'\\')));
  files_[key] = Node{false, bytes, path};
}

void FakePlatform::AddFileWithShortName(const WString& path, const WString& shortName, const std::string& bytes) {
  AddFile(path, bytes);
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  files_[Key(path)].shortName = shortName;
}

void FakePlatform::SetReportedFileSize(const WString& path, std::uint64_t size) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  files_.at(Key(path)).reportedSize = size;
}

bool FakePlatform::Exists(const WString& path) const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return files_.count(Key(path)) != 0;
}

std::string FakePlatform::FileContent(const WString& path) const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = files_.find(Key(path));
  return it == files_.end() ? std::string() : it->second.bytes;
}

void FakePlatform::RemoveFile(const WString& path) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  files_.erase(Key(path));
}

void FakePlatform::AddKey(const WString& key) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  registry_[Key(key)];
}

void FakePlatform::RemoveKey(const WString& key) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  registry_.erase(Key(key));
}

void FakePlatform::SetRaw(const WString& key, const WString& name, DWORD type, const std::string& bytes) {
  WString valueName = name;
  LowerInPlace(valueName);
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  registry_[Key(key)][valueName] = Value{type, bytes};
}

void FakePlatform::SetDword(const WString& key, const WString& name, DWORD value) {
  SetRaw(key, name, platform::REG_DWORD, std::string(reinterpret_cast<const char*>(&value), 4));
}

void FakePlatform::SetString(const WString& key, const WString& name, const WString& value) {
  const WString withTerminator = value + u'\0';
  SetRaw(key, name, platform::REG_SZ,
         std::string(reinterpret_cast<const char*>(withTerminator.data()), withTerminator.size() * 2));
}

bool FakePlatform::KeyExists(const WString& key) const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return registry_.count(Key(key)) != 0;
}

bool FakePlatform::HasValue(const WString& key, const WString& name) const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = registry_.find(Key(key));
  WString valueName = name;
  LowerInPlace(valueName);
  return it != registry_.end() && it->second.count(valueName) != 0;
}

DWORD FakePlatform::DwordValue(const WString& key, const WString& name) const {
  WString valueName = name;
  LowerInPlace(valueName);
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  const std::string& bytes = registry_.at(Key(key)).at(valueName).bytes;
  DWORD value = 0;
  std::memcpy(&value, bytes.data(), std::min<std::size_t>(4, bytes.size()));
  return value;
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

std::size_t FakePlatform::LiveLocalAllocations() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return localAllocations_.size();
}

// --- environment and process ---------------------------------------------

bool FakePlatform::GetEnvironmentVariable(const WCHAR* name, WString& value) {
  Record("GetEnvironmentVariable", Arg(name));
  if (Inject()) { return false; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = env_.find(name);
  if (it == env_.end()) return false;
  value = it->second;
  return true;
}

DWORD FakePlatform::ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) {
  Record("ExpandEnvironmentStrings", Arg(source));
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  WString out;
  for (const WCHAR* p = source; *p != 0; ++p) {
    const WCHAR* end = *p == u'%' ? p + 1 : nullptr;
    while (end != nullptr && *end != 0 && *end != u'%') ++end;
    if (end != nullptr && *end == u'%') {
      auto it = env_.find(WString(p + 1, end));
      if (it != env_.end()) {
        out += it->second;
        p = end;
        continue;
      }
    }
    out.push_back(*p);
  }
  const DWORD needed = static_cast<DWORD>(out.size() + 1);
  if (buffer != nullptr && capacity >= needed) std::memcpy(buffer, out.c_str(), needed * 2);
  return needed;
}

DWORD FakePlatform::GetModuleFileName(WCHAR* buffer, DWORD capacity) {
  Record("GetModuleFileName", Arg(capacity));
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (modulePath_.empty() || capacity == 0) return 0;
  const std::size_t n = std::min<std::size_t>(modulePath_.size(), capacity - 1);
  std::memcpy(buffer, modulePath_.data(), n * 2);
  buffer[n] = 0;
  return static_cast<DWORD>(n);
}

platform::SystemTime FakePlatform::GetLocalTime() {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return time_;
}

void FakePlatform::Sleep(DWORD milliseconds) {
  Record("Sleep", Arg(milliseconds));
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  sleeps_.push_back(milliseconds);
}

// --- files ---------------------------------------------------------------

Handle FakePlatform::CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) {
  Record("CreateFile", Arg(path) + ", " + Hex(access) + ", " + Arg(share) + ", " + Arg(disposition) + ", " +
                           Hex(attributes));
  if (Inject()) { lastError_ = ERROR_ACCESS_DENIED; return platform::InvalidHandleValue(); }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  const WString key = Key(path == nullptr ? WString() : WString(path));
  auto parent = files_.find(Parent(key));
  if (key.empty() || parent == files_.end() || !parent->second.directory) {
    lastError_ = ERROR_PATH_NOT_FOUND;
    return platform::InvalidHandleValue();
  }
  auto it = files_.find(key);
  if (it != files_.end() && it->second.directory) {
    lastError_ = ERROR_ACCESS_DENIED;
    return platform::InvalidHandleValue();
  }
  if (it == files_.end()) {
    if (disposition == platform::OPEN_EXISTING) {
      lastError_ = ERROR_FILE_NOT_FOUND;
      return platform::InvalidHandleValue();
    }
    files_[key] = Node{false, {}, path};
  } else if (disposition == platform::CREATE_ALWAYS) {
    it->second.bytes.clear();
  }
  Handle h = NewHandle();
  openFiles_[h] = OpenFile{key, 0};
  return h;
}

DWORD FakePlatform::SetFilePointer(Handle file, LONG distance, DWORD method) {
  Record("SetFilePointer", Arg(static_cast<DWORD>(distance)) + ", " + Arg(method));
  if (Inject()) { return platform::INVALID_SET_FILE_POINTER; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = openFiles_.find(file);
  if (it == openFiles_.end()) return platform::INVALID_SET_FILE_POINTER;
  const std::size_t size = files_[it->second.key].bytes.size();
  it->second.position = method == platform::FILE_END ? size + distance : static_cast<std::size_t>(distance);
  return static_cast<DWORD>(it->second.position);
}

BOOL FakePlatform::WriteFile(Handle file, const void* data, DWORD length, DWORD* written) {
  Record("WriteFile", std::string(static_cast<const char*>(data), length));
  if (Inject()) { if (written != nullptr) *written = 0; return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = openFiles_.find(file);
  if (it == openFiles_.end()) return 0;
  std::string& bytes = files_[it->second.key].bytes;
  if (bytes.size() < it->second.position) bytes.resize(it->second.position);
  bytes.replace(it->second.position, std::min<std::size_t>(length, bytes.size() - it->second.position),
                static_cast<const char*>(data), length);
  it->second.position += length;
  if (written != nullptr) *written = length;
  return 1;
}

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

DWORD FakePlatform::GetFileAttributes(const WCHAR* path) {
  Record("GetFileAttributes", Arg(path));
  if (Inject()) { return platform::INVALID_FILE_ATTRIBUTES; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = files_.find(Key(path));
  if (it == files_.end()) return platform::INVALID_FILE_ATTRIBUTES;
  return it->second.directory ? platform::FILE_ATTRIBUTE_DIRECTORY : platform::FILE_ATTRIBUTE_NORMAL;
}

BOOL FakePlatform::PathFileExists(const WCHAR* path) {
  Record("PathFileExists", Arg(path));
  if (Inject()) { return 0; }
  return Exists(path) ? 1 : 0;
}

int FakePlatform::SHCreateDirectoryEx(const WCHAR* path) {
  Record("SHCreateDirectoryEx", Arg(path));
  if (Inject()) { return ERROR_ACCESS_DENIED; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Exists(path)) return ERROR_ALREADY_EXISTS;
  AddDirectory(path);
  return 0;
}

HRESULT FakePlatform::ReadFileBytes(const WCHAR* path, std::string& bytes) {
  Record("ReadFileBytes", Arg(path));
  if (Inject()) { return HresultFromWin32(ERROR_ACCESS_DENIED); }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = files_.find(Key(path));
  if (it == files_.end()) {
    auto parent = files_.find(Parent(Key(path)));
    return HresultFromWin32(parent == files_.end() ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND);
  }
  if (it->second.directory) return HresultFromWin32(ERROR_ACCESS_DENIED);
  const std::uint64_t size = it->second.reportedSize != 0 ? it->second.reportedSize : it->second.bytes.size();
  if (size > xml::kMaxInputBytes) {
    bytes.clear();
    return xml::kInputTooLarge;
  }
  bytes = it->second.bytes;
  return S_OK;
}

HRESULT FakePlatform::ReplaceFileAtomically(const WCHAR* path, const std::string& bytes) {
  Record("ReplaceFileAtomically", Arg(path) + ", " + std::to_string(bytes.size()));
  if (Inject()) { return HresultFromWin32(112); }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Failed(replaceFileResult)) return replaceFileResult;  // the old content stays
  const WString key = Key(path);
  auto parent = files_.find(Parent(key));
  if (parent == files_.end() || !parent->second.directory) return HresultFromWin32(ERROR_PATH_NOT_FOUND);
  files_[key] = Node{false, bytes, path};
  return S_OK;
}

Handle FakePlatform::FindFirstFile(const WCHAR* pattern, platform::FindData& found) {
  Record("FindFirstFile", Arg(pattern));
  if (Inject()) { lastError_ = ERROR_ACCESS_DENIED; return platform::InvalidHandleValue(); }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  const WString full = pattern;
  const std::size_t slash = full.rfind(u'\\');
  const WString folder = Key(full.substr(0, slash));
  const WString mask = full.substr(slash + 1);
  auto dir = files_.find(folder);
  if (dir == files_.end() || !dir->second.directory) {
    lastError_ = ERROR_PATH_NOT_FOUND;
    return platform::InvalidHandleValue();
  }
  Search search;
  if (mask == u"*") {
    search.names = {u".", u".."};
    search.attributes = {platform::FILE_ATTRIBUTE_DIRECTORY, platform::FILE_ATTRIBUTE_DIRECTORY};
  }
  for (const auto& [key, node] : files_) {
    if (Parent(key) != folder) continue;
    const WString name = node.displayPath.substr(node.displayPath.rfind(u'\\') + 1);
    if (!Matches(mask.c_str(), name.c_str()) &&
        (node.shortName.empty() || !Matches(mask.c_str(), node.shortName.c_str()))) {
      continue;
    }
    search.names.push_back(name);
    search.attributes.push_back(node.directory ? platform::FILE_ATTRIBUTE_DIRECTORY
                                               : platform::FILE_ATTRIBUTE_NORMAL);
  }
  if (search.names.empty()) {
    lastError_ = ERROR_FILE_NOT_FOUND;
    return platform::InvalidHandleValue();
  }
  found.cFileName = search.names[0];
  found.dwFileAttributes = search.attributes[0];
  search.next = 1;
  Handle h = NewHandle();
  searches_[h] = std::move(search);
  return h;
}

BOOL FakePlatform::FindNextFile(Handle handle, platform::FindData& found) {
  Record("FindNextFile", "");
  if (Inject()) { lastError_ = ERROR_ACCESS_DENIED; return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = searches_.find(handle);
  if (it == searches_.end() || it->second.next >= it->second.names.size()) {
    lastError_ = ERROR_NO_MORE_FILES;
    return 0;
  }
  found.cFileName = it->second.names[it->second.next];
  found.dwFileAttributes = it->second.attributes[it->second.next];
  ++it->second.next;
  return 1;
}

BOOL FakePlatform::FindClose(Handle handle) {
  Record("FindClose", "");
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return searches_.erase(handle) != 0 ? 1 : 0;
}

// --- registry ------------------------------------------------------------

LONG FakePlatform::RegOpenKeyEx(platform::RootKey, const WCHAR* subKey, DWORD options, DWORD access, Handle* key) {
  Record("RegOpenKeyEx", "HKCU\\" + Arg(subKey) + ", " + Arg(options) + ", " + Hex(access));
  if (Inject()) { return ERROR_ACCESS_DENIED; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (registry_.count(Key(subKey)) == 0) return ERROR_FILE_NOT_FOUND;
  *key = NewHandle();
  openKeys_[*key] = {Key(subKey), access};
  return ERROR_SUCCESS;
}

LONG FakePlatform::RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data, DWORD* size) {
  Record("RegQueryValueEx", Arg(name) + ", " + Arg(size == nullptr ? 0 : *size));
  if (Inject()) { return ERROR_ACCESS_DENIED; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto open = openKeys_.find(key);
  if (open == openKeys_.end()) return ERROR_INVALID_PARAMETER;
  WString valueName = name;
  LowerInPlace(valueName);
  auto& values = registry_[open->second.first];
  auto it = values.find(valueName);
  if (it == values.end()) return ERROR_FILE_NOT_FOUND;
  if (type != nullptr) *type = it->second.type;
  const DWORD needed = static_cast<DWORD>(it->second.bytes.size());
  if (data != nullptr && (size == nullptr || *size < needed)) {
    if (size != nullptr) *size = needed;
    return ERROR_MORE_DATA;
  }
  if (data != nullptr) std::memcpy(data, it->second.bytes.data(), needed);
  if (size != nullptr) *size = needed;
  return ERROR_SUCCESS;
}

LONG FakePlatform::RegSetValueEx(Handle key, const WCHAR* name, DWORD type, const std::uint8_t* data, DWORD size) {
  std::string args = Arg(name) + ", " + Arg(type) + ", ";
  if (type == platform::REG_DWORD && size == 4) {
    DWORD value = 0;
    std::memcpy(&value, data, 4);
    args += Arg(value);
  }
  Record("RegSetValueEx", args + ", " + Arg(size));
  if (Inject()) { return ERROR_ACCESS_DENIED; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto open = openKeys_.find(key);
  if (open == openKeys_.end()) return ERROR_INVALID_PARAMETER;
  if ((open->second.second & 0x2) == 0) return ERROR_ACCESS_DENIED;  // KEY_SET_VALUE
  WString valueName = name;
  LowerInPlace(valueName);
  registry_[open->second.first][valueName] = Value{type, std::string(reinterpret_cast<const char*>(data), size)};
  return ERROR_SUCCESS;
}

LONG FakePlatform::RegDeleteValue(Handle key, const WCHAR* name) {
  Record("RegDeleteValue", Arg(name));
  if (Inject()) { return ERROR_ACCESS_DENIED; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto open = openKeys_.find(key);
  if (open == openKeys_.end()) return ERROR_INVALID_PARAMETER;
  if ((open->second.second & 0x2) == 0) return ERROR_ACCESS_DENIED;
  WString valueName = name;
  LowerInPlace(valueName);
  return registry_[open->second.first].erase(valueName) != 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LONG FakePlatform::RegCloseKey(Handle key) {
  Record("RegCloseKey", "");
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return openKeys_.erase(key) != 0 ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

// --- version -------------------------------------------------------------

std::uint64_t FakePlatform::VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) {
  Record("VerSetConditionMask", Hex(mask) + ", " + Arg(typeBit) + ", " + Arg(condition));
  unsigned index = 0;
  while (index < 32 && (typeBit & (1u << index)) == 0) ++index;
  return mask | (static_cast<std::uint64_t>(condition & 7) << (index * 3));
}

BOOL FakePlatform::VerifyVersionInfo(platform::OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) {
  Record("VerifyVersionInfo", Arg(info.dwOSVersionInfoSize) + ", " + Arg(info.dwMajorVersion) + ", " +
                                  Arg(info.dwMinorVersion) + ", " + Arg(typeMask) + ", " + Hex(conditionMask));
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto passes = [](DWORD actual, DWORD wanted, unsigned condition) {
    switch (condition) {
      case 1: return actual == wanted;
      case 2: return actual > wanted;
      case 3: return actual >= wanted;
      case 4: return actual < wanted;
      case 5: return actual <= wanted;
      default: return false;
    }
  };
  bool ok = true;
  if (typeMask & platform::VER_MINORVERSION) ok = ok && passes(minor_, info.dwMinorVersion, conditionMask & 7);
  if (typeMask & platform::VER_MAJORVERSION) ok = ok && passes(major_, info.dwMajorVersion, (conditionMask >> 3) & 7);
  return ok ? 1 : 0;
}

int FakePlatform::MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength,
                                      WCHAR* buffer, int capacity) {
  Record("MultiByteToWideChar", Arg(codePage) + ", " + Arg(flags) + ", " + Arg(static_cast<DWORD>(sourceLength)) +
                                    ", " + Arg(static_cast<DWORD>(capacity)));
  if (Inject()) { return 0; }
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (failMultiByte_) return 0;
  }
  if (codePage != platform::CP_SHIFT_JIS) return 0;
  return cp932::MultiByteToWide(source, sourceLength, buffer, capacity);
}

void* FakePlatform::LocalAlloc(UINT flags, std::size_t bytes) {
  Record("LocalAlloc", Arg(flags) + ", " + Arg(static_cast<DWORD>(bytes)));
  if (Inject()) { return nullptr; }
  void* p = std::calloc(1, bytes == 0 ? 1 : bytes);
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  localAllocations_.insert(p);
  return p;
}

void* FakePlatform::LocalFree(void* memory) {
  Record("LocalFree", "");
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (localAllocations_.erase(memory) == 0) return memory;
  std::free(memory);
  return nullptr;
}

std::intptr_t FakePlatform::ShellExecute(Handle window, const WCHAR* verb, const WCHAR* file,
                                         const WCHAR* parameters, const WCHAR* directory, int showCommand) {
  Record("ShellExecute", std::string(window == nullptr ? "null" : "hwnd") + ", " + Arg(verb) + ", " + Arg(file) +
                             ", " + Arg(parameters) + ", " + Arg(directory) + ", " +
                             Arg(static_cast<DWORD>(showCommand)));
  if (Inject()) { return 5; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return shellExecuteResult_;
}

// --- threads and events ----------------------------------------------------

Handle FakePlatform::CreateEvent(bool manualReset, bool initialState, const WCHAR* name) {
  Record("CreateEvent", Arg(static_cast<DWORD>(manualReset)) + ", " + Arg(static_cast<DWORD>(initialState)) + ", " +
                            Arg(name));
  if (Inject()) { lastError_ = ERROR_ACCESS_DENIED; return nullptr; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (createEventFails) {
    lastError_ = 6;  // ERROR_INVALID_HANDLE: the name is taken by another kind of object
    return nullptr;
  }
  Handle h = NewHandle();
  events_[h] = Event{manualReset, initialState};
  return h;
}

BOOL FakePlatform::SetEvent(Handle event) {
  Record("SetEvent", "");
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = events_.find(event);
  if (it == events_.end()) {
    ++staleHandleUses_;
    return 0;
  }
  it->second.signalled = true;
  eventChanged_.notify_all();
  return 1;
}

BOOL FakePlatform::ResetEvent(Handle event) {
  Record("ResetEvent", "");
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = events_.find(event);
  if (it == events_.end()) {
    ++staleHandleUses_;
    return 0;
  }
  it->second.signalled = false;
  return 1;
}

DWORD FakePlatform::WaitForSingleObject(Handle object, DWORD milliseconds) {
  Record("WaitForSingleObject", Arg(milliseconds));
  if (Inject()) { return platform::WAIT_FAILED; }
  std::unique_lock<std::recursive_mutex> lock(mutex_);
  auto thread = threads_.find(object);
  if (thread != threads_.end()) {
    ThreadState& state = *thread->second;
    StartThreadLocked(state);
    auto finished = [&] { return state.finished; };
    if (milliseconds == platform::INFINITE) {
      eventChanged_.wait(lock, finished);
      return platform::WAIT_OBJECT_0;
    }
    eventChanged_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                           [&] { return finished() || grantedThreadWaitTimeouts_ > 0; });
    if (finished()) return platform::WAIT_OBJECT_0;
    if (grantedThreadWaitTimeouts_ > 0) --grantedThreadWaitTimeouts_;
    return platform::WAIT_TIMEOUT;
  }
  if (events_.count(object) == 0) {
    ++staleHandleUses_;
    return platform::WAIT_FAILED;
  }
  auto signalled = [&] { return events_.count(object) != 0 && events_[object].signalled; };
  if (!signalled()) {
    if (milliseconds == 0) return platform::WAIT_TIMEOUT;
    if (!finiteWaitsBlock && milliseconds != platform::INFINITE) return platform::WAIT_TIMEOUT;
    // Time stands still: the wait ends when the event is set, when the test
    // lets one wait time out, or when the fake shuts down.
    ++blockedWaits_;
    eventChanged_.notify_all();
    eventChanged_.wait(lock, [&] {
      return signalled() || shuttingDown_ || events_.count(object) == 0 ||
             (milliseconds != platform::INFINITE && grantedTimeouts_ > 0);
    });
    if (events_.count(object) == 0 || (shuttingDown_ && !signalled())) return platform::WAIT_FAILED;
    if (!signalled()) {
      --grantedTimeouts_;
      return platform::WAIT_TIMEOUT;
    }
  }
  if (!events_[object].manualReset) events_[object].signalled = false;
  return platform::WAIT_OBJECT_0;
}

Handle FakePlatform::CreateThread(platform::ThreadProc start, void* parameter) {
  Record("CreateThread", "");
  if (Inject()) { lastError_ = 8; return nullptr; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (createThreadFails) return nullptr;
  Handle h = NewHandle();
  auto state = std::make_unique<ThreadState>();
  state->start = start;
  state->parameter = parameter;
  ThreadState& created = *state;
  threads_[h] = std::move(state);
  if (!deferThreads) StartThreadLocked(created);
  return h;
}

// --- keyboard, clipboard, windows ------------------------------------------

UINT FakePlatform::SendInput(const platform::KeyboardInput& input) {
  Record("SendInput", Hex(input.wVk) + ", " + Hex(input.wScan) + ", " + Hex(input.dwFlags));
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  inputs.push_back(input);
  if (input.wVk == 0x2D && input.dwFlags == platform::KEYEVENTF_EXTENDEDKEY) pasted.push_back(clipboardText);
  if (input.wVk == 0x0D && input.dwFlags == platform::KEYEVENTF_EXTENDEDKEY) {
    submitted.push_back(pasted.empty() ? WString() : pasted.back());
    if (paneStaysForEnters > 0) {
      --paneStaysForEnters;
    } else if (foregroundClass == u"SearchPane") {
      foregroundClass = u"Progman";
    }
  }
  return 1;
}

UINT FakePlatform::MapVirtualKey(UINT code, UINT mapType) {
  Record("MapVirtualKey", Hex(code) + ", " + Arg(mapType));
  if (Inject()) { return 0; }
  switch (code) {
    case 0x10: return 0x2A;  // shift
    case 0x51: return 0x10;  // Q
    case 0x0D: return 0x1C;  // enter
    case 0x2D: return 0x52;  // insert
    default: return 0;
  }
}

BOOL FakePlatform::OpenClipboard(Handle) {
  Record("OpenClipboard", "");
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (openClipboardFails) return 0;
  clipboardOpen_ = true;
  return 1;
}

BOOL FakePlatform::EmptyClipboard() {
  Record("EmptyClipboard", "");
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  clipboardText.clear();
  return clipboardOpen_ ? 1 : 0;
}

Handle FakePlatform::SetClipboardData(UINT format, Handle memory) {
  Record("SetClipboardData", Arg(format));
  if (Inject()) { lastError_ = 1418; return nullptr; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (setClipboardDataFails) lastError_ = setClipboardDataError;
  if (setClipboardDataFails || !clipboardOpen_ || memory == nullptr) return nullptr;
  clipboardText = static_cast<const char16_t*>(memory);
  return memory;
}

BOOL FakePlatform::CloseClipboard() {
  Record("CloseClipboard", "");
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  clipboardOpen_ = false;
  return 1;
}

Handle FakePlatform::GlobalAlloc(UINT flags, std::size_t bytes) {
  Record("GlobalAlloc", Hex(flags) + ", " + Arg(static_cast<DWORD>(bytes)));
  if (Inject()) { return nullptr; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (globalAllocFails) return nullptr;
  Handle h = std::calloc(1, bytes == 0 ? 1 : bytes);
  globalAllocations_.insert(h);
  return h;
}

void* FakePlatform::GlobalLock(Handle memory) {
  Record("GlobalLock", "");
  if (Inject()) { return nullptr; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return globalLockFails ? nullptr : memory;
}

BOOL FakePlatform::GlobalUnlock(Handle) {
  Record("GlobalUnlock", "");
  return 0;
}

Handle FakePlatform::GlobalFree(Handle memory) {
  Record("GlobalFree", "");
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (globalAllocations_.erase(memory) == 0) return memory;
  std::free(memory);
  return nullptr;
}

Handle FakePlatform::GetForegroundWindow() {
  Record("GetForegroundWindow", "");
  if (Inject()) { return nullptr; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!foregroundSequence.empty()) {
    currentForeground_ = foregroundSequence.front();
    foregroundSequence.erase(foregroundSequence.begin());
  } else {
    currentForeground_ = foregroundClass;
  }
  return currentForeground_.empty() ? nullptr : reinterpret_cast<Handle>(0x777);
}

int FakePlatform::GetClassName(Handle, WCHAR* buffer, int capacity) {
  Record("GetClassName", Arg(static_cast<DWORD>(capacity)));
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  const int n = static_cast<int>(std::min<std::size_t>(currentForeground_.size(), capacity - 1));
  std::memcpy(buffer, currentForeground_.data(), n * 2);
  buffer[n] = 0;
  return n;
}

Handle FakePlatform::MonitorFromPoint(platform::Point point, DWORD flags) {
  Record("MonitorFromPoint", Arg(static_cast<DWORD>(point.x)) + ", " + Arg(static_cast<DWORD>(point.y)) + ", " +
                                 Arg(flags));
  if (Inject()) { return nullptr; }
  return reinterpret_cast<Handle>(0x10001);
}

int FakePlatform::MessageBox(Handle, const WCHAR* text, const WCHAR* caption, UINT type) {
  Record("MessageBox", Arg(text) + ", " + Arg(caption) + ", " + Hex(type));
  if (Inject()) { return 0; }
  return 1;
}

HRESULT FakePlatform::CoInitializeEx(DWORD coInit) {
  Record("CoInitializeEx", Arg(coInit));
  if (Inject()) { return E_OUTOFMEMORY; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return coInitializeResult;
}

void FakePlatform::CoUninitialize() { Record("CoUninitialize", ""); }

class FakePlatform::AppVisibilityObject final : public platform::AppVisibility {
 public:
  explicit AppVisibilityObject(FakePlatform& owner) : owner_(owner) { ++owner_.appVisibilityObjectsAlive; }
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
  void Release() override {
    owner_.Record("Release", "AppVisibility");
    --owner_.appVisibilityObjectsAlive;
    delete this;
  }

 private:
  ~AppVisibilityObject() override = default;
  FakePlatform& owner_;
};

class FakePlatform::AppxApplicationObject final : public platform::AppxApplication {
 public:
  AppxApplicationObject(FakePlatform& owner, WString name) : owner_(owner), name_(std::move(name)) {
    ++owner_.appxObjectsAlive;
  }
  HRESULT GetStringValue(const WCHAR* name, WCHAR** value) override {
    owner_.Record("GetStringValue", Arg(name));
    if (name_.empty()) return E_FAIL;
    auto* text = static_cast<WCHAR*>(std::malloc((name_.size() + 1) * sizeof(WCHAR)));
    std::memcpy(text, name_.c_str(), (name_.size() + 1) * sizeof(WCHAR));
    ++owner_.coTaskStringsAlive;
    *value = text;
    return S_OK;
  }
  void Release() override {
    owner_.Record("Release", "AppxApplication");
    --owner_.appxObjectsAlive;
    delete this;
  }

 private:
  ~AppxApplicationObject() override = default;
  FakePlatform& owner_;
  WString name_;
};

class FakePlatform::AppxApplicationsObject final : public platform::AppxApplicationsEnumerator {
 public:
  AppxApplicationsObject(FakePlatform& owner, std::vector<WString> names) : owner_(owner), names_(std::move(names)) {
    ++owner_.appxObjectsAlive;
  }
  HRESULT GetCurrent(platform::AppxApplication** application) override {
    owner_.Record("GetCurrent", "");
    *application = nullptr;
    if (next_ >= names_.size()) return E_FAIL;
    {
      std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
      const auto failure = owner_.appxGetCurrentFailures.find(next_);
      if (failure != owner_.appxGetCurrentFailures.end()) return failure->second;
    }
    if (owner_.GivesNoObject("GetCurrent")) { *application = nullptr; return S_OK; }
    *application = new AppxApplicationObject(owner_, names_[next_]);
    return S_OK;
  }
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    owner_.Record("GetHasCurrent", "");
    *hasCurrent = next_ < names_.size() ? 1 : 0;
    return S_OK;
  }
  HRESULT MoveNext(BOOL* hasNext) override {
    owner_.Record("MoveNext", "");
    ++next_;
    *hasNext = next_ < names_.size() ? 1 : 0;
    return S_OK;
  }
  void Release() override {
    owner_.Record("Release", "AppxApplicationsEnumerator");
    --owner_.appxObjectsAlive;
    delete this;
  }

 private:
  ~AppxApplicationsObject() override = default;
  FakePlatform& owner_;
  std::vector<WString> names_;
  std::size_t next_ = 0;
};

class FakePlatform::AppxManifestReaderObject final : public platform::AppxManifestReader {
 public:
  AppxManifestReaderObject(FakePlatform& owner, std::vector<WString> names)
      : owner_(owner), names_(std::move(names)) {
    ++owner_.appxObjectsAlive;
  }
  HRESULT GetApplications(platform::AppxApplicationsEnumerator** applications) override {
    owner_.Record("GetApplications", "");
    if (owner_.GivesNoObject("GetApplications")) { *applications = nullptr; return S_OK; }
    *applications = new AppxApplicationsObject(owner_, names_);
    return S_OK;
  }
  void Release() override {
    owner_.Record("Release", "AppxManifestReader");
    --owner_.appxObjectsAlive;
    delete this;
  }

 private:
  ~AppxManifestReaderObject() override = default;
  FakePlatform& owner_;
  std::vector<WString> names_;
};

HRESULT FakePlatform::CreateAppxManifestReader(const WCHAR* manifestPath, platform::AppxManifestReader** reader) {
  Record("CreateAppxManifestReader", Arg(manifestPath));
  if (Inject()) { *reader = nullptr; return E_OUTOFMEMORY; }
  *reader = nullptr;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Failed(createAppxManifestReaderResult)) return createAppxManifestReaderResult;
  auto it = appxApplications.find(manifestPath);
  if (it == appxApplications.end()) return HresultFromWin32(ERROR_FILE_NOT_FOUND);
  if (GivesNoObject("CreateAppxManifestReader")) return S_OK;
  *reader = new AppxManifestReaderObject(*this, it->second);
  return S_OK;
}

void FakePlatform::CoTaskMemFree(void* memory) {
  Record("CoTaskMemFree", "");
  if (memory == nullptr) return;
  --coTaskStringsAlive;
  std::free(memory);
}

HRESULT FakePlatform::CreateAppVisibility(DWORD context, platform::AppVisibility** object) {
  Record("CoCreateInstance", "{7E5FE3D9-985F-4908-91F9-EE19F9FD1514}, null, " + Arg(context) +
                                 ", {2246EA2D-CAEA-4444-A3C4-6DE827E44313}");
  if (Inject()) { *object = nullptr; return E_OUTOFMEMORY; }
  *object = nullptr;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Succeeded(createAppVisibilityResult) && createAppVisibilityGivesObject) {
    *object = new AppVisibilityObject(*this);
  }
  return createAppVisibilityResult;
}

HRESULT FakePlatform::RoInitialize(int initType) {
  Record("RoInitialize", Arg(static_cast<DWORD>(initType)));
  if (Inject()) { return E_OUTOFMEMORY; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return roInitializeResult;
}

void FakePlatform::RoUninitialize() { Record("RoUninitialize", ""); }

class FakePlatform::PackageIteratorObject final : public platform::PackageIterator {
 public:
  PackageIteratorObject(FakePlatform& owner, std::vector<FakePackage*> packages)
      : owner_(owner), packages_(std::move(packages)) {
    ++owner_.deploymentObjectsAlive;
  }
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    owner_.Record("get_HasCurrent", "");
    *hasCurrent = next_ < packages_.size() ? 1 : 0;
    return S_OK;
  }
  HRESULT GetCurrent(platform::Package** package) override {
    owner_.Record("get_Current", "");
    if (next_ >= packages_.size()) return E_FAIL;
    if (owner_.GivesNoObject("get_Current")) { *package = nullptr; return S_OK; }
    packages_[next_]->AddRef();
    *package = packages_[next_];
    Handle eventToSet = nullptr;
    {
      std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
      if (++owner_.packagesHandedOut_ == owner_.setEventAfterPackages) eventToSet = owner_.eventToSet;
    }
    if (eventToSet != nullptr) owner_.SetEvent(eventToSet);
    return S_OK;
  }
  HRESULT MoveNext(BOOL* hasCurrent) override {
    owner_.Record("MoveNext", "");
    ++next_;
    *hasCurrent = next_ < packages_.size() ? 1 : 0;
    return S_OK;
  }
  void Release() override {
    owner_.Record("Release", "PackageIterator");
    --owner_.deploymentObjectsAlive;
    delete this;
  }

 private:
  ~PackageIteratorObject() override = default;
  FakePlatform& owner_;
  std::vector<FakePackage*> packages_;
  std::size_t next_ = 0;
};

class FakePlatform::PackageCollectionObject final : public platform::PackageCollection {
 public:
  PackageCollectionObject(FakePlatform& owner, std::vector<FakePackage*> packages)
      : owner_(owner), packages_(std::move(packages)) {
    ++owner_.deploymentObjectsAlive;
  }
  HRESULT First(platform::PackageIterator** iterator) override {
    owner_.Record("First", "");
    if (owner_.GivesNoObject("First")) { *iterator = nullptr; return S_OK; }
    *iterator = new PackageIteratorObject(owner_, packages_);
    return S_OK;
  }
  void Release() override {
    owner_.Record("Release", "PackageCollection");
    --owner_.deploymentObjectsAlive;
    delete this;
  }

 private:
  ~PackageCollectionObject() override = default;
  FakePlatform& owner_;
  std::vector<FakePackage*> packages_;
};

class FakePlatform::PackageManagerObject final : public platform::DeploymentPackageManager {
 public:
  explicit PackageManagerObject(FakePlatform& owner) : owner_(owner) { ++owner_.deploymentObjectsAlive; }
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
  void Release() override {
    owner_.Record("Release", "PackageManager");
    --owner_.deploymentObjectsAlive;
    delete this;
  }

 private:
  ~PackageManagerObject() override = default;
  HRESULT Find(const WCHAR* sid, const WCHAR* familyName, platform::PackageCollection** packages) {
    *packages = nullptr;
    std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
    if (Failed(owner_.findPackagesResult)) return owner_.findPackagesResult;
    if (owner_.GivesNoObject("FindPackagesByUserSecurityId...")) return S_OK;
    std::vector<FakePackage*> found;
    for (const auto& entry : owner_.deployed) {
      if (entry.userSid != sid) continue;
      if (familyName != nullptr && entry.package->StoredFamilyName() != familyName) continue;  // exact, as the service compares
      found.push_back(entry.package);
    }
    *packages = new PackageCollectionObject(owner_, std::move(found));
    return S_OK;
  }
  FakePlatform& owner_;
};

HRESULT FakePlatform::ActivatePackageManager(platform::DeploymentPackageManager** manager) {
  Record("RoActivateInstance", "Windows.Management.Deployment.PackageManager");
  if (Inject()) { *manager = nullptr; return E_OUTOFMEMORY; }
  *manager = nullptr;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Failed(activatePackageManagerResult)) return activatePackageManagerResult;
  if (GivesNoObject("RoActivateInstance")) return S_OK;
  *manager = new PackageManagerObject(*this);
  return S_OK;
}

WString FakePlatform::DescribeError(HRESULT error) {
  return FormatWide(u"runtime error 0x%08X", {error});
}

class FakePlatform::ActivationManagerObject final : public platform::ApplicationActivationManager {
 public:
  explicit ActivationManagerObject(FakePlatform& owner) : owner_(owner) { ++owner_.activationObjectsAlive; }
  HRESULT ActivateApplication(const WCHAR* id, const WCHAR* arguments, int options, DWORD* processId) override {
    owner_.Record("ActivateApplication", Arg(id) + ", " + Arg(arguments) + ", " + Arg(static_cast<DWORD>(options)));
    if (processId != nullptr) *processId = 4711;
    std::lock_guard<std::recursive_mutex> lock(owner_.mutex_);
    return owner_.activateResult;
  }
  void Release() override {
    owner_.Record("Release", "ApplicationActivationManager");
    --owner_.activationObjectsAlive;
    delete this;
  }

 private:
  ~ActivationManagerObject() override = default;
  FakePlatform& owner_;
};

HRESULT FakePlatform::CreateApplicationActivationManager(DWORD context, platform::ApplicationActivationManager** manager) {
  Record("CoCreateInstance", "{45BA127D-10A8-46EA-8AB7-56EA9078943C}, null, " + Arg(context) +
                                 ", {2E941141-7F97-4756-BA1D-9DECDE894A3D}");
  if (Inject()) { *manager = nullptr; return E_OUTOFMEMORY; }
  *manager = nullptr;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Succeeded(createActivationManagerResult) && createActivationManagerGivesObject) {
    *manager = new ActivationManagerObject(*this);
  }
  return createActivationManagerResult;
}

HRESULT FakePlatform::CoAllowSetForegroundWindow(platform::ApplicationActivationManager*) {
  Record("CoAllowSetForegroundWindow", "");
  if (Inject()) { return static_cast<HRESULT>(0x80070005u); }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return allowForegroundResult;
}

BOOL FakePlatform::GetUserName(WCHAR* buffer, DWORD* size) {
  Record("GetUserName", Arg(*size));
  if (Inject()) { return 0; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (userName.size() + 1 > *size) return 0;
  std::memcpy(buffer, userName.c_str(), (userName.size() + 1) * 2);
  *size = static_cast<DWORD>(userName.size() + 1);
  return 1;
}

BOOL FakePlatform::LookupAccountName(const WCHAR*, const WCHAR* accountName, void* sid, DWORD* sidSize, WCHAR* domain,
                                     DWORD* domainSize) {
  Record("LookupAccountName", Arg(accountName) + ", " + Arg(*sidSize) + ", " + Arg(*domainSize));
  if (Inject()) { return 0; }
  constexpr DWORD kSidSize = 28;
  constexpr char16_t kDomain[] = u"KELPC";
  if (sid == nullptr || *sidSize < kSidSize || domain == nullptr || *domainSize < 6) {
    *sidSize = kSidSize;
    *domainSize = 6;
    return 0;
  }
  std::memset(sid, 0x5A, kSidSize);
  std::memcpy(domain, kDomain, sizeof(kDomain));
  return 1;
}

BOOL FakePlatform::ConvertSidToStringSid(void*, WCHAR** stringSid) {
  Record("ConvertSidToStringSid", "");
  if (Inject()) { *stringSid = nullptr; return 0; }
  WString sid;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    sid = userSid;
  }
  auto* text = static_cast<WCHAR*>(LocalAlloc(platform::LPTR, (sid.size() + 1) * 2));
  if (text == nullptr) return 0;
  std::memcpy(text, sid.c_str(), (sid.size() + 1) * 2);
  *stringSid = text;
  return 1;
}

HRESULT FakePlatform::SHLoadIndirectString(const WCHAR* source, WCHAR* buffer, UINT capacity) {
  Record("SHLoadIndirectString", Arg(source) + ", " + Arg(capacity));
  if (Inject()) { return E_FAIL; }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = indirectStrings.find(source);
  if (it == indirectStrings.end()) return E_FAIL;
  const std::size_t n = std::min<std::size_t>(it->second.size(), capacity - 1);
  std::memcpy(buffer, it->second.data(), n * 2);
  buffer[n] = 0;
  return S_OK;
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
