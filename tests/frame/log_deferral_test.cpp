// Trace lines of a thread that holds the catalogue lock wait in memory and
// reach the file once the lock is let go of, in order and with the time of
// their trace calls.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "catalogue/app_name_list.h"
#include "catalogue/catalogue_lock.h"
#include "fakes/fake_package.h"
#include "frame/log.h"
#include "library_test.h"

namespace kel {
namespace {

using testing::kLogFile;

constexpr platform::SystemTime kFirst{2013, 5, 1, 20, 9, 4, 7, 31};
constexpr platform::SystemTime kSecond{2013, 5, 1, 20, 9, 4, 8, 500};
constexpr platform::SystemTime kThird{2013, 5, 1, 20, 9, 4, 9, 0};

class LogUnderCatalogueLock : public testing::LibraryTest {
 protected:
  LogUnderCatalogueLock() { EnableLog(); }

  std::size_t LogFileCalls() { return fake->CallsNamed({"CreateFile", "WriteFile"}).size(); }

  std::mutex catalogue;
};

TEST_F(LogUnderCatalogueLock, LinesWaitUntilTheLockEndsAndKeepTheTimeOfTheirTrace) {
  {
    CatalogueLock lock(catalogue);
    fake->SetLocalTime(kFirst);
    EXPECT_EQ(WriteDebugLog("%S IN\r\n", u"CKELAppNameList::AddDesktopApp"), 1);
    fake->SetLocalTime(kSecond);
    WriteDebugLog("%S OUT(0x%08X)\r\n", u"CKELAppNameList::AddDesktopApp", 0);
    fake->SetLocalTime(kThird);
    EXPECT_EQ(LogFileCalls(), 0u);
    EXPECT_FALSE(fake->Exists(kLogFile));
  }
  EXPECT_EQ(fake->FileContent(kLogFile),
            "[2013/05/20 09:04:07.031]CKELAppNameList::AddDesktopApp IN\r\n"
            "[2013/05/20 09:04:08.500]CKELAppNameList::AddDesktopApp OUT(0x00000000)\r\n");
  // Each waiting line is written the way any line is.
  EXPECT_EQ(fake->CallNames(),
            (std::vector<std::string>{"CreateFile", "SetFilePointer", "WriteFile", "WriteFile", "CloseHandle",
                                      "CreateFile", "SetFilePointer", "WriteFile", "WriteFile", "CloseHandle"}));
}

TEST_F(LogUnderCatalogueLock, LettingGoForASlowCallWritesTheWaitingLinesFirst) {
  {
    CatalogueLock lock(catalogue);
    WriteDebugLog("%S IN\r\n", u"Before");
    {
      CatalogueUnlocked unlocked;
      EXPECT_EQ(LogLines(), (std::vector<std::string>{"Before IN\r\n"}));
      WriteDebugLog("%S\r\n", u"Unlocked");  // straight to the file
      EXPECT_EQ(LogLines().size(), 2u);
    }
    WriteDebugLog("%S OUT\r\n", u"After");
    EXPECT_EQ(LogLines().size(), 2u);
  }
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"Before IN\r\n", "Unlocked\r\n", "After OUT\r\n"}));
}

TEST_F(LogUnderCatalogueLock, LinesWaitWhileAnyCatalogueLockIsHeld) {
  std::mutex second;
  {
    CatalogueLock outer(catalogue);
    WriteDebugLog("%S\r\n", u"one");
    {
      CatalogueLock inner(second);
      WriteDebugLog("%S\r\n", u"two");
      {
        CatalogueUnlocked unlocked;  // lets go of the inner lock only
        WriteDebugLog("%S\r\n", u"three");
      }
    }
    WriteDebugLog("%S\r\n", u"four");
    EXPECT_EQ(LogFileCalls(), 0u);
  }
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"one\r\n", "two\r\n", "three\r\n", "four\r\n"}));
}

TEST_F(LogUnderCatalogueLock, OtherThreadsWriteTheirLinesAtOnce) {
  {
    CatalogueLock lock(catalogue);
    WriteDebugLog("%S\r\n", u"holder");
    std::thread other([] { WriteDebugLog("%S\r\n", u"other"); });
    other.join();
    EXPECT_EQ(LogLines(), (std::vector<std::string>{"other\r\n"}));
  }
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"other\r\n", "holder\r\n"}));
}

TEST_F(LogUnderCatalogueLock, NoLineIsLostHoweverManyWait) {
  constexpr int kLines = 1500;
  const WString padding(600, u'p');
  {
    CatalogueLock lock(catalogue);
    for (int i = 0; i < kLines; ++i) WriteDebugLog("%S %d %S\r\n", u"Line", i, padding);
  }
  const auto lines = LogLines();
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(kLines));
  for (int i = 0; i < kLines; ++i) {
    ASSERT_EQ(lines[i].rfind(ToUtf8(FormatWide(u"Line %d ", {i})), 0), 0u) << i;
  }
}

TEST_F(LogUnderCatalogueLock, SwitchOffAddsNothingToWait) {
  ResetLog();
  {
    CatalogueLock lock(catalogue);
    EXPECT_EQ(WriteDebugLog("%S\r\n", u"off"), 1);
  }
  EXPECT_EQ(LogFileCalls(), 0u);
}

// Whenever a catalogue operation opens the log file, another thread must be
// able to take the catalogue's lock at that moment.
TEST_F(LogUnderCatalogueLock, CatalogueOperationsNeverOpenTheLogWhileHoldingTheLock) {
  const WString installed = u"C:\\Program Files\\WindowsApps\\Example.Mail_2.0.0.0_x86__abc";
  fake->AddFile(installed + u"\\AppxManifest.xml",
                "<Package><Applications><Application><VisualElements DisplayName=\"Mail Box\"><DefaultTile "
                "ShortName=\"Mail\"/></VisualElements></Application></Applications></Package>");
  fakes::FakePackage mail{
      u"Example.Mail_abc", u"Example.Mail_2.0.0.0_x86__abc", u"Example.Mail", {2, 0, 0, 0}, installed};
  fake->deployed.push_back({fake->userSid, &mail});
  fake->AddFile(u"C:\\Start\\Mail Merge.lnk", "");
  CKELAppNameList list;

  const std::thread::id testThread = std::this_thread::get_id();
  const std::string logPath = fakes::Narrow(kLogFile);
  int opens = 0;
  int opensUnderLock = 0;
  std::vector<std::thread> probes;
  fake->onCall = [&](const fakes::Call& call) {
    if (call.name != "CreateFile" || call.args.rfind(logPath, 0) != 0) return;
    if (std::this_thread::get_id() != testThread) return;  // the probe's own lines
    ++opens;
    if (opensUnderLock > 0) return;  // one is proof enough; more would only wait
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> probed = done->get_future();
    probes.emplace_back([&list, done] {
      (void)list.IsInDesktopAppList(u"C:\\Start\\Probe.lnk");
      done->set_value();
    });
    if (probed.wait_for(std::chrono::seconds(5)) != std::future_status::ready) ++opensUnderLock;
  };

  EXPECT_EQ(list.AddMetroPackage(&mail), S_OK);
  EXPECT_EQ(list.AddDesktopApp(u"Mail Merge", u"C:\\Start\\Mail Merge.lnk"), S_OK);
  ExcludeAppNameList excluded;
  BOOL found = 0;
  EXPECT_EQ(list.GetExcludeAppNameList(u"Mail", &excluded, &found), S_OK);
  list.RefreshInstalledFlags();
  EXPECT_EQ(list.Save(u"C:\\Users\\kel\\AppData\\Local\\list.xml"), S_OK);
  list.Clear();
  (void)list.Load(u"C:\\Users\\kel\\AppData\\Local\\list.xml");

  for (auto& probe : probes) probe.join();
  fake->onCall = nullptr;
  EXPECT_GT(opens, 10);
  EXPECT_EQ(opensUnderLock, 0);
  EXPECT_EQ(excluded, (ExcludeAppNameList{u"mail box", u"mail merge"}));
  EXPECT_EQ(list.Packages().size(), 1u);
}

}  // namespace
}  // namespace kel
