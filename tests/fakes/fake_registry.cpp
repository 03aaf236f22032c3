// The fake's registry under HKEY_CURRENT_USER: key and value names compare
// without regard to case, and a key opened without KEY_SET_VALUE cannot be
// written.
#include "fakes/fake_platform.h"

#include <algorithm>
#include <cstring>

#include "fakes/fake_arguments.h"
#include "frame/wide.h"

namespace kel::fakes {

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

LONG FakePlatform::RegOpenKeyEx(platform::RootKey, const WCHAR* subKey, DWORD options, DWORD access, Handle* key) {
  Record("RegOpenKeyEx", "HKCU\\" + Arg(subKey) + ", " + Arg(options) + ", " + Hex(access));
  if (Inject()) {
    return ERROR_ACCESS_DENIED;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (registry_.count(Key(subKey)) == 0) return ERROR_FILE_NOT_FOUND;
  *key = NewHandle();
  openKeys_[*key] = {Key(subKey), access};
  return ERROR_SUCCESS;
}

LONG FakePlatform::RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data, DWORD* size) {
  Record("RegQueryValueEx", Arg(name) + ", " + Arg(size == nullptr ? 0 : *size));
  if (Inject()) {
    return ERROR_ACCESS_DENIED;
  }
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
  if (data != nullptr) std::copy_n(it->second.bytes.data(), needed, data);
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
  if (Inject()) {
    return ERROR_ACCESS_DENIED;
  }
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
  if (Inject()) {
    return ERROR_ACCESS_DENIED;
  }
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

}  // namespace kel::fakes
