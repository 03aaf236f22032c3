// The host's files and folders, private temporary folders, the environment
// and bounded waits.
#pragma once

#include "support/windows_headers.h"

#include <cstddef>
#include <functional>
#include <string>

#include "support/failure.h"
#include "support/text.h"

namespace wine_test {

// ---------------------------------------------------------------------------
// Files and folders

inline bool FileExists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// The whole file as bytes; empty when it cannot be opened. Opened with full
// sharing so that a writer holding it open is not disturbed.
inline std::string ReadBytes(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::string();
  std::string content;
  char buffer[4096];
  DWORD read = 0;
  while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) content.append(buffer, read);
  CloseHandle(file);
  return content;
}

inline void WriteBytes(const std::wstring& path, const std::string& bytes) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) Fail(Format("cannot create %s (error %lu)", Narrow(path).c_str(), GetLastError()));
  DWORD written = 0;
  const BOOL ok = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
  if (!ok || written != bytes.size()) Fail("cannot write " + Narrow(path));
}

// UTF-8, without a byte order mark.
inline void WriteText(const std::wstring& path, const std::wstring& text) { WriteBytes(path, Narrow(text)); }

// Creates the folder and any missing parent.
inline void MakeFolders(const std::wstring& path) {
  for (std::size_t i = 3; i <= path.size(); ++i) {
    if (i == path.size() || path[i] == L'\\') {
      const std::wstring part = path.substr(0, i);
      if (!CreateDirectoryW(part.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
        Fail(Format("cannot create folder %s (error %lu)", Narrow(part).c_str(), GetLastError()));
      }
    }
  }
}

// Removes the folder with everything in it; gives whether it is gone.
inline bool RemoveTree(const std::wstring& folder) {
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW((folder + L"\\*").c_str(), &entry);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = entry.cFileName;
      if (name == L"." || name == L"..") continue;
      const std::wstring path = folder + L"\\" + name;
      if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        RemoveTree(path);
      } else {
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileW(path.c_str());
      }
    } while (FindNextFileW(find, &entry));
    FindClose(find);
  }
  return RemoveDirectoryW(folder.c_str()) || !FileExists(folder);
}

// A new, empty folder under the temporary folder: PREFIX-PROCESS-TICKS-ATTEMPT,
// so that neither another test program nor an earlier run can have it.
inline std::wstring CreateTempFolder(const wchar_t* prefix) {
  wchar_t temp[MAX_PATH + 1];
  const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
  if (length == 0 || length > MAX_PATH) Fail("GetTempPathW failed");
  for (unsigned attempt = 0; attempt < 100; ++attempt) {
    std::wstring path = std::wstring(temp) + prefix + L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                        std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(attempt);
    if (CreateDirectoryW(path.c_str(), nullptr)) return path;
  }
  Fail("cannot create a temporary folder under " + Narrow(temp));
}

// A folder from createTempFolder, removed again at the end.
class TempFolder {
 public:
  explicit TempFolder(const wchar_t* prefix) : path_(CreateTempFolder(prefix)) {}
  ~TempFolder() { RemoveTree(path_); }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  [[nodiscard]] const std::wstring& Path() const { return path_; }

 private:
  std::wstring path_;
};

// ---------------------------------------------------------------------------
// The environment

// The variable's value; empty when it is not set.
inline std::wstring EnvironmentValue(const wchar_t* name) {
  std::wstring buffer(32768, L'\0');
  const DWORD length = GetEnvironmentVariableW(name, &buffer[0], 32768);
  return length > 0 && length < 32768 ? buffer.substr(0, length) : std::wstring();
}

// Processes started from here on inherit it.
inline void SetEnvironment(const wchar_t* name, const std::wstring& value) {
  if (!SetEnvironmentVariableW(name, value.c_str())) Fail("SetEnvironmentVariableW(" + Narrow(name) + ") failed");
}

// ---------------------------------------------------------------------------
// Waiting

// Calls `done` every `intervalMs` until it answers true or `timeoutMs` has
// passed; one last call decides at the deadline.
inline bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs, DWORD intervalMs = 50) {
  const ULONGLONG deadline = GetTickCount64() + timeoutMs;
  for (;;) {
    if (done()) return true;
    if (GetTickCount64() >= deadline) return done();
    Sleep(intervalMs);
  }
}

}  // namespace wine_test
