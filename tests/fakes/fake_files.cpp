// The fake's file system: paths compare without regard to ASCII case, and
// searches match 8.3 short names too, as on Windows.
#include "fakes/fake_platform.h"

#include <cstring>
#include <utility>

#include "fakes/fake_arguments.h"
#include "frame/wide.h"
#include "text/xml/xml_reader.h"

namespace kel::fakes {

namespace {

// Wildcard match of '*' and '?' without regard to ASCII case.
bool Matches(const char16_t* pattern, const char16_t* name) {
  if (*pattern == 0) return *name == 0;
  if (*pattern == u'*') return Matches(pattern + 1, name) || (*name != 0 && Matches(pattern, name + 1));
  if (*name == 0) return false;
  if (*pattern != u'?' && AsciiLower(*pattern) != AsciiLower(*name)) return false;
  return Matches(pattern + 1, name + 1);
}

}  // namespace

void FakePlatform::AddDirectory(const WString& path) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  WString key = Key(path);
  while (!key.empty() && key.size() > 2) {
    auto& node = files_[key];
    node.directory = true;
    if (node.displayPath.empty()) node.displayPath = path.substr(0, key.size());
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

Handle FakePlatform::CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) {
  Record("CreateFile",
         Arg(path) + ", " + Hex(access) + ", " + Arg(share) + ", " + Arg(disposition) + ", " + Hex(attributes));
  if (Inject()) {
    lastError_ = ERROR_ACCESS_DENIED;
    return platform::InvalidHandleValue();
  }
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
  if (Inject()) {
    return platform::INVALID_SET_FILE_POINTER;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = openFiles_.find(file);
  if (it == openFiles_.end()) return platform::INVALID_SET_FILE_POINTER;
  const std::size_t size = files_[it->second.key].bytes.size();
  it->second.position = method == platform::FILE_END ? size + distance : static_cast<std::size_t>(distance);
  return static_cast<DWORD>(it->second.position);
}

BOOL FakePlatform::WriteFile(Handle file, const void* data, DWORD length, DWORD* written) {
  Record("WriteFile", std::string(static_cast<const char*>(data), length));
  if (Inject()) {
    if (written != nullptr) *written = 0;
    return 0;
  }
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

DWORD FakePlatform::GetFileAttributes(const WCHAR* path) {
  Record("GetFileAttributes", Arg(path));
  if (Inject()) {
    return platform::INVALID_FILE_ATTRIBUTES;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = files_.find(Key(path));
  if (it == files_.end()) return platform::INVALID_FILE_ATTRIBUTES;
  return it->second.directory ? platform::FILE_ATTRIBUTE_DIRECTORY : platform::FILE_ATTRIBUTE_NORMAL;
}

BOOL FakePlatform::PathFileExists(const WCHAR* path) {
  Record("PathFileExists", Arg(path));
  if (Inject()) {
    return 0;
  }
  return Exists(path) ? 1 : 0;
}

int FakePlatform::SHCreateDirectoryEx(const WCHAR* path) {
  Record("SHCreateDirectoryEx", Arg(path));
  if (Inject()) {
    return ERROR_ACCESS_DENIED;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Exists(path)) return ERROR_ALREADY_EXISTS;
  AddDirectory(path);
  return 0;
}

HRESULT FakePlatform::ReadFileBytes(const WCHAR* path, std::string& bytes) {
  Record("ReadFileBytes", Arg(path));
  if (Inject()) {
    return HresultFromWin32(ERROR_ACCESS_DENIED);
  }
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
  if (Inject()) {
    return HresultFromWin32(112);
  }
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
  if (Inject()) {
    lastError_ = ERROR_ACCESS_DENIED;
    return platform::InvalidHandleValue();
  }
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
    search.attributes.push_back(node.directory ? platform::FILE_ATTRIBUTE_DIRECTORY : platform::FILE_ATTRIBUTE_NORMAL);
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
  if (Inject()) {
    lastError_ = ERROR_ACCESS_DENIED;
    return 0;
  }
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

}  // namespace kel::fakes
