/*
 * Kelbrook.h - public interface of Kelbrook.dll.
 *
 * Include after <windows.h>. Every function uses the platform's standard
 * calling convention (WINAPI) and an undecorated name; link against
 * libKelbrook.a (mingw) or the import library made from Kelbrook.def
 * (lib /def:Kelbrook.def), or load the DLL and look the names up.
 *
 * Strings: W functions take zero-terminated UTF-16, A functions take
 * zero-terminated Shift JIS (code page 932) whatever the system's ANSI code
 * page. The display name returned by KelGetAppDisplayNameByPFNW is freed with
 * KelReleaseStringW.
 */
#ifndef KELBROOK_H
#define KELBROOK_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The library's own result codes. */
#define E_KEL_PACKAGE_NOT_FOUND     ((HRESULT)0xA0000001L) /* no package of the family is installed for the current user */
#define E_KEL_MULTIPLE_APPLICATIONS ((HRESULT)0xA0000002L) /* the package's manifest holds more than one application */
#define E_KEL_DISPLAY_NAME_FAILED   ((HRESULT)0xA0000003L) /* KelLaunchByPFNW could not get the display name */

/* Search modes of KelLaunchBySearchW, KelLaunchByPFNW and KelLaunchIEBySearch. */
#define KEL_SEARCH_SUBMIT_QUERY   0u /* paste the query and submit it */
#define KEL_SEARCH_PASTE_KEYWORD  1u /* paste the bare keyword, no Enter */
#define KEL_SEARCH_AUTO           2u /* keyword when it names an installed app, else as mode 0 */

/* Monitor modes of KelGetMonitorMode. */
#define KEL_MONITOR_DESKTOP       0u
#define KEL_MONITOR_STORE_APP     1u
#define KEL_MONITOR_START_SCREEN  2u

void    WINAPI KelFinalize(void);                                                            /* @1 */
HRESULT WINAPI KelGetAppDisplayNameByPFNW(LPCWSTR pszPackageFamilyName, LPWSTR *ppszDisplayName); /* @2 */
HRESULT WINAPI KelGetMonitorMode(UINT *puMonitorMode);                                      /* @3 */
HRESULT WINAPI KelInitialize(void);                                                          /* @4 */
HRESULT WINAPI KelIsInstalledA(LPCSTR pszPackageFamilyName, BOOL *pIsInstalled);             /* @5 */
HRESULT WINAPI KelIsInstalledW(LPCWSTR pszPackageFamilyName, BOOL *pIsInstalled);            /* @6 */
HRESULT WINAPI KelLaunchBrowserByProtocolA(LPCSTR pszUrl, DWORD dwAssociationMode);          /* @7 */
HRESULT WINAPI KelLaunchBrowserByProtocolW(LPCWSTR pszUrl, DWORD dwAssociationMode);         /* @8 */
HRESULT WINAPI KelLaunchByAppUserModelIdA(LPCSTR pszAppUserModelId);                         /* @9 */
HRESULT WINAPI KelLaunchByAppUserModelIdW(LPCWSTR pszAppUserModelId, LPCWSTR pszArguments);  /* @10 */
HRESULT WINAPI KelLaunchByPFNA(LPCSTR pszPackageFamilyName, DWORD dwMode, INT nOption);      /* @11 */
HRESULT WINAPI KelLaunchByPFNW(LPCWSTR pszPackageFamilyName, DWORD dwMode, INT nOption);     /* @12 */
HRESULT WINAPI KelLaunchByProtocolA(LPCSTR pszProtocol);                                     /* @13 */
HRESULT WINAPI KelLaunchByProtocolW(LPCWSTR pszProtocol);                                    /* @14 */
HRESULT WINAPI KelLaunchBySearchA(LPCSTR pszKeyword, DWORD dwMode, INT nOption);             /* @15 */
HRESULT WINAPI KelLaunchBySearchW(LPCWSTR pszKeyword, DWORD dwMode, INT nOption);            /* @16 */
HRESULT WINAPI KelLaunchIEBySearch(DWORD dwTileMode, DWORD dwSearchMode, INT nOption);       /* @17 */
HRESULT WINAPI KelLaunchStoreA(LPCSTR pszPackageFamilyName);                                 /* @18 */
HRESULT WINAPI KelLaunchStoreW(LPCWSTR pszPackageFamilyName);                                /* @19 */
void    WINAPI KelReleaseStringA(LPSTR pszString);                                           /* @20 */
void    WINAPI KelReleaseStringW(LPWSTR pszString);                                          /* @21 */

#ifdef __cplusplus
}
#endif

#endif /* KELBROOK_H */
