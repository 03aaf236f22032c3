#include <gtest/gtest.h>

#include "fakes/example_mail.h"
#include "frame/exports.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kInstalled = fakes::ExampleMailFolder({1, 0, 0, 0});

class StoreActivation : public testing::LibraryTest {
 protected:
  StoreActivation() { fake->AddFile(kInstalled + u"\\AppxManifest.xml", fakes::kExampleMailManifest); }
  CKELPackageManager& manager = ThePackageManager();
  fakes::FakePackage mail = fakes::ExampleMail({1, 0, 0, 0});
};

TEST_F(StoreActivation, StorePageAddressCarriesTheFamilyNameUnchanged) {
  EnableLog();
  fake->SetShellExecuteResult(42);
  EXPECT_EQ(manager.LaunchStore(u"Example.Mail_abc"), S_OK);
  EXPECT_EQ(fake->CallsNamed({"ShellExecute"}).at(0).args,
            "null, open, ms-windows-store:PDP?PFN=Example.Mail_abc, null, null, 5");
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::LaunchStore OUT\r\n");
  fake->SetShellExecuteResult(31);
  EXPECT_EQ(manager.LaunchStore(u"Example.Mail_abc"), E_FAIL);
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::LaunchStore OUT\r\n");
}

TEST_F(StoreActivation, OneArgumentFormActivatesOutOfProcessWithForegroundPermission) {
  EnableLog();
  EXPECT_EQ(manager.LaunchStoreApp(u"Example.Mail_abc!App"), S_OK);
  EXPECT_EQ(fake->CallsNamed({"CoCreateInstance"}).at(0).args,
            "{45BA127D-10A8-46EA-8AB7-56EA9078943C}, null, 4, {2E941141-7F97-4756-BA1D-9DECDE894A3D}");
  EXPECT_EQ(fake->CallsNamed({"CoAllowSetForegroundWindow"}).size(), 1u);
  EXPECT_EQ(fake->CallsNamed({"ActivateApplication"}).at(0).args, "Example.Mail_abc!App, null, 0");
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"CKELPackageManager::LaunchStoreApp OUT(ActivateApplication hr = 0)\r\n"}));
  EXPECT_EQ(fake->activationObjectsAlive, 0);
}

TEST_F(StoreActivation, OneArgumentFormReportsEachFailureInSignedDecimal) {
  EnableLog();
  fake->allowForegroundResult = static_cast<HRESULT>(0x80070005u);
  EXPECT_EQ(manager.LaunchStoreApp(u"x"), static_cast<HRESULT>(0x80070005u));
  EXPECT_EQ(LogLines().back(),
            "CKELPackageManager::LaunchStoreApp OUT(CoAllowSetForegroundWindow hr = -2147024891)\r\n");
  EXPECT_EQ(fake->activationObjectsAlive, 0);
  fake->createActivationManagerResult = REGDB_E_CLASSNOTREG;
  EXPECT_EQ(manager.LaunchStoreApp(u"x"), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(LogLines().back(), "CKELPackageManager::LaunchStoreApp OUT(CoCreateInstance hr = -2147221164)\r\n");
}

TEST_F(StoreActivation, CreationWithoutAnObjectStartsNothingAndSucceeds) {
  fake->createActivationManagerGivesObject = false;
  EXPECT_EQ(manager.LaunchStoreApp(u"x"), S_OK);
  EXPECT_TRUE(fake->CallsNamed({"ActivateApplication"}).empty());
}

TEST_F(StoreActivation, TwoArgumentFormActivatesInProcessWithItsArguments) {
  EnableLog();
  fake->activateResult = static_cast<HRESULT>(0x80270254u);
  EXPECT_EQ(manager.LaunchStoreApp(u"Example.Mail_abc!App", u"--compose"), static_cast<HRESULT>(0x80270254u));
  EXPECT_EQ(fake->CallsNamed({"CoCreateInstance"}).at(0).args,
            "{45BA127D-10A8-46EA-8AB7-56EA9078943C}, null, 1, {2E941141-7F97-4756-BA1D-9DECDE894A3D}");
  EXPECT_TRUE(fake->CallsNamed({"CoAllowSetForegroundWindow"}).empty());
  EXPECT_EQ(fake->CallsNamed({"ActivateApplication"}).at(0).args, "Example.Mail_abc!App, --compose, 0");
  const auto lines = LogLines();
  EXPECT_EQ(lines[lines.size() - 2], "CKELPackageManager::LaunchStoreApp(Example.Mail_abc!App) IN\r\n");
  EXPECT_EQ(lines.back(),
            "CKELPackageManager::LaunchStoreApp OUT(ActivateApplication hr = (0x80270254). getLastError=0)\r\n");
}

TEST_F(StoreActivation, EmptyIdWithoutArgumentsReachesTheOneArgumentForm) {
  fake->activateResult = E_INVALIDARG;
  EXPECT_EQ(KelLaunchByAppUserModelIdW(u"", nullptr), E_INVALIDARG);
  EXPECT_EQ(fake->CallsNamed({"ActivateApplication"}).at(0).args, ", null, 0");
  EXPECT_EQ(fake->CallsNamed({"CoAllowSetForegroundWindow"}).size(), 1u);
}

TEST_F(StoreActivation, InstalledForThisUserOnly) {
  EnableLog();
  fake->deployed.push_back({u"S-1-5-21-other", &mail});
  BOOL installed = 7;
  EXPECT_EQ(KelIsInstalledW(u"Example.Mail_abc", &installed), S_OK);
  EXPECT_EQ(installed, 0);
  fake->deployed.push_back({fake->userSid, &mail});
  EXPECT_EQ(KelIsInstalledW(u"Example.Mail_abc", &installed), S_OK);
  EXPECT_EQ(installed, 1);
  EXPECT_EQ(mail.references, 1);
  EXPECT_FALSE(LogLinesStartingWith("CKELPackageManager::IsInstalled OUT(*pIsInstalled = 1)").empty());
}

TEST_F(StoreActivation, FailedLookupAnswersNotInstalledWithSuccess) {
  fake->activatePackageManagerResult = REGDB_E_CLASSNOTREG;
  BOOL installed = 7;
  EXPECT_EQ(manager.IsInstalled(u"Example.Mail_abc", &installed), S_OK);
  EXPECT_EQ(installed, 0);
}

TEST_F(StoreActivation, UnknownFamilyGivesPackageNotFoundAndLeavesTheOutput) {
  char16_t sentinel[] = u"keep";
  char16_t* name = sentinel;
  EXPECT_EQ(KelGetAppDisplayNameByPFNW(u"Example.Unknown_abc", &name), E_KEL_PACKAGE_NOT_FOUND);
  EXPECT_EQ(name, sentinel);
}

TEST_F(StoreActivation, DisplayNameOfAnInstalledPackage) {
  EnableLog();
  fake->deployed.push_back({fake->userSid, &mail});
  char16_t* name = nullptr;
  ASSERT_EQ(KelGetAppDisplayNameByPFNW(u"Example.Mail_abc", &name), S_OK);
  EXPECT_EQ(WString(name), u"mail box");
  EXPECT_EQ(LogLines().back(), "KelGetAppDisplayNameByPFNW OUT(0x00000000) DisplayName = m\r\n");
  KelReleaseStringW(name);
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
  EXPECT_EQ(mail.references, 1);
}

TEST_F(StoreActivation, PlatformFailureWhileReadingTheDisplayNameGivesFail) {
  fakes::FakePackage broken{u"Example.Broken_abc", u"F", u"N", {}, kInstalled};
  fake->deployed.push_back({fake->userSid, &broken});
  broken.failWith = static_cast<HRESULT>(0x80070490u);
  char16_t* name = nullptr;
  EXPECT_EQ(manager.GetAppDisplayNameByPFN(u"Example.Broken_abc", &name), E_FAIL);
}

TEST_F(StoreActivation, ExclusionListArgumentsAreChecked) {
  ExcludeAppNameList list;
  BOOL found = 0;
  EXPECT_EQ(manager.GetExcludeAppNameList(nullptr, &list, &found), E_POINTER);
  EXPECT_EQ(manager.GetExcludeAppNameList(u"x", nullptr, &found), E_POINTER);
  EXPECT_EQ(manager.GetExcludeAppNameList(u"x", &list, nullptr), E_POINTER);
  EXPECT_EQ(manager.GetExcludeAppNameList(u"", &list, &found), E_INVALIDARG);
}

}  // namespace
}  // namespace kel
