/*
 * Kelbrook.h - public interface of Kelbrook.dll.
 *
 * Include after or instead of <windows.h> (it includes it). C and C++.
 * Every function uses the platform's standard calling convention (WINAPI:
 * stdcall on x86) and is exported under its plain, undecorated name with a
 * fixed ordinal (the number after each declaration). Link against the import
 * library shipped for your architecture, or load the DLL at run time and look
 * the names up with GetProcAddress, using the PFN_ types below.
 *
 * ---------------------------------------------------------------------------
 * Strings
 *   W functions take zero-terminated UTF-16. A functions take zero-terminated
 *   Shift JIS (code page 932) whatever the system's ANSI code page is; they
 *   convert and call their W partner. Bytes that are not valid Shift JIS are
 *   replaced as MultiByteToWideChar(932, MB_PRECOMPOSED) replaces them, not
 *   refused. A conversion that fails gives E_FAIL.
 *
 * Results
 *   Every HRESULT function checks its arguments first, in this order, and
 *   returns at once:
 *     E_POINTER     (0x80004003) a required pointer is NULL;
 *     E_INVALIDARG  (0x80070057) a required string is empty, or a mode is not
 *                   0, 1 or 2 (compared as unsigned: -1 is refused too).
 *   Beyond the codes listed per function, any function may return
 *     E_OUTOFMEMORY (0x8007000E) memory ran out, or
 *     E_FAIL        (0x80004005) an unexpected internal failure;
 *   no exception ever leaves a function, and none ends or hangs the host.
 *   Test results with SUCCEEDED()/FAILED(): S_FALSE (1) is a success.
 *   The library's own codes (facility-less, customer bit set) follow.
 *
 * Initialisation and unloading
 *   Call KelInitialize once before the other functions and KelFinalize when
 *   done; the pair is counted, and only the first KelInitialize and the
 *   KelFinalize that brings the count back to 0 do work. The first one loads
 *   the catalogue of installed apps and starts the library's one background
 *   thread (the refresh thread), which 1 second later and then every
 *   RefreshInterval minutes (registry, default 720) enumerates the user's
 *   Store packages and Start menu shortcuts and saves the catalogue file.
 *   Functions called without KelInitialize still work; the search functions
 *   then have an empty catalogue and exclude no names.
 *
 *   Call KelFinalize (once per successful KelInitialize) before FreeLibrary.
 *   FreeLibrary without it destroys the catalogue but leaves the refresh
 *   thread running in code that is no longer mapped: the host process
 *   crashes when that thread next runs (one second after KelInitialize, at
 *   its next refresh, or at once if a pass is under way). KelFinalize stops the thread and waits for it
 *   up to 20 seconds; if it did not end in that time it is still running
 *   when KelFinalize returns, and the DLL must stay loaded. A process that
 *   exits without KelFinalize loses nothing: the catalogue file is replaced
 *   atomically, so it is either the old or the new one. Never call
 *   KelInitialize or KelFinalize from DllMain.
 *
 * Threads
 *   KelInitialize and KelFinalize must not run at the same time as each
 *   other or as any other function: serialise them in the host. All other
 *   functions may be called from any thread, several at once; the catalogue
 *   is guarded by a lock of its own. But do not overlap calls that act on the
 *   user's desktop: two browser launches (KelLaunchBrowserByProtocolA/W,
 *   KelLaunchIEBySearch) that overlap can each save the other's temporary
 *   registry value and restore it as the user's, and search launches that
 *   overlap type into each other's search pane and share one clipboard.
 *   Each launch runs and blocks on the calling thread; call launches from a
 *   worker thread if the host's UI must stay responsive.
 *
 * COM and the Windows Runtime on the calling thread
 *   The library sets up apartments per call and undoes them before it
 *   returns, with the exceptions marked (!):
 *   - KelGetMonitorMode and every search launch (KelLaunchBySearchA/W,
 *     KelLaunchByPFNA/W, KelLaunchIEBySearch) call
 *     CoInitializeEx(NULL, COINIT_APARTMENTTHREADED) around each use of the
 *     shell's app visibility object and CoUninitialize after it. On a thread
 *     already in the multithreaded apartment the call goes on in it.
 *     (!) If the object cannot be created on such a thread, CoUninitialize is
 *     still called once, undoing one of the host's own initialisations.
 *   - Every package query (KelIsInstalledA/W, KelGetAppDisplayNameByPFNW,
 *     KelLaunchByPFNA/W, and the search launches with a non-zero option, once
 *     per catalogued package) calls RoInitialize(RO_INIT_SINGLETHREADED) and
 *     RoUninitialize. (!) If the deployment service's package manager cannot
 *     be created, RoUninitialize is not called: the thread stays initialised
 *     as a single-threaded apartment.
 *   - KelLaunchByAppUserModelIdA/W initialise nothing: the calling thread must
 *     already have initialised COM (either apartment); otherwise the creation
 *     fails, typically with CO_E_NOTINITIALIZED (0x800401F0).
 *   - KelLaunchByProtocolA/W and KelLaunchStoreA/W call ShellExecuteW with
 *     the thread's COM state as it is.
 *   A host thread initialised with CoInitializeEx(NULL,
 *   COINIT_APARTMENTTHREADED) before its first call avoids every (!) case.
 *   The refresh thread initialises its own apartments, never the host's.
 *
 * Windows 8.1 behaviour
 *   Two things depend on the Windows version that the system reports to the
 *   host process (only the minor version is tested: 3 or more): the package
 *   name substitution below, and the Messaging notice of the search launch.
 *   Windows reports 6.3 only to a host whose executable manifest declares
 *   Windows 8.1 compatibility:
 *     <supportedOS Id="{1f676c76-80e1-4239-95bb-83d0f6d0da78}"/>
 *   Package name substitution: KelLaunchStoreA/W, KelIsInstalledA/W,
 *   KelGetAppDisplayNameByPFNW and KelLaunchByPFNA/W replace these Windows 8
 *   package family names (compared ignoring case) when the test passes:
 *     microsoft.microsoftskydrive_8wekyb3d8bbwe -> FileManager_cw5n1h2txyewy
 *     microsoft.windowsphotos_8wekyb3d8bbwe     -> FileManager_cw5n1h2txyewy
 *     Microsoft.Camera_8wekyb3d8bbwe            -> Microsoft.MoCamera_cw5n1h2txyewy
 *
 * The log
 *   With the REG_DWORD value DebugLog non-zero under
 *   HKEY_CURRENT_USER\Software\Osk\Kelbrook, every function appends its
 *   entry and exit lines to %LOCALAPPDATA%\Osk\Kelbrook\KelbrookLogFS.txt
 *   (UTF-8; the folder is made by KelInitialize). The switch is read again by
 *   KelInitialize, KelLaunchStoreA/W, KelIsInstalledA/W and
 *   KelLaunchByAppUserModelIdA/W.
 * ---------------------------------------------------------------------------
 */
#ifndef KELBROOK_H
#define KELBROOK_H

#include <windows.h>

/* The version of the library this header describes; the DLL's VERSIONINFO
 * resource carries the same numbers. */
#define KELBROOK_VERSION_MAJOR  1
#define KELBROOK_VERSION_MINOR  0
#define KELBROOK_VERSION_PATCH  4
#define KELBROOK_VERSION_BUILD  0
#define KELBROOK_VERSION_STRING "1.0.4.0"

/* The file name to load at run time (LoadLibraryW). */
#define KELBROOK_DLL_NAME_W L"Kelbrook.dll"

/* The library's own result codes. */
/* No package of the family is installed for the current user
 * (KelLaunchByPFNA/W, KelGetAppDisplayNameByPFNW). */
#define E_KEL_PACKAGE_NOT_FOUND     ((HRESULT)0xA0000001L)
/* The package's manifest declares more than one application, so it has no one
 * display name (KelGetAppDisplayNameByPFNW). */
#define E_KEL_MULTIPLE_APPLICATIONS ((HRESULT)0xA0000002L)
/* KelLaunchByPFNA/W could not get the package's display name for any reason
 * other than E_KEL_PACKAGE_NOT_FOUND (E_KEL_MULTIPLE_APPLICATIONS included). */
#define E_KEL_DISPLAY_NAME_FAILED   ((HRESULT)0xA0000003L)

/* Search modes (dwMode of KelLaunchBySearchA/W and KelLaunchByPFNA/W,
 * dwSearchMode of KelLaunchIEBySearch). */
#define KEL_SEARCH_SUBMIT_QUERY   0u /* paste the query and submit it with Enter */
#define KEL_SEARCH_PASTE_KEYWORD  1u /* paste the bare keyword, no Enter */
#define KEL_SEARCH_AUTO           2u /* mode 1 when the keyword names a catalogued app
                                        (needs a non-zero option), else mode 0 */

/* Monitor modes of KelGetMonitorMode: what the primary monitor shows. */
#define KEL_MONITOR_DESKTOP       0u /* the desktop: no Store app visible */
#define KEL_MONITOR_STORE_APP     1u /* a Store app is visible */
#define KEL_MONITOR_START_SCREEN  2u /* the Start screen */

#ifndef RC_INVOKED

/* SAL annotations: the platform's <sal.h> where there is one (Visual C++,
 * mingw-w64), empty otherwise; any the platform lacks are defined empty. */
#if defined(_MSC_VER)
#include <sal.h>
#elif defined(__has_include)
#if __has_include(<sal.h>)
#include <sal.h>
#endif
#endif
#ifndef _In_
#define _In_
#endif
#ifndef _In_z_
#define _In_z_
#endif
#ifndef _In_opt_z_
#define _In_opt_z_
#endif
#ifndef _Out_
#define _Out_
#endif
#ifndef _Outptr_result_maybenull_z_
#define _Outptr_result_maybenull_z_
#endif
#ifndef _Frees_ptr_opt_
#define _Frees_ptr_opt_
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* @1 KelFinalize
 * Counts one KelInitialize off. The call that brings the count to 0 stops the
 * refresh thread: it signals it and waits for it to end, at most 20 seconds
 * (it normally ends at its next check, within one step of a pass; a stop
 * that comes during a pass skips the rest of it, the save included). The
 * catalogue stays in memory; it is not saved here. Without an outstanding
 * KelInitialize it does nothing. */
void WINAPI KelFinalize(void);

/* @2 KelGetAppDisplayNameByPFNW
 * The display name of the one application of an installed Store package,
 * read from the package's AppxManifest.xml: a literal name comes back in
 * lower case (ASCII letters), an "ms-resource:" name is resolved from the
 * package's resources and keeps its case; at most 255 characters.
 *   pszPackageFamilyName  the package family name (substituted on 8.1, see
 *                         above); not NULL, not empty.
 *   ppszDisplayName       receives the name. *ppszDisplayName MUST be NULL
 *                         on entry: a failed lookup leaves it as it was, and
 *                         the library reads it for its log either way.
 *                         Whatever the result, if it is not NULL on return,
 *                         free it with KelReleaseStringW (some failures come
 *                         after the buffer was allocated).
 * Results: S_OK, name stored (it may be empty when the manifest has no
 *   DisplayName); S_FALSE, the manifest has no Application or VisualElements
 *   element, nothing stored; E_KEL_PACKAGE_NOT_FOUND; E_KEL_MULTIPLE_APPLICATIONS;
 *   E_FAIL, an "ms-resource:" name could not be resolved or a package query
 *   failed; E_POINTER; E_INVALIDARG; the code of a manifest that cannot be
 *   opened or read (a Win32 code as HRESULT, or an XML reader code 0xC00CExxx;
 *   E_OUTOFMEMORY for a manifest over 64 MiB).
 * Blocks for one package query and the manifest read. Apartment: a package
 * query (see above). */
HRESULT WINAPI KelGetAppDisplayNameByPFNW(_In_z_ LPCWSTR pszPackageFamilyName,
                                          _Outptr_result_maybenull_z_ LPWSTR *ppszDisplayName);

/* @3 KelGetMonitorMode
 * What the primary monitor shows, from the shell's IAppVisibility object.
 *   puMonitorMode  receives KEL_MONITOR_DESKTOP, KEL_MONITOR_STORE_APP or
 *                  KEL_MONITOR_START_SCREEN (the Start screen wins over a
 *                  visible app); not NULL; untouched on failure.
 * Results: S_OK; E_FAIL, the shell does not know what the monitor shows;
 *   E_POINTER; the failure of CoInitializeEx or of creating the object
 *   (for example REGDB_E_CLASSNOTREG where the shell has no such object).
 * Blocks only for the COM calls. Apartment: see above (!). */
HRESULT WINAPI KelGetMonitorMode(_Out_ UINT *puMonitorMode);

/* @4 KelInitialize
 * Reads the DebugLog switch again and counts one call. The first call (and
 * the first after the count went back to 0) also creates the data folder
 * %LOCALAPPDATA%\Osk\Kelbrook\<host executable name up to its first dot>,
 * loads the catalogue from AppNameList1.0.4.0.xml in it or, when that file
 * does not exist, from PresetAppNameList.xml beside the host executable, and
 * starts the refresh thread. A file that is missing or cannot be parsed is
 * logged and is not a failure: the catalogue then starts with what could be
 * read, and the first refresh writes the data file.
 * Results: S_OK; E_FAIL, when there is no data file and the preset file's
 *   path cannot be built, or the thread's exit event or the thread cannot be
 *   created (the count then stays 0, and a later call tries again).
 * Blocks for the file read (files over 64 MiB are not read). */
HRESULT WINAPI KelInitialize(void);

/* @5 KelIsInstalledA: KelIsInstalledW with a Shift JIS name. */
HRESULT WINAPI KelIsInstalledA(_In_z_ LPCSTR pszPackageFamilyName, _Out_ BOOL *pIsInstalled);

/* @6 KelIsInstalledW
 * Whether a Store package of the family is installed for the current user,
 * asked of the deployment service.
 *   pszPackageFamilyName  substituted on 8.1 (see above); not NULL, not empty.
 *   pIsInstalled          receives TRUE or FALSE; not NULL.
 * Results: S_OK, also when the query itself failed (then FALSE); E_POINTER;
 *   E_INVALIDARG. Blocks for one package query. Apartment: a package query. */
HRESULT WINAPI KelIsInstalledW(_In_z_ LPCWSTR pszPackageFamilyName, _Out_ BOOL *pIsInstalled);

/* @7 KelLaunchBrowserByProtocolA: KelLaunchBrowserByProtocolW with a Shift JIS
 * URL; a URL of fewer than 5 bytes gives E_INVALIDARG. */
HRESULT WINAPI KelLaunchBrowserByProtocolA(_In_z_ LPCSTR pszUrl, DWORD dwAssociationMode);

/* @8 KelLaunchBrowserByProtocolW
 * Opens a web address with the default handler (ShellExecuteW "open") after
 * setting Internet Explorer's per-user value AssociationActivationMode
 * (REG_DWORD under HKCU\Software\Microsoft\Internet Explorer\Main), and puts
 * the value back afterwards.
 *   pszUrl             must begin with "http:" or "https:" (any case);
 *                      not NULL.
 *   dwAssociationMode  0 writes 2, 1 writes 1, 2 writes nothing; a value
 *                      already equal to the one wanted is not written.
 * Restoring: when the value existed and was changed, or did not exist, the
 * call waits RestoreRegistryWaitTime milliseconds (registry, default 1000) so
 * that the browser reads it, then writes the old value back or deletes the
 * value again. A value of another type is neither used nor changed. If the
 * host dies during the wait, the changed value stays.
 * Results: S_OK, the shell took the address (the browser is not waited for);
 *   E_FAIL, the shell could not open it; E_POINTER; E_INVALIDARG (empty URL,
 *   another scheme, mode above 2; the registry is not touched).
 * Blocks for the shell call and the wait. Do not overlap browser launches. */
HRESULT WINAPI KelLaunchBrowserByProtocolW(_In_z_ LPCWSTR pszUrl, DWORD dwAssociationMode);

/* @9 KelLaunchByAppUserModelIdA: KelLaunchByAppUserModelIdW with a Shift JIS
 * ID and no arguments. An empty ID is handed on as it is. */
HRESULT WINAPI KelLaunchByAppUserModelIdA(_In_z_ LPCSTR pszAppUserModelId);

/* @10 KelLaunchByAppUserModelIdW
 * Starts a Store application through the system's
 * IApplicationActivationManager::ActivateApplication.
 *   pszAppUserModelId  the application user model ID
 *                      ("<package family name>!<application id>"); not NULL;
 *                      an empty ID is passed to the system as it is.
 *   pszArguments       NULL: the activation manager is created out of process
 *                      and the application is allowed to take the foreground
 *                      (CoAllowSetForegroundWindow), no arguments.
 *                      Not NULL: the manager is created in process and the
 *                      arguments are passed; no foreground permission.
 * Results: S_OK; E_POINTER; otherwise the failing code of the system call
 *   (CoCreateInstance, CoAllowSetForegroundWindow or ActivateApplication),
 *   typically CO_E_NOTINITIALIZED when the thread has not initialised COM.
 * Blocks for as long as the system's activation takes. Apartment: the
 * caller's; nothing is initialised. */
HRESULT WINAPI KelLaunchByAppUserModelIdW(_In_z_ LPCWSTR pszAppUserModelId, _In_opt_z_ LPCWSTR pszArguments);

/* @11 KelLaunchByPFNA: KelLaunchByPFNW with a Shift JIS name. */
HRESULT WINAPI KelLaunchByPFNA(_In_z_ LPCSTR pszPackageFamilyName, DWORD dwMode, INT nOption);

/* @12 KelLaunchByPFNW
 * Starts a Store package's application by typing its display name into the
 * search pane: KelGetAppDisplayNameByPFNW, then KelLaunchBySearchW with that
 * name, dwMode and nOption (see there for the keys, the clipboard and the
 * time it blocks).
 *   pszPackageFamilyName  substituted on 8.1 (see above); not NULL, not empty.
 *   dwMode, nOption       as for KelLaunchBySearchW; dwMode 0 to 2.
 * Results: those of KelLaunchBySearchW; E_KEL_PACKAGE_NOT_FOUND;
 *   E_KEL_DISPLAY_NAME_FAILED for every other failure of the name lookup,
 *   and for a lookup that gave no name; E_POINTER; E_INVALIDARG. */
HRESULT WINAPI KelLaunchByPFNW(_In_z_ LPCWSTR pszPackageFamilyName, DWORD dwMode, INT nOption);

/* @13 KelLaunchByProtocolA: KelLaunchByProtocolW with a Shift JIS string. */
HRESULT WINAPI KelLaunchByProtocolA(_In_z_ LPCSTR pszProtocol);

/* @14 KelLaunchByProtocolW
 * Opens a URL, protocol string or file with its default handler:
 * ShellExecuteW(NULL, "open", pszProtocol, NULL, NULL, SW_SHOW). The string
 * is not inspected. Not NULL, not empty.
 * Results: S_OK, the shell handed it to its handler (which is not waited
 *   for); E_FAIL, any shell failure (no association, not found, denied);
 *   E_POINTER; E_INVALIDARG. Blocks for the shell call. */
HRESULT WINAPI KelLaunchByProtocolW(_In_z_ LPCWSTR pszProtocol);

/* @15 KelLaunchBySearchA: KelLaunchBySearchW with a Shift JIS keyword. */
HRESULT WINAPI KelLaunchBySearchA(_In_z_ LPCSTR pszKeyword, DWORD dwMode, INT nOption);

/* @16 KelLaunchBySearchW
 * Types a search into the Windows search pane as a user would: brings up the
 * Start screen (the Windows key, only when it is not showing) and the search
 * pane (Windows+Q), puts the text on the clipboard, pastes it (Shift+Insert)
 * and, depending on the mode, submits it (Enter).
 *   pszKeyword  not NULL, not empty.
 *   dwMode      KEL_SEARCH_SUBMIT_QUERY (0), KEL_SEARCH_PASTE_KEYWORD (1) or
 *               KEL_SEARCH_AUTO (2).
 *   nOption     non-zero: ask the catalogue which installed applications'
 *               names contain the keyword without being named by it, and
 *               exclude them: the query becomes
 *               "keyword" NOT("name 1" OR "name 2" ...). Zero: the query is
 *               "keyword" alone. Mode 2 pastes the bare keyword when the
 *               keyword names a catalogued application, else submits the
 *               query; with nOption 0 it always submits.
 * Side effects: synthetic key strokes go to whatever window is in front; the
 * clipboard's content is replaced by the text and emptied at the end (the
 * user's previous clipboard content is lost); in modes that submit, the text
 * is pasted and submitted again for as long as the search pane stays in front.
 * On Windows 8.1 (see above) the keyword "メッセージング" (Messaging) instead
 * shows one modal, topmost information box saying that Messaging is not
 * available on this version of Windows, and returns S_OK when the user
 * closes it.
 * Results: S_OK, also when the search pane did not come up (nothing is then
 *   pasted); E_POINTER; E_INVALIDARG; the failure of the catalogue query
 *   (E_OUTOFMEMORY).
 * Blocks: mode 0 about 2 seconds at least, mode 1 about 5 seconds (2 s, the
 * paste, then ClearClipboardWaitTime milliseconds, registry, default 1000);
 * up to about 10 seconds more while waiting for the Start screen and 20 more
 * for the search pane; and in modes that submit, 2.25 seconds more for every
 * re-submission, without limit while the pane stays in front. Apartment:
 * see above (!). Do not overlap search launches. */
HRESULT WINAPI KelLaunchBySearchW(_In_z_ LPCWSTR pszKeyword, DWORD dwMode, INT nOption);

/* @17 KelLaunchIEBySearch
 * Starts Internet Explorer through the search pane (KelLaunchBySearchW with
 * the keyword "Internet Explorer", dwSearchMode and nOption) after setting
 * Internet Explorer's per-user value ApplicationTileImmersiveActivation
 * (REG_DWORD under HKCU\Software\Microsoft\Internet Explorer\Main), and puts
 * the value back at once afterwards (no wait): the old value, or none when
 * there was none (then it is deleted even if nothing was written).
 *   dwTileMode    0 writes 0, 1 writes 1, 2 writes nothing; a value already
 *                 equal is not written; an absent value counts as 1.
 *   dwSearchMode  0 to 2, as dwMode of KelLaunchBySearchW.
 *   nOption       as for KelLaunchBySearchW.
 * Results: those of KelLaunchBySearchW; E_INVALIDARG for a mode above 2
 *   (nothing is read or launched). Blocks as KelLaunchBySearchW. Do not
 *   overlap browser launches. */
HRESULT WINAPI KelLaunchIEBySearch(DWORD dwTileMode, DWORD dwSearchMode, INT nOption);

/* @18 KelLaunchStoreA: KelLaunchStoreW with a Shift JIS name. */
HRESULT WINAPI KelLaunchStoreA(_In_z_ LPCSTR pszPackageFamilyName);

/* @19 KelLaunchStoreW
 * Opens the Windows Store page of a package: ShellExecuteW "open" of
 * "ms-windows-store:PDP?PFN=" followed by the name.
 *   pszPackageFamilyName  substituted on 8.1 (see above); not NULL, not empty.
 * Results: S_OK; E_FAIL, the shell could not open the address; E_POINTER;
 *   E_INVALIDARG. Blocks for the shell call. */
HRESULT WINAPI KelLaunchStoreW(_In_z_ LPCWSTR pszPackageFamilyName);

/* @20 KelReleaseStringA
 * Frees a string the library allocated for the host (LocalFree). NULL is
 * allowed. No function returns a narrow string today; this is the narrow
 * counterpart of KelReleaseStringW. */
void WINAPI KelReleaseStringA(_Frees_ptr_opt_ LPSTR pszString);

/* @21 KelReleaseStringW
 * Frees the display name from KelGetAppDisplayNameByPFNW (LocalFree). NULL is
 * allowed. */
void WINAPI KelReleaseStringW(_Frees_ptr_opt_ LPWSTR pszString);

/* Function types for hosts that load the DLL at run time:
 *   PFN_KelInitialize init =
 *       (PFN_KelInitialize)(void (*)(void))GetProcAddress(module, "KelInitialize"); */
typedef void    (WINAPI *PFN_KelFinalize)(void);
typedef HRESULT (WINAPI *PFN_KelGetAppDisplayNameByPFNW)(_In_z_ LPCWSTR pszPackageFamilyName,
                                                         _Outptr_result_maybenull_z_ LPWSTR *ppszDisplayName);
typedef HRESULT (WINAPI *PFN_KelGetMonitorMode)(_Out_ UINT *puMonitorMode);
typedef HRESULT (WINAPI *PFN_KelInitialize)(void);
typedef HRESULT (WINAPI *PFN_KelIsInstalledA)(_In_z_ LPCSTR pszPackageFamilyName, _Out_ BOOL *pIsInstalled);
typedef HRESULT (WINAPI *PFN_KelIsInstalledW)(_In_z_ LPCWSTR pszPackageFamilyName, _Out_ BOOL *pIsInstalled);
typedef HRESULT (WINAPI *PFN_KelLaunchBrowserByProtocolA)(_In_z_ LPCSTR pszUrl, DWORD dwAssociationMode);
typedef HRESULT (WINAPI *PFN_KelLaunchBrowserByProtocolW)(_In_z_ LPCWSTR pszUrl, DWORD dwAssociationMode);
typedef HRESULT (WINAPI *PFN_KelLaunchByAppUserModelIdA)(_In_z_ LPCSTR pszAppUserModelId);
typedef HRESULT (WINAPI *PFN_KelLaunchByAppUserModelIdW)(_In_z_ LPCWSTR pszAppUserModelId,
                                                         _In_opt_z_ LPCWSTR pszArguments);
typedef HRESULT (WINAPI *PFN_KelLaunchByPFNA)(_In_z_ LPCSTR pszPackageFamilyName, DWORD dwMode, INT nOption);
typedef HRESULT (WINAPI *PFN_KelLaunchByPFNW)(_In_z_ LPCWSTR pszPackageFamilyName, DWORD dwMode, INT nOption);
typedef HRESULT (WINAPI *PFN_KelLaunchByProtocolA)(_In_z_ LPCSTR pszProtocol);
typedef HRESULT (WINAPI *PFN_KelLaunchByProtocolW)(_In_z_ LPCWSTR pszProtocol);
typedef HRESULT (WINAPI *PFN_KelLaunchBySearchA)(_In_z_ LPCSTR pszKeyword, DWORD dwMode, INT nOption);
typedef HRESULT (WINAPI *PFN_KelLaunchBySearchW)(_In_z_ LPCWSTR pszKeyword, DWORD dwMode, INT nOption);
typedef HRESULT (WINAPI *PFN_KelLaunchIEBySearch)(DWORD dwTileMode, DWORD dwSearchMode, INT nOption);
typedef HRESULT (WINAPI *PFN_KelLaunchStoreA)(_In_z_ LPCSTR pszPackageFamilyName);
typedef HRESULT (WINAPI *PFN_KelLaunchStoreW)(_In_z_ LPCWSTR pszPackageFamilyName);
typedef void    (WINAPI *PFN_KelReleaseStringA)(_Frees_ptr_opt_ LPSTR pszString);
typedef void    (WINAPI *PFN_KelReleaseStringW)(_Frees_ptr_opt_ LPWSTR pszString);

#ifdef __cplusplus
}
#endif

#endif /* RC_INVOKED */

#endif /* KELBROOK_H */
