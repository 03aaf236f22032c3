/*
 * msvc_host.exe: a C host compiled for the Microsoft ABI (clang
 * --target=<arch>-pc-windows-msvc) and linked by lld-link against the
 * MSVC-format Kelbrook.lib, as a launcher built with Visual Studio would be.
 * Every call below goes through the import table the loader fills from
 * Kelbrook.dll: on x86 a library that imported the decorated stdcall names
 * (KelInitialize@0) would keep the process from starting at all.
 *
 * No C runtime and no SDK headers: the mingw-w64 headers do not compile for
 * this target, so the few Windows types and functions used are declared
 * here, the entry point is start() and the process ends with ExitProcess.
 * Prints "PASS name" or "FAIL name: reason" per export; exit code 0 when all
 * pass, 1 otherwise.
 */
#define WINAPI __stdcall
#define IMPORTED __declspec(dllimport)
#define NULL ((void*)0)

typedef long HRESULT;
typedef int BOOL;
typedef int INT;
typedef unsigned int UINT;
typedef unsigned long DWORD;
typedef void* HANDLE;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef unsigned short WCHAR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;

#define S_OK ((HRESULT)0)
#define E_POINTER ((HRESULT)0x80004003L)
#define E_INVALIDARG ((HRESULT)0x80070057L)
#define STD_OUTPUT_HANDLE ((DWORD)-11)

IMPORTED HANDLE WINAPI GetStdHandle(DWORD nStdHandle);
IMPORTED BOOL WINAPI WriteFile(HANDLE hFile, const void* lpBuffer, DWORD nNumberOfBytesToWrite,
                               DWORD* lpNumberOfBytesWritten, void* lpOverlapped);
IMPORTED void WINAPI ExitProcess(UINT uExitCode);

/* The exports as Kelbrook.h declares them. */
IMPORTED void WINAPI KelFinalize(void);
IMPORTED HRESULT WINAPI KelGetAppDisplayNameByPFNW(LPCWSTR pszPackageFamilyName, LPWSTR* ppszDisplayName);
IMPORTED HRESULT WINAPI KelGetMonitorMode(UINT* puMonitorMode);
IMPORTED HRESULT WINAPI KelInitialize(void);
IMPORTED HRESULT WINAPI KelIsInstalledA(LPCSTR pszPackageFamilyName, BOOL* pIsInstalled);
IMPORTED HRESULT WINAPI KelIsInstalledW(LPCWSTR pszPackageFamilyName, BOOL* pIsInstalled);
IMPORTED HRESULT WINAPI KelLaunchBrowserByProtocolA(LPCSTR pszUrl, DWORD dwAssociationMode);
IMPORTED HRESULT WINAPI KelLaunchBrowserByProtocolW(LPCWSTR pszUrl, DWORD dwAssociationMode);
IMPORTED HRESULT WINAPI KelLaunchByAppUserModelIdA(LPCSTR pszAppUserModelId);
IMPORTED HRESULT WINAPI KelLaunchByAppUserModelIdW(LPCWSTR pszAppUserModelId, LPCWSTR pszArguments);
IMPORTED HRESULT WINAPI KelLaunchByPFNA(LPCSTR pszPackageFamilyName, DWORD dwMode, INT nOption);
IMPORTED HRESULT WINAPI KelLaunchByPFNW(LPCWSTR pszPackageFamilyName, DWORD dwMode, INT nOption);
IMPORTED HRESULT WINAPI KelLaunchByProtocolA(LPCSTR pszProtocol);
IMPORTED HRESULT WINAPI KelLaunchByProtocolW(LPCWSTR pszProtocol);
IMPORTED HRESULT WINAPI KelLaunchBySearchA(LPCSTR pszKeyword, DWORD dwMode, INT nOption);
IMPORTED HRESULT WINAPI KelLaunchBySearchW(LPCWSTR pszKeyword, DWORD dwMode, INT nOption);
IMPORTED HRESULT WINAPI KelLaunchIEBySearch(DWORD dwTileMode, DWORD dwSearchMode, INT nOption);
IMPORTED HRESULT WINAPI KelLaunchStoreA(LPCSTR pszPackageFamilyName);
IMPORTED HRESULT WINAPI KelLaunchStoreW(LPCWSTR pszPackageFamilyName);
IMPORTED void WINAPI KelReleaseStringA(LPSTR pszString);
IMPORTED void WINAPI KelReleaseStringW(LPWSTR pszString);

static void Write(const char* text) {
  DWORD length = 0;
  while (text[length] != '\0') ++length;
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, length, &written, NULL);
}

static void WriteHex(unsigned long value) {
  static const char kDigits[] = "0123456789ABCDEF";
  char text[11] = "0x";
  for (int i = 0; i < 8; ++i) text[2 + i] = kDigits[(value >> (28 - 4 * i)) & 0xF];
  text[10] = '\0';
  Write(text);
}

static void WriteCount(int value) {
  char text[12];
  int at = (int)sizeof text - 1;
  text[at] = '\0';
  do {
    text[--at] = (char)('0' + value % 10);
    value /= 10;
  } while (value > 0 && at > 0);
  Write(text + at);
}

static int CheckResult(const char* name, HRESULT result, HRESULT expected) {
  if (result != expected) {
    Write("FAIL ");
    Write(name);
    Write(": returned ");
    WriteHex((unsigned long)result);
    Write(", expected ");
    WriteHex((unsigned long)expected);
    Write("\n");
    return 1;
  }
  Write("PASS ");
  Write(name);
  Write(" returned ");
  WriteHex((unsigned long)result);
  Write("\n");
  return 0;
}

static int CheckReturned(const char* name) {
  Write("PASS ");
  Write(name);
  Write(" returned\n");
  return 0;
}

#include "every_export.h"

void start(void) {
  int calls = 0;
  const int failures = CallEveryExport(&calls);
  if (calls != KEL_EXPORT_COUNT) {
    Write("FAIL not every export was called\n");
    ExitProcess(1);
  }
  Write(failures == 0 ? "PASS " : "FAIL ");
  WriteCount(calls);
  Write(" exports called through Kelbrook.lib, ");
  WriteCount(failures);
  Write(" failed\n");
  ExitProcess(failures == 0 ? 0 : 1);
}
