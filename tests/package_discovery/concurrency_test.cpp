#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "fakes/fake_package.h"
#include "frame/exports.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kAllUsersPrograms = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs";

// The refresh thread runs passes back to back while host threads read the
// catalogue through the exports; the sanitized builds watch for races.
class CatalogueUnderLoad : public testing::LibraryTest {};

TEST_F(CatalogueUnderLoad, ExportsReadWhileTheRefreshThreadRewritesTheCatalogue) {
  fake->SetDword(kSettingsKey, kRefreshIntervalValue, 0);
  fake->SetModulePath(u"C:\\Program Files\\Launcher\\Launcher.exe");
  fakes::FakePackage mail{
      u"Example.Mail_abc", u"Example.Mail_1_x86__abc", u"Example.Mail", {1, 0, 0, 0}, u"C:\\Apps\\Mail"};
  fake->AddFile(u"C:\\Apps\\Mail\\AppxManifest.xml",
                "<Package><Applications><Application><VisualElements DisplayName=\"Mail Box\"><DefaultTile "
                "ShortName=\"Mail\"/></VisualElements></Application></Applications></Package>");
  fake->deployed.push_back({fake->userSid, &mail});
  for (int i = 0; i < 20; ++i) fake->AddFile(kAllUsersPrograms + FormatWide(u"\\Mail Tool %d.lnk", {i}), "");

  // The first pass saves the catalogue it has gathered; the stop must not
  // come before that, or the thread may end without a pass.
  std::mutex savedMutex;
  std::condition_variable savedChanged;
  bool saved = false;
  fake->onCall = [&](const fakes::Call& call) {
    if (call.name != "ReplaceFileAtomically") return;
    std::lock_guard<std::mutex> lock(savedMutex);
    saved = true;
    savedChanged.notify_all();
  };

  ASSERT_EQ(KelInitialize(), S_OK);
  fake->StartThreads();
  ASSERT_TRUE(fake->WaitForBlockedWaits(1));
  fake->GrantTimeouts(1);  // passes now follow each other without pause

  std::atomic<int> failures{0};
  auto reader = [&] {
    for (int i = 0; i < 200; ++i) {
      ExcludeAppNameList list;
      BOOL found = 0;
      if (Failed(ThePackageManager().GetExcludeAppNameList(u"mail", &list, &found))) ++failures;
      BOOL installed = 0;
      if (Failed(KelIsInstalledW(u"Example.Mail_abc", &installed))) ++failures;
    }
  };
  constexpr int kReaders = 3;
  std::vector<std::thread> readers;
  readers.reserve(kReaders);
  for (int i = 0; i < kReaders; ++i) readers.emplace_back(reader);
  for (auto& t : readers) t.join();
  {
    std::unique_lock<std::mutex> lock(savedMutex);
    EXPECT_TRUE(savedChanged.wait_for(lock, std::chrono::seconds(30), [&] { return saved; }));
  }
  KelFinalize();
  EXPECT_TRUE(fake->WaitForThreadsToFinish());
  fake->onCall = nullptr;
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(ThePackageManager().m_AppNameList.DesktopApps().size(), 20u);
  EXPECT_EQ(ThePackageManager().m_AppNameList.Packages().size(), 1u);
}

}  // namespace
}  // namespace kel
