#include "console.h"

#include <cstring>
#include <cwchar>

namespace kelcli {

namespace {

// Wide text on a console, UTF-8 anywhere else (a pipe, a file).
void WriteTo(DWORD which, const std::wstring& text) {
  HANDLE out = GetStdHandle(which);
  if (out == nullptr || out == INVALID_HANDLE_VALUE) return;
  DWORD mode = 0;
  DWORD written = 0;
  if (GetConsoleMode(out, &mode)) {
    WriteConsoleW(out, text.c_str(), static_cast<DWORD>(text.size()), &written, nullptr);
    return;
  }
  int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return;
  std::string utf8(bytes, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &utf8[0], bytes, nullptr, nullptr);
  WriteFile(out, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
}

}  // namespace

void Write(const std::wstring& text) { WriteTo(STD_OUTPUT_HANDLE, text); }

void WriteError(const std::wstring& text) { WriteTo(STD_ERROR_HANDLE, text); }

std::wstring Widen(const char* text) { return std::wstring(text, text + strlen(text)); }

std::wstring Hex(HRESULT value) {
  wchar_t buffer[16];
  swprintf(buffer, 16, L"0x%08lX", static_cast<unsigned long>(value));
  return buffer;
}

const wchar_t* ResultName(HRESULT value) {
  struct Named {
    unsigned long value;
    const wchar_t* name;
  };
  static constexpr Named kNames[] = {
      {0x00000000UL, L"S_OK"},
      {0x00000001UL, L"S_FALSE"},
      {0x80004003UL, L"E_POINTER"},
      {0x80070057UL, L"E_INVALIDARG"},
      {0x80004005UL, L"E_FAIL"},
      {0x8007000EUL, L"E_OUTOFMEMORY"},
      {0x80004001UL, L"E_NOTIMPL"},
      {0xA0000001UL, L"E_KEL_PACKAGE_NOT_FOUND"},
      {0xA0000002UL, L"E_KEL_MULTIPLE_APPLICATIONS"},
      {0xA0000003UL, L"E_KEL_DISPLAY_NAME_FAILED"},
  };
  for (const Named& named : kNames) {
    if (named.value == static_cast<unsigned long>(value)) return named.name;
  }
  return L"HRESULT";
}

// A label and its value, the values lined up in one column.
void Line(const std::wstring& label, const std::wstring& value) {
  std::wstring text = label + L":";
  if (text.size() < 25)
    text.resize(25, L' ');
  else
    text += L' ';
  Write(text + value + L"\n");
}

}  // namespace kelcli
