// The fake's own hooks: queries of the deployment service held on request.
#include "fakes/fake_platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace kel::fakes {
namespace {

class HeldPackageQueries : public ::testing::Test {
 protected:
  HeldPackageQueries() {
    fake->deployed.push_back({fake->userSid, &mail});
    EXPECT_EQ(fake->ActivatePackageManager(&manager), S_OK);
  }
  ~HeldPackageQueries() override { manager->Release(); }

  // Asks on a thread of its own; `answered` turns true when the query returns.
  std::thread Ask(bool installedCheck) {
    return std::thread([this, installedCheck] {
      platform::PackageCollection* found = nullptr;
      const HRESULT hr = installedCheck ? manager->FindPackagesByUserSecurityIdPackageFamilyName(
                                              fake->userSid.c_str(), u"Example.Mail_abc", &found)
                                        : manager->FindPackagesByUserSecurityId(fake->userSid.c_str(), &found);
      if (Succeeded(hr) && found != nullptr) found->Release();
      answered = true;
    });
  }

  ScopedFakePlatform fake;
  FakePackage mail{u"Example.Mail_abc", u"Example.Mail_1_x86__abc", u"Example.Mail", {1, 0, 0, 0}, u"C:\\Apps\\Mail"};
  platform::DeploymentPackageManager* manager = nullptr;
  std::atomic<bool> answered{false};
};

TEST_F(HeldPackageQueries, InstalledCheckWaitsUntilReleasedWhileTheFakeStaysUsable) {
  fake->HoldPackageQueries(true);
  std::thread asker = Ask(true);
  ASSERT_TRUE(fake->WaitForHeldPackageQuery());
  EXPECT_EQ(fake->HeldPackageQueries(), 1);
  EXPECT_FALSE(answered);
  fake->AddFile(u"C:\\Apps\\Mail\\note.txt", "x");  // the held thread does not hold the fake
  EXPECT_TRUE(fake->Exists(u"C:\\Apps\\Mail\\note.txt"));
  fake->ReleasePackageQueries();
  asker.join();
  EXPECT_TRUE(answered);
  EXPECT_EQ(fake->HeldPackageQueries(), 0);
}

TEST_F(HeldPackageQueries, EnumerationIsHeldAndHoldingGoesOnAfterARelease) {
  fake->HoldPackageQueries(true);
  std::thread first = Ask(false);
  ASSERT_TRUE(fake->WaitForHeldPackageQuery());
  fake->ReleasePackageQueries();
  first.join();
  answered = false;
  std::thread second = Ask(false);
  ASSERT_TRUE(fake->WaitForHeldPackageQuery());
  EXPECT_FALSE(answered);
  fake->HoldPackageQueries(false);
  second.join();
  EXPECT_TRUE(answered);
}

TEST_F(HeldPackageQueries, StoppingTheThreadsReleasesAHeldQuery) {
  fake->HoldPackageQueries(true);
  std::thread asker = Ask(true);
  ASSERT_TRUE(fake->WaitForHeldPackageQuery());
  fake->StopThreads();
  asker.join();
  EXPECT_TRUE(answered);
}

TEST_F(HeldPackageQueries, QueriesGoThroughWhenNotHeldAndTheWaitTimesOut) {
  Ask(true).join();
  EXPECT_TRUE(answered);
  EXPECT_FALSE(fake->WaitForHeldPackageQuery(std::chrono::milliseconds(20)));
}

}  // namespace
}  // namespace kel::fakes
