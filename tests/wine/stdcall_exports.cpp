// stdcall_exports.exe: every export of the x86 Kelbrook.dll removes its own
// arguments from the stack, as a host compiled against Kelbrook.h (WINAPI,
// that is __stdcall) expects. A host whose compiler pushes the arguments and
// leaves their removal to the callee would otherwise run on with its stack
// pointer off by the arguments' size after every call.
//
//   stdcall_exports.exe DLLPATH ExportsRemoveTheirOwnArguments
//
// Each export is called through an assembly thunk that pushes the arguments,
// calls, and reports how many bytes the call left on the stack: 0 for
// stdcall, the arguments' size for cdecl. The arguments are ones the export
// refuses before any side effect (null pointers, a mode out of range), except
// KelInitialize and KelFinalize, which take none. Prints "PASS name" or
// "FAIL name: reason"; exit code 0 on PASS, 1 on FAIL, 2 on bad usage.
//
// x64 has a single calling convention in which the caller always removes the
// arguments, so this test exists for the x86 DLL only.

#include "support/wine_test_support.h"

#include <shellapi.h>

#include <string>

#if !defined(__i386__)
#error "stdcall_exports.cpp checks the x86 calling convention and is built for i686 only"
#endif

using namespace wine_test;

extern "C" {
// Pushes `count` 32-bit arguments from `arguments` right to left, calls
// `function`, stores what it left in EAX to *result, and returns how many
// bytes the call left on the stack (negative if it removed more than was
// pushed). 64 spare bytes below the saved registers catch a callee that
// reads or writes beyond the arguments it was given.
int __cdecl KelStackLeftOver(const void* function, const DWORD* arguments, int count, DWORD* result);
}

asm(R"(
    .text
    .globl _KelStackLeftOver
    .def _KelStackLeftOver; .scl 2; .type 32; .endef
_KelStackLeftOver:
    pushl %ebp
    movl %esp, %ebp
    pushl %ebx
    pushl %esi
    pushl %edi
    subl $64, %esp
    movl 12(%ebp), %esi
    movl 16(%ebp), %ecx
    movl %esp, %edi
1:  testl %ecx, %ecx
    jz 2f
    decl %ecx
    pushl (%esi,%ecx,4)
    jmp 1b
2:  call *8(%ebp)
    movl 20(%ebp), %ecx
    movl %eax, (%ecx)
    movl %edi, %eax
    subl %esp, %eax
    movl %edi, %esp
    addl $64, %esp
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    ret
)");

namespace {

constexpr DWORD kNoResult = 0xFFFFFFFF;  // for the two exports that return nothing

struct ExportCall {
  const char* name;
  int argumentCount;  // 32-bit words, as in the decorated name Name@<4 * count>
  DWORD arguments[3];
  DWORD expected;  // the result, or kNoResult
};

// In the order a host would call them: KelInitialize first, KelFinalize last.
const ExportCall kCalls[] = {
    {"KelInitialize", 0, {}, S_OK},
    {"KelGetAppDisplayNameByPFNW", 2, {0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelGetMonitorMode", 1, {0}, static_cast<DWORD>(E_POINTER)},
    {"KelIsInstalledA", 2, {0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelIsInstalledW", 2, {0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchBrowserByProtocolA", 2, {0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchBrowserByProtocolW", 2, {0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchByAppUserModelIdA", 1, {0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchByAppUserModelIdW", 2, {0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchByPFNA", 3, {0, 0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchByPFNW", 3, {0, 0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchByProtocolA", 1, {0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchByProtocolW", 1, {0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchBySearchA", 3, {0, 0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchBySearchW", 3, {0, 0, 0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchIEBySearch", 3, {3, 0, 0}, static_cast<DWORD>(E_INVALIDARG)},  // tile mode above 2
    {"KelLaunchStoreA", 1, {0}, static_cast<DWORD>(E_POINTER)},
    {"KelLaunchStoreW", 1, {0}, static_cast<DWORD>(E_POINTER)},
    {"KelReleaseStringA", 1, {0}, kNoResult},
    {"KelReleaseStringW", 1, {0}, kNoResult},
    {"KelFinalize", 0, {}, kNoResult},
};

void ExportsRemoveTheirOwnArguments(const std::wstring& dllPath) {
  static_assert(sizeof kCalls / sizeof kCalls[0] == 21, "every export is called once");
  SettingsScope settings;
  TempFolder localAppData(L"kelstdcall");
  SetEnvironment(L"LOCALAPPDATA", localAppData.Path());

  Library library(dllPath);
  for (const ExportCall& call : kCalls) {
    const void* function = reinterpret_cast<const void*>(GetProcAddress(library.Module(), call.name));
    if (function == nullptr) Fail(Format("GetProcAddress(\"%s\") failed", call.name));
    DWORD result = 0;
    const int leftOver = KelStackLeftOver(function, call.arguments, call.argumentCount, &result);
    if (leftOver != 0)
      Fail(Format("%s with %d argument(s) left %d bytes on the stack; a stdcall export leaves 0", call.name,
                  call.argumentCount, leftOver));
    if (call.expected != kNoResult && result != call.expected)
      Fail(Format("%s returned 0x%08lX, expected 0x%08lX", call.name, result, call.expected));
  }
}

struct Test {
  const char* name;
  void (*run)(const std::wstring& dllPath);
};

const Test kTests[] = {
    {"ExportsRemoveTheirOwnArguments", ExportsRemoveTheirOwnArguments},
};

const char kUsage[] = "stdcall_exports.exe DLLPATH TESTNAME";

}  // namespace

int main() { return RunDllTestNamedOnCommandLine(kUsage, kTests); }
