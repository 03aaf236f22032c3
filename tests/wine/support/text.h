// Text for reports: UTF-8 from the wide strings of Windows and of the
// library, quoting, lines and indented blocks.
#pragma once

#include "support/windows_headers.h"

#include <cstddef>
#include <string>
#include <vector>

#include "support/failure.h"

namespace wine_test {

// ---------------------------------------------------------------------------
// Strings

inline std::string Narrow(const std::wstring& text) {
  if (text.empty()) return std::string();
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string result(bytes, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &result[0], bytes, nullptr, nullptr);
  return result;
}

// The library's own strings are UTF-16 in char16_t, as wchar_t is on Windows.
inline std::string Narrow(const char16_t* text) { return Narrow(std::wstring(reinterpret_cast<const wchar_t*>(text))); }

// In double quotes, line ends and tabs made visible.
inline std::string Quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '\r') {
      result += "\\r";
    } else if (c == '\n') {
      result += "\\n";
    } else if (c == '\t') {
      result += "\\t";
    } else {
      result += c;
    }
  }
  return result + "\"";
}

// The lines of a text file, without their line ends; a last line that has
// no "\n" yet (still being written) is left out.
inline std::vector<std::string> CompleteLines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) break;
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

// A titled block of lines for a failure report; with `last`, only that many
// of the last lines.
inline std::string Indented(const std::string& title, const std::vector<std::string>& lines, std::size_t last = 0) {
  std::string detail = title + ":\n";
  const std::size_t first = last != 0 && lines.size() > last ? lines.size() - last : 0;
  if (first > 0) detail += Format("  | ... (%u lines before)\n", static_cast<unsigned>(first));
  for (std::size_t i = first; i < lines.size(); ++i) detail += "  | " + lines[i] + "\n";
  if (lines.empty()) detail += "  (empty)\n";
  return detail;
}

}  // namespace wine_test
