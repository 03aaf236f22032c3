// Each scenario runs once to count the platform calls that can fail, then
// once more for every n with the n-th of those calls failing the way the
// real call would. Whatever fails, nothing crashes, nothing is leaked, the
// browser's registry values end as the rules allow, and the app name list
// file holds either its old or its new complete content.
#include <gtest/gtest.h>

#include <functional>

#include "fault_world.h"
#include "manifest/manifest_reader.h"

namespace kel {
namespace {

using testing::ExpectOldOrCompleteList;
using testing::kDataFile;
using testing::kMailFolder;
using testing::kOldList;
using testing::kPrograms;
using testing::World;

class FaultInjection : public ::testing::Test {
 protected:
  // Runs the scenario with the n-th injectable call failing, for every n.
  void ForEveryFailure(const std::function<void(fakes::FakePlatform&, World&)>& scenario,
                       const std::function<void(fakes::FakePlatform&, World&)>& check) {
    int calls = 0;
    {
      fakes::ScopedFakePlatform fake;
      World world(*fake);
      fake->FailCall(-1);  // count only
      scenario(*fake, world);
      calls = fake->InjectableCallsMade();
      Finish(*fake, world, check);
    }
    ASSERT_GT(calls, 0);
    RecordProperty("injectable_calls", calls);
    for (int n = 1; n <= calls; ++n) {
      SCOPED_TRACE(::testing::Message() << "failing injectable call " << n << " of " << calls);
      fakes::ScopedFakePlatform fake;
      World world(*fake);
      fake->FailCall(n);
      scenario(*fake, world);
      Finish(*fake, world, check);
      if (HasFailure()) return;
    }
  }

  void Finish(fakes::FakePlatform& fake, World& world, const std::function<void(fakes::FakePlatform&, World&)>& check) {
    testing::EndScenario(fake);
    check(fake, world);
    testing::ExpectNothingLeftOpen(fake, world);
  }

  static void NoMoreChecks(fakes::FakePlatform&, World&) {}
};

TEST_F(FaultInjection, InitializeWithAFirstRefreshPassAndSave) {
  ForEveryFailure(
      [](fakes::FakePlatform& fake, World&) {
        fake.AddFile(kDataFile, kOldList);
        if (Succeeded(KelInitialize())) {
          fake.StartThreads();
          fake.WaitForBlockedWaitsOrThreadsToFinish(1);
          fake.GrantTimeouts(1);
          fake.WaitForBlockedWaitsOrThreadsToFinish(2);
        }
      },
      [](fakes::FakePlatform& fake, World&) { ExpectOldOrCompleteList(fake.FileContent(kDataFile)); });
}

TEST_F(FaultInjection, SearchLaunchWithExclusions) {
  ForEveryFailure(
      [](fakes::FakePlatform&, World&) {
        CKELAppNameList& list = ThePackageManager().m_AppNameList;
        (void)list.AddDesktopApp(u"Mail Merge", (kPrograms + u"\\Mail Merge.lnk").c_str());
        (void)KelLaunchBySearchW(u"mail", 2, 1);
      },
      NoMoreChecks);
}

TEST_F(FaultInjection, BrowserLaunchesLeaveTheValuesAsTheRulesAllow) {
  ForEveryFailure(
      [](fakes::FakePlatform& fake, World&) {
        fake.SetDword(kBrowserKey, kAssociationActivationModeValue, 0);
        (void)KelLaunchBrowserByProtocolW(u"http://example.invalid/", 1);
        (void)KelLaunchIEBySearch(0, 0, 0);
      },
      [](fakes::FakePlatform& fake, World&) {
        // A value is never left changed unless its restore itself failed;
        // the tile value was absent and must not be left behind as 0.
        if (fake.HasValue(kBrowserKey, kAssociationActivationModeValue)) {
          const DWORD value = fake.DwordValue(kBrowserKey, kAssociationActivationModeValue);
          EXPECT_TRUE(value == 0 || value == 1);
        }
        if (fake.HasValue(kBrowserKey, kTileImmersiveActivationValue)) {
          EXPECT_EQ(fake.DwordValue(kBrowserKey, kTileImmersiveActivationValue), 0u);
        }
      });
}

TEST_F(FaultInjection, BothManifestReadings) {
  ForEveryFailure(
      [](fakes::FakePlatform& fake, World& world) {
        const WString manifest = kMailFolder + u"\\AppxManifest.xml";
        for (DWORD setting : {0u, 1u}) {
          fake.SetDword(kSettingsKey, kManifestReaderSettingValue, setting);
          CKELPackage package(u"Example.Mail_abc", {}, 0, 1);
          package.FullName = u"Example.Mail_1_x86__abc";
          package.Name = u"Example.Mail";
          (void)CKELManifestReader::AddAppsToPackage(manifest.c_str(), &package);
        }
        char16_t* name = nullptr;
        try {
          (void)CKELManifestReader::GetAppDisplayName(&world.mail, &name);
        } catch (const platform::PlatformError&) {
        }
        if (name != nullptr) KelReleaseStringW(name);
      },
      NoMoreChecks);
}

TEST_F(FaultInjection, NarrowExports) {
  ForEveryFailure(
      [](fakes::FakePlatform&, World&) {
        BOOL installed = 0;
        (void)KelIsInstalledA("Example.Mail_abc", &installed);
        (void)KelLaunchStoreA("Example.Mail_abc");
        char16_t* name = nullptr;
        (void)KelGetAppDisplayNameByPFNW(u"Example.Mail_abc", &name);
        if (name != nullptr) KelReleaseStringW(name);
        (void)KelLaunchByAppUserModelIdA("Example.Mail_abc!App");
      },
      NoMoreChecks);
}

}  // namespace
}  // namespace kel
