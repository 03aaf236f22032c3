// The DLL as a host loads it: from KELBROOK_DLL or kelcli's own folder,
// with each export looked up by name when a command needs it.
#pragma once

#include <windows.h>

#include <string>

#include "console.h"

namespace kelcli {

class Library {
 public:
  bool Load(std::wstring& error) {
    std::wstring path = DllPath();
    wchar_t full[MAX_PATH];
    DWORD length = GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr);
    if (length > 0 && length < MAX_PATH) path = full;
    module_ = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (module_ == nullptr) {
      error = L"kelcli: cannot load " + path + L" (error " + std::to_wstring(GetLastError()) + L")\n";
      return false;
    }
    return true;
  }

  // The export, or null (after saying so) when the DLL does not have it.
  template <typename Function>
  Function get(const char* name) const {
    FARPROC address = GetProcAddress(module_, name);
    if (address == nullptr) Write(Widen(name) + L" -> not exported\n");
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
  }

  [[nodiscard]] HMODULE Module() const { return module_; }

 private:
  static std::wstring DllPath() {
    DWORD size = GetEnvironmentVariableW(L"KELBROOK_DLL", nullptr, 0);
    if (size > 1) {
      std::wstring value(size, L'\0');
      DWORD length = GetEnvironmentVariableW(L"KELBROOK_DLL", &value[0], size);
      if (length > 0 && length < size) {
        value.resize(length);
        return value;
      }
    }
    std::wstring self(MAX_PATH, L'\0');
    for (;;) {
      DWORD length = GetModuleFileNameW(nullptr, &self[0], static_cast<DWORD>(self.size()));
      if (length == 0) return L"Kelbrook.dll";
      if (length < self.size()) {
        self.resize(length);
        break;
      }
      self.resize(self.size() * 2);
    }
    size_t slash = self.find_last_of(L"\\/");
    return (slash == std::wstring::npos ? std::wstring() : self.substr(0, slash + 1)) + L"Kelbrook.dll";
  }

  HMODULE module_ = nullptr;
};

#define KEL(lib, name) ((lib).get<decltype(&(name))>(#name))

}  // namespace kelcli
