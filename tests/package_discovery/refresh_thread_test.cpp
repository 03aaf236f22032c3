#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "fakes/fake_package.h"
#include "frame/exports.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kHostFolder = u"C:\\Program Files\\Launcher";
const WString kDataFolder = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher";
const WString kDataFile = kDataFolder + u"\\AppNameList1.0.4.0.xml";
const WString kPresetFile = kHostFolder + u"\\PresetAppNameList.xml";
const WString kAllUsersPrograms = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs";
const WString kUserPrograms = u"C:\\Users\\kel\\AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs";

// Catalogues of one desktop application each, "Preset" as the host ships it
// and "Saved" as a refresh wrote it.
constexpr char kPresetList[] =
    "<Applications><DesktopApps><DesktopApp DisplayName=\"Preset\" LnkFileName=\"C:\\p.lnk\" NeedReserve=\"1\" />"
    "</DesktopApps>";
constexpr char kSavedList[] =
    "<Applications><DesktopApps><DesktopApp DisplayName=\"Saved\" LnkFileName=\"C:\\s.lnk\" /></DesktopApps>";

class RefreshThread : public testing::LibraryTest {
 protected:
  RefreshThread() { fake->SetModulePath(kHostFolder + u"\\Launcher.exe"); }

  // Starts the package manager and lets its thread run up to its first wait.
  void StartAndReachFirstWait() {
    ASSERT_EQ(KelInitialize(), S_OK);
    fake->StartThreads();
    ASSERT_TRUE(fake->WaitForBlockedWaits(1));
  }
  // The display name of the catalogue's one desktop application.
  WString OnlyDesktopAppName() {
    const auto& apps = ThePackageManager().m_AppNameList.DesktopApps();
    EXPECT_EQ(apps.size(), 1u);
    return apps.empty() ? WString() : WString(apps.front()->DisplayName());
  }
  int Passes() {
    return static_cast<int>(LogLinesStartingWith("CKELPackageManager::RefreshThread Refresh app name list!").size());
  }
};

TEST_F(RefreshThread, SecondInitializeWhileRunningReturnsSFalseAndStartsNothing) {
  CKELPackageManager& manager = ThePackageManager();
  ASSERT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(manager.Initialize(), S_FALSE);
  EXPECT_EQ(fake->CallsNamed({"CreateThread"}).size(), 1u);
  EXPECT_EQ(fake->CallsNamed({"CreateEvent"}).size(), 1u);
}

TEST_F(RefreshThread, ExitEventIsNamedAfterTheProcessAndManualReset) {
  ASSERT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(fake->CallsNamed({"CreateEvent"}).at(0).args, "1, 0, Local\\KEL_Event_Exit_RefreshThread4242");
}

TEST_F(RefreshThread, StopWithinTheFirstSecondRunsNoPassAndWritesNoExitLine) {
  EnableLog();
  StartAndReachFirstWait();
  KelFinalize();
  EXPECT_TRUE(fake->WaitForThreadsToFinish());
  EXPECT_EQ(Passes(), 0);
  EXPECT_TRUE(LogLinesStartingWith("CKELPackageManager::RefreshThread OUT").empty());
  EXPECT_EQ(fake->CallsNamed({"WaitForSingleObject"}).at(0).args, "1000");
  EXPECT_FALSE(fake->Exists(kDataFile));
}

TEST_F(RefreshThread, FirstPassRunsAfterTheFirstSecondAndSavesTheCatalogue) {
  EnableLog();
  fake->AddFile(kAllUsersPrograms + u"\\Notepad.lnk", "");
  fake->AddFile(kUserPrograms + u"\\Paint.lnk", "");
  StartAndReachFirstWait();
  fake->GrantTimeouts(1);                     // the first second passes
  ASSERT_TRUE(fake->WaitForBlockedWaits(2));  // the thread waits for the interval
  EXPECT_EQ(Passes(), 1);
  const std::string saved = fake->FileContent(kDataFile);
  const std::size_t notepad = saved.find("notepad");
  const std::size_t paint = saved.find("paint");
  EXPECT_NE(notepad, std::string::npos);
  EXPECT_NE(paint, std::string::npos);
  EXPECT_LT(notepad, paint);  // all users' shortcuts first
  const auto waits = fake->CallsNamed({"WaitForSingleObject"});
  EXPECT_EQ(waits.back().args, "43200000");  // 720 minutes
  KelFinalize();
  EXPECT_TRUE(fake->WaitForThreadsToFinish());
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::RefreshThread OUT").size(), 1u);
  EXPECT_EQ(fake->CallsNamed({"ResetEvent"}).size(), 1u);
}

TEST_F(RefreshThread, IntervalIsComputedInUnsigned32BitArithmetic) {
  fake->SetDword(kSettingsKey, kRefreshIntervalValue, 71583);  // wraps
  StartAndReachFirstWait();
  fake->GrantTimeouts(1);
  ASSERT_TRUE(fake->WaitForBlockedWaits(2));
  EXPECT_EQ(fake->CallsNamed({"WaitForSingleObject"}).back().args,
            std::to_string(static_cast<std::uint32_t>(71583u * 60000u)));
}

TEST_F(RefreshThread, ZeroIntervalRunsPassesBackToBackUntilStopped) {
  EnableLog();
  fake->SetDword(kSettingsKey, kRefreshIntervalValue, 0);
  StartAndReachFirstWait();
  // Each pass ends with a wait of 0 ms: the fake answers at once, so passes
  // follow each other until the stop request.
  fake->AddFile(kAllUsersPrograms + u"\\A.lnk", "");
  fake->GrantTimeouts(1);
  // Bounded in real time; three passes take milliseconds.
  for (int i = 0; i < 10000 && Passes() < 3; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  KelFinalize();
  EXPECT_TRUE(fake->WaitForThreadsToFinish());
  EXPECT_GE(Passes(), 3);
}

TEST_F(RefreshThread, StopDuringTheStorePackagesSkipsTheRestOfThePass) {
  EnableLog();
  fakes::FakePackage one{u"One_abc", u"One_1_x86__abc", u"One", {1, 0, 0, 0}, u"C:\\Apps\\One"};
  fakes::FakePackage two{u"Two_abc", u"Two_1_x86__abc", u"Two", {1, 0, 0, 0}, u"C:\\Apps\\Two"};
  fake->deployed.push_back({fake->userSid, &one});
  fake->deployed.push_back({fake->userSid, &two});
  StartAndReachFirstWait();
  fake->eventToSet = ThePackageManager().m_hExitEvent.load();
  fake->setEventAfterPackages = 1;
  fake->GrantTimeouts(1);
  EXPECT_TRUE(fake->WaitForThreadsToFinish());
  EXPECT_EQ(ThePackageManager().m_AppNameList.Packages().size(), 1u);
  EXPECT_FALSE(fake->Exists(kDataFile));  // the save was skipped
  EXPECT_TRUE(fake->CallsNamed({"FindFirstFile"}).empty());
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::RefreshThread OUT").size(), 1u);
}

TEST_F(RefreshThread, WithoutDataAndPresetFilesTheLoadFailureIsLoggedAndTheFirstPassWritesTheFile) {
  EnableLog();
  StartAndReachFirstWait();
  EXPECT_EQ(LogLinesStartingWith("m_AppNameList.Load() failed."),
            (std::vector<std::string>{"m_AppNameList.Load() failed. ErrCode = 0x80070002 \r\n"}));
  fake->GrantTimeouts(1);
  ASSERT_TRUE(fake->WaitForBlockedWaits(2));
  EXPECT_TRUE(fake->Exists(kDataFile));
}

TEST_F(RefreshThread, PresetListIsLoadedWhenThereIsNoDataFile) {
  fake->AddFile(kPresetFile, kPresetList);
  ASSERT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(OnlyDesktopAppName(), u"preset");
}

TEST_F(RefreshThread, DataFileIsPreferredToThePresetList) {
  fake->AddFile(kPresetFile, kPresetList);
  fake->AddFile(kDataFile, kSavedList);
  ASSERT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(OnlyDesktopAppName(), u"saved");
}

TEST_F(RefreshThread, RestartAfterStopDoesNotDoubleTheCatalogue) {
  fake->AddFile(kDataFile, kSavedList);
  ASSERT_EQ(KelInitialize(), S_OK);
  KelFinalize();
  ASSERT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(ThePackageManager().m_AppNameList.DesktopApps().size(), 1u);
}

TEST_F(RefreshThread, FailedEventCreationFailsTheStart) {
  EnableLog();
  fake->createEventFails = true;
  EXPECT_EQ(KelInitialize(), E_FAIL);
  EXPECT_EQ(g_nInitCount.load(), 0);
  EXPECT_EQ(LogLinesStartingWith("CreateEventW() failed."),
            (std::vector<std::string>{"CreateEventW() failed. ErrCode = 6 \r\n"}));
  EXPECT_TRUE(fake->CallsNamed({"CreateThread"}).empty());
}

TEST_F(RefreshThread, FailedThreadCreationKeepsTheEventUntilTheNextStart) {
  EnableLog();
  fake->createThreadFails = true;
  EXPECT_EQ(KelInitialize(), E_FAIL);
  EXPECT_NE(ThePackageManager().m_hExitEvent.load(), nullptr);
  fake->createThreadFails = false;
  EXPECT_EQ(KelInitialize(), S_OK);
  // The event of the half-finished start was closed before a new one was made.
  EXPECT_GE(fake->CallsNamed({"CloseHandle"}).size(), 1u);
  EXPECT_EQ(fake->CallsNamed({"CreateEvent"}).size(), 2u);
}

TEST_F(RefreshThread, MissingPresetPathFailsWithoutStartingAnything) {
  fake->SetModulePath(u"Launcher.exe");
  EXPECT_EQ(KelInitialize(), E_FAIL);
  EXPECT_TRUE(fake->CallsNamed({"CreateEvent", "CreateThread"}).empty());
}

}  // namespace
}  // namespace kel
