#pragma once

namespace kel::bench {

// Does nothing, out of line; returns 1 as a trace call with the log off does.
int EmptyTrace(const char* format, const char16_t* name);

}  // namespace kel::bench
