// kelcli's commands: each names one export (or `info`), takes its arguments
// from the command line and becomes a call to run once every command has
// been read.
#pragma once

#include <windows.h>

#include <cerrno>
#include <cwctype>
#include <functional>
#include <string>

#include "library.h"

namespace kelcli {

// One call, ready to run: answers false when the call failed.
using Call = std::function<bool(const Library&)>;

struct UsageError {
  std::wstring message;
};

// The command line being parsed.
class Arguments {
 public:
  Arguments(LPWSTR* argv, int argc) : argv_(argv), argc_(argc) {}

  [[nodiscard]] bool Done() const { return next_ >= argc_; }
  [[nodiscard]] std::wstring Peek() const { return Done() ? std::wstring() : argv_[next_]; }

  std::wstring Take(const wchar_t* command, const wchar_t* what) {
    if (Done()) throw UsageError{std::wstring(command) + L": missing " + what};
    return argv_[next_++];
  }

  // A 32-bit number, decimal or 0x hexadecimal, negative values allowed so
  // that out-of-range modes such as -1 can be tried.
  unsigned long TakeNumber(const wchar_t* command, const wchar_t* what) {
    std::wstring text = Take(command, what);
    size_t at = 0;
    bool negative = text.compare(0, 1, L"-") == 0;
    if (negative) at = 1;
    int base = 10;
    if (text.compare(at, 2, L"0x") == 0 || text.compare(at, 2, L"0X") == 0) {
      base = 16;
      at += 2;
    }
    const wchar_t* digits = text.c_str() + at;
    // wcstoull alone would also take leading blanks and a sign.
    bool valid = base == 16 ? iswxdigit(*digits) != 0 : iswdigit(*digits) != 0;
    unsigned long long magnitude = 0;
    if (valid) {
      wchar_t* end = nullptr;
      errno = 0;
      magnitude = wcstoull(digits, &end, base);
      valid = *end == L'\0' && errno == 0 && magnitude <= (negative ? 0x80000000ULL : 0xFFFFFFFFULL);
    }
    if (!valid)
      throw UsageError{std::wstring(command) + L": " + what + L" must be a 32-bit number, not \"" + text + L"\""};
    return static_cast<unsigned long>(negative ? 0ULL - magnitude : magnitude);
  }

 private:
  LPWSTR* argv_;
  int argc_;
  int next_ = 1;
};

// The next command and its arguments, as a call; throws UsageError.
Call ParseCommand(Arguments& args);

// One line per command with its arguments.
std::wstring Usage();

// Every command with what it calls and does, for --help.
std::wstring Help();

}  // namespace kelcli
