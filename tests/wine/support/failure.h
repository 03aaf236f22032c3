// How a Wine test fails: a check throws TestFailure, which the runner turns
// into the FAIL line with the detail under it.
#pragma once

#include "support/windows_headers.h"

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>

namespace wine_test {

// ---------------------------------------------------------------------------
// Failure reporting

// Thrown by a failed check: the reason goes on the FAIL line, the detail
// under it.
struct TestFailure {
  std::string reason;
  std::string detail;  // may be empty
};

inline std::string Format(const char* fmt, ...) {
  char buffer[4096];
  va_list args;
  va_start(args, fmt);
  vsnprintf(buffer, sizeof buffer, fmt, args);
  va_end(args);
  return buffer;
}

[[noreturn]] inline void Fail(const std::string& reason, const std::string& detail = std::string()) {
  throw TestFailure{reason, detail};
}

inline std::string Hex(HRESULT value) { return Format("0x%08lX", static_cast<unsigned long>(value)); }

// `detail`, when given, is asked for only when the check fails.
inline void ExpectResult(HRESULT actual, HRESULT expected, const std::string& call,
                         const std::function<std::string()>& detail = nullptr) {
  if (actual != expected) {
    Fail(call + " returned " + Hex(actual) + ", expected " + Hex(expected), detail ? detail() : std::string());
  }
}

}  // namespace wine_test
