#include "frame/narrow_bridge.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/export_guard.h"
#include "frame/exports.h"
#include "frame/log.h"
#include "frame/trace_exit.h"
#include "platform/platform.h"

namespace kel {
namespace {

struct FreeDeleter {
  void operator()(char16_t* p) const { std::free(p); }
};
using MallocWide = std::unique_ptr<char16_t, FreeDeleter>;

// Converts, or gives null: every conversion failure counts alike at the
// exports.
MallocWide ToWide(const char* source) {
  char16_t* wide = nullptr;
  if (Failed(ShiftJisToWideChar(source, &wide))) return MallocWide(nullptr);
  return MallocWide(wide);
}

}  // namespace

HRESULT ShiftJisToWideChar(const char* source, char16_t** ppWideChar) {
  constexpr char16_t kName[] = u"ShiftJisToWideChar";
  WriteDebugLog("%S(%s) IN\r\n", kName, source);
  KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(source, ppWideChar));
  auto& sys = platform::Current();
  const int length = sys.MultiByteToWideChar(platform::CP_SHIFT_JIS, platform::MB_PRECOMPOSED, source, -1, nullptr, 0);
  if (length <= 0) return TraceExit(kName, E_FAIL);
  // One unit more than asked for, zeroed: the copy stays terminated even if
  // the converter consumed the terminator after a dangling lead byte.
  auto* buffer = static_cast<char16_t*>(std::calloc(static_cast<std::size_t>(length) + 1, sizeof(char16_t)));
  *ppWideChar = buffer;
  if (buffer == nullptr) return TraceExit(kName, E_OUTOFMEMORY);
  if (sys.MultiByteToWideChar(platform::CP_SHIFT_JIS, platform::MB_PRECOMPOSED, source, -1, buffer, length) != 0) {
    WriteDebugLog("%S OUT(0x%08X *ppWideChar = %S)\r\n", kName, S_OK, static_cast<const char16_t*>(buffer));
    return S_OK;
  }
  std::free(buffer);
  *ppWideChar = nullptr;
  return TraceExit(kName, E_FAIL);
}

}  // namespace kel

using namespace kel;

namespace {

// The one pattern of the narrow exports after their own checks.
template <typename CallWide>
[[nodiscard]] HRESULT ConvertAndCall(const char* source, CallWide callWide) {
  MallocWide wide = ToWide(source);
  if (!wide) return E_FAIL;
  return callWide(static_cast<const char16_t*>(wide.get()));
}

bool IsEmpty(const char* text) { return text[0] == 0; }

// The narrow exports that take one string and nothing else.
template <typename WideExport>
[[nodiscard]] HRESULT ForwardString(const char16_t* name, const char* text, WideExport wideExport) {
  return GuardExport([&]() -> HRESULT {
    WriteDebugLog("%S(%s) IN\r\n", name, text);
    KEL_RETURN_IF_FAILED_TRACED(name, CheckStringArgument(text));
    return TraceExit(name, ConvertAndCall(text, wideExport));
  });
}

// The narrow launches that take a mode and an option beside their string.
template <typename WideLaunch>
[[nodiscard]] HRESULT ForwardLaunch(const char16_t* name, const char* text, DWORD mode, std::int32_t option,
                                    WideLaunch wideLaunch) {
  return GuardExport([&]() -> HRESULT {
    WriteDebugLog("%S(%s, %d, %d) IN\r\n", name, text, mode, option);
    KEL_RETURN_IF_FAILED_TRACED(name, CheckLaunchArguments(text, mode));
    return TraceExit(name, ConvertAndCall(text, [&](const char16_t* w) { return wideLaunch(w, mode, option); }));
  });
}

// Both release exports: a string the library handed out, wide or narrow,
// came from the local heap.
void ReleaseHostString(const char16_t* name, void* string) {
  GuardVoidExport([&] {
    WriteDebugLog("%S IN\r\n", name);
    // The host's string is gone either way; a failed free has no one to tell.
    if (string != nullptr) (void)platform::Current().LocalFree(string);
    WriteDebugLog("%S OUT\r\n", name);
  });
}

}  // namespace

extern "C" HRESULT KELAPI KelLaunchByProtocolA(const char* pszProtocol) {
  return ForwardString(u"KelLaunchByProtocolA", pszProtocol, KelLaunchByProtocolW);
}

extern "C" HRESULT KELAPI KelLaunchStoreA(const char* pszPackageFamilyName) {
  return ForwardString(u"KelLaunchStoreA", pszPackageFamilyName, KelLaunchStoreW);
}

extern "C" HRESULT KELAPI KelIsInstalledA(const char* pszPackageFamilyName, BOOL* pIsInstalled) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelIsInstalledA";
    WriteDebugLog("%S(%s) IN\r\n", kName, pszPackageFamilyName);
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(pszPackageFamilyName, pIsInstalled));
    return TraceExit(kName, ConvertAndCall(pszPackageFamilyName,
                                           [&](const char16_t* w) { return KelIsInstalledW(w, pIsInstalled); }));
  });
}

extern "C" HRESULT KELAPI KelLaunchBySearchA(const char* pszKeyword, DWORD dwMode, std::int32_t nOption) {
  return ForwardLaunch(u"KelLaunchBySearchA", pszKeyword, dwMode, nOption, KelLaunchBySearchW);
}

extern "C" HRESULT KELAPI KelLaunchByPFNA(const char* pszPackageFamilyName, DWORD dwMode, std::int32_t nOption) {
  return ForwardLaunch(u"KelLaunchByPFNA", pszPackageFamilyName, dwMode, nOption, KelLaunchByPFNW);
}

extern "C" HRESULT KELAPI KelLaunchBrowserByProtocolA(const char* pszUrl, DWORD dwAssociationMode) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchBrowserByProtocolA";
    WriteDebugLog("%S(%s, %d) IN\r\n", kName, pszUrl, dwAssociationMode);
    if (pszUrl == nullptr) return TraceExit(kName, E_POINTER);
    // The shortest address the wide export accepts, "http:", is five bytes.
    if (std::strlen(pszUrl) < 5 || dwAssociationMode > 2) return TraceExit(kName, E_INVALIDARG);
    return TraceExit(kName, ConvertAndCall(pszUrl, [&](const char16_t* w) {
                       return KelLaunchBrowserByProtocolW(w, dwAssociationMode);
                     }));
  });
}

extern "C" HRESULT KELAPI KelLaunchByAppUserModelIdA(const char* pszAppUserModelId) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchByAppUserModelIdA";
    WriteDebugLog("%S(%s) IN\r\n", kName, pszAppUserModelId);
    if (pszAppUserModelId == nullptr) return TraceExit(kName, E_POINTER);
    // An empty ID is handed on as an empty wide ID without a conversion.
    if (IsEmpty(pszAppUserModelId)) return TraceExit(kName, KelLaunchByAppUserModelIdW(u"", nullptr));
    return TraceExit(kName, ConvertAndCall(pszAppUserModelId,
                                           [](const char16_t* w) { return KelLaunchByAppUserModelIdW(w, nullptr); }));
  });
}

extern "C" void KELAPI KelReleaseStringW(char16_t* pszString) { ReleaseHostString(u"KelReleaseStringW", pszString); }

extern "C" void KELAPI KelReleaseStringA(char* pszString) { ReleaseHostString(u"KelReleaseStringA", pszString); }
