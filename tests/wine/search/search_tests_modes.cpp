// search_tests.exe: the launch modes, which paste the bare keyword or
// submit the query, and a pane that stays in front after Enter.

#include "search_tests.h"

#include <string>
#include <vector>

namespace search_tests {

// Mode 1 builds the same query (it is logged) but pastes the bare keyword
// after two seconds and presses no Enter: the pane stays in front holding
// the keyword. The clipboard is cleared after ClearClipboardWaitTime.
void ModeOnePastesTheBareKeywordWithoutEnter(const Paths& paths) {
  SearchSession s(paths.dll, paths.desktop, WritePhotoCatalogue);
  s.Start({L"photo editor"});
  auto search = KEL(s.library, KelLaunchBySearchW);

  const ULONGLONG started = GetTickCount64();
  s.ExpectResult(search(L"Photo", KEL_SEARCH_PASTE_KEYWORD, 1), S_OK, "KelLaunchBySearchW(Photo, 1, 1)");
  const ULONGLONG elapsed = GetTickCount64() - started;
  const std::vector<std::string> expected = SearchEvents(L"Photo", 0);
  s.desktop->ExpectEventsFrom(0, expected, "for KelLaunchBySearchW(Photo, 1, 1)", s.Detail());
  if (!PaneInFront()) Fail("the search pane left the front although no Enter was pressed", s.desktop->EventsDetail());
  if (PaneText() != L"Photo") {
    Fail("the pane's edit box holds " + Quoted(Narrow(PaneText())) + ", expected \"Photo\"", s.desktop->EventsDetail());
  }
  // 2000 ms before the paste, 1150 ms of Shift+Insert, 1000 ms before the clipboard is cleared.
  if (elapsed < 4150) {
    Fail(Format("KelLaunchBySearchW(Photo, 1, 1) returned after %llu ms, before its fixed waits of 4150 ms",
                static_cast<unsigned long long>(elapsed)));
  }
  s.ExpectLogLine("KelLaunchBySearchW szKeyword = " + Narrow(kPhotoQuery) + " ", "the query is built all the same");
  s.ExpectLogLine("CKELReg::GetClearClipboardWaitTime OUT(1000)", "the clipboard wait");
  s.ExpectClipboardCleared("the paste");
  s.StopDesktop(WithStopped(expected));
}

// Mode 2 submits the query when no catalogued app is named by the keyword
// ("Editor" is only part of "photo editor"), and only pastes the keyword
// when one is ("Photo" names the shortcut Photo.lnk).
void ModeTwoSubmitsUnlessTheKeywordNamesAnApp(const Paths& paths) {
  SearchSession s(paths.dll, paths.desktop, WritePhotoCatalogue);
  s.Start({L"photo editor"});
  auto search = KEL(s.library, KelLaunchBySearchW);

  s.ExpectResult(search(L"Editor", KEL_SEARCH_AUTO, 1), S_OK, "KelLaunchBySearchW(Editor, 2, 1)");
  std::vector<std::string> expected = SearchEvents(L"\"Editor\" NOT(\"photo editor\")", 1);
  s.desktop->ExpectEventsFrom(0, expected, "for KelLaunchBySearchW(Editor, 2, 1)", s.Detail());

  s.ExpectResult(search(L"Photo", KEL_SEARCH_AUTO, 1), S_OK, "KelLaunchBySearchW(Photo, 2, 1)");
  const std::size_t second = expected.size();
  const std::vector<std::string> pasted = SearchEvents(L"Photo", 0);
  s.desktop->ExpectEventsFrom(second, pasted, "for KelLaunchBySearchW(Photo, 2, 1)", s.Detail());
  if (!PaneInFront() || PaneText() != L"Photo") {
    Fail("after KelLaunchBySearchW(Photo, 2, 1) the pane is not in front holding \"Photo\"", s.desktop->EventsDetail());
  }
  expected.insert(expected.end(), pasted.begin(), pasted.end());
  s.StopDesktop(WithStopped(expected));
}

// A pane that stays in front after Enter has not taken the search: the
// query is pasted and submitted again, once a second, until the pane goes.
void PaneInFrontReceivesTheQueryAgain(const Paths& paths) {
  SearchSession s(paths.dll, paths.desktop, WritePhotoCatalogue);
  SetControl(L"PaneStaysInFront", 2);
  s.Start({L"photo editor"});
  auto search = KEL(s.library, KelLaunchBySearchW);

  s.ExpectResult(search(L"Photo", KEL_SEARCH_SUBMIT_QUERY, 1), S_OK, "KelLaunchBySearchW(Photo, 0, 1)");
  const std::vector<std::string> expected = SearchEvents(kPhotoQuery, 3);
  s.desktop->ExpectEventsFrom(0, expected, "for a pane that stays in front for two Enters", s.Detail());
  if (ReadControl(L"PaneStaysInFront", 99) != 0) {
    Fail(Format("PaneStaysInFront is %lu after the launch, expected 0", ReadControl(L"PaneStaysInFront", 99)));
  }
  s.ExpectClipboardCleared("the search launch");
  s.StopDesktop(WithStopped(expected));
}

}  // namespace search_tests
