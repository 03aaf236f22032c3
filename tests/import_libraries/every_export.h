/*
 * every_export.h: calls each of the 21 exports once through the including
 * host's import of it, in the order a host calls them (KelInitialize first,
 * KelFinalize last), with arguments the export refuses before doing anything
 * (null pointers, a tile mode out of range), and checks what it returns.
 *
 * The host declares the exports, HRESULT, S_OK, E_POINTER, E_INVALIDARG and
 * NULL, and defines
 *   int CheckResult(const char *name, HRESULT result, HRESULT expected);
 *   int CheckReturned(const char *name);
 * which report the call and return 1 on failure, 0 otherwise.
 */
#ifndef KEL_EVERY_EXPORT_H
#define KEL_EVERY_EXPORT_H

#define KEL_EXPORT_COUNT 21

/* Returns how many calls failed; *calls says how many were made. */
static int CallEveryExport(int* calls) {
  int failures = 0;
  int made = 0;
#define KEL_EXPECT(name, call, expected) (++made, failures += CheckResult(name, call, expected))
#define KEL_RETURNS(name, call) (++made, call, failures += CheckReturned(name))
  KEL_EXPECT("KelInitialize", KelInitialize(), S_OK);
  KEL_EXPECT("KelGetAppDisplayNameByPFNW", KelGetAppDisplayNameByPFNW(NULL, NULL), E_POINTER);
  KEL_EXPECT("KelGetMonitorMode", KelGetMonitorMode(NULL), E_POINTER);
  KEL_EXPECT("KelIsInstalledA", KelIsInstalledA(NULL, NULL), E_POINTER);
  KEL_EXPECT("KelIsInstalledW", KelIsInstalledW(NULL, NULL), E_POINTER);
  KEL_EXPECT("KelLaunchBrowserByProtocolA", KelLaunchBrowserByProtocolA(NULL, 0), E_POINTER);
  KEL_EXPECT("KelLaunchBrowserByProtocolW", KelLaunchBrowserByProtocolW(NULL, 0), E_POINTER);
  KEL_EXPECT("KelLaunchByAppUserModelIdA", KelLaunchByAppUserModelIdA(NULL), E_POINTER);
  KEL_EXPECT("KelLaunchByAppUserModelIdW", KelLaunchByAppUserModelIdW(NULL, NULL), E_POINTER);
  KEL_EXPECT("KelLaunchByPFNA", KelLaunchByPFNA(NULL, 0, 0), E_POINTER);
  KEL_EXPECT("KelLaunchByPFNW", KelLaunchByPFNW(NULL, 0, 0), E_POINTER);
  KEL_EXPECT("KelLaunchByProtocolA", KelLaunchByProtocolA(NULL), E_POINTER);
  KEL_EXPECT("KelLaunchByProtocolW", KelLaunchByProtocolW(NULL), E_POINTER);
  KEL_EXPECT("KelLaunchBySearchA", KelLaunchBySearchA(NULL, 0, 0), E_POINTER);
  KEL_EXPECT("KelLaunchBySearchW", KelLaunchBySearchW(NULL, 0, 0), E_POINTER);
  /* Tile mode 3 is past the last one (2). */
  KEL_EXPECT("KelLaunchIEBySearch", KelLaunchIEBySearch(3, 0, 0), E_INVALIDARG);
  KEL_EXPECT("KelLaunchStoreA", KelLaunchStoreA(NULL), E_POINTER);
  KEL_EXPECT("KelLaunchStoreW", KelLaunchStoreW(NULL), E_POINTER);
  KEL_RETURNS("KelReleaseStringA", KelReleaseStringA(NULL));
  KEL_RETURNS("KelReleaseStringW", KelReleaseStringW(NULL));
  KEL_RETURNS("KelFinalize", KelFinalize());
#undef KEL_EXPECT
#undef KEL_RETURNS
  *calls = made;
  return failures;
}

#endif /* KEL_EVERY_EXPORT_H */
