// A package refreshed again and again in new versions while other threads
// search the catalogue, and a refresh that goes on after the records it was
// bound to were emptied; the sanitized builds watch for races.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "catalogue/app_name_list.h"
#include "fakes/fake_package.h"
#include "library_test.h"

namespace kel {
namespace {

const WString kInstalled = u"C:\\Apps\\Mail";
constexpr char kMailManifest[] =
    "<Package><Applications><Application><VisualElements DisplayName=\"Mail Box\"><DefaultTile ShortName=\"Mail\"/>"
    "</VisualElements></Application></Applications></Package>";

class CatalogueRefreshUnderLoad : public testing::LibraryTest {
 protected:
  CatalogueRefreshUnderLoad() {
    fake->AddFile(kInstalled + u"\\AppxManifest.xml", kMailManifest);
    fake->deployed.push_back({fake->userSid, &mail});
  }

  // Versions 2.0.0.0 and 3.0.0.0 in turn, so every call finds a change.
  void NextVersion(int round) { mail.SetVersion({static_cast<WORD>(2 + round % 2), 0, 0, 0}); }

  fakes::FakePackage mail{u"Example.Mail_abc", u"Example.Mail_1_x86__abc", u"Example.Mail", {1, 0, 0, 0}, kInstalled};
  CKELAppNameList list;
};

TEST_F(CatalogueRefreshUnderLoad, SearchesSeeWholeApplicationsWhileAPackageIsRefreshedInNewVersions) {
  ASSERT_EQ(list.AddMetroPackage(&mail), S_OK);
  std::atomic<bool> refreshing{true};
  std::atomic<int> failures{0};
  std::thread refresher([&] {
    for (int round = 0; round < 200; ++round) {
      NextVersion(round);
      if (list.AddMetroPackage(&mail) != S_FALSE) ++failures;
    }
    refreshing = false;
  });
  auto searcher = [&] {
    // At least a few searches, however fast the refresher is.
    for (int i = 0; i < 20 || refreshing; ++i) {
      ExcludeAppNameList names;
      BOOL found = 0;
      if (list.GetExcludeAppNameList(u"mail", &names, &found) != S_OK) ++failures;
      // Between the deletion of the old applications and the move of the new
      // ones a search sees none; never a part of one or two sets.
      if (!(names.empty() || names == ExcludeAppNameList{u"mail box"})) ++failures;
    }
  };
  std::vector<std::thread> searchers;
  searchers.reserve(2);
  for (int i = 0; i < 2; ++i) searchers.emplace_back(searcher);
  refresher.join();
  for (auto& t : searchers) t.join();
  EXPECT_EQ(failures.load(), 0);
  ASSERT_EQ(list.Packages().size(), 1u);
  ASSERT_EQ(list.Packages().front()->Applications().size(), 1u);
  EXPECT_EQ(list.Packages().front()->Applications().front()->DisplayName(), u"mail box");
}

TEST_F(CatalogueRefreshUnderLoad, NamesHandedToASearchStayReadableWhileRefreshesReplaceTheirRecords) {
  ASSERT_EQ(list.AddMetroPackage(&mail), S_OK);
  ExcludeAppNameList held;
  BOOL found = 0;
  ASSERT_EQ(list.GetExcludeAppNameList(u"mail", &held, &found), S_OK);
  ASSERT_EQ(held, (ExcludeAppNameList{u"mail box"}));
  std::atomic<bool> refreshing{true};
  std::atomic<int> failures{0};
  // The refresher replaces the applications the held names came from, again
  // and again, and at the end empties the catalogue altogether.
  std::thread refresher([&] {
    for (int round = 0; round < 100; ++round) {
      NextVersion(round);
      if (list.AddMetroPackage(&mail) != S_FALSE) ++failures;
    }
    list.Reset();
    refreshing = false;
  });
  // Meanwhile searchers read the held names, as a search launch builds its
  // query from them, and take fresh lists that they read after the lock.
  auto reader = [&] {
    for (int i = 0; i < 20 || refreshing; ++i) {
      for (const RecordText name : held) {
        if (WString(name) != u"mail box" || name.c_str()[name.size()] != 0) ++failures;
      }
      ExcludeAppNameList fresh;
      BOOL hit = 0;
      if (list.GetExcludeAppNameList(u"mail", &fresh, &hit) != S_OK) ++failures;
      for (const RecordText name : fresh) {
        if (WString(name) != u"mail box") ++failures;
      }
    }
  };
  std::vector<std::thread> readers;
  readers.reserve(2);
  for (int i = 0; i < 2; ++i) readers.emplace_back(reader);
  refresher.join();
  for (auto& t : readers) t.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_TRUE(list.Packages().empty());
  EXPECT_EQ(held, (ExcludeAppNameList{u"mail box"}));
}

TEST_F(CatalogueRefreshUnderLoad, RefreshBoundToEmptiedRecordsIsRefusedAndTouchesNothing) {
  ASSERT_EQ(list.AddMetroPackage(&mail), S_OK);
  std::atomic<int> rounds{0};
  std::vector<HRESULT> results;
  std::thread refresher([&] {
    const auto binding = list.BindThisThread();
    // Until the emptying is seen, with a bound in case it never is.
    for (int round = 0; round < 100000; ++round) {
      NextVersion(round);
      results.push_back(list.AddMetroPackage(&mail));
      ++rounds;
      if (results.back() == E_ABORT) break;
    }
  });
  while (rounds < 20) std::this_thread::yield();
  list.Reset();
  refresher.join();

  ASSERT_FALSE(results.empty());
  EXPECT_EQ(results.back(), E_ABORT);
  for (std::size_t i = 0; i + 1 < results.size(); ++i) {
    // Every round before the one that met the emptying refreshed.
    EXPECT_TRUE(results[i] == S_FALSE) << "round " << i << ": 0x" << std::hex << results[i];
  }
  EXPECT_TRUE(list.Packages().empty());
}

}  // namespace
}  // namespace kel
