#include "launch/clipboard.h"

#include <cstring>

#include "frame/log.h"
#include "frame/non_copyable.h"
#include "frame/trace_exit.h"
#include "frame/wide.h"
#include "platform/handles.h"
#include "platform/platform.h"

namespace kel {

namespace {

// The clipboard stays open for the scope, then is closed on every path.
class OpenedClipboard : NonCopyable {
 public:
  explicit OpenedClipboard(platform::Platform& sys) : sys_(sys), open_(sys.OpenClipboard(nullptr) != 0) {}
  ~OpenedClipboard() {
    if (open_) (void)sys_.CloseClipboard();  // a destructor has no one to tell
  }
  [[nodiscard]] bool IsOpen() const { return open_; }

 private:
  platform::Platform& sys_;
  bool open_;
};

// A global block, freed when the scope ends: also after it was handed to the
// clipboard, which is the library's long-standing behaviour and hosts rely on
// it unchanged.
struct GlobalMemoryTraits {
  using Value = Handle;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value v) { return v != nullptr; }
  static void Close(Value v) { (void)platform::Current().GlobalFree(v); }
};
using GlobalBlock = platform::UniqueResource<GlobalMemoryTraits>;

// Copies the text into a new block and hands it over; the clipboard is open.
HRESULT HandOver(platform::Platform& sys, const char16_t* name, const char16_t* text) {
  const std::size_t length = WideLength(text);
  const GlobalBlock block(sys.GlobalAlloc(platform::GHND, (length + 1) * sizeof(char16_t)));
  if (!block) {
    WriteDebugLog("%S ERROR GlobalAlloc(GHND, szLen) Failed\r\n", name);
    return E_FAIL;
  }
  void* locked = sys.GlobalLock(block.get());
  if (locked == nullptr) {
    WriteDebugLog("%S ERROR GlobalLock(hg) Failed\r\n", name);
    return E_FAIL;
  }
  std::memcpy(locked, text, (length + 1) * sizeof(char16_t));
  // Unlocking answers 0 once the last lock is gone, its normal result; an
  // emptying that failed shows in SetClipboardData's own answer below.
  (void)sys.GlobalUnlock(block.get());
  (void)sys.EmptyClipboard();
  if (sys.SetClipboardData(platform::CF_UNICODETEXT, block.get()) == nullptr) {
    WriteDebugLog("%S ERROR SetClipboardData(CF_UNICODETEXT, hg) Failed. ErrCode = %d\r\n", name, sys.GetLastError());
  }
  return S_OK;
}

}  // namespace

HRESULT CKELClipboard::SetClipboardData(const char16_t* text) {
  constexpr char16_t kName[] = u"CKELClipboard::SetClipboardData";
  WriteDebugLog("%S(%S) IN\r\n", kName, text);
  HRESULT result = CheckStringArgument(text);
  if (result == S_OK) {
    auto& sys = platform::Current();
    const OpenedClipboard clipboard(sys);
    result = clipboard.IsOpen() ? HandOver(sys, kName, text) : E_FAIL;
  }
  return TraceExit(kName, result);
}

}  // namespace kel
