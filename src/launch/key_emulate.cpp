#include "launch/key_emulate.h"

#include "frame/log.h"
#include "platform/platform.h"

namespace kel {
namespace {

constexpr char16_t kSendinputKey[] = u"CKELKeyEmulate::Sendinput_Key";

WORD ScanCodeOf(WORD virtualKey) {
  return static_cast<WORD>(Sys().MapVirtualKey(virtualKey, platform::MAPVK_VK_TO_VSC));
}

void Send(WORD virtualKey, WORD scanCode, DWORD flags) {
  platform::KeyboardInput input;  // zeroed, then filled
  input.wVk = virtualKey;
  input.wScan = scanCode;
  input.dwFlags = flags;
  (void)Sys().SendInput(input);  // a lost key is not reported
}

// Runs one named sequence between its entry and exit lines.
template <typename Steps>
void Sequence(const char16_t* name, Steps steps) {
  WriteDebugLog("%S IN\r\n", name);
  steps();
  WriteDebugLog("%S OUT\r\n", name);
}

// One key alone, pressed as an extended key and released.
void Tap(const char16_t* name, WORD virtualKey) {
  Sequence(name, [virtualKey] {
    CKELKeyEmulate::Sendinput_Key(virtualKey, platform::KEYEVENTF_EXTENDEDKEY);
    Sys().Sleep(50);
    CKELKeyEmulate::Sendinput_Key(virtualKey, platform::KEYEVENTF_KEYUP);
    Sys().Sleep(50);
  });
}

}  // namespace

void CKELKeyEmulate::Sendinput_Key(WORD virtualKey, DWORD flags) {
  WriteDebugLog("%S(0x%04X, 0x%08X) IN\r\n", kSendinputKey, virtualKey, flags);
  Send(virtualKey, 0, flags);
  WriteDebugLog("%S OUT\r\n", kSendinputKey);
}

void CKELKeyEmulate::Sendinput_Key(WORD virtualKey, WORD scanCode, DWORD flags) {
  WriteDebugLog("%S(0x%04X, 0x%04X, 0x%08X) IN\r\n", kSendinputKey, virtualKey, scanCode, flags);
  Send(virtualKey, scanCode, flags);
  WriteDebugLog("%S OUT\r\n", kSendinputKey);
}

// The asymmetries below (extended flag and scan-code flag on the press only,
// Shift held 1000 ms after Insert is released) are what the shell accepts.
void CKELKeyEmulate::SendInput_Shift_Insert() {
  Sequence(u"CKELKeyEmulate::SendInput_Shift_Insert", [] {
    Sendinput_Key(kVkShift, ScanCodeOf(kVkShift), platform::KEYEVENTF_SCANCODE);
    Sys().Sleep(50);
    Sendinput_Key(kVkInsert, platform::KEYEVENTF_EXTENDEDKEY);
    Sys().Sleep(50);
    Sendinput_Key(kVkInsert, platform::KEYEVENTF_KEYUP);
    Sys().Sleep(1000);
    Sendinput_Key(kVkShift, ScanCodeOf(kVkShift), platform::KEYEVENTF_KEYUP);
    Sys().Sleep(50);
  });
}

void CKELKeyEmulate::SendInput_Win_Q() {
  Sequence(u"CKELKeyEmulate::SendInput_Win_Q", [] {
    Sendinput_Key(kVkLeftWindows, platform::KEYEVENTF_EXTENDEDKEY);
    Sys().Sleep(50);
    Sendinput_Key(kVkQ, ScanCodeOf(kVkQ), platform::KEYEVENTF_SCANCODE);
    Sys().Sleep(50);
    Sendinput_Key(kVkQ, ScanCodeOf(kVkQ), platform::KEYEVENTF_KEYUP);
    Sys().Sleep(100);
    Sendinput_Key(kVkLeftWindows, platform::KEYEVENTF_KEYUP);
    Sys().Sleep(200);
  });
}

void CKELKeyEmulate::SendInput_Enter() { Tap(u"CKELKeyEmulate::SendInput_Enter", kVkReturn); }

void CKELKeyEmulate::Sendinput_Win() { Tap(u"CKELKeyEmulate::Sendinput_Win", kVkLeftWindows); }

}  // namespace kel
