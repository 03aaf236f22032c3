#include <gtest/gtest.h>

#include "fakes/fake_package.h"
#include "frame/exports.h"
#include "launch/search_launch.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kPrograms = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs";

class SearchLaunch : public testing::LibraryTest {
 protected:
  SearchLaunch() {
    // The Start screen shows and the pane comes up at once.
    fake->launcherAnswers = {1};
    fake->foregroundClass = u"SearchPane";
    ThePackageManager().m_AppNameList.Reset();
  }
  ~SearchLaunch() override { ThePackageManager().m_AppNameList.Reset(); }

  void CatalogueDesktopApp(const WString& name) {
    const WString path = kPrograms + u"\\" + name + u".lnk";
    fake->AddFile(path, "");
    (void)ThePackageManager().m_AppNameList.AddDesktopApp(name.c_str(), path.c_str());
  }
  int Enters() {
    int count = 0;
    for (const auto& input : fake->inputs) count += input.wVk == 0x0D && input.dwFlags == 1;
    return count;
  }
  std::vector<std::string> ClipboardClearing() {
    std::vector<std::string> names;
    const auto calls = fake->CallsNamed({"OpenClipboard", "EmptyClipboard", "CloseClipboard", "SetClipboardData"});
    for (std::size_t i = calls.size() >= 3 ? calls.size() - 3 : 0; i < calls.size(); ++i)
      names.push_back(calls[i].name);
    return names;
  }
};

TEST_F(SearchLaunch, KeywordWithoutOptionIsPastedQuotedAndSubmitted) {
  EnableLog();
  EXPECT_EQ(KelLaunchBySearchW(u"x", 0, 0), S_OK);
  EXPECT_EQ(fake->pasted, (std::vector<WString>{u"\"x\""}));
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"x\""}));
  EXPECT_FALSE(LogLinesStartingWith("KelLaunchBySearchW szKeyword = \"x\" \r\n").empty());
  EXPECT_EQ(LogLines().back(), "KelLaunchBySearchW OUT(0x00000000)\r\n");
  EXPECT_TRUE(fake->CallsNamed({"ReadFileBytes"}).empty());
}

TEST_F(SearchLaunch, CatalogueNamesThatContainTheKeywordAreExcluded) {
  CatalogueDesktopApp(u"X One");
  CatalogueDesktopApp(u"X Two");
  CatalogueDesktopApp(u"Other");
  EXPECT_EQ(KelLaunchBySearchW(u"x", 0, 1), S_OK);
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"x\" NOT(\"x one\" OR \"x two\")"}));
}

TEST_F(SearchLaunch, OneExcludedNameStandsAloneInItsParentheses) {
  CatalogueDesktopApp(u"X One");
  (void)KelLaunchBySearchW(u"x", 0, 1);
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"x\" NOT(\"x one\")"}));
}

TEST_F(SearchLaunch, QuotesInsideTheKeywordAreNotEscaped) {
  (void)KelLaunchBySearchW(u"a\"b", 0, 0);
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"a\"b\""}));
}

TEST_F(SearchLaunch, ModeOnePastesTheBareKeywordWithoutEnter) {
  CatalogueDesktopApp(u"X One");
  fake->SetDword(kSettingsKey, kClearClipboardWaitTimeValue, 250);
  EXPECT_EQ(KelLaunchBySearchW(u"x", 1, 1), S_OK);
  EXPECT_EQ(fake->pasted, (std::vector<WString>{u"x"}));
  EXPECT_TRUE(fake->submitted.empty());
  const auto& sleeps = fake->Sleeps();
  // ... Windows+Q, pane check, 200, then 2000 before pasting, the paste's
  // own sleeps, then the clipboard wait.
  ASSERT_GE(sleeps.size(), 7u);
  EXPECT_EQ(std::vector<DWORD>(sleeps.end() - 7, sleeps.end()), (std::vector<DWORD>{200, 2000, 50, 50, 1000, 50, 250}));
}

TEST_F(SearchLaunch, ClipboardWaitDefaultsToOneSecond) {
  (void)KelLaunchBySearchW(u"x", 1, 0);
  EXPECT_EQ(fake->Sleeps().back(), 1000u);
}

TEST_F(SearchLaunch, ModeTwoWithTheKeywordNamingAnAppBehavesLikeModeOne) {
  CatalogueDesktopApp(u"Paint");
  CatalogueDesktopApp(u"Paint Shop");
  (void)KelLaunchBySearchW(u"paint", 2, 1);
  EXPECT_EQ(fake->pasted, (std::vector<WString>{u"paint"}));
  EXPECT_TRUE(fake->submitted.empty());
}

TEST_F(SearchLaunch, ModeTwoWithoutAHitBehavesLikeModeZero) {
  CatalogueDesktopApp(u"Paint Shop");
  (void)KelLaunchBySearchW(u"paint", 2, 1);
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"paint\" NOT(\"paint shop\")"}));
}

TEST_F(SearchLaunch, ModeThreeIsRefusedBeforeAnyKey) {
  EXPECT_EQ(KelLaunchBySearchW(u"x", 3, 0), E_INVALIDARG);
  EXPECT_TRUE(fake->inputs.empty());
  EXPECT_EQ(KelLaunchBySearchW(nullptr, 0, 0), E_POINTER);
  EXPECT_EQ(KelLaunchBySearchW(u"", 0, 0), E_INVALIDARG);
}

TEST_F(SearchLaunch, PaneThatStaysInFrontReceivesTheQueryAgain) {
  fake->paneStaysForEnters = 2;
  EXPECT_EQ(KelLaunchBySearchW(u"x", 0, 0), S_OK);
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"x\"", u"\"x\"", u"\"x\""}));
  EXPECT_EQ(Enters(), 3);
}

TEST_F(SearchLaunch, PaneThatNeverOpensEndsInSuccessWithoutTouchingTheClipboard) {
  EnableLog();
  fake->foregroundClass = u"Progman";
  EXPECT_EQ(KelLaunchBySearchW(u"x", 0, 0), S_OK);
  EXPECT_EQ(LogLines().back(), "KelLaunchBySearchW OUT(0x00000000) OpenAppSearchUI() FAILED!!!\r\n");
  EXPECT_TRUE(fake->CallsNamed({"OpenClipboard", "SetClipboardData"}).empty());
  EXPECT_TRUE(fake->pasted.empty());
}

TEST_F(SearchLaunch, ClipboardIsClearedAtTheEnd) {
  (void)KelLaunchBySearchW(u"x", 0, 0);
  EXPECT_EQ(ClipboardClearing(), (std::vector<std::string>{"OpenClipboard", "EmptyClipboard", "CloseClipboard"}));
  EXPECT_TRUE(fake->clipboardText.empty());
}

TEST_F(SearchLaunch, MessagingOnEightPointOneShowsTheNoticeInstead) {
  EnableLog();
  fake->SetVersion(6, 3);
  EXPECT_EQ(KelLaunchBySearchW(u"メッセージング", 0, 0), S_OK);
  const auto boxes = fake->CallsNamed({"MessageBox"});
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].args, "このバージョンのWindowsでは、メッセージングは利用できません。, , 0x40040");
  EXPECT_TRUE(fake->inputs.empty());
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"KelLaunchBySearchW(メッセージング, 0, 0) IN\r\n"}));
}

TEST_F(SearchLaunch, MessagingOnEightIsSearchedForLikeAnyWord) {
  fake->SetVersion(6, 2);
  (void)KelLaunchBySearchW(u"メッセージング", 0, 0);
  EXPECT_TRUE(fake->CallsNamed({"MessageBox"}).empty());
  EXPECT_EQ(fake->submitted.size(), 1u);
}

TEST_F(SearchLaunch, OnlyTheWholeMessagingNameShowsTheNotice) {
  fake->SetVersion(6, 3);
  EXPECT_FALSE(IsMessagingUnavailable(u"メッセージングアプリ"));
  EXPECT_FALSE(IsMessagingUnavailable(u"メッセージ"));
  EXPECT_TRUE(IsMessagingUnavailable(u"メッセージング"));
}

TEST_F(SearchLaunch, NarrowKeywordIsConvertedFromShiftJis) {
  EXPECT_EQ(KelLaunchBySearchA("\x83\x81\x81\x5B\x83\x8B", 0, 0), S_OK);  // メール
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"メール\""}));
}

class LaunchByFamilyName : public SearchLaunch {
 protected:
  LaunchByFamilyName() {
    fake->AddFile(u"C:\\Apps\\Mail\\AppxManifest.xml",
                  "<Package><Applications><Application><VisualElements DisplayName=\"Mail\"/></Application>"
                  "</Applications></Package>");
    fake->AddFile(u"C:\\Apps\\Pair\\AppxManifest.xml",
                  "<Package><Applications><Application><VisualElements DisplayName=\"One\"/></Application>"
                  "<Application><VisualElements DisplayName=\"Two\"/></Application></Applications></Package>");
    fake->deployed.push_back({fake->userSid, &mail});
    fake->deployed.push_back({fake->userSid, &pair});
  }
  fakes::FakePackage mail{u"Example.Mail_abc", u"Example.Mail_1_x86__abc", u"Example.Mail", {}, u"C:\\Apps\\Mail"};
  fakes::FakePackage pair{u"Example.Pair_abc", u"Example.Pair_1_x86__abc", u"Example.Pair", {}, u"C:\\Apps\\Pair"};
};

TEST_F(LaunchByFamilyName, SearchesForThePackagesDisplayName) {
  EXPECT_EQ(KelLaunchByPFNW(u"Example.Mail_abc", 0, 0), S_OK);
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"mail\""}));
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

TEST_F(LaunchByFamilyName, UnknownPackageIsReportedAsNotFound) {
  EXPECT_EQ(KelLaunchByPFNW(u"Example.Unknown_abc", 0, 0), E_KEL_PACKAGE_NOT_FOUND);
  EXPECT_TRUE(fake->inputs.empty());
}

TEST_F(LaunchByFamilyName, OtherLookupFailuresAreReportedAsDisplayNameFailed) {
  EXPECT_EQ(KelLaunchByPFNW(u"Example.Pair_abc", 0, 0), E_KEL_DISPLAY_NAME_FAILED);
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

TEST_F(LaunchByFamilyName, PhotosOnEightPointOneLooksUpItsSuccessor) {
  fake->SetVersion(6, 3);
  (void)KelLaunchByPFNW(u"microsoft.windowsphotos_8wekyb3d8bbwe", 0, 0);
  EXPECT_EQ(fake->CallsNamed({"FindPackagesByUserSecurityIdPackageFamilyName"}).at(0).args,
            "S-1-5-21-1-2-3-1001, FileManager_cw5n1h2txyewy");
}

TEST_F(LaunchByFamilyName, PhotosOnEightAndTenIsLookedUpAsGiven) {
  fake->SetVersion(6, 2);
  (void)KelLaunchByPFNW(u"microsoft.windowsphotos_8wekyb3d8bbwe", 0, 0);
  fake->SetVersion(10, 0);
  (void)KelLaunchByPFNW(u"microsoft.windowsphotos_8wekyb3d8bbwe", 0, 0);
  EXPECT_EQ(CallArgs("FindPackagesByUserSecurityIdPackageFamilyName"),
            (std::vector<std::string>{"S-1-5-21-1-2-3-1001, microsoft.windowsphotos_8wekyb3d8bbwe",
                                      "S-1-5-21-1-2-3-1001, microsoft.windowsphotos_8wekyb3d8bbwe"}));
}

TEST_F(LaunchByFamilyName, DisplayNameIsReleasedThroughTheExport) {
  EnableLog();
  (void)KelLaunchByPFNW(u"Example.Mail_abc", 0, 0);
  EXPECT_EQ(LogLinesStartingWith("KelReleaseStringW").size(), 2u);
}

}  // namespace
}  // namespace kel
