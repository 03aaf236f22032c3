// kelcli's output: UTF-8 (wide text on a console), and the words it uses
// for results.
#pragma once

#include <windows.h>

#include <string>

namespace kelcli {

void Write(const std::wstring& text);
void WriteError(const std::wstring& text);
std::wstring Widen(const char* text);
// "0x%08X".
std::wstring Hex(HRESULT value);
// The name of a result the library returns, or "HRESULT".
const wchar_t* ResultName(HRESULT value);
// A label and its value, the values lined up in one column.
void Line(const std::wstring& label, const std::wstring& value);

}  // namespace kelcli
