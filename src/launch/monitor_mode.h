// CKELMonitorMode: what the primary monitor shows (desktop, a Store app, the
// Start screen), bringing up the Start screen and the search pane. Every
// operation creates and releases its own app visibility object.
#pragma once

#include "platform/platform.h"

namespace kel {

class CKELMonitorMode {
 public:
  // What GetMonitorMode reports.
  enum Mode : UINT { Desktop = 0, StoreApp = 1, StartScreen = 2 };

  // Initialises COM on this thread as a single-threaded apartment and creates
  // the shell's app visibility object. *needUninitialize tells the caller to
  // undo the initialisation when it releases the object.
  [[nodiscard]] static HRESULT GetIMetroMode(platform::AppVisibility** object, BOOL* needUninitialize);
  static void ReleaseIMetroMode(platform::AppVisibility* object, BOOL needUninitialize);

  [[nodiscard]] static HRESULT GetMonitorMode(UINT* mode);
  [[nodiscard]] static HRESULT SwitchToStartScreen();
  [[nodiscard]] static HRESULT OpenAppSearchUI();
  static BOOL IsSearchPaneForeground();
};

}  // namespace kel
