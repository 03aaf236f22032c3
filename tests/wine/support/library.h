// The library under test, loaded from the path a test program is given.
#pragma once

#include "support/windows_headers.h"

#include <string>

#include "support/failure.h"
#include "support/text.h"

namespace wine_test {

// ---------------------------------------------------------------------------
// The library under test

// Loaded once per test and never unloaded: a refresh thread that outlived
// KelFinalize must not find its code gone; the process ends soon anyway.
class Library {
 public:
  explicit Library(const std::wstring& path) {
    module_ = LoadLibraryW(path.c_str());
    if (module_ == nullptr)
      Fail(Format("LoadLibraryW(%s) failed with error %lu", Narrow(path).c_str(), GetLastError()));
  }

  [[nodiscard]] HMODULE Module() const { return module_; }

  template <typename Function>
  Function get(const char* name) const {
    FARPROC address = GetProcAddress(module_, name);
    if (address == nullptr) Fail(Format("GetProcAddress(%s) failed", name));
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
  }

 private:
  HMODULE module_ = nullptr;
};

// KEL(lib, KelInitialize) gives the export typed like its declaration in Kelbrook.h.
#define KEL(lib, name) ((lib).get<decltype(&(name))>(#name))

}  // namespace wine_test
