// The Windows headers the real platform uses, followed by the removal of
// their A/W name macros, which would otherwise rename the seam's operations.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <objbase.h>
#include <roapi.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <shobjidl.h>
#include <winstring.h>

#undef GetEnvironmentVariable
#undef ExpandEnvironmentStrings
#undef GetModuleFileName
#undef CreateFile
#undef GetFileAttributes
#undef PathFileExists
#undef SHCreateDirectoryEx
#undef FindFirstFile
#undef FindNextFile
#undef RegOpenKeyEx
#undef RegQueryValueEx
#undef RegSetValueEx
#undef RegDeleteValue
#undef VerifyVersionInfo
#undef ShellExecute
#undef CreateEvent
#undef MapVirtualKey
#undef GetClassName
#undef MessageBox
#undef GetUserName
#undef LookupAccountName
#undef ConvertSidToStringSid
