// The ways an operation that returns an HRESULT leaves early: the checks its
// arguments open with, and a failure handed on with the operation's own exit
// line. The exit lines are the log's: "<name> OUT(0x........)" whichever way
// the operation leaves.
#pragma once

#include "frame/log.h"
#include "platform/types.h"

namespace kel {

// The check most operations make first: E_POINTER when the string or any
// out pointer beside it is null, E_INVALIDARG when the string is empty.
template <typename Char, typename... Out>
[[nodiscard]] constexpr HRESULT CheckStringArgument(const Char* text, Out*... out) noexcept {
  if (text == nullptr || ((out == nullptr) || ...)) return E_POINTER;
  return text[0] == 0 ? E_INVALIDARG : S_OK;
}

// The check of the launches that take a mode: their string as above, then
// E_INVALIDARG for a mode past the last one (2).
template <typename Char>
[[nodiscard]] constexpr HRESULT CheckLaunchArguments(const Char* text, DWORD mode) noexcept {
  const HRESULT checked = CheckStringArgument(text);
  if (checked != S_OK) return checked;
  return mode > 2 ? E_INVALIDARG : S_OK;
}

}  // namespace kel

// Leaves the calling operation through TraceExit(name, ...) when
// `expression` (evaluated once) is a failure. A macro because only a macro
// can return from its caller; it is the one such macro of the library.
#define KEL_RETURN_IF_FAILED_TRACED(name, expression)                                     \
  do {                                                                                    \
    const ::kel::HRESULT kelTracedResult = (expression);                                  \
    if (::kel::Failed(kelTracedResult)) return ::kel::TraceExit((name), kelTracedResult); \
  } while (false)
