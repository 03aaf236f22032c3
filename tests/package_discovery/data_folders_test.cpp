#include <gtest/gtest.h>

#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

class DataFolders : public testing::LibraryTest {};

TEST_F(DataFolders, DataFolderIsNamedAfterTheHostUpToItsFirstDot) {
  fake->SetModulePath(u"C:\\Apps\\My.App.exe");
  WString folder;
  EXPECT_EQ(CKELPackageManager::CreateAppNameListFolder(folder), S_OK);
  EXPECT_EQ(folder, u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\My");
  EXPECT_EQ(fake->GetFileAttributes(folder.c_str()), platform::FILE_ATTRIBUTE_DIRECTORY);
}

TEST_F(DataFolders, TrailingBackslashOfLocalAppDataIsDropped) {
  fake->SetEnv(u"LOCALAPPDATA", u"C:\\Local\\");
  fake->SetModulePath(u"C:\\Apps\\Launcher.exe");
  WString folder;
  (void)CKELPackageManager::CreateAppNameListFolder(folder);
  EXPECT_EQ(folder, u"C:\\Local\\Osk\\Kelbrook\\Launcher");
}

TEST_F(DataFolders, ExistingFolderIsLoggedButNotAFailure) {
  EnableLog();
  fake->SetModulePath(u"C:\\Apps\\Launcher.exe");
  fake->AddDirectory(u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher");
  WString folder;
  EXPECT_EQ(CKELPackageManager::CreateAppNameListFolder(folder), S_OK);
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{
                "CKELPackageManager::CreateAppNameListFolder IN\r\n",
                "CKELPackageManager::CreateAppNameListFolder SHCreateDirectoryEx failed. ErrCode = (183)\r\n",
                "CKELPackageManager::CreateAppNameListFolder OUT(C)\r\n",
            }));
}

TEST_F(DataFolders, MissingLocalAppDataFails) {
  EnableLog();
  fake->UnsetEnv(u"LOCALAPPDATA");
  WString folder;
  EXPECT_EQ(CKELPackageManager::CreateAppNameListFolder(folder), E_FAIL);
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::CreateAppNameListFolder OUT(0)\r\n");
}

TEST_F(DataFolders, MissingHostPathFails) {
  fake->SetModulePath(u"");
  WString folder;
  EXPECT_EQ(CKELPackageManager::CreateAppNameListFolder(folder), E_FAIL);
  EXPECT_FALSE(CKELPackageManager::GetPresetAppNameFullPath(folder));
}

TEST_F(DataFolders, OverlongFolderIsSkippedWithALogLine) {
  EnableLog();
  fake->SetEnv(u"LOCALAPPDATA", u"C:\\" + WString(245, u'a'));
  fake->SetModulePath(u"C:\\Apps\\Launcher.exe");
  WString folder;
  EXPECT_EQ(CKELPackageManager::CreateAppNameListFolder(folder), E_FAIL);
  EXPECT_TRUE(fake->CallsNamed({"SHCreateDirectoryEx"}).empty());
  EXPECT_FALSE(LogLinesStartingWith("CKELPackageManager::CreateAppNameListFolder data folder path longer").empty());
}

TEST_F(DataFolders, PresetListLiesBesideTheHost) {
  EnableLog();
  fake->SetModulePath(u"C:\\Apps\\Launcher.exe");
  WString preset;
  ASSERT_TRUE(CKELPackageManager::GetPresetAppNameFullPath(preset));
  EXPECT_EQ(preset, u"C:\\Apps\\PresetAppNameList.xml");
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELPackageManager::GetPresetAppNameFullPath OUT(C)\r\n"}));
}

TEST_F(DataFolders, HostPathWithoutBackslashHasNoPresetList) {
  fake->SetModulePath(u"Launcher.exe");
  WString preset;
  EXPECT_FALSE(CKELPackageManager::GetPresetAppNameFullPath(preset));
}

}  // namespace
}  // namespace kel
