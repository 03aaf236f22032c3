// Opens a URL or any registered protocol string with the user's default
// handler through the shell's "open" verb.
#include <cstdint>

#include "frame/constants.h"
#include "frame/export_guard.h"
#include "frame/exports.h"
#include "frame/log.h"
#include "frame/trace_exit.h"
#include "platform/platform.h"

using namespace kel;

extern "C" HRESULT KELAPI KelLaunchByProtocolW(const char16_t* pszProtocol) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchByProtocolW";
    WriteDebugLog("%S(%S) IN\r\n", kName, pszProtocol);
    HRESULT result = CheckStringArgument(pszProtocol);
    if (result == S_OK) {
      // The shell answers with a pseudo-handle: above 32 is success, 32 or
      // less one of its error codes, all reported alike.
      const std::intptr_t code =
          platform::Current().ShellExecute(nullptr, kOpenVerb, pszProtocol, nullptr, nullptr, platform::SW_SHOW);
      result = static_cast<std::int32_t>(code) > 32 ? S_OK : E_FAIL;
    }
    return TraceExit(kName, result);
  });
}
