// recorder.exe: a stand-in URL-protocol handler for the Wine tests.
//
// Registered as the "open" command of a test protocol ("C:\kel\recorder.exe" "%1"),
// it appends the argument it was started with, UTF-8 encoded, plus "\n" to the
// file named by KEL_RECORDER_LOG (C:\kel_recorder.txt when that is unset).
// A test launches a protocol string through the library and then watches that
// file for the line, which proves the string reached the handler unchanged.
//
// Built as a GUI-subsystem program that never creates a window, so nothing
// flashes up when the shell starts it.

#include <windows.h>
#include <shellapi.h>

#include <string>

namespace {

std::wstring RecorderLogPath() {
  const wchar_t* name = L"KEL_RECORDER_LOG";
  DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
  if (size == 0) return L"C:\\kel_recorder.txt";
  std::wstring value(size, L'\0');
  DWORD length = GetEnvironmentVariableW(name, &value[0], size);
  if (length == 0 || length >= size) return L"C:\\kel_recorder.txt";
  value.resize(length);
  return value;
}

std::string ToUtf8(const std::wstring& text) {
  if (text.empty()) return std::string();
  int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string result(bytes > 0 ? bytes : 0, '\0');
  if (bytes > 0)
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &result[0], bytes, nullptr, nullptr);
  return result;
}

// The first argument exactly as the shell handed it over (quotes removed by the
// usual command-line rules), or an empty string when there is none.
std::wstring FirstArgument() {
  int count = 0;
  LPWSTR* args = CommandLineToArgvW(GetCommandLineW(), &count);
  if (args == nullptr) return std::wstring();
  std::wstring first = count >= 2 ? args[1] : L"";
  LocalFree(args);
  return first;
}

}  // namespace

int main() {
  std::string line = ToUtf8(FirstArgument()) + "\n";

  // Append-only access makes every write land at the current end of the file,
  // even when two recorders write at once.
  HANDLE file =
      CreateFileW(RecorderLogPath().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 1;
  DWORD written = 0;
  BOOL ok = WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  CloseHandle(file);
  return ok && written == line.size() ? 0 : 1;
}
