// A stop that gives up on the refresh thread, and what that thread may still
// do afterwards: nothing to the next start's records, handles or file.
#include <gtest/gtest.h>

#include <string>

#include "fakes/fake_package.h"
#include "frame/exports.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kHostFolder = u"C:\\Program Files\\Launcher";
const WString kDataFile = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher\\AppNameList1.0.4.0.xml";
constexpr char kFirstList[] =
    "<Applications><MetroApps><Package PackageFamilyName=\"Example.Mail_abc\" Version=\"1.0.0.0\" "
    "NeedReserve=\"0\" IsInstalled=\"1\"><App DisplayName=\"mail box\" /></Package></MetroApps>"
    "<DesktopApps><DesktopApp DisplayName=\"First\" LnkFileName=\"C:\\first.lnk\" NeedReserve=\"1\" />"
    "</DesktopApps>";
constexpr char kSecondList[] =
    "<Applications><MetroApps /><DesktopApps><DesktopApp DisplayName=\"Second\" LnkFileName=\"C:\\second.lnk\" "
    "NeedReserve=\"1\" /></DesktopApps>";

class RefreshThreadGivenUp : public testing::LibraryTest {
 protected:
  RefreshThreadGivenUp() {
    fake->SetModulePath(kHostFolder + u"\\Launcher.exe");
    fake->deployed.push_back({fake->userSid, &mail});
  }

  // Starts the library and holds its first pass inside the installed check
  // of the catalogued package, with the catalogue lock let go; then the stop
  // waits its 20 seconds in vain and gives the thread up.
  void HoldTheFirstPassAndGiveItUp() {
    fake->AddFile(kDataFile, kFirstList);
    ASSERT_EQ(KelInitialize(), S_OK);
    fake->StartThreads();
    ASSERT_TRUE(fake->WaitForBlockedWaits(1));
    fake->HoldPackageQueries(true);
    fake->GrantTimeouts(1);
    ASSERT_TRUE(fake->WaitForHeldPackageQuery());
    fake->GrantThreadWaitTimeouts(1);
    KelFinalize();
  }

  int Passes() {
    return static_cast<int>(LogLinesStartingWith("CKELPackageManager::RefreshThread Refresh app name list!").size());
  }

  fakes::FakePackage mail{
      u"Example.Mail_abc", u"Example.Mail_1_x86__abc", u"Example.Mail", {1, 0, 0, 0}, u"C:\\Apps\\Mail"};
};

TEST_F(RefreshThreadGivenUp, PassHeldPastTheStopNeverTouchesTheNextStart) {
  EnableLog();
  ASSERT_NO_FATAL_FAILURE(HoldTheFirstPassAndGiveItUp());
  ASSERT_EQ(fake->CallsNamed({"SetEvent"}).size(), 1u);

  // A new start empties the records the held pass was walking and loads
  // the file anew.
  fake->AddFile(kDataFile, kSecondList);
  ASSERT_EQ(KelInitialize(), S_OK);
  ASSERT_EQ(ThePackageManager().m_AppNameList.Packages().size(), 0u);
  ASSERT_EQ(ThePackageManager().m_AppNameList.DesktopApps().size(), 1u);

  // The old pass goes on and must end at its next check without touching
  // the new records, its closed handles or the new start's event.
  fake->HoldPackageQueries(false);
  ASSERT_TRUE(fake->WaitForThreadsToFinish());
  EXPECT_EQ(Passes(), 1);
  EXPECT_TRUE(fake->CallsNamed({"FindPackagesByUserSecurityId"}).empty());
  EXPECT_EQ(fake->StaleHandleUses(), 0);
  EXPECT_EQ(fake->FileContent(kDataFile), kSecondList);
  EXPECT_EQ(ThePackageManager().m_AppNameList.Packages().size(), 0u);
  // The thread given up on wrote no exit line and left the event alone.
  EXPECT_TRUE(LogLinesStartingWith("CKELPackageManager::RefreshThread OUT").empty());
  EXPECT_TRUE(fake->CallsNamed({"ResetEvent"}).size() <= 1u);

  // The new start works as usual beside it: its first pass runs and saves.
  fake->StartThreads();
  ASSERT_TRUE(fake->WaitForBlockedWaits(2));
  fake->GrantTimeouts(1);
  ASSERT_TRUE(fake->WaitForBlockedWaits(3));
  EXPECT_EQ(Passes(), 2);
  const std::string saved = fake->FileContent(kDataFile);
  EXPECT_NE(saved.find("second"), std::string::npos) << saved;
  EXPECT_EQ(saved.find("first"), std::string::npos) << saved;
  KelFinalize();
  EXPECT_TRUE(fake->WaitForThreadsToFinish());
  EXPECT_EQ(fake->StaleHandleUses(), 0);
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::RefreshThread OUT").size(), 1u);
}

TEST_F(RefreshThreadGivenUp, ItsEventIsClosedWhenTheThreadEndsNotBefore) {
  Handle event = nullptr;
  fake->onCall = [&](const fakes::Call& call) {
    if (call.name == "SetEvent" && event == nullptr) event = ThePackageManager().m_hExitEvent.load();
  };
  ASSERT_NO_FATAL_FAILURE(HoldTheFirstPassAndGiveItUp());
  ASSERT_NE(event, nullptr);
  auto closesOfTheEvent = [&] {
    int closes = 0;
    for (const auto& call : fake->CallsNamed({"CloseHandle"})) {
      if (std::stoull(call.args, nullptr, 16) == reinterpret_cast<std::uintptr_t>(event)) ++closes;
    }
    return closes;
  };
  EXPECT_EQ(closesOfTheEvent(), 0);  // the held thread may still wait on it
  EXPECT_EQ(ThePackageManager().m_hExitEvent.load(), nullptr);
  EXPECT_EQ(ThePackageManager().m_hRefreshThread.load(), nullptr);

  fake->HoldPackageQueries(false);
  ASSERT_TRUE(fake->WaitForThreadsToFinish());
  EXPECT_EQ(closesOfTheEvent(), 1);
  EXPECT_EQ(fake->StaleHandleUses(), 0);
  // Nothing of the abandoned pass reached the file.
  EXPECT_EQ(fake->FileContent(kDataFile), kFirstList);
}

TEST_F(RefreshThreadGivenUp, StopThatEndsInTimeClosesTheEventAtOnce) {
  ASSERT_EQ(KelInitialize(), S_OK);
  fake->StartThreads();
  ASSERT_TRUE(fake->WaitForBlockedWaits(1));
  fake->ClearCalls();
  KelFinalize();
  EXPECT_EQ(fake->CallNames(),
            (std::vector<std::string>{"SetEvent", "WaitForSingleObject", "CloseHandle", "CloseHandle"}));
  EXPECT_TRUE(fake->WaitForThreadsToFinish());
}

}  // namespace
}  // namespace kel
