// Each scenario runs once to count the platform calls that can fail, then
// once more for every n with the n-th of those calls failing the way the
// real call would. Whatever fails, nothing crashes, nothing is leaked, the
// browser's registry values end as the rules allow, and the app name list
// file holds either its old or its new complete content.
#include <gtest/gtest.h>

#include <functional>

#include "catalogue/app_name_list.h"
#include "fakes/fake_package.h"
#include "frame/exports.h"
#include "library_test.h"
#include "manifest/manifest_reader.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kHostFolder = u"C:\\Program Files\\Launcher";
const WString kDataFile = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher\\AppNameList1.0.4.0.xml";
const WString kPrograms = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs";
const WString kMailFolder = u"C:\\Apps\\Mail";
constexpr char kMailManifest[] =
    "<Package><Applications><Application><VisualElements DisplayName=\"ms-resource:AppName\"><DefaultTile "
    "ShortName=\"Mail\"/></VisualElements></Application></Applications></Package>";
constexpr char kOldList[] =
    "<Applications><DesktopApps><DesktopApp DisplayName=\"old\" LnkFileName=\"C:\\old.lnk\" NeedReserve=\"1\" />"
    "</DesktopApps>";

struct World {
  fakes::FakePlatform& fake;
  fakes::FakePackage mail{u"Example.Mail_abc", u"Example.Mail_1_x86__abc", u"Example.Mail", {1, 0, 0, 0},
                          kMailFolder};

  explicit World(fakes::FakePlatform& platform) : fake(platform) {
    fake.SetModulePath(kHostFolder + u"\\Launcher.exe");
    fake.SetDword(kSettingsKey, kDebugLogValue, 1);
    fake.AddDirectory(u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook");
    fake.AddFile(kMailFolder + u"\\AppxManifest.xml", kMailManifest);
    fake.indirectStrings[u"@{Example.Mail_1_x86__abc?ms-resource://Example.Mail/resources/appname}"] = u"Mail Box";
    fake.appxApplications[kMailFolder + u"\\AppxManifest.xml"] = {u"Mail Box"};
    fake.deployed.push_back({fake.userSid, &mail});
    fake.AddFile(kPrograms + u"\\Mail Merge.lnk", "");
    fake.AddFile(kPrograms + u"\\Tools\\Mail Tool.url", "");
    fake.AddKey(kBrowserKey);
    fake.launcherAnswers = {0, 0, 1};
    fake.foregroundSequence = {u"ImmersiveLauncher"};
    fake.foregroundClass = u"SearchPane";
  }
};

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
    if (g_nInitCount.load() > 0) {
      g_nInitCount.store(1);
      KelFinalize();
    }
    g_nInitCount.store(0);
    fake.FailCall(0);
    fake.StopThreads();
    ThePackageManager().m_AppNameList.Reset();
    check(fake, world);
    EXPECT_EQ(fake.OpenHandles(), 0u);
    EXPECT_EQ(fake.appVisibilityObjectsAlive.load(), 0);
    EXPECT_EQ(fake.appxObjectsAlive.load(), 0);
    EXPECT_EQ(fake.coTaskStringsAlive.load(), 0);
    EXPECT_EQ(fake.deploymentObjectsAlive.load(), 0);
    EXPECT_EQ(fake.activationObjectsAlive.load(), 0);
    EXPECT_EQ(world.mail.references.load(), 1);
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
      [](fakes::FakePlatform& fake, World&) {
        // Either the old list or a complete new one.
        const std::string list = fake.FileContent(kDataFile);
        const bool old = list == kOldList;
        const bool complete = list.rfind("</DesktopApps>") == list.size() - 14 ||
                              list.rfind("<DesktopApps />") == list.size() - 15;
        EXPECT_TRUE(old || complete) << list;
      });
}

TEST_F(FaultInjection, SearchLaunchWithExclusions) {
  ForEveryFailure(
      [](fakes::FakePlatform&, World&) {
        CKELAppNameList& list = ThePackageManager().m_AppNameList;
        list.AddDesktopApp(u"Mail Merge", (kPrograms + u"\\Mail Merge.lnk").c_str());
        KelLaunchBySearchW(u"mail", 2, 1);
      },
      NoMoreChecks);
}

TEST_F(FaultInjection, BrowserLaunchesLeaveTheValuesAsTheRulesAllow) {
  ForEveryFailure(
      [](fakes::FakePlatform& fake, World&) {
        fake.SetDword(kBrowserKey, kAssociationActivationModeValue, 0);
        KelLaunchBrowserByProtocolW(u"http://example.invalid/", 1);
        KelLaunchIEBySearch(0, 0, 0);
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
          CKELManifestReader::AddAppsToPackage(manifest.c_str(), &package);
        }
        char16_t* name = nullptr;
        try {
          CKELManifestReader::GetAppDisplayName(&world.mail, &name);
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
        KelIsInstalledA("Example.Mail_abc", &installed);
        KelLaunchStoreA("Example.Mail_abc");
        char16_t* name = nullptr;
        KelGetAppDisplayNameByPFNW(u"Example.Mail_abc", &name);
        if (name != nullptr) KelReleaseStringW(name);
        KelLaunchByAppUserModelIdA("Example.Mail_abc!App");
      },
      NoMoreChecks);
}

}  // namespace
}  // namespace kel
