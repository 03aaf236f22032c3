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
  switch (static_cast<unsigned long>(value)) {
    case 0x00000000UL:
      return L"S_OK";
    case 0x00000001UL:
      return L"S_FALSE";
    case 0x80004003UL:
      return L"E_POINTER";
    case 0x80070057UL:
      return L"E_INVALIDARG";
    case 0x80004005UL:
      return L"E_FAIL";
    case 0x8007000EUL:
      return L"E_OUTOFMEMORY";
    case 0x80004001UL:
      return L"E_NOTIMPL";
    case 0xA0000001UL:
      return L"E_KEL_PACKAGE_NOT_FOUND";
    case 0xA0000002UL:
      return L"E_KEL_MULTIPLE_APPLICATIONS";
    case 0xA0000003UL:
      return L"E_KEL_DISPLAY_NAME_FAILED";
    default:
      return L"HRESULT";
  }
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
