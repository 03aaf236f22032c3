#include <gtest/gtest.h>

#include "catalogue/app_name_list.h"
#include "library_test.h"
#include "text/xml/xml_reader.h"

namespace kel {
namespace {

const WString kFolder = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher";
const WString kFile = kFolder + u"\\AppNameList1.0.4.0.xml";

std::string Utf8(const char16_t* text) { return ToUtf8(text); }

class AppNameListFile : public testing::LibraryTest {
 protected:
  AppNameListFile() { fake->AddDirectory(kFolder); }

  void WriteFile(const std::string& body) { fake->AddFile(kFile, body); }

  HRESULT LoadText(const std::string& body) {
    WriteFile(body);
    return list.Load(kFile.c_str());
  }

  CKELAppNameList list;
};

constexpr char kExample[] =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<Applications>\r\n"
    "  <MetroApps>\r\n"
    "    <Package PackageFamilyName=\"Example.Reader_1a2b3c4d5e6f7\" Version=\"6.2.9200.16384\">\r\n"
    "      <MetroApp DisplayName=\"reader\" ShortName=\"reader\" RubyDisplayName=\"riida\" />\r\n"
    "    </Package>\r\n"
    "  </MetroApps>\r\n"
    "  <DesktopApps>\r\n"
    "    <DesktopApp DisplayName=\"sample tool\" LnkFileName=\"C:\\ProgramData\\Microsoft\\Windows\\Start "
    "Menu\\Programs\\Sample Tool.lnk\" NeedReserve=\"1\" IsInstalled=\"0\" />\r\n"
    "    <DesktopApp DisplayName=\"notepad\" LnkFileName=\"C:\\ProgramData\\Microsoft\\Windows\\Start "
    "Menu\\Programs\\Accessories\\Notepad.lnk\" />\r\n"
    "  </DesktopApps>";

TEST_F(AppNameListFile, SavedFileHasTheDocumentedForm) {
  auto* package = new CKELPackage(u"Example.Reader_1a2b3c4d5e6f7", {6, 2, 9200, 16384}, 0, 1);
  ASSERT_EQ(package->AddApplication(CKELMetroApp::Create(u"Reader", u"Reader", u"riida", nullptr).release()), S_OK);
  (void)list.AddMetroPackage(package);
  (void)list.AddDesktopApp(u"Sample Tool",
                           u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\Sample Tool.lnk");
  (void)list.AddDesktopApp(u"Notepad",
                           u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\Accessories\\Notepad.lnk");
  const auto& apps = list.DesktopApps();
  apps.front()->NeedReserve = 1;
  apps.front()->IsInstalled = 0;
  ASSERT_EQ(list.Save(kFile.c_str()), S_OK);
  EXPECT_EQ(fake->FileContent(kFile), kExample);
}

TEST_F(AppNameListFile, VersionIsWrittenMajorMinorBuildRevision) {
  PackageVersion version;
  version.Major = 1;
  version.Minor = 2;
  version.Build = 3;
  version.Revision = 4;
  (void)list.AddMetroPackage(new CKELPackage(u"A_b", version, 0, 1));
  (void)list.Save(kFile.c_str());
  EXPECT_NE(fake->FileContent(kFile).find("Version=\"1.2.3.4\""), std::string::npos);
}

TEST_F(AppNameListFile, UninstalledUnreservedRecordsAreLeftOut) {
  (void)list.AddMetroPackage(new CKELPackage(u"Gone_b", {}, 0, 0));
  (void)list.AddMetroPackage(new CKELPackage(u"Kept_b", {}, 1, 0));
  (void)list.AddDesktopApp(u"Gone", u"C:\\gone.lnk");
  list.DesktopApps().front()->IsInstalled = 0;
  (void)list.Save(kFile.c_str());
  const std::string text = fake->FileContent(kFile);
  EXPECT_EQ(text.find("Gone"), std::string::npos);
  EXPECT_NE(
      text.find("<Package PackageFamilyName=\"Kept_b\" Version=\"0.0.0.0\" NeedReserve=\"1\" IsInstalled=\"0\" />"),
      std::string::npos);
}

TEST_F(AppNameListFile, SavedFileLoadsBackWithItsInstalledAndReservedRecords) {
  auto* package = new CKELPackage(u"A_b", {1, 2, 3, 4}, 0, 1);
  package->FullName = u"A_1.2.4.3_x86__b";
  (void)package->AddApplication(u"One", u"1");
  (void)package->AddApplication(u"Two", nullptr);
  (void)list.AddMetroPackage(package);
  // A localised name comes only from a file.
  fake->AddFile(kFile,
                "<Applications><DesktopApps><DesktopApp DisplayName=\"Tool &amp; &quot;Co&quot; &lt;x&gt;\" "
                "LnkFileName=\"C:\\t.lnk\" LocalizeName=\"Werkzeug\" IsDualMode=\"1\"/></DesktopApps></Applications>");
  ASSERT_EQ(list.Load(kFile.c_str()), S_FALSE);
  ASSERT_EQ(list.DesktopApps().size(), 1u);
  ASSERT_EQ(list.Save(kFile.c_str()), S_OK);

  CKELAppNameList loaded;
  // The saved root is never closed: the reader ends at the input's end.
  EXPECT_EQ(loaded.Load(kFile.c_str()), xml::MX_E_INPUTEND);
  ASSERT_EQ(loaded.Packages().size(), 1u);
  const CKELPackage& back = *loaded.Packages().front();
  EXPECT_EQ(back.PackageFamilyName, u"A_b");
  EXPECT_EQ(back.Version, (PackageVersion{1, 2, 3, 4}));
  EXPECT_TRUE(back.FullName.empty());
  ASSERT_EQ(back.Applications().size(), 2u);
  EXPECT_EQ(back.Applications().front()->ShortName(), u"1");
  EXPECT_EQ(back.Applications().back()->DisplayName(), u"two");
  ASSERT_EQ(loaded.DesktopApps().size(), 1u);
  const CKELDesktopApp& tool = *loaded.DesktopApps().front();
  EXPECT_EQ(tool.DisplayName(), u"tool & \"co\" <x>");
  EXPECT_EQ(tool.LocalizeName(), u"Werkzeug");
  EXPECT_EQ(tool.IsDualMode, 1);
  EXPECT_EQ(tool.IsInstalled, 1);
}

TEST_F(AppNameListFile, ExampleFileLoads) {
  EXPECT_EQ(LoadText(kExample), xml::MX_E_INPUTEND);
  ASSERT_EQ(list.Packages().size(), 1u);
  EXPECT_EQ(list.Packages().front()->Applications().front()->RubyDisplayName(), u"riida");
  ASSERT_EQ(list.DesktopApps().size(), 2u);
  EXPECT_EQ(list.DesktopApps().front()->NeedReserve, 1);
  EXPECT_EQ(list.DesktopApps().front()->IsInstalled, 0);
  EXPECT_EQ(list.DesktopApps().back()->IsInstalled, 1);
}

TEST_F(AppNameListFile, EmptyFileLoadsNothing) {
  EXPECT_EQ(LoadText(""), xml::MX_E_INPUTEND);
  EXPECT_TRUE(list.Packages().empty());
  EXPECT_TRUE(list.DesktopApps().empty());
}

TEST_F(AppNameListFile, NamesInOtherCaseAreAccepted) {
  LoadText(
      "<applications><package packagefamilyname=\"A_b\" version=\"1.0.0.0\"><metroapp displayname=\"X\" />"
      "</package><desktopapps><desktopapp displayname=\"Y\" lnkfilename=\"C:\\y.lnk\" /></desktopapps>"
      "</applications>");
  ASSERT_EQ(list.Packages().size(), 1u);
  EXPECT_EQ(list.Packages().front()->Applications().front()->DisplayName(), u"x");
  ASSERT_EQ(list.DesktopApps().size(), 1u);
  EXPECT_EQ(list.DesktopApps().front()->LnkFileName(), u"C:\\y.lnk");
}

TEST_F(AppNameListFile, ClosedDocumentEndsTheScanAtItsEnd) {
  EXPECT_EQ(LoadText("<Applications><MetroApps /><DesktopApps /></Applications>"), S_FALSE);
}

TEST_F(AppNameListFile, VersionPartsThatDoNotParseStayZero) {
  LoadText(
      "<a><Package PackageFamilyName=\"A_b\" Version=\"1.2\" /><Package PackageFamilyName=\"C_d\" "
      "Version=\"a.b\" /></a>");
  ASSERT_EQ(list.Packages().size(), 2u);
  EXPECT_EQ(list.Packages().front()->Version, (PackageVersion{1, 2, 0, 0}));
  EXPECT_EQ(list.Packages().back()->Version, (PackageVersion{0, 0, 0, 0}));
}

TEST_F(AppNameListFile, GarbledFlagsReadAsTheirPresets) {
  LoadText(
      "<a><DesktopApps><DesktopApp DisplayName=\"x\" LnkFileName=\"C:\\x.lnk\" NeedReserve=\"yes\" "
      "IsDualMode=\"yes\" IsInstalled=\"\" /></DesktopApps></a>");
  ASSERT_EQ(list.DesktopApps().size(), 1u);
  EXPECT_EQ(list.DesktopApps().front()->NeedReserve, 1);
  EXPECT_EQ(list.DesktopApps().front()->IsDualMode, 0);
  EXPECT_EQ(list.DesktopApps().front()->IsInstalled, 1);
}

TEST_F(AppNameListFile, PackageOutsideMetroAppsLoadsAllTheSame) {
  LoadText("<Package PackageFamilyName=\"A_b\" />");
  EXPECT_EQ(list.Packages().size(), 1u);
}

TEST_F(AppNameListFile, TwoEmptyPackagesInARowBothLoad) {
  LoadText("<a><MetroApps><Package PackageFamilyName=\"A_b\" /><Package PackageFamilyName=\"C_d\" /></MetroApps></a>");
  ASSERT_EQ(list.Packages().size(), 2u);
  EXPECT_EQ(list.Packages().back()->PackageFamilyName, u"C_d");
}

TEST_F(AppNameListFile, MetroAppEndTagDoesNotEndItsPackage) {
  LoadText(
      "<a><Package PackageFamilyName=\"A_b\"><MetroApp DisplayName=\"one\"></MetroApp>"
      "<MetroApp DisplayName=\"two\" /></Package></a>");
  ASSERT_EQ(list.Packages().size(), 1u);
  EXPECT_EQ(list.Packages().front()->Applications().size(), 2u);
}

TEST_F(AppNameListFile, EnvironmentReferencesInShortcutPathsAreExpanded) {
  fake->SetEnv(u"ProgramData", u"C:\\ProgramData");
  LoadText("<a><DesktopApps><DesktopApp DisplayName=\"x\" LnkFileName=\"%ProgramData%\\x.lnk\" /></DesktopApps></a>");
  ASSERT_EQ(list.DesktopApps().size(), 1u);
  EXPECT_EQ(list.DesktopApps().front()->LnkFileName(), u"C:\\ProgramData\\x.lnk");
  (void)list.Save(kFile.c_str());
  EXPECT_NE(fake->FileContent(kFile).find("LnkFileName=\"C:\\ProgramData\\x.lnk\""), std::string::npos);
}

TEST_F(AppNameListFile, ShortcutPathTooLongOnceExpandedIsKeptAsStored) {
  fake->SetEnv(u"Long", WString(300, u'x'));
  LoadText("<a><DesktopApps><DesktopApp DisplayName=\"x\" LnkFileName=\"%Long%\\x.lnk\" /></DesktopApps></a>");
  ASSERT_EQ(list.DesktopApps().size(), 1u);
  EXPECT_EQ(list.DesktopApps().front()->LnkFileName(), u"%Long%\\x.lnk");
}

TEST_F(AppNameListFile, MalformedInputKeepsWhatWasReadBeforeIt) {
  const HRESULT hr = LoadText(
      "<a><Package PackageFamilyName=\"A_b\" /><DesktopApps><DesktopApp DisplayName=\"x\" "
      "LnkFileName=\"C:\\x.lnk\" /><DesktopApp <<<</DesktopApps></a>");
  EXPECT_TRUE(Failed(hr));
  EXPECT_EQ(list.Packages().size(), 1u);
  EXPECT_EQ(list.DesktopApps().size(), 1u);
}

TEST_F(AppNameListFile, MissingFileReturnsThePlatformCodeAndChangesNothing) {
  (void)list.AddDesktopApp(u"x", u"C:\\x.lnk");
  EXPECT_EQ(list.Load((kFolder + u"\\none.xml").c_str()), static_cast<HRESULT>(0x80070002u));
  EXPECT_EQ(list.DesktopApps().size(), 1u);
}

TEST_F(AppNameListFile, LoadingTwiceDoublesEveryRecord) {
  LoadText(kExample);
  (void)list.Load(kFile.c_str());
  EXPECT_EQ(list.Packages().size(), 2u);
  EXPECT_EQ(list.DesktopApps().size(), 4u);
}

TEST_F(AppNameListFile, NullAndEmptyPathsAreRefused) {
  EXPECT_EQ(list.Load(nullptr), E_POINTER);
  EXPECT_EQ(list.Load(u""), E_INVALIDARG);
  EXPECT_EQ(list.Save(nullptr), E_POINTER);
  EXPECT_EQ(list.Save(u""), E_INVALIDARG);
}

TEST_F(AppNameListFile, FailedSaveLeavesTheOldFileWhole) {
  WriteFile(kExample);
  fake->replaceFileResult = static_cast<HRESULT>(0x80070070u);  // disk full
  (void)list.AddDesktopApp(u"x", u"C:\\x.lnk");
  EXPECT_EQ(list.Save(kFile.c_str()), static_cast<HRESULT>(0x80070070u));
  EXPECT_EQ(fake->FileContent(kFile), kExample);
}

TEST_F(AppNameListFile, LargeCatalogueSurvivesARoundTrip) {
  for (int p = 0; p < 2000; ++p) {
    auto* package = new CKELPackage(FormatWide(u"Pkg%d_abc", {p}).c_str(), {1, 0, static_cast<WORD>(p), 0}, 0, 1);
    (void)package->AddApplication(FormatWide(u"App %d", {p}).c_str(), FormatWide(u"A%d", {p}).c_str());
    (void)package->AddApplication(FormatWide(u"Tool %d", {p}).c_str(), nullptr);
    (void)list.AddMetroPackage(package);
  }
  // Appended directly: discovery's one-by-one duplicate test is not what
  // this round trip is about.
  std::string desktop = "<DesktopApps>";
  for (int d = 0; d < 10000; ++d) {
    desktop += Utf8(
        FormatWide(u"<DesktopApp DisplayName=\"Desktop %d\" LnkFileName=\"C:\\Start\\d%d.lnk\" />", {d, d}).c_str());
  }
  desktop += "</DesktopApps>";
  WriteFile(desktop);
  (void)list.Load(kFile.c_str());
  ASSERT_EQ(list.Save(kFile.c_str()), S_OK);
  CKELAppNameList loaded;
  (void)loaded.Load(kFile.c_str());
  ASSERT_EQ(loaded.Packages().size(), 2000u);
  ASSERT_EQ(loaded.DesktopApps().size(), 10000u);
  EXPECT_EQ(loaded.Packages().back()->PackageFamilyName, u"Pkg1999_abc");
  EXPECT_EQ(loaded.Packages().back()->Applications().back()->DisplayName(), u"tool 1999");
  EXPECT_EQ(loaded.DesktopApps().back()->LnkFileName(), u"C:\\Start\\d9999.lnk");
}

}  // namespace
}  // namespace kel
