// The baseline of a trace call with the log off: a call that does nothing,
// kept out of line (and out of interprocedural analysis) in its own file.
#include "empty_trace.h"

namespace kel::bench {

__attribute__((noinline, noipa)) int EmptyTrace(const char* format, const char16_t* name) {
  asm volatile("" : : "r"(format), "r"(name) : "memory");
  return 1;
}

}  // namespace kel::bench
