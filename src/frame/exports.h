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
kel::HRESULT KELAPI KelGetAppDisplayNameByPFNW(const char16_t* pszPackageFamilyName, char16_t** ppszDisplayName);
kel::HRESULT KELAPI KelGetMonitorMode(kel::UINT* puMonitorMode);
kel::HRESULT KELAPI KelInitialize();
kel::HRESULT KELAPI KelIsInstalledA(const char* pszPackageFamilyName, kel::BOOL* pIsInstalled);
kel::HRESULT KELAPI KelIsInstalledW(const char16_t* pszPackageFamilyName, kel::BOOL* pIsInstalled);
kel::HRESULT KELAPI KelLaunchBrowserByProtocolA(const char* pszUrl, kel::DWORD dwAssociationMode);
kel::HRESULT KELAPI KelLaunchBrowserByProtocolW(const char16_t* pszUrl, kel::DWORD dwAssociationMode);
kel::HRESULT KELAPI KelLaunchByAppUserModelIdA(const char* pszAppUserModelId);
kel::HRESULT KELAPI KelLaunchByAppUserModelIdW(const char16_t* pszAppUserModelId, const char16_t* pszArguments);
kel::HRESULT KELAPI KelLaunchByPFNA(const char* pszPackageFamilyName, kel::DWORD dwMode, std::int32_t nOption);
kel::HRESULT KELAPI KelLaunchByPFNW(const char16_t* pszPackageFamilyName, kel::DWORD dwMode, std::int32_t nOption);
kel::HRESULT KELAPI KelLaunchByProtocolA(const char* pszProtocol);
kel::HRESULT KELAPI KelLaunchByProtocolW(const char16_t* pszProtocol);
kel::HRESULT KELAPI KelLaunchBySearchA(const char* pszKeyword, kel::DWORD dwMode, std::int32_t nOption);
kel::HRESULT KELAPI KelLaunchBySearchW(const char16_t* pszKeyword, kel::DWORD dwMode, std::int32_t nOption);
kel::HRESULT KELAPI KelLaunchIEBySearch(kel::DWORD dwTileMode, kel::DWORD dwSearchMode, std::int32_t nOption);
kel::HRESULT KELAPI KelLaunchStoreA(const char* pszPackageFamilyName);
kel::HRESULT KELAPI KelLaunchStoreW(const char16_t* pszPackageFamilyName);
void KELAPI KelReleaseStringA(char* pszString);
void KELAPI KelReleaseStringW(char16_t* pszString);
}
