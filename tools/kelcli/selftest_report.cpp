#include "selftest_report.h"

#include <cwchar>

#include "console.h"

namespace kelcli {

std::string ToUtf8(const std::wstring& text) {
  if (text.empty()) return std::string();
  int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return std::string();
  std::string utf8(bytes, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &utf8[0], bytes, nullptr, nullptr);
  return utf8;
}

// The log's bytes as text: UTF-16 with its byte order mark, else UTF-8 when
// they are valid UTF-8, else the ANSI code page.
std::wstring DecodeLog(const std::string& bytes) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    std::wstring text((bytes.size() - 2) / 2, L'\0');
    memcpy(&text[0], bytes.data() + 2, text.size() * 2);
    return text;
  }
  for (UINT codePage : {static_cast<UINT>(CP_UTF8), static_cast<UINT>(CP_ACP)}) {
    DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
    int length = MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
    if (length <= 0) continue;
    std::wstring text(length, L'\0');
    MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), &text[0], length);
    return text;
  }
  return std::wstring();
}

// Every occurrence of `from` (ignoring case) replaced by `to`.
std::wstring ReplaceAll(const std::wstring& text, const std::wstring& from, const std::wstring& to) {
  if (from.empty()) return text;
  std::wstring lowerText = text;
  std::wstring lowerFrom = from;
  for (wchar_t& c : lowerText) c = static_cast<wchar_t>(towlower(c));
  for (wchar_t& c : lowerFrom) c = static_cast<wchar_t>(towlower(c));
  std::wstring result;
  size_t at = 0;
  for (size_t found; (found = lowerText.find(lowerFrom, at)) != std::wstring::npos; at = found + from.size())
    result += text.substr(at, found - at) + to;
  return result + text.substr(at);
}

// A report names no user: the profile folder, which carries the account
// name, is written as %USERPROFILE%. The SID stays, as in the log itself.
std::wstring WithoutUser(const std::wstring& text) {
  std::wstring profile;
  if (!EnvironmentVariable(L"USERPROFILE", profile) || profile.size() < 4) return text;
  return ReplaceAll(text, profile, L"%USERPROFILE%");
}

// The escape JSON has for a character of a string, or null when it stands
// as it is.
const wchar_t* JsonShortEscape(wchar_t c) {
  struct Escape {
    wchar_t character;
    const wchar_t* text;
  };
  static constexpr Escape kEscapes[] = {
      {L'"', L"\\\""}, {L'\\', L"\\\\"}, {L'\n', L"\\n"}, {L'\r', L"\\r"}, {L'\t', L"\\t"},
  };
  for (const Escape& escape : kEscapes) {
    if (escape.character == c) return escape.text;
  }
  return nullptr;
}

std::wstring JsonString(const std::wstring& text) {
  std::wstring result = L"\"";
  for (wchar_t c : text) {
    if (const wchar_t* escape = JsonShortEscape(c)) {
      result += escape;
    } else if (c < 0x20) {
      wchar_t escaped[8];
      swprintf(escaped, 8, L"\\u%04X", static_cast<unsigned>(c));
      result += escaped;
    } else {
      result += c;
    }
  }
  return result + L"\"";
}

bool WriteWholeFile(const std::wstring& path, const std::string& bytes, std::wstring& error) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    error = L"cannot create " + path + L" (error " + std::to_wstring(GetLastError()) + L")";
    return false;
  }
  DWORD written = 0;
  bool ok =
      WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) && written == bytes.size();
  if (!ok) error = L"cannot write " + path + L" (error " + std::to_wstring(GetLastError()) + L")";
  CloseHandle(file);
  return ok;
}

// What the report says about where and when it was made.
struct ReportHeading {
  std::wstring machine;
  std::wstring time;        // 2026-11-23 14:05:09
  std::wstring timeInName;  // 20261123-140509
};

ReportHeading MakeReportHeading() {
  ReportHeading heading;
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  heading.machine = GetComputerNameW(name, &size) ? std::wstring(name, size) : L"unknown";
  SYSTEMTIME now;
  GetLocalTime(&now);
  wchar_t text[32];
  swprintf(text, 32, L"%04u-%02u-%02u %02u:%02u:%02u", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
           now.wSecond);
  heading.time = text;
  swprintf(text, 32, L"%04u%02u%02u-%02u%02u%02u", now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
           now.wSecond);
  heading.timeInName = text;
  return heading;
}

// FILE as given, or, when it names a folder, a file in it named by machine
// and time. The JSON twin is the same path ending in .json.
void ReportPaths(const std::wstring& given, const ReportHeading& heading, std::wstring& text, std::wstring& json) {
  text = given;
  const bool folder = DirectoryExists(given) || (!given.empty() && (given.back() == L'\\' || given.back() == L'/'));
  if (folder) {
    if (text.back() != L'\\' && text.back() != L'/') text += L'\\';
    text += L"kelcli-selftest-" + heading.machine + L"-" + heading.timeInName + L".txt";
  }
  const size_t slash = text.find_last_of(L"\\/");
  const size_t dot = text.rfind(L'.');
  const bool hasExtension = dot != std::wstring::npos && (slash == std::wstring::npos || dot > slash);
  json = (hasExtension ? text.substr(0, dot) : text) + L".json";
}

// The report and its JSON twin; false (with the error) when one cannot be
// written.
bool WriteReport(const std::wstring& given, const SelfTest& test, const std::wstring& log, std::wstring& error) {
  const ReportHeading heading = MakeReportHeading();
  std::wstring textPath;
  std::wstring jsonPath;
  ReportPaths(given, heading, textPath, jsonPath);

  const std::wstring summary = std::to_wstring(test.Count(L"PASS")) + L" passed, " +
                               std::to_wstring(test.Count(L"FAIL")) + L" failed, " +
                               std::to_wstring(test.Count(L"INFO")) + L" for information";
  std::wstring text = L"kelcli selftest report\r\nMachine: " + heading.machine + L"\r\nTime: " + heading.time +
                      L"\r\nkelcli: " + OwnArchitecture() + L"\r\n\r\n";
  for (const CheckLine& check : test.Checks()) text += SelfTest::Format(check) + L"\r\n";
  text += L"selftest: " + summary + L"\r\n\r\nLibrary log of the run:\r\n" + log;
  if (!log.empty() && log.back() != L'\n') text += L"\r\n";

  std::wstring json = L"{\n  \"tool\": \"kelcli selftest\",\n  \"machine\": " + JsonString(heading.machine) +
                      L",\n  \"time\": " + JsonString(heading.time) + L",\n  \"architecture\": " +
                      JsonString(OwnArchitecture()) + L",\n  \"checks\": [\n";
  for (size_t i = 0; i < test.Checks().size(); ++i) {
    const CheckLine& check = test.Checks()[i];
    json += L"    {\"status\": " + JsonString(check.status) + L", \"name\": " + JsonString(check.name) +
            L", \"expected\": " + JsonString(check.expected) + L", \"seen\": " + JsonString(WithoutUser(check.seen)) +
            L", \"milliseconds\": " + std::to_wstring(check.milliseconds) + L"}" +
            (i + 1 < test.Checks().size() ? L",\n" : L"\n");
  }
  json += L"  ],\n  \"passed\": " + std::to_wstring(test.Count(L"PASS")) + L",\n  \"failed\": " +
          std::to_wstring(test.Count(L"FAIL")) + L",\n  \"information\": " + std::to_wstring(test.Count(L"INFO")) +
          L",\n  \"log\": " + JsonString(WithoutUser(log)) + L"\n}\n";

  if (!WriteWholeFile(textPath, "\xEF\xBB\xBF" + ToUtf8(WithoutUser(text)), error) ||
      !WriteWholeFile(jsonPath, ToUtf8(json), error))
    return false;
  Write(L"report: " + textPath + L"\nreport (JSON): " + jsonPath + L"\n");
  return true;
}

}  // namespace kelcli
