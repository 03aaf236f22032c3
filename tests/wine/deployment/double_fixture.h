// What the test doubles share: the fixture file that tells them what to
// answer, the journal they record every call in, and the current user's SID.
//
// The fixture file is named by the environment variable KEL_DEPLOYMENT_FIXTURE
// of the process the doubles are loaded into. It is read afresh on every call,
// so a test may change it between calls. Without the variable (or with a file
// that cannot be read) the doubles know no packages and no applications and
// record nothing. Format: docs/wine-doubles.md.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace deployment_double {

inline constexpr wchar_t kFixtureVariable[] = L"KEL_DEPLOYMENT_FIXTURE";

// One [Section] of the fixture file with its key=value lines, in file order.
struct FixtureSection {
  std::wstring name;
  std::vector<std::pair<std::wstring, std::wstring>> values;

  // The value of the first line with this key (ignoring case), or `fallback`.
  std::wstring Get(const wchar_t* key, const std::wstring& fallback = std::wstring()) const;
  bool Has(const wchar_t* key) const;
};

struct Fixture {
  bool loaded = false;  // a fixture file was named and read
  std::wstring path;    // the file it came from
  std::vector<FixtureSection> sections;

  // The sections with this name (ignoring case), in file order.
  std::vector<const FixtureSection*> All(const wchar_t* name) const;
  // The first section with this name, or null.
  const FixtureSection* First(const wchar_t* name) const;
};

// Reads the fixture named by KEL_DEPLOYMENT_FIXTURE (UTF-8, with or without a
// byte order mark; lines starting with ";" or "#" are comments).
Fixture LoadFixture();

// Appends one line (UTF-8, "\n"-terminated) to the journal the fixture names
// in [Doubles] Journal=; does nothing without one. Safe from any thread and
// process: the file is opened for appending for each line.
void Journal(const Fixture& fixture, const std::wstring& line);

// A number written in decimal or as 0x... hexadecimal; `fallback` when the
// text is empty or not a number.
unsigned long ParseNumber(const std::wstring& text, unsigned long fallback);

// "0x%08X".
std::wstring Hex(unsigned long value);

// The current user's SID in string form, found the way a caller of the
// deployment service finds it (GetUserNameW, LookupAccountNameW,
// ConvertSidToStringSidW); empty when any of these fails.
std::wstring CurrentUserSid();

// True when both strings are well-formed SIDs naming the same account.
bool SameSid(const std::wstring& a, const std::wstring& b);

}  // namespace deployment_double
