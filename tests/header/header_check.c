/* Compiles the public header as C, alone (it must bring <windows.h> itself),
 * and checks at compile time that each run-time function type matches its
 * declaration and that the library's codes are failures. Built, never run. */
#include "Kelbrook.h"

/* External, so that nothing here is unused. */
#define KEL_CHECK_TYPE(name) PFN_##name const kel_check_##name = &(name);

#include "each_export.inc"

_Static_assert(FAILED(E_KEL_PACKAGE_NOT_FOUND), "E_KEL_PACKAGE_NOT_FOUND is a failure");
_Static_assert(FAILED(E_KEL_MULTIPLE_APPLICATIONS), "E_KEL_MULTIPLE_APPLICATIONS is a failure");
_Static_assert(FAILED(E_KEL_DISPLAY_NAME_FAILED), "E_KEL_DISPLAY_NAME_FAILED is a failure");
_Static_assert(KEL_SEARCH_AUTO == 2u && KEL_MONITOR_START_SCREEN == 2u, "modes run from 0 to 2");
_Static_assert(KELBROOK_VERSION_MAJOR >= 1, "the version macros are numbers");

const char kKelCheckVersion[] = KELBROOK_VERSION_STRING;
