// The world the fault-injection scenarios run in, and the end every run
// shares: a host with the log on, one Store package with a manifest, two
// shortcuts, the browser's key, a search pane that opens; afterwards the
// library is stopped and every handle, object and block is checked back.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "catalogue/app_name_list.h"
#include "fakes/fake_package.h"
#include "frame/exports.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel::testing {

inline const WString kHostFolder = u"C:\\Program Files\\Launcher";
inline const WString kDataFile = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher\\AppNameList1.0.4.0.xml";
inline const WString kPrograms = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs";
inline const WString kMailFolder = u"C:\\Apps\\Mail";
inline constexpr char kMailManifest[] =
    "<Package><Applications><Application><VisualElements DisplayName=\"ms-resource:AppName\"><DefaultTile "
    "ShortName=\"Mail\"/></VisualElements></Application></Applications></Package>";
inline constexpr char kOldList[] =
    "<Applications><DesktopApps><DesktopApp DisplayName=\"old\" LnkFileName=\"C:\\old.lnk\" NeedReserve=\"1\" />"
    "</DesktopApps>";

// A save cut short by a failure leaves the data file as it was or complete,
// never part of a new list.
inline void ExpectOldOrCompleteList(const std::string& list) {
  const bool old = list == kOldList;
  const bool complete =
      list.rfind("</DesktopApps>") == list.size() - 14 || list.rfind("<DesktopApps />") == list.size() - 15;
  EXPECT_TRUE(old || complete) << list;
}

struct World {
  fakes::FakePlatform& fake;
  fakes::FakePackage mail{u"Example.Mail_abc", u"Example.Mail_1_x86__abc", u"Example.Mail", {1, 0, 0, 0}, kMailFolder};

  explicit World(fakes::FakePlatform& platform, DWORD debugLog = 1) : fake(platform) {
    fake.SetModulePath(kHostFolder + u"\\Launcher.exe");
    fake.SetDword(kSettingsKey, kDebugLogValue, debugLog);
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

// Stops whatever the scenario left running and empties the catalogue, with
// every platform call answering normally again.
inline void EndScenario(fakes::FakePlatform& fake) {
  if (g_nInitCount.load() > 0) {
    g_nInitCount.store(1);
    KelFinalize();
  }
  g_nInitCount.store(0);
  fake.FailCall(0);
  fake.StopThreads();
  ThePackageManager().m_AppNameList.Reset();
}

// Every handle, heap block and platform object the scenario took is back.
inline void ExpectNothingLeftOpen(fakes::FakePlatform& fake, World& world) {
  EXPECT_EQ(fake.OpenHandles(), 0u);
  EXPECT_EQ(fake.LiveLocalAllocations(), 0u);
  EXPECT_EQ(fake.appVisibilityObjectsAlive.load(), 0);
  EXPECT_EQ(fake.appxObjectsAlive.load(), 0);
  EXPECT_EQ(fake.coTaskStringsAlive.load(), 0);
  EXPECT_EQ(fake.deploymentObjectsAlive.load(), 0);
  EXPECT_EQ(fake.activationObjectsAlive.load(), 0);
  EXPECT_EQ(world.mail.references.load(), 1);
}

}  // namespace kel::testing
