// The real platform: each seam operation is the Windows call it stands for.
#pragma once

#include "platform/platform.h"

namespace kel::platform::win32 {

class Win32Platform final : public Platform {
 public:
  bool GetEnvironmentVariable(const WCHAR* name, WString& value) override;
  DWORD ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) override;
  DWORD GetModuleFileName(WCHAR* buffer, DWORD capacity) override;
  DWORD GetCurrentProcessId() override;
  DWORD GetLastError() override;
  SystemTime GetLocalTime() override;
  void Sleep(DWORD milliseconds) override;
  Handle CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override;
  DWORD SetFilePointer(Handle file, LONG distance, DWORD method) override;
  BOOL WriteFile(Handle file, const void* data, DWORD length, DWORD* written) override;
  BOOL CloseHandle(Handle handle) override;
  DWORD GetFileAttributes(const WCHAR* path) override;
  BOOL PathFileExists(const WCHAR* path) override;
  int SHCreateDirectoryEx(const WCHAR* path) override;
  [[nodiscard]] HRESULT ReadFileBytes(const WCHAR* path, std::string& bytes) override;
  [[nodiscard]] HRESULT ReplaceFileAtomically(const WCHAR* path, const std::string& bytes) override;
  Handle FindFirstFile(const WCHAR* pattern, FindData& found) override;
  BOOL FindNextFile(Handle search, FindData& found) override;
  BOOL FindClose(Handle search) override;
  [[nodiscard]] LONG RegOpenKeyEx(RootKey root, const WCHAR* subKey, DWORD options, DWORD access, Handle* key) override;
  [[nodiscard]] LONG RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data,
                                     DWORD* size) override;
  [[nodiscard]] LONG RegSetValueEx(Handle key, const WCHAR* name, DWORD type, const std::uint8_t* data,
                                   DWORD size) override;
  [[nodiscard]] LONG RegDeleteValue(Handle key, const WCHAR* name) override;
  [[nodiscard]] LONG RegCloseKey(Handle key) override;
  std::uint64_t VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) override;
  BOOL VerifyVersionInfo(OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) override;
  int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* buffer,
                          int capacity) override;
  void* LocalAlloc(UINT flags, std::size_t bytes) override;
  void* LocalFree(void* memory) override;
  std::intptr_t ShellExecute(Handle window, const WCHAR* verb, const WCHAR* file, const WCHAR* parameters,
                             const WCHAR* directory, int showCommand) override;
  Handle CreateEvent(bool manualReset, bool initialState, const WCHAR* name) override;
  BOOL SetEvent(Handle event) override;
  BOOL ResetEvent(Handle event) override;
  DWORD WaitForSingleObject(Handle object, DWORD milliseconds) override;
  Handle CreateThread(ThreadProc start, void* parameter) override;
  UINT SendInput(const KeyboardInput& input) override;
  UINT MapVirtualKey(UINT code, UINT mapType) override;
  BOOL OpenClipboard(Handle owner) override;
  BOOL EmptyClipboard() override;
  Handle SetClipboardData(UINT format, Handle memory) override;
  BOOL CloseClipboard() override;
  Handle GlobalAlloc(UINT flags, std::size_t bytes) override;
  void* GlobalLock(Handle memory) override;
  BOOL GlobalUnlock(Handle memory) override;
  Handle GlobalFree(Handle memory) override;
  Handle GetForegroundWindow() override;
  int GetClassName(Handle window, WCHAR* buffer, int capacity) override;
  Handle MonitorFromPoint(Point point, DWORD flags) override;
  int MessageBox(Handle owner, const WCHAR* text, const WCHAR* caption, UINT type) override;
  [[nodiscard]] HRESULT CoInitializeEx(DWORD coInit) override;
  [[nodiscard]] HRESULT CreateAppVisibility(DWORD context, AppVisibility** object) override;
  [[nodiscard]] HRESULT CreateAppxManifestReader(const WCHAR* manifestPath, AppxManifestReader** reader) override;
  void CoTaskMemFree(void* memory) override;
  void CoUninitialize() override;
  [[nodiscard]] HRESULT RoInitialize(int initType) override;
  void RoUninitialize() override;
  [[nodiscard]] HRESULT ActivatePackageManager(DeploymentPackageManager** manager) override;
  WString DescribeError(HRESULT error) override;
  [[nodiscard]] HRESULT CreateApplicationActivationManager(DWORD context,
                                                           ApplicationActivationManager** manager) override;
  [[nodiscard]] HRESULT CoAllowSetForegroundWindow(ApplicationActivationManager* manager) override;
  BOOL GetUserName(WCHAR* buffer, DWORD* size) override;
  BOOL LookupAccountName(const WCHAR* systemName, const WCHAR* accountName, void* sid, DWORD* sidSize, WCHAR* domain,
                         DWORD* domainSize) override;
  BOOL ConvertSidToStringSid(void* sid, WCHAR** stringSid) override;
  [[nodiscard]] HRESULT SHLoadIndirectString(const WCHAR* source, WCHAR* buffer, UINT capacity) override;
};

}  // namespace kel::platform::win32
