// Starts something by typing into the Windows search pane: the Start screen
// and the pane are brought up, the search text is pasted from the clipboard
// and, depending on the mode, submitted with Enter.
#include "launch/search_launch.h"

#include "frame/export_guard.h"
#include "frame/exports.h"
#include "frame/format.h"
#include "frame/log.h"
#include "frame/non_copyable.h"
#include "frame/reg.h"
#include "frame/trace_exit.h"
#include "frame/version_test.h"
#include "launch/clipboard.h"
#include "launch/key_emulate.h"
#include "launch/monitor_mode.h"
#include "package_discovery/package_manager.h"
#include "platform/platform.h"

namespace kel {
namespace {

// The Japanese name of the Messaging app, which Windows 8.1 no longer has.
constexpr char16_t kMessagingKeyword[] = u"メッセージング";
constexpr char16_t kMessagingUnavailableText[] = u"このバージョンのWindowsでは、メッセージングは利用できません。";

constexpr DWORD kPasteOnlyWait = 2000;
constexpr DWORD kPaneCheckInterval = 100;
constexpr int kPaneChecksPerPass = 10;
constexpr int kResubmitBound = 20;

// The query: the keyword in double quotes and, when there are names to
// leave out, " NOT(" with the names in double quotes joined by " OR ".
WString BuildQuery(const char16_t* keyword, const ExcludeAppNameList& names) {
  WString query = FormatWide(u"\"%s\"", {keyword});
  WString excluded;
  for (const RecordText name : names) {
    excluded += FormatWide(excluded.empty() ? u"\"%s\"" : u" OR \"%s\"", {name.c_str()});
  }
  if (!excluded.empty()) query += FormatWide(u" NOT(%s)", {excluded});
  return query;
}

void PasteWithoutSubmitting() {
  Sys().Sleep(kPasteOnlyWait);
  CKELKeyEmulate::SendInput_Shift_Insert();
  Sys().Sleep(CKELReg::GetClearClipboardWaitTime());
}

// Pastes and submits; while the pane stays in front the search was not
// taken, so it is pasted and submitted again. The counter starts afresh
// each pass, so the bound never ends the loop: re-submitting goes on for as
// long as the pane stays in front.
void PasteAndSubmit() {
  CKELKeyEmulate::SendInput_Shift_Insert();
  CKELKeyEmulate::SendInput_Enter();
  int counter = 0;
  do {
    counter = 0;
    do {
      Sys().Sleep(kPaneCheckInterval);
      if (!CKELMonitorMode::IsSearchPaneForeground()) break;
      ++counter;
    } while (counter < kPaneChecksPerPass);
    if (!CKELMonitorMode::IsSearchPaneForeground()) return;
    CKELKeyEmulate::SendInput_Shift_Insert();
    CKELKeyEmulate::SendInput_Enter();
    ++counter;
  } while (counter < kResubmitBound);
}

void ClearClipboard() {
  auto& sys = Sys();
  if (sys.OpenClipboard(nullptr)) {
    // Clearing is best effort: the query left behind is the only harm.
    (void)sys.EmptyClipboard();
    (void)sys.CloseClipboard();
  }
}

// Once the text may be on the clipboard it comes off again, however the
// launch ends: the user's next paste must not bring back the query.
class ClipboardClearedAtEnd : NonCopyable {
 public:
  ClipboardClearedAtEnd() = default;
  ~ClipboardClearedAtEnd() { ClearClipboard(); }
};

}  // namespace

BOOL IsMessagingUnavailable(const char16_t* keyword) {
  if (!IsMinorVersionAtLeastThree()) return 0;
  // Eight code units compared: the seven characters and the terminator.
  for (int i = 0; i < 8; ++i) {
    if (keyword[i] != kMessagingKeyword[i]) return 0;
  }
  return 1;
}

}  // namespace kel

using namespace kel;

extern "C" HRESULT KELAPI KelLaunchBySearchW(const char16_t* pszKeyword, DWORD dwMode, std::int32_t nOption) {
  return GuardExport([&]() -> HRESULT {
    constexpr char16_t kName[] = u"KelLaunchBySearchW";
    WriteDebugLog("%S(%S, %d, %d) IN\r\n", kName, pszKeyword, dwMode, nOption);
    KEL_RETURN_IF_FAILED_TRACED(kName, CheckLaunchArguments(pszKeyword, dwMode));
    if (IsMessagingUnavailable(pszKeyword)) {
      // Only a notice: which button closed it does not matter.
      (void)Sys().MessageBox(nullptr, kMessagingUnavailableText, u"",
                             platform::MB_ICONINFORMATION | platform::MB_TOPMOST);
      return S_OK;  // the notice is the whole answer: no exit line
    }

    BOOL hit = 0;
    ExcludeAppNameList names;
    if (nOption != 0) {
      KEL_RETURN_IF_FAILED_TRACED(kName, ThePackageManager().GetExcludeAppNameList(pszKeyword, &names, &hit));
    }
    const WString query = BuildQuery(pszKeyword, names);
    WriteDebugLog("%S szKeyword = %S \r\n", kName, query);

    if (Failed(CKELMonitorMode::OpenAppSearchUI())) {
      // A pane that did not open is not the caller's failure.
      WriteDebugLog("%S OUT(0x%08X) OpenAppSearchUI() FAILED!!!\r\n", kName, S_OK);
      return S_OK;
    }
    const bool submitQuery = dwMode == 0 || (dwMode == 2 && !hit);
    {
      const ClipboardClearedAtEnd clearing;
      // A hand-over that failed is traced; the keys are sent all the same.
      (void)CKELClipboard::SetClipboardData(submitQuery ? query.c_str() : pszKeyword);
      if (submitQuery) {
        PasteAndSubmit();
      } else {
        PasteWithoutSubmitting();
      }
    }
    return TraceExit(kName, S_OK);
  });
}
