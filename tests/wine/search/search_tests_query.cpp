// search_tests.exe: the query the search pane receives, the quoted keyword
// alone or with the catalogued names it is only a part of left out, and the
// package launch that searches for the package's display name.

#include "search_tests.h"

#include <string>
#include <vector>

namespace search_tests {

namespace {

const wchar_t kReader[] = L"Kel.Reader_1a2b3c4d5e6f7";
const wchar_t kUnknown[] = L"Kel.Unknown_0a0a0a0a0a0a0";

// The installed test packages of the deployment double, one application
// each.
const TestPackage kFixturePackages[] = {
    {kReader,
     L"Kel.Reader_1.2.3.4_x64__1a2b3c4d5e6f7",
     L"Kel.Reader",
     L"1.2.3.4",
     L"Reader",
     {{L"App", L"Kel Reader", L"Reader"}}},
    {L"Kel.ReaderNotes_9z8y7x6w5v4u3",
     L"Kel.ReaderNotes_1.0.0.0_x64__9z8y7x6w5v4u3",
     L"Kel.ReaderNotes",
     L"1.0.0.0",
     L"ReaderNotes",
     {{L"App", L"Kel Reader Notes", L"Notes"}}},
    {L"Kel.Album_4u5v6w7x8y9z0",
     L"Kel.Album_3.0.0.0_x64__4u5v6w7x8y9z0",
     L"Kel.Album",
     L"3.0.0.0",
     L"Album",
     {{L"App", L"Kel Album", L"Album"}}},
};

}  // namespace

void World::InstallPackages() const {
  std::wstring fixture = FixtureHeader(L"The deployment service of the search tests.", Journal());
  for (const TestPackage& package : kFixturePackages) {
    InstallPackage(package);
    fixture += FixturePackageSection(package, PackageFolder(package));
  }
  WriteFixture(fixture);
}

// Option 0: no exclusions, even with a catalogue holding names the keyword
// is part of; the quoted keyword is pasted and submitted, the pane hides,
// the clipboard is cleared.
void QuotedKeywordIsSubmittedWithoutOption(const Paths& paths) {
  SearchSession s(paths.dll, paths.desktop, WritePhotoCatalogue);
  s.Start({L"photo editor"});
  auto search = KEL(s.library, KelLaunchBySearchW);

  s.ExpectResult(search(L"Photo", KEL_SEARCH_SUBMIT_QUERY, 0), S_OK, "KelLaunchBySearchW(Photo, 0, 0)");
  const std::vector<std::string> expected = SearchEvents(L"\"Photo\"", 1);
  s.desktop->ExpectEventsFrom(0, expected, "for KelLaunchBySearchW(Photo, 0, 0)", s.Detail());
  if (PaneInFront())
    Fail("the search pane is still in front after the search was submitted", s.desktop->EventsDetail());
  s.ExpectLogLine("KelLaunchBySearchW szKeyword = \"Photo\" ", "the query");
  s.ExpectLogLine("KelLaunchBySearchW OUT(0x00000000)", "the exit line");
  s.ExpectClipboardCleared("the search launch");
  s.StopDesktop(WithStopped(expected));
}

// Option 1: the query leaves out every catalogued name the keyword is only a
// part of (display names, a localised name, a name whose reading holds the
// word), from the preset and from both Start menu folders, in catalogue
// order; not the app the keyword names exactly, not the reserved app whose
// shortcut is gone, not the names that do not hold the word.
void ExclusionQueryLeavesOutPartlyMatchedNames(const Paths& paths) {
  SearchSession s(paths.dll, paths.desktop, WritePhotoCatalogue);
  s.Start({L"photo album", L"photo camera", L"photo editor", L"kel photo viewer", L"music player", L"photo gone"});
  auto search = KEL(s.library, KelLaunchBySearchW);

  s.ExpectResult(search(L"Photo", KEL_SEARCH_SUBMIT_QUERY, 1), S_OK, "KelLaunchBySearchW(Photo, 0, 1)");
  const std::vector<std::string> expected = SearchEvents(kPhotoQuery, 1);
  s.desktop->ExpectEventsFrom(0, expected, "for KelLaunchBySearchW(Photo, 0, 1)", s.Detail());
  s.ExpectLogLine("KelLaunchBySearchW szKeyword = " + Narrow(kPhotoQuery) + " ", "the query");
  s.ExpectClipboardCleared("the search launch");
  s.StopDesktop(WithStopped(expected));
}

// KelLaunchByPFNW searches for the package's display name (from its
// manifest, lower-cased), here with the exclusions: the other package whose
// name holds it is left out. An unknown package gives
// E_KEL_PACKAGE_NOT_FOUND and sends no key.
void LaunchByPFNSearchesForTheDisplayName(const Paths& paths) {
  SearchSession s(paths.dll, paths.desktop, [](const World& world) { world.InstallPackages(); });
  s.Start({kReader, L"kel reader notes", L"kel album"});
  auto launch = KEL(s.library, KelLaunchByPFNW);

  s.ExpectResult(launch(kReader, KEL_SEARCH_SUBMIT_QUERY, 1), S_OK, "KelLaunchByPFNW(Kel.Reader, 0, 1)");
  const std::vector<std::string> expected = SearchEvents(L"\"kel reader\" NOT(\"kel reader notes\")", 1);
  s.desktop->ExpectEventsFrom(0, expected, "for KelLaunchByPFNW(Kel.Reader, 0, 1)", s.Detail());

  s.ExpectResult(launch(kUnknown, KEL_SEARCH_SUBMIT_QUERY, 1), E_KEL_PACKAGE_NOT_FOUND,
                 "KelLaunchByPFNW(Kel.Unknown, 0, 1)");
  s.ExpectLogLine("KelLaunchByPFNW OUT(0xA0000001)", "the unknown package's exit line");
  s.StopDesktop(WithStopped(expected));
}

}  // namespace search_tests
