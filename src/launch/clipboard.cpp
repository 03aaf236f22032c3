#include "launch/clipboard.h"

#include <cstring>

#include "frame/log.h"
#include "frame/trace_exit.h"
#include "frame/wide.h"
#include "platform/platform.h"

namespace kel {

namespace {

// The clipboard stays open for the scope, then is closed on every path.
class OpenedClipboard {
 public:
  explicit OpenedClipboard(platform::Platform& sys) : sys_(sys), open_(sys.OpenClipboard(nullptr) != 0) {}
  ~OpenedClipboard() {
    if (open_) (void)sys_.CloseClipboard();  // a destructor has no one to tell
  }
  OpenedClipboard(const OpenedClipboard&) = delete;
  OpenedClipboard& operator=(const OpenedClipboard&) = delete;
  [[nodiscard]] bool IsOpen() const { return open_; }

 private:
  platform::Platform& sys_;
  bool open_;
};

// A global block, freed when the scope ends: also after it was handed to the
// clipboard, which is the library's long-standing behaviour and hosts rely on
// it unchanged.
class GlobalBlock {
 public:
  GlobalBlock(platform::Platform& sys, Handle block) : sys_(sys), block_(block) {}
  ~GlobalBlock() {
    if (block_ != nullptr) (void)sys_.GlobalFree(block_);  // a destructor has no one to tell
  }
  GlobalBlock(const GlobalBlock&) = delete;
  GlobalBlock& operator=(const GlobalBlock&) = delete;
  [[nodiscard]] Handle Get() const { return block_; }

 private:
  platform::Platform& sys_;
  Handle block_;
};

// Copies the text into a new block and hands it over; the clipboard is open.
HRESULT HandOver(platform::Platform& sys, const char16_t* name, const char16_t* text) {
  const std::size_t length = WideLength(text);
  const GlobalBlock block(sys, sys.GlobalAlloc(platform::GHND, (length + 1) * sizeof(char16_t)));
  if (block.Get() == nullptr) {
    WriteDebugLog("%S ERROR GlobalAlloc(GHND, szLen) Failed\r\n", name);
    return E_FAIL;
  }
  void* locked = sys.GlobalLock(block.Get());
  if (locked == nullptr) {
    WriteDebugLog("%S ERROR GlobalLock(hg) Failed\r\n", name);
    return E_FAIL;
  }
  std::memcpy(locked, text, (length + 1) * sizeof(char16_t));
  // Unlocking answers 0 once the last lock is gone, its normal result; an
  // emptying that failed shows in SetClipboardData's own answer below.
  (void)sys.GlobalUnlock(block.Get());
  (void)sys.EmptyClipboard();
  if (sys.SetClipboardData(platform::CF_UNICODETEXT, block.Get()) == nullptr) {
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
