// The seam first: its constants share names with the Windows macros, which
// must not be defined while it is read.
#include "platform/win32/win32_platform.h"
#include "platform/temporary_path.h"
#include "text/xml/xml_reader.h"
#include "platform/win32/abi_layout.h"
#include "platform/win32/appx_interfaces.h"
#include "platform/win32/com_support.h"
#include "platform/win32/windows_headers.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace kel::platform::win32 {
namespace {

const wchar_t* W(const WCHAR* text) { return reinterpret_cast<const wchar_t*>(text); }
wchar_t* W(WCHAR* text) { return reinterpret_cast<wchar_t*>(text); }
// The seam's DWORD is a 32-bit unsigned int; Windows' is a 32-bit unsigned long.
static_assert(sizeof(::DWORD) == sizeof(DWORD));
::DWORD* D(DWORD* value) { return reinterpret_cast<::DWORD*>(value); }

void CopyFindData(const WIN32_FIND_DATAW& data, FindData& found) {
  found.dwFileAttributes = data.dwFileAttributes;
  found.cFileName = reinterpret_cast<const char16_t*>(data.cFileName);
}

struct ThreadStart {
  ThreadProc start;
  void* parameter;
};

::DWORD WINAPI RunThread(LPVOID raw) {
  ThreadStart start = *static_cast<ThreadStart*>(raw);
  delete static_cast<ThreadStart*>(raw);
  return start.start(start.parameter);
}

// The seam's view of the shell's IAppVisibility: forwards to the COM object
// and gives its one reference back on Release.
class ComAppVisibility final : public ComWrapper<AppVisibility, IAppVisibility> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT GetAppVisibilityOnMonitor(Handle monitor, int* visibility) override {
    MONITOR_APP_VISIBILITY value = ::MAV_UNKNOWN;
    const HRESULT hr = object_->GetAppVisibilityOnMonitor(static_cast<HMONITOR>(monitor), &value);
    if (SUCCEEDED(hr)) *visibility = static_cast<int>(value);
    return hr;
  }
  HRESULT IsLauncherVisible(BOOL* visible) override {
    ::BOOL value = FALSE;
    const HRESULT hr = object_->IsLauncherVisible(&value);
    if (SUCCEEDED(hr)) *visible = value;
    return hr;
  }
};

class ComAppxApplication final : public ComWrapper<AppxApplication, IAppxManifestApplication> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT GetStringValue(const WCHAR* name, WCHAR** value) override {
    *value = nullptr;
    LPWSTR text = nullptr;
    const HRESULT hr = object_->GetStringValue(reinterpret_cast<LPCWSTR>(name), &text);
    if (FAILED(hr)) {
      if (text != nullptr) ::CoTaskMemFree(text);
      return hr;
    }
    if (text == nullptr) return E_POINTER;
    *value = reinterpret_cast<WCHAR*>(text);
    return hr;
  }
};

class ComAppxApplications final : public ComWrapper<AppxApplicationsEnumerator, IAppxManifestApplicationsEnumerator> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT GetCurrent(AppxApplication** application) override {
    return ForwardObject<ComAppxApplication>(&IAppxManifestApplicationsEnumerator::GetCurrent, application);
  }
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    return ForwardFlag(&IAppxManifestApplicationsEnumerator::GetHasCurrent, hasCurrent);
  }
  HRESULT MoveNext(BOOL* hasNext) override {
    return ForwardFlag(&IAppxManifestApplicationsEnumerator::MoveNext, hasNext);
  }
};

class ComAppxManifestReader final : public ComWrapper<AppxManifestReader, IAppxManifestReader> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT GetApplications(AppxApplicationsEnumerator** applications) override {
    return ForwardObject<ComAppxApplications>(&IAppxManifestReader::GetApplications, applications);
  }
};

// A kernel handle closed when it goes out of scope.
class ScopedKernelHandle {
 public:
  explicit ScopedKernelHandle(HANDLE handle) : handle_(handle) {}
  ScopedKernelHandle(const ScopedKernelHandle&) = delete;
  ScopedKernelHandle& operator=(const ScopedKernelHandle&) = delete;
  ~ScopedKernelHandle() { Close(); }
  [[nodiscard]] HANDLE get() const { return handle_; }
  [[nodiscard]] bool Valid() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
  void Close() {
    if (Valid()) ::CloseHandle(handle_);
    handle_ = nullptr;
  }

 private:
  HANDLE handle_;
};

// Creates the temporary file of an atomic replacement of `target` and names
// it in `temporary`. Threads and processes may save at once: each attempt
// takes a name no other attempt of this process has taken, and CREATE_NEW
// never opens a file someone else is writing, so a name that is taken moves
// on to the next one. On failure, `hr` says why and the handle is invalid.
HANDLE CreateTemporaryBeside(const WCHAR* target, WString& temporary, HRESULT& hr) {
  static std::atomic<std::uint32_t> nextName{0};
  constexpr int kAttempts = 64;
  const WString targetPath = target;
  const std::uint32_t process = static_cast<std::uint32_t>(::GetCurrentProcessId()) << 16;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    temporary = TemporaryPathBeside(targetPath, process ^ nextName.fetch_add(1, std::memory_order_relaxed));
    if (temporary.empty()) {
      hr = HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
      return INVALID_HANDLE_VALUE;
    }
    HANDLE file =
        ::CreateFileW(W(temporary.c_str()), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) return file;
    const ::DWORD error = ::GetLastError();
    hr = HRESULT_FROM_WIN32(error);
    if (error != ERROR_FILE_EXISTS && error != ERROR_ALREADY_EXISTS) return INVALID_HANDLE_VALUE;
  }
  return INVALID_HANDLE_VALUE;
}

}  // namespace

bool Win32Platform::GetEnvironmentVariable(const WCHAR* name, WString& value) {
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    ::SetLastError(ERROR_SUCCESS);
    const DWORD n = ::GetEnvironmentVariableW(W(name), buffer.data(), static_cast<DWORD>(buffer.size()));
    if (n == 0) {
      if (::GetLastError() == ERROR_ENVVAR_NOT_FOUND) return false;
      value.clear();
      return true;
    }
    if (n < buffer.size()) {
      value.assign(reinterpret_cast<const char16_t*>(buffer.data()), n);
      return true;
    }
    buffer.resize(n);
  }
}

DWORD Win32Platform::ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) {
  return ::ExpandEnvironmentStringsW(W(source), W(buffer), capacity);
}

DWORD Win32Platform::GetModuleFileName(WCHAR* buffer, DWORD capacity) {
  return ::GetModuleFileNameW(nullptr, W(buffer), capacity);
}

DWORD Win32Platform::GetCurrentProcessId() { return ::GetCurrentProcessId(); }
DWORD Win32Platform::GetLastError() { return ::GetLastError(); }

SystemTime Win32Platform::GetLocalTime() {
  SYSTEMTIME t;
  ::GetLocalTime(&t);
  return SystemTime{t.wYear, t.wMonth, t.wDayOfWeek, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds};
}

void Win32Platform::Sleep(DWORD milliseconds) { ::Sleep(milliseconds); }

Handle Win32Platform::CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) {
  return ::CreateFileW(W(path), access, share, nullptr, disposition, attributes, nullptr);
}

DWORD Win32Platform::SetFilePointer(Handle file, LONG distance, DWORD method) {
  return ::SetFilePointer(file, distance, nullptr, method);
}

BOOL Win32Platform::WriteFile(Handle file, const void* data, DWORD length, DWORD* written) {
  ::DWORD count = 0;
  const BOOL ok = ::WriteFile(file, data, length, &count, nullptr);
  if (written != nullptr) *written = count;
  return ok;
}

BOOL Win32Platform::CloseHandle(Handle handle) { return ::CloseHandle(handle); }
DWORD Win32Platform::GetFileAttributes(const WCHAR* path) { return ::GetFileAttributesW(W(path)); }
BOOL Win32Platform::PathFileExists(const WCHAR* path) { return ::PathFileExistsW(W(path)); }
int Win32Platform::SHCreateDirectoryEx(const WCHAR* path) { return ::SHCreateDirectoryExW(nullptr, W(path), nullptr); }

HRESULT Win32Platform::ReadFileBytes(const WCHAR* path, std::string& bytes) {
  HANDLE file =
      ::CreateFileW(W(path), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return HRESULT_FROM_WIN32(::GetLastError());
  bytes.clear();
  // A file too large for the reader is refused before anything is read. It
  // is checked again while reading, as the file may grow meanwhile.
  LARGE_INTEGER size;
  if (!::GetFileSizeEx(file, &size)) {
    const HRESULT hr = HRESULT_FROM_WIN32(::GetLastError());
    ::CloseHandle(file);
    return hr;
  }
  if (static_cast<unsigned long long>(size.QuadPart) > xml::kMaxInputBytes) {
    ::CloseHandle(file);
    return xml::kInputTooLarge;
  }
  HRESULT hr = S_OK;
  try {
    bytes.reserve(static_cast<std::size_t>(size.QuadPart));
    char chunk[64 * 1024];
    for (;;) {
      ::DWORD read = 0;
      if (!::ReadFile(file, chunk, sizeof(chunk), &read, nullptr)) {
        hr = HRESULT_FROM_WIN32(::GetLastError());
        break;
      }
      if (read == 0) break;
      if (bytes.size() + read > xml::kMaxInputBytes) {
        bytes.clear();
        hr = xml::kInputTooLarge;
        break;
      }
      bytes.append(chunk, read);
    }
  } catch (const std::bad_alloc&) {
    hr = E_OUTOFMEMORY;
  }
  ::CloseHandle(file);
  return hr;
}

HRESULT Win32Platform::ReplaceFileAtomically(const WCHAR* path, const std::string& bytes) {
  // The new content goes to a file beside the old one and is renamed over it
  // only once it is complete on disk.
  WString temporary;
  HRESULT hr = S_OK;
  ScopedKernelHandle file(CreateTemporaryBeside(path, temporary, hr));
  if (!file.Valid()) return hr;
  std::size_t written = 0;
  while (written < bytes.size()) {
    ::DWORD count = 0;
    const ::DWORD chunk = static_cast<::DWORD>(std::min<std::size_t>(bytes.size() - written, 1u << 20));
    if (!::WriteFile(file.get(), bytes.data() + written, chunk, &count, nullptr)) {
      hr = HRESULT_FROM_WIN32(::GetLastError());
      break;
    }
    written += count;
  }
  if (SUCCEEDED(hr) && !::FlushFileBuffers(file.get())) hr = HRESULT_FROM_WIN32(::GetLastError());
  file.Close();
  if (SUCCEEDED(hr) &&
      !::MoveFileExW(W(temporary.c_str()), W(path), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    hr = HRESULT_FROM_WIN32(::GetLastError());
  }
  if (FAILED(hr)) ::DeleteFileW(W(temporary.c_str()));
  return hr;
}

Handle Win32Platform::FindFirstFile(const WCHAR* pattern, FindData& found) {
  WIN32_FIND_DATAW data;
  HANDLE search = ::FindFirstFileW(W(pattern), &data);
  if (search != INVALID_HANDLE_VALUE) CopyFindData(data, found);
  return search;
}

BOOL Win32Platform::FindNextFile(Handle search, FindData& found) {
  WIN32_FIND_DATAW data;
  const BOOL ok = ::FindNextFileW(search, &data);
  if (ok) CopyFindData(data, found);
  return ok;
}

BOOL Win32Platform::FindClose(Handle search) { return ::FindClose(search); }

LONG Win32Platform::RegOpenKeyEx(RootKey, const WCHAR* subKey, DWORD options, DWORD access, Handle* key) {
  HKEY opened = nullptr;
  const LONG code = ::RegOpenKeyExW(HKEY_CURRENT_USER, W(subKey), options, access, &opened);
  *key = code == ERROR_SUCCESS ? opened : nullptr;
  return code;
}

LONG Win32Platform::RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data, DWORD* size) {
  return ::RegQueryValueExW(static_cast<HKEY>(key), W(name), nullptr, D(type), data, D(size));
}

LONG Win32Platform::RegSetValueEx(Handle key, const WCHAR* name, DWORD type, const std::uint8_t* data, DWORD size) {
  return ::RegSetValueExW(static_cast<HKEY>(key), W(name), 0, type, data, size);
}

LONG Win32Platform::RegDeleteValue(Handle key, const WCHAR* name) {
  return ::RegDeleteValueW(static_cast<HKEY>(key), W(name));
}

LONG Win32Platform::RegCloseKey(Handle key) { return ::RegCloseKey(static_cast<HKEY>(key)); }

std::uint64_t Win32Platform::VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) {
  return ::VerSetConditionMask(mask, typeBit, condition);
}

BOOL Win32Platform::VerifyVersionInfo(OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) {
  OSVERSIONINFOEXW native{};
  native.dwOSVersionInfoSize = info.dwOSVersionInfoSize;
  native.dwMajorVersion = info.dwMajorVersion;
  native.dwMinorVersion = info.dwMinorVersion;
  native.dwBuildNumber = info.dwBuildNumber;
  native.dwPlatformId = info.dwPlatformId;
  native.wServicePackMajor = info.wServicePackMajor;
  native.wServicePackMinor = info.wServicePackMinor;
  native.wSuiteMask = info.wSuiteMask;
  native.wProductType = info.wProductType;
  return ::VerifyVersionInfoW(&native, typeMask, conditionMask);
}

int Win32Platform::MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* buffer,
                                       int capacity) {
  return ::MultiByteToWideChar(codePage, flags, source, sourceLength, W(buffer), capacity);
}

void* Win32Platform::LocalAlloc(UINT flags, std::size_t bytes) { return ::LocalAlloc(flags, bytes); }
void* Win32Platform::LocalFree(void* memory) { return ::LocalFree(memory); }

std::intptr_t Win32Platform::ShellExecute(Handle window, const WCHAR* verb, const WCHAR* file, const WCHAR* parameters,
                                          const WCHAR* directory, int showCommand) {
  HINSTANCE result =
      ::ShellExecuteW(static_cast<HWND>(window), W(verb), W(file), W(parameters), W(directory), showCommand);
  return reinterpret_cast<std::intptr_t>(result);
}

Handle Win32Platform::CreateEvent(bool manualReset, bool initialState, const WCHAR* name) {
  return ::CreateEventW(nullptr, manualReset, initialState, W(name));
}

BOOL Win32Platform::SetEvent(Handle event) { return ::SetEvent(event); }
BOOL Win32Platform::ResetEvent(Handle event) { return ::ResetEvent(event); }
DWORD Win32Platform::WaitForSingleObject(Handle object, DWORD milliseconds) {
  return ::WaitForSingleObject(object, milliseconds);
}

Handle Win32Platform::CreateThread(ThreadProc start, void* parameter) {
  auto* startInfo = new (std::nothrow) ThreadStart{start, parameter};
  if (startInfo == nullptr) {
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  HANDLE thread = ::CreateThread(nullptr, 0, RunThread, startInfo, 0, nullptr);
  if (thread == nullptr) delete startInfo;
  return thread;
}

UINT Win32Platform::SendInput(const KeyboardInput& input) {
  INPUT record;
  ::ZeroMemory(&record, sizeof(record));
  record.type = INPUT_KEYBOARD;
  record.ki.wVk = input.wVk;
  record.ki.wScan = input.wScan;
  record.ki.dwFlags = input.dwFlags;
  record.ki.time = input.time;
  record.ki.dwExtraInfo = input.dwExtraInfo;
  return ::SendInput(1, &record, sizeof(INPUT));
}

UINT Win32Platform::MapVirtualKey(UINT code, UINT mapType) { return ::MapVirtualKeyW(code, mapType); }
BOOL Win32Platform::OpenClipboard(Handle owner) { return ::OpenClipboard(static_cast<HWND>(owner)); }
BOOL Win32Platform::EmptyClipboard() { return ::EmptyClipboard(); }
Handle Win32Platform::SetClipboardData(UINT format, Handle memory) { return ::SetClipboardData(format, memory); }
BOOL Win32Platform::CloseClipboard() { return ::CloseClipboard(); }
Handle Win32Platform::GlobalAlloc(UINT flags, std::size_t bytes) { return ::GlobalAlloc(flags, bytes); }
void* Win32Platform::GlobalLock(Handle memory) { return ::GlobalLock(memory); }
BOOL Win32Platform::GlobalUnlock(Handle memory) { return ::GlobalUnlock(memory); }
Handle Win32Platform::GlobalFree(Handle memory) { return ::GlobalFree(memory); }
Handle Win32Platform::GetForegroundWindow() { return ::GetForegroundWindow(); }

int Win32Platform::GetClassName(Handle window, WCHAR* buffer, int capacity) {
  return ::GetClassNameW(static_cast<HWND>(window), W(buffer), capacity);
}

Handle Win32Platform::MonitorFromPoint(Point point, DWORD flags) {
  return ::MonitorFromPoint(POINT{point.x, point.y}, flags);
}

int Win32Platform::MessageBox(Handle owner, const WCHAR* text, const WCHAR* caption, UINT type) {
  return ::MessageBoxW(static_cast<HWND>(owner), W(text), W(caption), type);
}

HRESULT Win32Platform::CoInitializeEx(DWORD coInit) { return ::CoInitializeEx(nullptr, coInit); }
void Win32Platform::CoUninitialize() { ::CoUninitialize(); }

HRESULT Win32Platform::CreateAppVisibility(DWORD context, AppVisibility** object) {
  ComPtr<IAppVisibility> created;
  const GUID clsid = ToGuid(CLSID_AppVisibility);
  const GUID iid = ToGuid(IID_IAppVisibility);
  const HRESULT hr = ::CoCreateInstance(clsid, nullptr, context, iid, reinterpret_cast<void**>(created.put()));
  return HandOut<ComAppVisibility>(hr, std::move(created), object);
}

HRESULT Win32Platform::RoInitialize(int initType) { return ::RoInitialize(static_cast<RO_INIT_TYPE>(initType)); }

void Win32Platform::RoUninitialize() { ::RoUninitialize(); }

HRESULT Win32Platform::CreateAppxManifestReader(const WCHAR* manifestPath, AppxManifestReader** reader) {
  *reader = nullptr;
  ComPtr<IAppxFactory> factory;
  HRESULT hr = RequireObject(::CoCreateInstance(kClsidAppxFactory, nullptr, CLSCTX_INPROC_SERVER, kIidAppxFactory,
                                                reinterpret_cast<void**>(factory.put())),
                             factory);
  if (FAILED(hr)) return hr;
  ComPtr<IStream> stream;
  hr = RequireObject(
      ::SHCreateStreamOnFileEx(W(manifestPath), STGM_READ | STGM_SHARE_EXCLUSIVE, 0, FALSE, nullptr, stream.put()),
      stream);
  if (FAILED(hr)) return hr;
  ComPtr<IAppxManifestReader> manifest;
  hr = factory->CreateManifestReader(stream.get(), manifest.put());
  return HandOut<ComAppxManifestReader>(hr, std::move(manifest), reader);
}

void Win32Platform::CoTaskMemFree(void* memory) { ::CoTaskMemFree(memory); }

BOOL Win32Platform::GetUserName(WCHAR* buffer, DWORD* size) { return ::GetUserNameW(W(buffer), D(size)); }

BOOL Win32Platform::LookupAccountName(const WCHAR* systemName, const WCHAR* accountName, void* sid, DWORD* sidSize,
                                      WCHAR* domain, DWORD* domainSize) {
  SID_NAME_USE use;
  return ::LookupAccountNameW(W(systemName), W(accountName), sid, D(sidSize), W(domain), D(domainSize), &use);
}

BOOL Win32Platform::ConvertSidToStringSid(void* sid, WCHAR** stringSid) {
  *stringSid = nullptr;
  LPWSTR text = nullptr;
  if (!::ConvertSidToStringSidW(sid, &text)) {
    if (text != nullptr) ::LocalFree(text);
    return FALSE;
  }
  // A success without a string is no conversion: the caller would hand the
  // null on as the SID.
  if (text == nullptr) {
    ::SetLastError(ERROR_INVALID_SID);
    return FALSE;
  }
  *stringSid = reinterpret_cast<WCHAR*>(text);
  return TRUE;
}

HRESULT Win32Platform::SHLoadIndirectString(const WCHAR* source, WCHAR* buffer, UINT capacity) {
  return ::SHLoadIndirectString(W(source), W(buffer), capacity, nullptr);
}

}  // namespace kel::platform::win32
