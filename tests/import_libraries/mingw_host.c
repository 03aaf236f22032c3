/*
 * mingw_host.exe: a C host built by mingw-w64 gcc from Kelbrook.h and linked
 * against libKelbrook.a, so that every call below goes through the import
 * table the loader fills from Kelbrook.dll. Prints "PASS name" or
 * "FAIL name: reason" per export; exit code 0 when all pass, 1 otherwise.
 * The loader finds Kelbrook.dll next to the executable.
 */
#include <windows.h>

#include <stdio.h>

#include "Kelbrook.h"

static int CheckResult(const char* name, HRESULT result, HRESULT expected) {
  if (result != expected) {
    printf("FAIL %s: returned 0x%08lX, expected 0x%08lX\n", name, (unsigned long)result, (unsigned long)expected);
    return 1;
  }
  printf("PASS %s returned 0x%08lX\n", name, (unsigned long)result);
  return 0;
}

static int CheckReturned(const char* name) {
  printf("PASS %s returned\n", name);
  return 0;
}

#include "every_export.h"

int main(void) {
  int calls = 0;
  const int failures = CallEveryExport(&calls);
  if (calls != KEL_EXPORT_COUNT) {
    printf("FAIL %d exports called, expected %d\n", calls, KEL_EXPORT_COUNT);
    return 1;
  }
  printf("%s %d exports called through libKelbrook.a, %d failed\n", failures == 0 ? "PASS" : "FAIL", calls, failures);
  fflush(stdout);
  return failures == 0 ? 0 : 1;
}
