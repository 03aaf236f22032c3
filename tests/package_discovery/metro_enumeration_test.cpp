#include <gtest/gtest.h>

#include "fakes/example_mail.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kInstalled = fakes::ExampleMailFolder({1, 0, 0, 0});

class MetroEnumeration : public testing::LibraryTest {
 protected:
  MetroEnumeration() {
    fake->AddFile(kInstalled + u"\\AppxManifest.xml",
                  "<Package><Applications><Application><VisualElements DisplayName=\"Mail\"><DefaultTile "
                  "ShortName=\"M\"/></VisualElements></Application></Applications></Package>");
    manager.m_hExitEvent = fake->CreateEvent(true, false, u"exit");
  }
  std::vector<std::string> Names(std::initializer_list<const char*> which) {
    std::vector<std::string> names;
    for (const auto& c : fake->CallsNamed(which)) names.push_back(c.name + (c.args.empty() ? "" : "(" + c.args + ")"));
    return names;
  }

  fakes::FakePackage mail = fakes::ExampleMail({1, 0, 0, 0});
  fakes::FakePackage news{
      u"Example.News_abc", u"Example.News_1.0.0.0_x86__abc", u"Example.News", {1, 0, 0, 0}, kInstalled};
  CKELPackageManager manager;
};

TEST_F(MetroEnumeration, SidComesFromTheUserNameThroughTheAccountLookup) {
  EnableLog();
  char16_t* sid = nullptr;
  ASSERT_EQ(CKELPackageManager::GetCurrentUserSid(&sid), S_OK);
  EXPECT_EQ(WString(sid), fake->userSid);
  fake->LocalFree(sid);
  EXPECT_EQ(Names({"GetUserName", "LookupAccountName", "LocalAlloc", "ConvertSidToStringSid", "LocalFree"}),
            (std::vector<std::string>{"GetUserName(260)", "LookupAccountName(kel, 0, 0)", "LocalAlloc(64, 28)",
                                      "LookupAccountName(kel, 28, 6)", "ConvertSidToStringSid", "LocalAlloc(64, 40)",
                                      "LocalFree", "LocalFree"}));
  EXPECT_EQ(LogLines().back(),
            "CKELPackageManager::GetCurrentUserSid OUT(0x00000000 pszSid = S-1-5-21-1-2-3-1001)\r\n");
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
  EXPECT_EQ(CKELPackageManager::GetCurrentUserSid(nullptr), E_POINTER);
}

TEST_F(MetroEnumeration, UserWithoutPackagesLeavesTheCatalogueAsItWas) {
  fake->deployed.push_back({u"S-1-5-21-other", &mail});
  EXPECT_EQ(manager.RefreshMetroApps(), S_OK);
  EXPECT_TRUE(manager.m_AppNameList.Packages().empty());
  EXPECT_EQ(fake->deploymentObjectsAlive, 0);
}

TEST_F(MetroEnumeration, EveryPackageIsHandedToTheCatalogueInServiceOrder) {
  fake->deployed.push_back({fake->userSid, &news});
  fake->deployed.push_back({fake->userSid, &mail});
  EXPECT_EQ(manager.RefreshMetroApps(), S_OK);
  ASSERT_EQ(manager.m_AppNameList.Packages().size(), 2u);
  EXPECT_EQ(manager.m_AppNameList.Packages().front()->PackageFamilyName, u"Example.News_abc");
  EXPECT_EQ(manager.m_AppNameList.Packages().back()->Applications().front()->DisplayName(), u"mail");
  EXPECT_EQ(fake->CallsNamed({"FindPackagesByUserSecurityId"}).at(0).args, "S-1-5-21-1-2-3-1001");
  EXPECT_EQ(fake->deploymentObjectsAlive, 0);
  EXPECT_EQ(mail.references, 1);
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

TEST_F(MetroEnumeration, CallsComeInTheirOrderAndEverythingIsReleased) {
  fake->deployed.push_back({fake->userSid, &mail});
  (void)manager.RefreshMetroApps();
  EXPECT_EQ(
      Names({"GetUserName", "RoInitialize", "RoActivateInstance", "FindPackagesByUserSecurityId", "First", "Release",
             "RoUninitialize"}),
      (std::vector<std::string>{
          "GetUserName(260)", "RoInitialize(0)", "RoActivateInstance(Windows.Management.Deployment.PackageManager)",
          "FindPackagesByUserSecurityId(S-1-5-21-1-2-3-1001)", "First", "Release(PackageIterator)",
          "Release(PackageCollection)", "Release(PackageManager)", "RoUninitialize"}));
}

TEST_F(MetroEnumeration, ExitEventSetBeforeTheFirstPackageAddsNothing) {
  fake->deployed.push_back({fake->userSid, &mail});
  fake->SetEvent(manager.m_hExitEvent.load());
  EXPECT_EQ(manager.RefreshMetroApps(), S_OK);
  EXPECT_TRUE(manager.m_AppNameList.Packages().empty());
}

TEST_F(MetroEnumeration, StopRequestEndsTheWalkAfterThePackageInHand) {
  fake->deployed.push_back({fake->userSid, &mail});
  fake->deployed.push_back({fake->userSid, &news});
  fake->eventToSet = manager.m_hExitEvent.load();
  fake->setEventAfterPackages = 1;
  (void)manager.RefreshMetroApps();
  EXPECT_EQ(manager.m_AppNameList.Packages().size(), 1u);
}

TEST_F(MetroEnumeration, MultiThreadedApartmentStillQueriesWithoutUninitialising) {
  fake->roInitializeResult = RPC_E_CHANGED_MODE;
  fake->deployed.push_back({fake->userSid, &mail});
  EXPECT_EQ(manager.RefreshMetroApps(), S_OK);
  EXPECT_EQ(manager.m_AppNameList.Packages().size(), 1u);
  EXPECT_TRUE(fake->CallsNamed({"RoUninitialize"}).empty());
}

TEST_F(MetroEnumeration, MissingPackageManagerFailsWithoutUninitialising) {
  EnableLog();
  fake->activatePackageManagerResult = REGDB_E_CLASSNOTREG;
  EXPECT_EQ(manager.RefreshMetroApps(), E_FAIL);
  EXPECT_TRUE(fake->CallsNamed({"RoUninitialize"}).empty());
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::RefreshMetroApps OUT(GetPackageManager Failed.)\r\n");
  EXPECT_FALSE(LogLinesStartingWith("CKELPackageManager::GetPackageManager runtime error 0x80040154").empty());
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

TEST_F(MetroEnumeration, RuntimeErrorDuringTheQueryGivesFailAndTwoExitLines) {
  EnableLog();
  fake->findPackagesResult = static_cast<HRESULT>(0x80070005u);
  EXPECT_EQ(manager.RefreshMetroApps(), E_FAIL);
  const auto exits = LogLinesStartingWith("CKELPackageManager::RefreshMetroApps OUT");
  EXPECT_EQ(exits, (std::vector<std::string>{"CKELPackageManager::RefreshMetroApps OUT(runtime error 0x80070005)\r\n",
                                             "CKELPackageManager::RefreshMetroApps OUT(0x80004005)\r\n"}));
  EXPECT_EQ(fake->CallsNamed({"RoUninitialize"}).size(), 1u);
}

// The call named by the parameter succeeds without its object while Mail is
// deployed for the user.
class MetroEnumerationWithoutObject : public MetroEnumeration, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    MetroEnumeration::SetUp();
    EnableLog();
    fake->deployed.push_back({fake->userSid, &mail});
    fake->succeedsWithoutObject = GetParam();
  }

  // Whatever the query handed out was released and the runtime was left once.
  void ExpectEverythingReleased() {
    EXPECT_EQ(fake->deploymentObjectsAlive, 0);
    EXPECT_EQ(mail.references, 1);
    EXPECT_EQ(fake->CallsNamed({"RoUninitialize"}).size(), 1u);
  }
};

TEST_P(MetroEnumerationWithoutObject, RefreshTakesASuccessWithoutAnObjectAsARuntimeError) {
  EXPECT_EQ(manager.RefreshMetroApps(), E_FAIL);
  EXPECT_TRUE(manager.m_AppNameList.Packages().empty());
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::RefreshMetroApps OUT"),
            (std::vector<std::string>{"CKELPackageManager::RefreshMetroApps OUT(runtime error 0x80004003)\r\n",
                                      "CKELPackageManager::RefreshMetroApps OUT(0x80004005)\r\n"}));
  ExpectEverythingReleased();
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

TEST_P(MetroEnumerationWithoutObject, LookupTakesASuccessWithoutAnObjectAsNoPackage) {
  EXPECT_EQ(CKELPackageManager::FindPackageByName(u"Example.Mail_abc"), nullptr);
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::FindPackageByName OUT"),
            (std::vector<std::string>{"CKELPackageManager::FindPackageByName OUT(runtime error 0x80004003)\r\n",
                                      "CKELPackageManager::FindPackageByName OUT(0x00000000)\r\n"}));
  ExpectEverythingReleased();
}

INSTANTIATE_TEST_SUITE_P(EachCall, MetroEnumerationWithoutObject,
                         ::testing::Values("FindPackagesByUserSecurityId...", "First", "get_Current"));

TEST_F(MetroEnumeration, ActivationWithoutAManagerIsAMissingManager) {
  EnableLog();
  fake->succeedsWithoutObject = "RoActivateInstance";
  EXPECT_EQ(manager.RefreshMetroApps(), E_FAIL);
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::RefreshMetroApps OUT(GetPackageManager Failed.)\r\n");
  EXPECT_FALSE(LogLinesStartingWith("CKELPackageManager::GetPackageManager runtime error 0x80004003").empty());
  EXPECT_TRUE(fake->CallsNamed({"FindPackagesByUserSecurityId", "RoUninitialize"}).empty());
  EXPECT_EQ(CKELPackageManager::FindPackageByName(u"Example.Mail_abc"), nullptr);
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::FindPackageByName OUT(GetPackageManager failed.)\r\n");
}

TEST_F(MetroEnumeration, FailedSidIsReturned) {
  fake->userName = WString(300, u'x');  // does not fit the name buffer
  EXPECT_EQ(manager.RefreshMetroApps(), E_FAIL);
  EXPECT_TRUE(fake->CallsNamed({"RoInitialize"}).empty());
}

TEST_F(MetroEnumeration, FindByNameGivesTheFirstPackageWithAReference) {
  fake->deployed.push_back({fake->userSid, &mail});
  platform::ComPtr<platform::Package> found = CKELPackageManager::FindPackageByName(u"Example.Mail_abc");
  ASSERT_EQ(found.get(), &mail);
  EXPECT_EQ(mail.references, 2);
  found.reset();
  EXPECT_EQ(mail.references, 1);
  EXPECT_EQ(fake->CallsNamed({"FindPackagesByUserSecurityIdPackageFamilyName"}).at(0).args,
            "S-1-5-21-1-2-3-1001, Example.Mail_abc");
  EXPECT_EQ(fake->deploymentObjectsAlive, 0);
}

TEST_F(MetroEnumeration, FindByNameIsExact) {
  fake->deployed.push_back({fake->userSid, &mail});
  EXPECT_EQ(CKELPackageManager::FindPackageByName(u"example.mail_abc"), nullptr);
}

TEST_F(MetroEnumeration, FindByNameOfAnEmptyNameDoesNotTouchThePlatform) {
  EnableLog();
  EXPECT_EQ(CKELPackageManager::FindPackageByName(u""), nullptr);
  EXPECT_EQ(CKELPackageManager::FindPackageByName(nullptr), nullptr);
  EXPECT_TRUE(fake->CallsNamed({"GetUserName", "RoInitialize"}).empty());
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELPackageManager::FindPackageByName() IN\r\n",
                                                  "CKELPackageManager::FindPackageByName OUT(0x80070057)\r\n",
                                                  "CKELPackageManager::FindPackageByName((null)) IN\r\n",
                                                  "CKELPackageManager::FindPackageByName OUT(0x80004003)\r\n"}));
}

TEST_F(MetroEnumeration, FindByNameWithoutAPackageManagerLogsItsOwnWording) {
  EnableLog();
  fake->activatePackageManagerResult = REGDB_E_CLASSNOTREG;
  EXPECT_EQ(CKELPackageManager::FindPackageByName(u"Example.Mail_abc"), nullptr);
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::FindPackageByName OUT(GetPackageManager failed.)\r\n");
}

}  // namespace
}  // namespace kel
