// The fake's process, environment, version, code page, local heap and
// account calls.
#include "fakes/fake_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fakes/fake_arguments.h"
#include "fakes/system_answers.h"
#include "text/cp932/cp932.h"

namespace kel::fakes {

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

void FakePlatform::FailMultiByteToWideChar(bool fail) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  failMultiByte_ = fail;
}

std::size_t FakePlatform::LiveLocalAllocations() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return localAllocations_.size();
}

bool FakePlatform::GetEnvironmentVariable(const WCHAR* name, WString& value) {
  Record("GetEnvironmentVariable", Arg(name));
  if (Inject()) {
    return false;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = env_.find(name);
  if (it == env_.end()) return false;
  value = it->second;
  return true;
}

DWORD FakePlatform::ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) {
  Record("ExpandEnvironmentStrings", Arg(source));
  if (Inject()) {
    return 0;
  }
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
  if (buffer != nullptr && capacity >= needed) std::memcpy(buffer, out.c_str(), static_cast<std::size_t>(needed) * 2);
  return needed;
}

DWORD FakePlatform::GetModuleFileName(WCHAR* buffer, DWORD capacity) {
  Record("GetModuleFileName", Arg(capacity));
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (modulePath_.empty() || capacity == 0) return 0;
  const std::size_t n = std::min<std::size_t>(modulePath_.size(), capacity - 1);
  std::memcpy(buffer, modulePath_.data(), n * 2);
  buffer[n] = 0;
  return static_cast<DWORD>(n);
}

std::uint64_t FakePlatform::VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) {
  Record("VerSetConditionMask", Hex(mask) + ", " + Arg(typeBit) + ", " + Arg(condition));
  return AddVersionCondition(mask, typeBit, condition);
}

BOOL FakePlatform::VerifyVersionInfo(platform::OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) {
  Record("VerifyVersionInfo", Arg(info.dwOSVersionInfoSize) + ", " + Arg(info.dwMajorVersion) + ", " +
                                  Arg(info.dwMinorVersion) + ", " + Arg(typeMask) + ", " + Hex(conditionMask));
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return VerifyVersion(major_, minor_, info, typeMask, conditionMask);
}

int FakePlatform::MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* buffer,
                                      int capacity) {
  Record("MultiByteToWideChar", Arg(codePage) + ", " + Arg(flags) + ", " + Arg(static_cast<DWORD>(sourceLength)) +
                                    ", " + Arg(static_cast<DWORD>(capacity)));
  if (Inject()) {
    return 0;
  }
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (failMultiByte_) return 0;
  }
  if (codePage != platform::CP_SHIFT_JIS) return 0;
  return cp932::MultiByteToWide(source, sourceLength, buffer, capacity);
}

void* FakePlatform::LocalAlloc(UINT flags, std::size_t bytes) {
  Record("LocalAlloc", Arg(flags) + ", " + Arg(static_cast<DWORD>(bytes)));
  if (Inject()) {
    return nullptr;
  }
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

BOOL FakePlatform::GetUserName(WCHAR* buffer, DWORD* size) {
  Record("GetUserName", Arg(*size));
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (userName.size() + 1 > *size) return 0;
  std::memcpy(buffer, userName.c_str(), (userName.size() + 1) * 2);
  *size = static_cast<DWORD>(userName.size() + 1);
  return 1;
}

BOOL FakePlatform::LookupAccountName(const WCHAR*, const WCHAR* accountName, void* sid, DWORD* sidSize, WCHAR* domain,
                                     DWORD* domainSize) {
  Record("LookupAccountName", Arg(accountName) + ", " + Arg(*sidSize) + ", " + Arg(*domainSize));
  if (Inject()) {
    return 0;
  }
  return LookupFixedAccount(sid, sidSize, domain, domainSize);
}

BOOL FakePlatform::ConvertSidToStringSid(void*, WCHAR** stringSid) {
  Record("ConvertSidToStringSid", "");
  if (Inject()) {
    *stringSid = nullptr;
    return 0;
  }
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
  if (Inject()) {
    return E_FAIL;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto it = indirectStrings.find(source);
  if (it == indirectStrings.end()) return E_FAIL;
  const std::size_t n = std::min<std::size_t>(it->second.size(), capacity - 1);
  std::memcpy(buffer, it->second.data(), n * 2);
  buffer[n] = 0;
  return S_OK;
}

}  // namespace kel::fakes
