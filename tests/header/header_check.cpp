// Compiles the public header as C++, alone, and checks at compile time that
// each run-time function type is exactly the type of its declaration. Built,
// never run.
#include "Kelbrook.h"

#include <type_traits>

#define KEL_CHECK_TYPE(name) \
  static_assert(std::is_same_v<decltype(&(name)), PFN_##name>, "PFN_" #name " matches " #name);

#include "each_export.inc"

static_assert(FAILED(E_KEL_PACKAGE_NOT_FOUND) && FAILED(E_KEL_MULTIPLE_APPLICATIONS) &&
                  FAILED(E_KEL_DISPLAY_NAME_FAILED),
              "the library's codes are failures");
