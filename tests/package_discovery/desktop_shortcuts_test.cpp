#include <gtest/gtest.h>

#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kPrograms = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs";

class DesktopShortcuts : public testing::LibraryTest {
 protected:
  std::vector<std::pair<WString, WString>> Catalogued() {
    std::vector<std::pair<WString, WString>> out;
    for (const auto& app : manager.m_AppNameList.DesktopApps())
      out.emplace_back(app->DisplayName(), app->LnkFileName());
    return out;
  }
  CKELPackageManager manager;
};

TEST_F(DesktopShortcuts, ShortcutsOfAFolderComeBeforeItsSubfolders) {
  fake->AddFile(kPrograms + u"\\A.lnk", "");
  fake->AddFile(kPrograms + u"\\B.url", "");
  fake->AddFile(kPrograms + u"\\Tools\\C.lnk", "");
  fake->AddFile(kPrograms + u"\\readme.txt", "");
  EXPECT_EQ(manager.RefreshDesktopApps(kPrograms.c_str()), S_OK);
  EXPECT_EQ(Catalogued(), (std::vector<std::pair<WString, WString>>{{u"a", kPrograms + u"\\A.lnk"},
                                                                    {u"b", kPrograms + u"\\B.url"},
                                                                    {u"c", kPrograms + u"\\Tools\\C.lnk"}}));
}

TEST_F(DesktopShortcuts, LnkPatternComesBeforeUrlPattern) {
  fake->AddFile(kPrograms + u"\\A.url", "");
  fake->AddFile(kPrograms + u"\\Z.lnk", "");
  (void)manager.RefreshDesktopApps(kPrograms.c_str());
  const auto patterns = fake->CallsNamed({"FindFirstFile"});
  ASSERT_GE(patterns.size(), 3u);
  EXPECT_EQ(patterns[0].args, fakes::Narrow(kPrograms) + "\\*.lnk");
  EXPECT_EQ(patterns[1].args, fakes::Narrow(kPrograms) + "\\*.url");
  EXPECT_EQ(patterns[2].args, fakes::Narrow(kPrograms) + "\\*");
  EXPECT_EQ(Catalogued().front().first, u"z");
}

TEST_F(DesktopShortcuts, ShortcutNamedOnlyByItsExtensionIsNotCatalogued) {
  fake->AddFile(kPrograms + u"\\.lnk", "");
  EXPECT_EQ(manager.RefreshDesktopApps(kPrograms.c_str()), S_OK);
  EXPECT_TRUE(Catalogued().empty());
}

TEST_F(DesktopShortcuts, LongerExtensionMatchedThroughItsShortNameLosesFourCharacters) {
  fake->AddFileWithShortName(kPrograms + u"\\Name.lnk2", u"NAME~1.LNK", "");
  (void)manager.RefreshDesktopApps(kPrograms.c_str());
  EXPECT_EQ(Catalogued(), (std::vector<std::pair<WString, WString>>{{u"name.", kPrograms + u"\\Name.lnk2"}}));
}

TEST_F(DesktopShortcuts, FolderNamedWithThreeDotsIsEntered) {
  fake->AddFile(kPrograms + u"\\...\\D.lnk", "");
  (void)manager.RefreshDesktopApps(kPrograms.c_str());
  EXPECT_EQ(Catalogued().size(), 1u);
}

TEST_F(DesktopShortcuts, FolderMatchingThePatternIsHandedOnLikeAShortcut) {
  fake->AddDirectory(kPrograms + u"\\Odd.lnk");
  (void)manager.RefreshDesktopApps(kPrograms.c_str());
  EXPECT_EQ(Catalogued(), (std::vector<std::pair<WString, WString>>{{u"odd", kPrograms + u"\\Odd.lnk"}}));
}

TEST_F(DesktopShortcuts, MissingFolderLogsBothPatternsAndFails) {
  EnableLog();
  EXPECT_EQ(manager.RefreshDesktopApps(u"C:\\Missing"), E_FAIL);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{
                            "CKELPackageManager::RefreshDesktopApps(C:\\Missing) IN\r\n",
                            "CKELPackageManager::AddLinkFileToList(C:\\Missing) IN\r\n",
                            "C:\\Missing\\*.lnk Errcode = 3 \r\n",
                            "CKELPackageManager::AddLinkFileToList(C:\\Missing) IN\r\n",
                            "C:\\Missing\\*.url Errcode = 3 \r\n",
                            "Errcode = 3 \r\n",
                        }));
}

TEST_F(DesktopShortcuts, KnownShortcutIsNotAddedTwice) {
  fake->AddFile(kPrograms + u"\\A.lnk", "");
  (void)manager.RefreshDesktopApps(kPrograms.c_str());
  (void)manager.RefreshDesktopApps(kPrograms.c_str());
  EXPECT_EQ(Catalogued().size(), 1u);
}

TEST_F(DesktopShortcuts, NullAndEmptyFoldersAreRefused) {
  EXPECT_EQ(manager.RefreshDesktopApps(nullptr), E_POINTER);
  EXPECT_EQ(manager.RefreshDesktopApps(u""), E_INVALIDARG);
}

TEST_F(DesktopShortcuts, PathsThatDoNotFitAreSkippedWithALogLine) {
  EnableLog();
  const WString deep = kPrograms + u"\\" + WString(200, u'd');
  fake->AddFile(deep + u"\\" + WString(40, u'n') + u".lnk", "");
  EXPECT_EQ(manager.RefreshDesktopApps(kPrograms.c_str()), S_OK);
  EXPECT_TRUE(Catalogued().empty());
  EXPECT_FALSE(LogLinesStartingWith("CKELPackageManager::AddLinkFileToList shortcut path longer than 259").empty());
}

}  // namespace
}  // namespace kel
