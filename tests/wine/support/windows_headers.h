// The Windows headers every Wine test program starts from: Unicode
// declarations, and no min and max macros in the way of <algorithm>.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef UNICODE
#define UNICODE
#endif
#include <windows.h>
#include <shellapi.h>
