// kelcli selftest: the library checked on this machine as a host would use
// it, one line per check, with an optional report for a bug.
#pragma once

#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include "console.h"

namespace kelcli {

struct SelfTestOptions {
  bool intrusive = false;
  std::wstring url;  // for the protocol launch, with --intrusive
  std::wstring reportPath;
};

struct CheckLine {
  const wchar_t* status;  // PASS, FAIL or INFO
  std::wstring name;
  std::wstring expected;
  std::wstring seen;
  ULONGLONG milliseconds;
};

class SelfTest {
 public:
  // Prints the line at once, so that an operator watching sees progress.
  void Add(const wchar_t* status, const std::wstring& name, const std::wstring& expected, const std::wstring& seen,
           ULONGLONG milliseconds) {
    checks_.push_back({status, name, expected, seen, milliseconds});
    Write(Format(checks_.back()) + L"\n");
  }
  void Check(bool passed, const std::wstring& name, const std::wstring& expected, const std::wstring& seen,
             ULONGLONG milliseconds) {
    Add(passed ? L"PASS" : L"FAIL", name, expected, seen, milliseconds);
  }

  static std::wstring Format(const CheckLine& check) {
    std::wstring name = check.name;
    if (name.size() < 34) name.resize(34, L' ');
    return std::wstring(check.status) + L"  " + name + L" expected: " + check.expected + L"; seen: " + check.seen +
           L" (" + std::to_wstring(check.milliseconds) + L" ms)";
  }

  [[nodiscard]] const std::vector<CheckLine>& Checks() const { return checks_; }
  unsigned Count(const wchar_t* status) const {
    unsigned n = 0;
    for (const CheckLine& check : checks_) n += wcscmp(check.status, status) == 0 ? 1 : 0;
    return n;
  }

 private:
  std::vector<CheckLine> checks_;
};

// Milliseconds since `start`.
inline ULONGLONG Since(ULONGLONG start) { return GetTickCount64() - start; }

inline const wchar_t* OwnArchitecture() { return sizeof(void*) == 8 ? L"x64" : L"x86"; }

// Runs every check in order and answers the exit code: 0 when none failed.
int RunSelfTest(const SelfTestOptions& options);

}  // namespace kelcli
