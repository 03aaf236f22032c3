// The platform seam. Every operation the logic needs from the operating
// system goes through this one interface, so each algorithm can run against
// the real Windows calls (src/platform/win32) or against a recording fake in
// the tests. The operations keep the shape and arguments of the Windows calls
// they stand for, which is what lets a test check the exact calls made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/types.h"

namespace kel::platform {

// --- constants of the Windows calls, in one place -------------------------

// Registry.
enum class RootKey { CurrentUser };
constexpr DWORD KEY_READ = 0x20019;
constexpr DWORD KEY_WRITE = 0x20006;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_DWORD = 4;

// Files.
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD FILE_SHARE_READ = 0x1;
constexpr DWORD FILE_SHARE_WRITE = 0x2;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD FILE_END = 2;
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
inline Handle InvalidHandleValue() { return reinterpret_cast<Handle>(~std::uintptr_t{0}); }

// Waits.
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 0x102;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
constexpr DWORD INFINITE = 0xFFFFFFFF;

// Version test.
constexpr DWORD VER_MINORVERSION = 0x1;
constexpr DWORD VER_MAJORVERSION = 0x2;
constexpr std::uint8_t VER_GREATER_EQUAL = 3;

// Code pages.
constexpr UINT CP_SHIFT_JIS = 932;
constexpr DWORD MB_PRECOMPOSED = 0x1;

// Local and global heaps.
constexpr UINT LMEM_ZEROINIT = 0x40;
constexpr UINT LPTR = 0x40;
constexpr UINT GHND = 0x42;

// Shell.
constexpr int SW_SHOW = 5;

// Keyboard.
constexpr DWORD INPUT_KEYBOARD = 1;
constexpr DWORD KEYEVENTF_EXTENDEDKEY = 0x1;
constexpr DWORD KEYEVENTF_KEYUP = 0x2;
constexpr DWORD KEYEVENTF_SCANCODE = 0x8;
constexpr UINT MAPVK_VK_TO_VSC = 0;

// Clipboard, windows, message boxes.
constexpr UINT CF_UNICODETEXT = 13;
constexpr DWORD MONITOR_DEFAULTTOPRIMARY = 1;
constexpr UINT MB_ICONINFORMATION = 0x40;
constexpr UINT MB_TOPMOST = 0x40000;

// COM and the Windows Runtime.
constexpr DWORD COINIT_APARTMENTTHREADED = 0x2;
constexpr int RO_INIT_SINGLETHREADED = 0;

// --- value types -------------------------------------------------------------

struct SystemTime {
  WORD wYear = 0, wMonth = 0, wDayOfWeek = 0, wDay = 0;
  WORD wHour = 0, wMinute = 0, wSecond = 0, wMilliseconds = 0;
};

// OSVERSIONINFOEXW, field for field.
struct OsVersionInfoEx {
  DWORD dwOSVersionInfoSize = 0;
  DWORD dwMajorVersion = 0;
  DWORD dwMinorVersion = 0;
  DWORD dwBuildNumber = 0;
  DWORD dwPlatformId = 0;
  WCHAR szCSDVersion[128] = {};
  WORD wServicePackMajor = 0;
  WORD wServicePackMinor = 0;
  WORD wSuiteMask = 0;
  std::uint8_t wProductType = 0;
  std::uint8_t wReserved = 0;
};
// sizeof(OSVERSIONINFOEXW) on Windows; the version test passes it as the size.
constexpr DWORD kOsVersionInfoExSize = 284;

// The parts of WIN32_FIND_DATAW the logic reads.
struct FindData {
  DWORD dwFileAttributes = 0;
  WString cFileName;
};

// KEYBDINPUT of one INPUT record of type INPUT_KEYBOARD.
struct KeyboardInput {
  WORD wVk = 0;
  WORD wScan = 0;
  DWORD dwFlags = 0;
  DWORD time = 0;
  std::uintptr_t dwExtraInfo = 0;
};

struct Point {
  LONG x = 0;
  LONG y = 0;
};

using ThreadProc = DWORD (*)(void* parameter);

// PackageVersion of Windows.ApplicationModel, field for field.
struct PackageVersion {
  WORD Major = 0;
  WORD Minor = 0;
  WORD Build = 0;
  WORD Revision = 0;
  bool operator==(const PackageVersion&) const = default;
};

// A failure reported by the Windows Runtime as an error with a message; the
// operation that made the call catches it.
struct PlatformError {
  HRESULT code;
  WString message;
};

// Windows.ApplicationModel.Package: the identity and installed folder of an
// installed package. Reference-counted like the runtime object it stands for.
class Package {
 public:
  [[nodiscard]] virtual HRESULT GetFamilyName(WString& value) = 0;
  [[nodiscard]] virtual HRESULT GetFullName(WString& value) = 0;
  [[nodiscard]] virtual HRESULT GetName(WString& value) = 0;
  [[nodiscard]] virtual HRESULT GetVersion(PackageVersion& value) = 0;
  // InstalledLocation queried as a storage item, its Path.
  [[nodiscard]] virtual HRESULT GetInstalledLocationPath(WString& value) = 0;
  virtual void AddRef() = 0;
  virtual void Release() = 0;

 protected:
  virtual ~Package() = default;
};

// MONITOR_APP_VISIBILITY.
constexpr int MAV_UNKNOWN = 0;
constexpr int MAV_NO_APP_VISIBLE = 1;
constexpr int MAV_APP_VISIBLE = 2;

constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
constexpr DWORD CLSCTX_LOCAL_SERVER = 0x4;

// A COM class and interface identity, as published.
struct Guid {
  std::uint32_t data1;
  std::uint16_t data2;
  std::uint16_t data3;
  std::uint8_t data4[8];
};
// {7E5FE3D9-985F-4908-91F9-EE19F9FD1514}
constexpr Guid CLSID_AppVisibility = {0x7E5FE3D9, 0x985F, 0x4908, {0x91, 0xF9, 0xEE, 0x19, 0xF9, 0xFD, 0x15, 0x14}};
// {2246EA2D-CAEA-4444-A3C4-6DE827E44313}
constexpr Guid IID_IAppVisibility = {0x2246EA2D, 0xCAEA, 0x4444, {0xA3, 0xC4, 0x6D, 0xE8, 0x27, 0xE4, 0x43, 0x13}};

// The shell's IAppVisibility, as far as the library uses it. The object
// holds one reference, given back by Release.
class AppVisibility {
 public:
  [[nodiscard]] virtual HRESULT GetAppVisibilityOnMonitor(Handle monitor, int* visibility) = 0;
  [[nodiscard]] virtual HRESULT IsLauncherVisible(BOOL* visible) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~AppVisibility() = default;
};

// The packaging API's reading of a manifest: IAppxManifestReader,
// IAppxManifestApplicationsEnumerator and IAppxManifestApplication, as far as
// the library uses them. Each object holds one reference.
class AppxApplication {
 public:
  // The string comes from the COM task allocator: free it with CoTaskMemFree.
  [[nodiscard]] virtual HRESULT GetStringValue(const WCHAR* name, WCHAR** value) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~AppxApplication() = default;
};

class AppxApplicationsEnumerator {
 public:
  [[nodiscard]] virtual HRESULT GetCurrent(AppxApplication** application) = 0;
  [[nodiscard]] virtual HRESULT GetHasCurrent(BOOL* hasCurrent) = 0;
  [[nodiscard]] virtual HRESULT MoveNext(BOOL* hasNext) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~AppxApplicationsEnumerator() = default;
};

class AppxManifestReader {
 public:
  [[nodiscard]] virtual HRESULT GetApplications(AppxApplicationsEnumerator** applications) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~AppxManifestReader() = default;
};

// The Windows Runtime's collections of packages: IIterable<Package> and
// IIterator<Package> as far as the library walks them.
class PackageIterator {
 public:
  [[nodiscard]] virtual HRESULT GetHasCurrent(BOOL* hasCurrent) = 0;
  // The package comes with one reference for the caller.
  [[nodiscard]] virtual HRESULT GetCurrent(Package** package) = 0;
  [[nodiscard]] virtual HRESULT MoveNext(BOOL* hasCurrent) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~PackageIterator() = default;
};

class PackageCollection {
 public:
  [[nodiscard]] virtual HRESULT First(PackageIterator** iterator) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~PackageCollection() = default;
};

// Windows.Management.Deployment.PackageManager through IPackageManager.
class DeploymentPackageManager {
 public:
  [[nodiscard]] virtual HRESULT FindPackagesByUserSecurityId(const WCHAR* userSecurityId,
                                                             PackageCollection** packages) = 0;
  [[nodiscard]] virtual HRESULT FindPackagesByUserSecurityIdPackageFamilyName(const WCHAR* userSecurityId,
                                                                              const WCHAR* packageFamilyName,
                                                                              PackageCollection** packages) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~DeploymentPackageManager() = default;
};

// IApplicationActivationManager.
constexpr int AO_NONE = 0;
class ApplicationActivationManager {
 public:
  [[nodiscard]] virtual HRESULT ActivateApplication(const WCHAR* appUserModelId, const WCHAR* arguments, int options,
                                                    DWORD* processId) = 0;
  virtual void Release() = 0;

 protected:
  virtual ~ApplicationActivationManager() = default;
};

// --- the seam ----------------------------------------------------------------

class Platform {
 public:
  virtual ~Platform() = default;

  // Environment and process. GetEnvironmentVariable answers false when the
  // variable is unset; the value has no length limit of its own.
  [[nodiscard]] virtual bool GetEnvironmentVariable(const WCHAR* name, WString& value) = 0;
  [[nodiscard]] virtual DWORD ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) = 0;
  // Full path of the host executable (GetModuleFileNameW(NULL, ...)).
  [[nodiscard]] virtual DWORD GetModuleFileName(WCHAR* buffer, DWORD capacity) = 0;
  [[nodiscard]] virtual DWORD GetCurrentProcessId() = 0;
  [[nodiscard]] virtual DWORD GetLastError() = 0;

  // Time.
  [[nodiscard]] virtual SystemTime GetLocalTime() = 0;
  virtual void Sleep(DWORD milliseconds) = 0;

  // Files and folders.
  [[nodiscard]] virtual Handle CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition,
                                          DWORD attributes) = 0;
  [[nodiscard]] virtual DWORD SetFilePointer(Handle file, LONG distance, DWORD method) = 0;
  [[nodiscard]] virtual BOOL WriteFile(Handle file, const void* data, DWORD length, DWORD* written) = 0;
  [[nodiscard]] virtual BOOL CloseHandle(Handle handle) = 0;
  [[nodiscard]] virtual DWORD GetFileAttributes(const WCHAR* path) = 0;
  [[nodiscard]] virtual BOOL PathFileExists(const WCHAR* path) = 0;
  [[nodiscard]] virtual int SHCreateDirectoryEx(const WCHAR* path) = 0;
  // The whole content of a file (a stream on the file opened for reading).
  // A missing file gives 0x80070002; a file larger than xml::kMaxInputBytes
  // gives xml::kInputTooLarge without being read.
  [[nodiscard]] virtual HRESULT ReadFileBytes(const WCHAR* path, std::string& bytes) = 0;
  // Writes the file in full beside its destination, then renames it over the
  // old one, so a crash or a full disk never leaves it half-written.
  [[nodiscard]] virtual HRESULT ReplaceFileAtomically(const WCHAR* path, const std::string& bytes) = 0;
  [[nodiscard]] virtual Handle FindFirstFile(const WCHAR* pattern, FindData& found) = 0;
  [[nodiscard]] virtual BOOL FindNextFile(Handle search, FindData& found) = 0;
  [[nodiscard]] virtual BOOL FindClose(Handle search) = 0;

  // Registry.
  [[nodiscard]] virtual LONG RegOpenKeyEx(RootKey root, const WCHAR* subKey, DWORD options, DWORD access,
                                          Handle* key) = 0;
  [[nodiscard]] virtual LONG RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data,
                                             DWORD* size) = 0;
  [[nodiscard]] virtual LONG RegSetValueEx(Handle key, const WCHAR* name, DWORD type, const std::uint8_t* data,
                                           DWORD size) = 0;
  [[nodiscard]] virtual LONG RegDeleteValue(Handle key, const WCHAR* name) = 0;
  [[nodiscard]] virtual LONG RegCloseKey(Handle key) = 0;

  // Version test.
  [[nodiscard]] virtual std::uint64_t VerSetConditionMask(std::uint64_t mask, DWORD typeBit,
                                                          std::uint8_t condition) = 0;
  [[nodiscard]] virtual BOOL VerifyVersionInfo(OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) = 0;

  // Code pages (MultiByteToWideChar).
  [[nodiscard]] virtual int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength,
                                                WCHAR* buffer, int capacity) = 0;

  // Local heap: strings handed to the host.
  [[nodiscard]] virtual void* LocalAlloc(UINT flags, std::size_t bytes) = 0;
  [[nodiscard]] virtual void* LocalFree(void* memory) = 0;

  // Shell.
  [[nodiscard]] virtual std::intptr_t ShellExecute(Handle window, const WCHAR* verb, const WCHAR* file,
                                                   const WCHAR* parameters, const WCHAR* directory,
                                                   int showCommand) = 0;

  // Threads and events.
  [[nodiscard]] virtual Handle CreateEvent(bool manualReset, bool initialState, const WCHAR* name) = 0;
  [[nodiscard]] virtual BOOL SetEvent(Handle event) = 0;
  [[nodiscard]] virtual BOOL ResetEvent(Handle event) = 0;
  [[nodiscard]] virtual DWORD WaitForSingleObject(Handle object, DWORD milliseconds) = 0;
  [[nodiscard]] virtual Handle CreateThread(ThreadProc start, void* parameter) = 0;

  // Keyboard: one INPUT record of type INPUT_KEYBOARD per call.
  [[nodiscard]] virtual UINT SendInput(const KeyboardInput& input) = 0;
  [[nodiscard]] virtual UINT MapVirtualKey(UINT code, UINT mapType) = 0;

  // Clipboard and the global heap behind it.
  [[nodiscard]] virtual BOOL OpenClipboard(Handle owner) = 0;
  [[nodiscard]] virtual BOOL EmptyClipboard() = 0;
  [[nodiscard]] virtual Handle SetClipboardData(UINT format, Handle memory) = 0;
  [[nodiscard]] virtual BOOL CloseClipboard() = 0;
  [[nodiscard]] virtual Handle GlobalAlloc(UINT flags, std::size_t bytes) = 0;
  [[nodiscard]] virtual void* GlobalLock(Handle memory) = 0;
  [[nodiscard]] virtual BOOL GlobalUnlock(Handle memory) = 0;
  [[nodiscard]] virtual Handle GlobalFree(Handle memory) = 0;

  // Windows and monitors.
  [[nodiscard]] virtual Handle GetForegroundWindow() = 0;
  [[nodiscard]] virtual int GetClassName(Handle window, WCHAR* buffer, int capacity) = 0;
  [[nodiscard]] virtual Handle MonitorFromPoint(Point point, DWORD flags) = 0;
  [[nodiscard]] virtual int MessageBox(Handle owner, const WCHAR* text, const WCHAR* caption, UINT type) = 0;

  // COM and Windows Runtime apartments.
  [[nodiscard]] virtual HRESULT CoInitializeEx(DWORD coInit) = 0;
  // CoCreateInstance(CLSID_AppVisibility, NULL, context, IID_IAppVisibility).
  [[nodiscard]] virtual HRESULT CreateAppVisibility(DWORD context, AppVisibility** object) = 0;
  // CoCreateInstance(CLSID_AppxFactory, NULL, CLSCTX_INPROC_SERVER,
  // IID_IAppxFactory), SHCreateStreamOnFileEx(path, STGM_READ |
  // STGM_SHARE_EXCLUSIVE, 0, FALSE, NULL), then CreateManifestReader on that
  // stream; the first failure is returned.
  [[nodiscard]] virtual HRESULT CreateAppxManifestReader(const WCHAR* manifestPath, AppxManifestReader** reader) = 0;
  virtual void CoTaskMemFree(void* memory) = 0;
  virtual void CoUninitialize() = 0;
  [[nodiscard]] virtual HRESULT RoInitialize(int initType) = 0;
  virtual void RoUninitialize() = 0;
  // RoActivateInstance of "Windows.Management.Deployment.PackageManager",
  // queried for IPackageManager.
  [[nodiscard]] virtual HRESULT ActivatePackageManager(DeploymentPackageManager** manager) = 0;
  // The text of a runtime error, for the log.
  [[nodiscard]] virtual WString DescribeError(HRESULT error) = 0;
  // CoCreateInstance(CLSID_ApplicationActivationManager, NULL, context,
  // IID_IApplicationActivationManager).
  [[nodiscard]] virtual HRESULT CreateApplicationActivationManager(DWORD context,
                                                                   ApplicationActivationManager** manager) = 0;
  // CoAllowSetForegroundWindow(manager, NULL).
  [[nodiscard]] virtual HRESULT CoAllowSetForegroundWindow(ApplicationActivationManager* manager) = 0;

  // Security: the current user's SID.
  [[nodiscard]] virtual BOOL GetUserName(WCHAR* buffer, DWORD* size) = 0;
  [[nodiscard]] virtual BOOL LookupAccountName(const WCHAR* systemName, const WCHAR* accountName, void* sid,
                                               DWORD* sidSize, WCHAR* domain, DWORD* domainSize) = 0;
  // The string comes from the local heap; the caller frees it with LocalFree.
  [[nodiscard]] virtual BOOL ConvertSidToStringSid(void* sid, WCHAR** stringSid) = 0;

  // Indirect strings ("@{...}") resolved by the shell.
  [[nodiscard]] virtual HRESULT SHLoadIndirectString(const WCHAR* source, WCHAR* buffer, UINT capacity) = 0;
};

// The platform the library runs on. The Windows build installs its real
// platform at load; tests install a fake.
Platform& Current();
void Install(Platform* platform);

}  // namespace kel::platform

namespace kel {
// The installed platform, as the library's units call it.
inline platform::Platform& Sys() { return platform::Current(); }
}  // namespace kel
