// The 21 exported functions, declared with the library's portable types.
// Their ABI matches include/Kelbrook.h: 32-bit results and integers, pointers
// to UTF-16 or Shift JIS text, the platform's standard calling convention.
#pragma once

#include "platform/types.h"

#if defined(_WIN32) && !defined(_WIN64)
#define KELAPI __attribute__((stdcall))
#else
#define KELAPI
#endif

extern "C" {
void KELAPI KelFinalize();
[[nodiscard]] kel::HRESULT KELAPI KelGetAppDisplayNameByPFNW(const char16_t* pszPackageFamilyName,
                                                             char16_t** ppszDisplayName);
[[nodiscard]] kel::HRESULT KELAPI KelGetMonitorMode(kel::UINT* puMonitorMode);
[[nodiscard]] kel::HRESULT KELAPI KelInitialize();
[[nodiscard]] kel::HRESULT KELAPI KelIsInstalledA(const char* pszPackageFamilyName, kel::BOOL* pIsInstalled);
[[nodiscard]] kel::HRESULT KELAPI KelIsInstalledW(const char16_t* pszPackageFamilyName, kel::BOOL* pIsInstalled);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchBrowserByProtocolA(const char* pszUrl, kel::DWORD dwAssociationMode);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchBrowserByProtocolW(const char16_t* pszUrl, kel::DWORD dwAssociationMode);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchByAppUserModelIdA(const char* pszAppUserModelId);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchByAppUserModelIdW(const char16_t* pszAppUserModelId,
                                                             const char16_t* pszArguments);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchByPFNA(const char* pszPackageFamilyName, kel::DWORD dwMode,
                                                  std::int32_t nOption);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchByPFNW(const char16_t* pszPackageFamilyName, kel::DWORD dwMode,
                                                  std::int32_t nOption);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchByProtocolA(const char* pszProtocol);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchByProtocolW(const char16_t* pszProtocol);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchBySearchA(const char* pszKeyword, kel::DWORD dwMode, std::int32_t nOption);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchBySearchW(const char16_t* pszKeyword, kel::DWORD dwMode,
                                                     std::int32_t nOption);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchIEBySearch(kel::DWORD dwTileMode, kel::DWORD dwSearchMode,
                                                      std::int32_t nOption);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchStoreA(const char* pszPackageFamilyName);
[[nodiscard]] kel::HRESULT KELAPI KelLaunchStoreW(const char16_t* pszPackageFamilyName);
void KELAPI KelReleaseStringA(char* pszString);
void KELAPI KelReleaseStringW(char16_t* pszString);
}
