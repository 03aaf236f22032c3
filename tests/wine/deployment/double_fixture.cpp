#include "double_fixture.h"

#include <sddl.h>

#include <cwchar>
#include <cwctype>

namespace deployment_double {
namespace {

bool SameIgnoringCase(const std::wstring& a, const wchar_t* b) {
  const std::size_t length = wcslen(b);
  if (a.size() != length) return false;
  for (std::size_t i = 0; i < length; ++i) {
    if (towlower(a[i]) != towlower(b[i])) return false;
  }
  return true;
}

std::wstring Trimmed(const std::wstring& text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && iswspace(text[begin])) ++begin;
  while (end > begin && iswspace(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

std::wstring FromUtf8(const std::string& bytes) {
  if (bytes.empty()) return std::wstring();
  const int length = MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
  std::wstring text(length > 0 ? length : 0, L'\0');
  if (length > 0) MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), &text[0], length);
  return text;
}

std::string ToUtf8(const std::wstring& text) {
  if (text.empty()) return std::string();
  const int length =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string bytes(length > 0 ? length : 0, '\0');
  if (length > 0) {
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &bytes[0], length, nullptr, nullptr);
  }
  return bytes;
}

bool ReadWholeFile(const std::wstring& path, std::string& bytes) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  bytes.clear();
  char chunk[4096];
  DWORD read = 0;
  bool ok = true;
  for (;;) {
    if (!ReadFile(file, chunk, sizeof chunk, &read, nullptr)) {
      ok = false;
      break;
    }
    if (read == 0) break;
    bytes.append(chunk, read);
  }
  CloseHandle(file);
  return ok;
}

std::wstring EnvironmentValue(const wchar_t* name) {
  const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
  if (size == 0) return std::wstring();
  std::wstring value(size, L'\0');
  const DWORD length = GetEnvironmentVariableW(name, &value[0], size);
  if (length == 0 || length >= size) return std::wstring();
  value.resize(length);
  return value;
}

}  // namespace

std::wstring FixtureSection::Get(const wchar_t* key, const std::wstring& fallback) const {
  for (const auto& entry : values) {
    if (SameIgnoringCase(entry.first, key)) return entry.second;
  }
  return fallback;
}

bool FixtureSection::Has(const wchar_t* key) const {
  for (const auto& entry : values) {
    if (SameIgnoringCase(entry.first, key)) return true;
  }
  return false;
}

std::vector<const FixtureSection*> Fixture::All(const wchar_t* name) const {
  std::vector<const FixtureSection*> found;
  for (const FixtureSection& section : sections) {
    if (SameIgnoringCase(section.name, name)) found.push_back(&section);
  }
  return found;
}

const FixtureSection* Fixture::First(const wchar_t* name) const {
  for (const FixtureSection& section : sections) {
    if (SameIgnoringCase(section.name, name)) return &section;
  }
  return nullptr;
}

Fixture LoadFixture() {
  Fixture fixture;
  fixture.path = EnvironmentValue(kFixtureVariable);
  if (fixture.path.empty()) return fixture;
  std::string bytes;
  if (!ReadWholeFile(fixture.path, bytes)) return fixture;
  if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) bytes.erase(0, 3);
  const std::wstring text = FromUtf8(bytes);
  fixture.loaded = true;

  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(L'\n', start);
    if (end == std::wstring::npos) end = text.size();
    const std::wstring line = Trimmed(text.substr(start, end - start));
    start = end + 1;
    if (line.empty() || line[0] == L';' || line[0] == L'#') continue;
    if (line.front() == L'[' && line.back() == L']') {
      fixture.sections.push_back(FixtureSection{Trimmed(line.substr(1, line.size() - 2)), {}});
      continue;
    }
    const std::size_t equals = line.find(L'=');
    if (equals == std::wstring::npos || fixture.sections.empty()) continue;
    fixture.sections.back().values.emplace_back(Trimmed(line.substr(0, equals)), Trimmed(line.substr(equals + 1)));
  }
  return fixture;
}

void Journal(const Fixture& fixture, const std::wstring& line) {
  const FixtureSection* doubles = fixture.First(L"Doubles");
  if (doubles == nullptr) return;
  const std::wstring path = doubles->Get(L"Journal");
  if (path.empty()) return;
  const std::string bytes = ToUtf8(line) + "\n";
  // Append-only access puts every line at the end of the file as it is then,
  // whichever thread or process writes it.
  HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  DWORD written = 0;
  WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
}

unsigned long ParseNumber(const std::wstring& text, unsigned long fallback) {
  if (text.empty()) return fallback;
  wchar_t* end = nullptr;
  const unsigned long value = wcstoul(text.c_str(), &end, 0);
  if (end == text.c_str() || *end != L'\0') return fallback;
  return value;
}

std::wstring Hex(unsigned long value) {
  wchar_t text[16];
  swprintf(text, 16, L"0x%08lX", value);
  return text;
}

std::wstring CurrentUserSid() {
  wchar_t user[260] = {};
  DWORD userSize = 260;
  if (!GetUserNameW(user, &userSize)) return std::wstring();
  DWORD sidSize = 0;
  DWORD domainSize = 0;
  SID_NAME_USE use;
  LookupAccountNameW(nullptr, user, nullptr, &sidSize, nullptr, &domainSize, &use);
  if (sidSize == 0) return std::wstring();
  std::vector<BYTE> sid(sidSize);
  std::wstring domain(domainSize + 1, L'\0');
  if (!LookupAccountNameW(nullptr, user, sid.data(), &sidSize, &domain[0], &domainSize, &use)) return std::wstring();
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(sid.data(), &text)) return std::wstring();
  std::wstring result = text;
  LocalFree(text);
  return result;
}

bool SameSid(const std::wstring& a, const std::wstring& b) {
  PSID first = nullptr;
  PSID second = nullptr;
  bool same = false;
  if (ConvertStringSidToSidW(a.c_str(), &first) && ConvertStringSidToSidW(b.c_str(), &second)) {
    same = EqualSid(first, second) != FALSE;
  }
  if (first != nullptr) LocalFree(first);
  if (second != nullptr) LocalFree(second);
  return same;
}

}  // namespace deployment_double
