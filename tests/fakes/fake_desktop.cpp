// The fake's desktop: the keyboard with a small model of the search pane,
// the clipboard and its global memory, windows, monitors and the shell's
// launches.
#include "fakes/fake_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fakes/fake_arguments.h"

namespace kel::fakes {

void FakePlatform::SetShellExecuteResult(std::intptr_t result) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  shellExecuteResult_ = result;
}

std::intptr_t FakePlatform::ShellExecute(Handle window, const WCHAR* verb, const WCHAR* file, const WCHAR* parameters,
                                         const WCHAR* directory, int showCommand) {
  Record("ShellExecute", std::string(window == nullptr ? "null" : "hwnd") + ", " + Arg(verb) + ", " + Arg(file) + ", " +
                             Arg(parameters) + ", " + Arg(directory) + ", " + Arg(static_cast<DWORD>(showCommand)));
  if (Inject()) {
    return 5;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return shellExecuteResult_;
}

UINT FakePlatform::SendInput(const platform::KeyboardInput& input) {
  Record("SendInput", Hex(input.wVk) + ", " + Hex(input.wScan) + ", " + Hex(input.dwFlags));
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  inputs.push_back(input);
  if (input.wVk == 0x2D && input.dwFlags == platform::KEYEVENTF_EXTENDEDKEY) pasted.push_back(clipboardText);
  if (input.wVk == 0x0D && input.dwFlags == platform::KEYEVENTF_EXTENDEDKEY) {
    submitted.push_back(pasted.empty() ? WString() : pasted.back());
    if (paneStaysForEnters > 0) {
      --paneStaysForEnters;
    } else if (foregroundClass == u"SearchPane") {
      foregroundClass = u"Progman";
    }
  }
  return 1;
}

UINT FakePlatform::MapVirtualKey(UINT code, UINT mapType) {
  Record("MapVirtualKey", Hex(code) + ", " + Arg(mapType));
  if (Inject()) {
    return 0;
  }
  switch (code) {
    case 0x10:
      return 0x2A;  // shift
    case 0x51:
      return 0x10;  // Q
    case 0x0D:
      return 0x1C;  // enter
    case 0x2D:
      return 0x52;  // insert
    default:
      return 0;
  }
}

BOOL FakePlatform::OpenClipboard(Handle) {
  Record("OpenClipboard", "");
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (openClipboardFails) return 0;
  clipboardOpen_ = true;
  return 1;
}

BOOL FakePlatform::EmptyClipboard() {
  Record("EmptyClipboard", "");
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  clipboardText.clear();
  return clipboardOpen_ ? 1 : 0;
}

Handle FakePlatform::SetClipboardData(UINT format, Handle memory) {
  Record("SetClipboardData", Arg(format));
  if (Inject()) {
    lastError_ = 1418;
    return nullptr;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (setClipboardDataFails) lastError_ = setClipboardDataError;
  if (setClipboardDataFails || !clipboardOpen_ || memory == nullptr) return nullptr;
  clipboardText = static_cast<const char16_t*>(memory);
  return memory;
}

BOOL FakePlatform::CloseClipboard() {
  Record("CloseClipboard", "");
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  clipboardOpen_ = false;
  return 1;
}

Handle FakePlatform::GlobalAlloc(UINT flags, std::size_t bytes) {
  Record("GlobalAlloc", Hex(flags) + ", " + Arg(static_cast<DWORD>(bytes)));
  if (Inject()) {
    return nullptr;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (globalAllocFails) return nullptr;
  Handle h = std::calloc(1, bytes == 0 ? 1 : bytes);
  globalAllocations_.insert(h);
  return h;
}

void* FakePlatform::GlobalLock(Handle memory) {
  Record("GlobalLock", "");
  if (Inject()) {
    return nullptr;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return globalLockFails ? nullptr : memory;
}

BOOL FakePlatform::GlobalUnlock(Handle) {
  Record("GlobalUnlock", "");
  return 0;
}

Handle FakePlatform::GlobalFree(Handle memory) {
  Record("GlobalFree", "");
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (globalAllocations_.erase(memory) == 0) return memory;
  std::free(memory);
  return nullptr;
}

Handle FakePlatform::GetForegroundWindow() {
  Record("GetForegroundWindow", "");
  if (Inject()) {
    return nullptr;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!foregroundSequence.empty()) {
    currentForeground_ = foregroundSequence.front();
    foregroundSequence.erase(foregroundSequence.begin());
  } else {
    currentForeground_ = foregroundClass;
  }
  return currentForeground_.empty() ? nullptr : reinterpret_cast<Handle>(0x777);
}

int FakePlatform::GetClassName(Handle, WCHAR* buffer, int capacity) {
  Record("GetClassName", Arg(static_cast<DWORD>(capacity)));
  if (Inject()) {
    return 0;
  }
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  const int n = static_cast<int>(std::min<std::size_t>(currentForeground_.size(), capacity - 1));
  std::memcpy(buffer, currentForeground_.data(), static_cast<std::size_t>(n) * 2);
  buffer[n] = 0;
  return n;
}

Handle FakePlatform::MonitorFromPoint(platform::Point point, DWORD flags) {
  Record("MonitorFromPoint",
         Arg(static_cast<DWORD>(point.x)) + ", " + Arg(static_cast<DWORD>(point.y)) + ", " + Arg(flags));
  if (Inject()) {
    return nullptr;
  }
  return reinterpret_cast<Handle>(0x10001);
}

int FakePlatform::MessageBox(Handle, const WCHAR* text, const WCHAR* caption, UINT type) {
  Record("MessageBox", Arg(text) + ", " + Arg(caption) + ", " + Hex(type));
  if (Inject()) {
    return 0;
  }
  return 1;
}

}  // namespace kel::fakes
