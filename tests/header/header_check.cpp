// Compiles the public header as C++, alone, and checks at compile time that
// each run-time function type is exactly the type of its declaration. Built,
// never run.
#include "Kelbrook.h"

#include <type_traits>

#define KEL_CHECK_TYPE(name) \
  static_assert(std::is_same_v<decltype(&name), PFN_##name>, "PFN_" #name " matches " #name);

KEL_CHECK_TYPE(KelFinalize)
KEL_CHECK_TYPE(KelGetAppDisplayNameByPFNW)
KEL_CHECK_TYPE(KelGetMonitorMode)
KEL_CHECK_TYPE(KelInitialize)
KEL_CHECK_TYPE(KelIsInstalledA)
KEL_CHECK_TYPE(KelIsInstalledW)
KEL_CHECK_TYPE(KelLaunchBrowserByProtocolA)
KEL_CHECK_TYPE(KelLaunchBrowserByProtocolW)
KEL_CHECK_TYPE(KelLaunchByAppUserModelIdA)
KEL_CHECK_TYPE(KelLaunchByAppUserModelIdW)
KEL_CHECK_TYPE(KelLaunchByPFNA)
KEL_CHECK_TYPE(KelLaunchByPFNW)
KEL_CHECK_TYPE(KelLaunchByProtocolA)
KEL_CHECK_TYPE(KelLaunchByProtocolW)
KEL_CHECK_TYPE(KelLaunchBySearchA)
KEL_CHECK_TYPE(KelLaunchBySearchW)
KEL_CHECK_TYPE(KelLaunchIEBySearch)
KEL_CHECK_TYPE(KelLaunchStoreA)
KEL_CHECK_TYPE(KelLaunchStoreW)
KEL_CHECK_TYPE(KelReleaseStringA)
KEL_CHECK_TYPE(KelReleaseStringW)

static_assert(FAILED(E_KEL_PACKAGE_NOT_FOUND) && FAILED(E_KEL_MULTIPLE_APPLICATIONS) &&
              FAILED(E_KEL_DISPLAY_NAME_FAILED), "the library's codes are failures");
