// discovery_tests.exe: the first refresh pass, what it writes into the data
// file from the preset beside the host, the deployment service and the Start
// menu folders, and how the log traces its steps.

#include "discovery_tests.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "Kelbrook.h"

namespace discovery_tests {

// The preset list beside the host: packages and shortcuts as the host ships
// them. Names in mixed case (the catalogue lower-cases display and short
// names), shortcut paths with environment references (expanded on reading).
const char kPresetAppNameList[] =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<Applications>\r\n"
    "  <MetroApps>\r\n"
    "    <Package PackageFamilyName=\"Kel.Reserved_5t6y7u8i9o0p1\" Version=\"1.0.0.0\" NeedReserve=\"1\">\r\n"
    "      <MetroApp DisplayName=\"Reserved App\" ShortName=\"Reserved\" RubyDisplayName=\"Ruby Reserved\" />\r\n"
    "    </Package>\r\n"
    "    <Package PackageFamilyName=\"Kel.Gone_2w3e4r5t6y7u8\" Version=\"4.0.0.0\">\r\n"
    "      <MetroApp DisplayName=\"Gone App\" />\r\n"
    "    </Package>\r\n"
    "    <Package PackageFamilyName=\"Kel.Reader_1a2b3c4d5e6f7\" Version=\"1.0.0.0\">\r\n"
    "      <MetroApp DisplayName=\"Old Reader\" ShortName=\"Old\" />\r\n"
    "    </Package>\r\n"
    "    <Package PackageFamilyName=\"Kel.Pinned_3x4y5z6a7b8c9\" Version=\"1.0.0.0\" NeedReserve=\"1\">\r\n"
    "      <MetroApp DisplayName=\"Pinned Old\" ShortName=\"Old\" />\r\n"
    "    </Package>\r\n"
    "  </MetroApps>\r\n"
    "  <DesktopApps>\r\n"
    "    <DesktopApp DisplayName=\"Reserved Tool\" LnkFileName=\"%ALLUSERSPROFILE%\\Microsoft\\Windows\\Start "
    "Menu\\Programs\\Reserved Tool.lnk\" LocalizeName=\"Reserved Tool (Local)\" NeedReserve=\"1\" />\r\n"
    "    <DesktopApp DisplayName=\"Gone Tool\" LnkFileName=\"%APPDATA%\\Microsoft\\Windows\\Start "
    "Menu\\Programs\\Gone Tool.lnk\" />\r\n"
    "    <DesktopApp DisplayName=\"My Own Name\" LnkFileName=\"%APPDATA%\\microsoft\\windows\\start "
    "menu\\programs\\MINE.LNK\" />\r\n"
    "  </DesktopApps>\r\n"
    "</Applications>\r\n";

// Starts the library on the preset catalogue, waits until the first refresh
// pass has written the data file, and stops the library.
void RunFirstRefreshPass(const std::wstring& dllPath, World& world) {
  WriteBytes(world.PresetPath(), kPresetAppNameList);
  Library library(dllPath);
  ExpectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize", [&] { return world.Detail(); });
  const bool written = WaitUntil([&] { return FileExists(world.DataFile()); }, 30000);
  KEL(library, KelFinalize)();
  if (!written) {
    Fail("within 30 s of KelInitialize the refresh thread wrote no " + Narrow(world.DataFile()), world.Detail());
  }
}

namespace {

// What the first refresh pass writes from the preset list and what the
// doubles and the Start menu folders hold: line by line, CRLF between lines
// and none after the last.
std::vector<std::string> ExpectedAppNameList(const World& world) {
  const std::string common = Narrow(world.AllUsersProfile()) + Narrow(kStartMenuPrograms);
  const std::string user = Narrow(world.AppData()) + Narrow(kStartMenuPrograms);
  // One line of the file is too long for one literal and is written as two.
  // NOLINTBEGIN(bugprone-suspicious-missing-comma)
  return std::vector<std::string>{
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
      "<Applications>",
      "  <MetroApps>",
      // Reserved and not installed: kept, marked as not installed.
      "    <Package PackageFamilyName=\"Kel.Reserved_5t6y7u8i9o0p1\" Version=\"1.0.0.0\" NeedReserve=\"1\" "
      "IsInstalled=\"0\">",
      "      <MetroApp DisplayName=\"reserved app\" ShortName=\"reserved\" RubyDisplayName=\"Ruby Reserved\" />",
      "    </Package>",
      // Kel.Gone: neither installed nor reserved, dropped.
      // Installed in a newer version: its applications come from the manifest.
      "    <Package PackageFamilyName=\"Kel.Reader_1a2b3c4d5e6f7\" Version=\"1.2.3.4\">",
      "      <MetroApp DisplayName=\"kel reader\" ShortName=\"reader\" />",
      "    </Package>",
      // Reserved and installed in a newer version: left as the preset has it.
      "    <Package PackageFamilyName=\"Kel.Pinned_3x4y5z6a7b8c9\" Version=\"1.0.0.0\" NeedReserve=\"1\">",
      "      <MetroApp DisplayName=\"pinned old\" ShortName=\"old\" />",
      "    </Package>",
      // New packages, in the order the deployment service gives them.
      "    <Package PackageFamilyName=\"Kel.Twins_8h9j0k1m2n3p4\" Version=\"2.0.0.5\">",
      "      <MetroApp DisplayName=\"twin left\" ShortName=\"left\" />",
      "      <MetroApp DisplayName=\"twin right\" ShortName=\"right\" />",
      "    </Package>",
      // Resource references stay as they are where nothing resolves them.
      "    <Package PackageFamilyName=\"Kel.Resource_5q6r7s8t9v0w1\" Version=\"3.1.0.0\">",
      "      <MetroApp DisplayName=\"ms-resource:appname\" ShortName=\"ms-resource:shortname\" />",
      "    </Package>",
      "  </MetroApps>",
      "  <DesktopApps>",
      "    <DesktopApp DisplayName=\"reserved tool\" LnkFileName=\"" + common +
          "\\Reserved Tool.lnk\" LocalizeName=\"Reserved Tool (Local)\" NeedReserve=\"1\" IsInstalled=\"0\" />",
      // Gone Tool: shortcut missing, not reserved, dropped. My Own Name:
      // its shortcut exists (the path differs in case only) and discovery
      // does not add it again.
      "    <DesktopApp DisplayName=\"my own name\" LnkFileName=\"" + Narrow(world.AppData()) +
          "\\microsoft\\windows\\start menu\\programs\\MINE.LNK\" />",
      // All users' folder first: *.lnk (Name.lnk2 matches through its short
      // name), then *.url, then the subfolders.
      "    <DesktopApp DisplayName=\"a tool\" LnkFileName=\"" + common + "\\A Tool.lnk\" />",
      "    <DesktopApp DisplayName=\"name.\" LnkFileName=\"" + common + "\\Name.lnk2\" />",
      "    <DesktopApp DisplayName=\"web link\" LnkFileName=\"" + common + "\\Web Link.url\" />",
      "    <DesktopApp DisplayName=\"calc\" LnkFileName=\"" + common + "\\Accessories\\Calc.lnk\" />",
      // Then the user's own folder.
      "    <DesktopApp DisplayName=\"notes\" LnkFileName=\"" + user + "\\Notes.url\" />",
      "  </DesktopApps>",
  };
  // NOLINTEND(bugprone-suspicious-missing-comma)
}

std::string JoinCrLf(const std::vector<std::string>& lines) {
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i != 0) text += "\r\n";
    text += lines[i];
  }
  return text;
}

// A line-by-line account of where two texts part.
std::string Difference(const std::string& expected, const std::string& actual) {
  std::vector<std::string> want, got;
  for (const std::string* text : {&expected, &actual}) {
    std::vector<std::string>& lines = text == &expected ? want : got;
    std::size_t start = 0;
    for (;;) {
      const std::size_t end = text->find("\r\n", start);
      lines.push_back(text->substr(start, end == std::string::npos ? std::string::npos : end - start));
      if (end == std::string::npos) break;
      start = end + 2;
    }
  }
  std::string detail;
  const std::size_t count = want.size() > got.size() ? want.size() : got.size();
  for (std::size_t i = 0; i < count; ++i) {
    const std::string* w = i < want.size() ? &want[i] : nullptr;
    const std::string* g = i < got.size() ? &got[i] : nullptr;
    if (w != nullptr && g != nullptr && *w == *g) {
      detail += "    " + Quoted(*w) + "\n";
      continue;
    }
    if (w != nullptr) detail += "  - " + Quoted(*w) + "\n";
    if (g != nullptr) detail += "  + " + Quoted(*g) + "\n";
  }
  if (expected.size() >= 2 && actual.size() >= 2 &&
      (expected.compare(expected.size() - 2, 2, "\r\n") == 0) != (actual.compare(actual.size() - 2, 2, "\r\n") == 0)) {
    detail += "  (the texts differ in a line end after the last line)\n";
  }
  return "expected (-) and written (+), lines split at CRLF:\n" + detail;
}

// The same pass when every query of the deployment service fails: no package
// counts as installed, so only the reserved ones stay (marked as not
// installed), and the shortcuts are written as before.
std::vector<std::string> ExpectedAppNameListWithoutService(const World& world) {
  std::vector<std::string> lines;
  bool skipping = false;
  for (const std::string& line : ExpectedAppNameList(world)) {
    if (line.find("<Package ") != std::string::npos) skipping = line.find("NeedReserve=\"1\"") == std::string::npos;
    if (skipping) {
      if (line.find("</Package>") != std::string::npos) skipping = false;
      continue;
    }
    if (line.find("Kel.Pinned_3x4y5z6a7b8c9") != std::string::npos) {
      lines.push_back(line.substr(0, line.size() - 1) + " IsInstalled=\"0\">");
      continue;
    }
    lines.push_back(line);
  }
  return lines;
}

// The text the library logs for a failure code: the system's message without
// its trailing line end.
std::string SystemMessage(HRESULT code) {
  wchar_t* text = nullptr;
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, static_cast<DWORD>(code), 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
  std::wstring message = length != 0 && text != nullptr ? std::wstring(text, length) : std::wstring();
  if (text != nullptr) LocalFree(text);
  while (!message.empty() && (message.back() == L'\r' || message.back() == L'\n' || message.back() == L' ')) {
    message.pop_back();
  }
  return message.empty() ? Hex(code) : Narrow(message);
}

// Gives the messages of the log a first refresh pass wrote
// (RunFirstRefreshPass), each without its timestamp.
std::vector<std::string> FirstRefreshPassLog(const std::wstring& dllPath, World& world) {
  RunFirstRefreshPass(dllPath, world);
  std::vector<std::string> log;
  for (const std::string& line : CompleteLines(ReadBytes(world.LogFile()))) {
    const std::size_t close = line.find(']');
    log.push_back(!line.empty() && line[0] == '[' && close != std::string::npos ? line.substr(close + 1) : line);
  }
  return log;
}

}  // namespace

// KelInitialize loads the preset beside the host (there is no data file yet);
// the first refresh pass, a second later, writes the data file from it, the
// deployment service's packages with their manifests' names, and the Start
// menu shortcuts of both folders.
void FirstRefreshWritesTheCatalogue(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.CreateShortcuts();
  RunFirstRefreshPass(dllPath, world);

  const std::string expected = JoinCrLf(ExpectedAppNameList(world));
  const std::string actual = ReadBytes(world.DataFile());
  if (actual != expected) {
    Fail("the data file " + Narrow(world.DataFile()) + " does not hold what the first pass should write",
         Difference(expected, actual) + world.Detail());
  }

  // The packages were asked for under the current user's SID, once, and the
  // installed marks of the preset's four packages one family at a time.
  const std::string sid = Narrow(world.CurrentUserSid());
  ExpectJournalLine(world, "FindPackagesByUserSecurityId\t" + sid + "\t4", "the refresh pass");
  for (const char* family : {"Kel.Reserved_5t6y7u8i9o0p1\t0", "Kel.Gone_2w3e4r5t6y7u8\t0",
                             "Kel.Reader_1a2b3c4d5e6f7\t1", "Kel.Pinned_3x4y5z6a7b8c9\t1"}) {
    ExpectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + family,
                      "the installed marks of the preset's packages");
  }
  ExpectNoSidMismatch(world);
  if (CountStartingWith(world.JournalLines(), "FindPackagesByUserSecurityId\t") != 1) {
    Fail("the deployment service was asked for all the user's packages more than once in one pass", world.Detail());
  }
}

// A deployment service that fails every query does not stop the pass: the
// failure is logged, the shortcuts are still gathered and the file written.
void ServiceFailureDoesNotStopThePass(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.CreateShortcuts();
  const HRESULT failure = static_cast<HRESULT>(0x80070005L);  // E_ACCESSDENIED
  world.FailServiceWith(failure);
  RunFirstRefreshPass(dllPath, world);

  const std::string expected = JoinCrLf(ExpectedAppNameListWithoutService(world));
  const std::string actual = ReadBytes(world.DataFile());
  if (actual != expected) {
    Fail("with the deployment service failing, the data file does not hold what the pass should write",
         Difference(expected, actual) + world.Detail());
  }
  const std::string sid = Narrow(world.CurrentUserSid());
  ExpectJournalLine(world, "FindPackagesByUserSecurityId\t" + sid + "\t" + Hex(failure), "the refresh pass");
  const std::vector<std::string> log = CompleteLines(ReadBytes(world.LogFile()));
  for (const std::string& message :
       {"CKELPackageManager::FindPackageByName OUT(" + SystemMessage(failure) + ")",
        "CKELPackageManager::RefreshMetroApps OUT(" + SystemMessage(failure) + ")",
        std::string("CKELPackageManager::RefreshThread RefreshMetroApps() failed. ErrCode = 0x80004005 ")}) {
    bool found = false;
    for (const std::string& line : log) found = found || line.find(message) != std::string::npos;
    if (!found) Fail("the log has no line " + Quoted(message), world.Detail());
  }
}

// A catalogued package installed in a newer version (Kel.Reader: 1.0.0.0 in
// the preset, 1.2.3.4 installed): its old applications are deleted between
// the readability check and the reading of the new ones, once, and nothing
// of the catalogue is traced after the refresh's exit line until the next
// package's turn.
void NewerVersionRefreshEndsAtItsExitLine(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  const std::vector<std::string> log = FirstRefreshPassLog(dllPath, world);
  // The refresh of Kel.Reader begins where the catalogue's lookup finds it.
  std::size_t begin = log.size();
  for (std::size_t i = 0; i + 1 < log.size(); ++i) {
    if (log[i] == "CKELPackage::IsThisPackage(" + Narrow(kReader) + ") IN" &&
        log[i + 1] == "CKELPackage::IsThisPackage OUT(1)") {
      begin = i + 2;
      break;
    }
  }
  if (begin == log.size()) Fail("the log shows no lookup that found " + Narrow(kReader), world.Detail());
  // Its lines up to the first catalogue line after its exit line.
  std::vector<std::string> traced;
  bool ended = false;
  for (std::size_t i = begin; i < log.size(); ++i) {
    const std::string& line = log[i];
    const bool catalogue = line.rfind("CKELAppNameList::", 0) == 0 || line.rfind("CKELPackage::", 0) == 0 ||
                           line == "CKELManifestReader::IsCanGetAppNameFromManifest IN" ||
                           line == "CKELManifestReader::AddAppsToPackage IN";
    if (!catalogue) continue;
    traced.push_back(line);
    if (ended) break;
    ended = line.rfind("CKELAppNameList::AddMetroPackage OUT(", 0) == 0;
  }
  const std::vector<std::string> expected = {
      "CKELAppNameList::GetPackage OUT",
      "CKELManifestReader::IsCanGetAppNameFromManifest IN",
      "CKELPackage::DeleteAllApp IN",
      "CKELPackage::DeleteAllApp OUT",
      "CKELManifestReader::AddAppsToPackage IN",
      "CKELPackage::AddApplication(kel reader, reader) IN",
      "CKELPackage::AddApplication OUT(0x00000000)",
      "CKELAppNameList::AddMetroPackage OUT(0x00000001)",
      // The next package the deployment service gives, new to the catalogue.
      "CKELAppNameList::AddMetroPackage IN",
  };
  if (traced != expected) {
    Fail("the refresh of " + Narrow(kReader) + " is not traced as its steps are",
         Indented("expected catalogue lines", expected) + Indented("logged catalogue lines", traced) + world.Detail());
  }
}

// The manifest reader's walk over a new package's manifest during the first
// refresh pass, as the DLL logs it: the setting read, then every element
// search and attribute read with the name it looks for and its result. The
// two-application package is new to the catalogue, so its applications are
// read once, by the reader the default setting chooses.
void RefreshPassTracesTheManifestWalk(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  // Only the refresh thread reads manifests, so the reader's own lines come
  // in the order it wrote them.
  const std::string prefix = "CKELManifestReader::";
  std::vector<std::string> reader;
  for (const std::string& line : FirstRefreshPassLog(dllPath, world)) {
    if (line.rfind(prefix, 0) == 0) reader.push_back(line.substr(prefix.size()));
  }
  std::vector<std::string> expected = {"AddAppsToPackage IN",
                                       "LoadSetting IN",
                                       "LoadSetting OUT",
                                       "GetAppNameUsingXmlParser IN",
                                       "MoveToElementByName(Applications) IN",
                                       "MoveToElementByName OUT(0x00000000)"};
  for (int application = 0; application < 2; ++application) {
    for (const char* line : {"MoveToElementByName(Application) IN", "MoveToElementByName OUT(0x00000000)",
                             "MoveToElementByName(VisualElements) IN", "MoveToElementByName OUT(0x00000000)",
                             "GetAttributeValueByName(DisplayName) IN", "GetAttributeValueByName OUT(0x00000000)",
                             "MoveToElementByName(DefaultTile) IN", "MoveToElementByName OUT(0x00000000)",
                             "GetAttributeValueByName(ShortName) IN", "GetAttributeValueByName OUT(0x00000000)"}) {
      expected.push_back(line);
    }
  }
  for (const char* line : {"MoveToElementByName(Application) IN", "MoveToElementByName OUT(0x00000001)",
                           "GetAppNameUsingXmlParser OUT(0x00000001)", "AddAppsToPackage OUT(0x00000001)"}) {
    expected.push_back(line);
  }
  bool found = false;
  for (std::size_t start = 0; !found && start + expected.size() <= reader.size(); ++start) {
    found = std::equal(expected.begin(), expected.end(), reader.begin() + static_cast<std::ptrdiff_t>(start));
  }
  if (!found) {
    Fail("the log does not show the walk over the two-application manifest",
         Indented("expected run of the reader's lines", expected) + Indented("the reader's lines", reader) +
             world.Detail());
  }
}

}  // namespace discovery_tests
