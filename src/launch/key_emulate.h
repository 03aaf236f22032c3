// CKELKeyEmulate: key presses synthesised the way a person types them. Each
// event is one keyboard input record followed by a fixed sleep; the shell
// needs the delays to register each event.
#pragma once

#include "platform/types.h"

namespace kel {

class CKELKeyEmulate {
 public:
  static constexpr WORD kVkReturn = 0x0D;
  static constexpr WORD kVkShift = 0x10;
  static constexpr WORD kVkInsert = 0x2D;
  static constexpr WORD kVkLeftWindows = 0x5B;
  static constexpr WORD kVkQ = 0x51;

  // One event with no scan code.
  static void Sendinput_Key(WORD virtualKey, DWORD flags);
  // One event with the given scan code.
  static void Sendinput_Key(WORD virtualKey, WORD scanCode, DWORD flags);

  static void SendInput_Shift_Insert();  // paste
  static void SendInput_Win_Q();         // the search charm
  static void SendInput_Enter();
  static void Sendinput_Win();  // the Windows key alone
};

}  // namespace kel
