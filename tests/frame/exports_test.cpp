#include "frame/exports.h"

#include <gtest/gtest.h>

#include "frame/pfn_substitution.h"
#include "library_test.h"

namespace kel {
namespace {

class Lifecycle : public testing::LibraryTest {};

TEST_F(Lifecycle, FinalizeBeforeInitializeWritesItsTwoLinesAndLeavesTheCountAtZero) {
  EnableLog();
  KelFinalize();
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"KelFinalize IN\r\n", "KelFinalize OUT\r\n"}));
  EXPECT_EQ(g_nInitCount.load(), 0);
  KelFinalize();
  EXPECT_EQ(g_nInitCount.load(), 0);
}

TEST_F(Lifecycle, SecondInitializeOnlyCountsAndTheLastFinalizeStopsThePackageManager) {
  EnableLog();
  EXPECT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(g_nInitCount.load(), 2);
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::Initialize IN").size(), 1u);
  KelFinalize();
  EXPECT_EQ(g_nInitCount.load(), 1);
  EXPECT_TRUE(LogLinesStartingWith("CKELPackageManager::Finalize IN").empty());
  KelFinalize();
  EXPECT_EQ(g_nInitCount.load(), 0);
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::Finalize IN").size(), 1u);
}

TEST_F(Lifecycle, FailingPackageManagerInitializeIsReturnedAndTheCountStaysZero) {
  EnableLog();
  fake->SetModulePath(u"");  // no host path: neither data file nor preset can be placed
  EXPECT_EQ(KelInitialize(), E_FAIL);
  EXPECT_EQ(g_nInitCount.load(), 0);
  EXPECT_EQ(LogLines().back(), "KelInitialize OUT(0x80004005)\r\n");
  fake->SetModulePath(u"C:\\Apps\\Launcher.exe");
  EXPECT_EQ(KelInitialize(), S_OK);
  EXPECT_EQ(g_nInitCount.load(), 1);
}

TEST_F(Lifecycle, InitializeRereadsTheSwitchBeforeItsEntryLine) {
  fake->SetDword(kSettingsKey, kDebugLogValue, 1);
  fake->AddDirectory(testing::kLogFolder);
  EXPECT_EQ(KelInitialize(), S_OK);
  const auto lines = LogLines();
  ASSERT_GE(lines.size(), 2u);
  // The switch was off while it was read, so its own lines are missing.
  EXPECT_EQ(lines.front(), "KelInitialize IN\r\n");
  EXPECT_EQ(lines.back(), "KelInitialize OUT(0x00000000)\r\n");
}

TEST_F(Lifecycle, SwitchReadingIsTracedUnderTheSwitchAsItStoodBefore) {
  EnableLog();
  fake->SetDword(kSettingsKey, kDebugLogValue, 0);
  (void)KelInitialize();
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"CKELReg::IsDebugLogOn IN\r\n", "CKELReg::GetDWORDRegVal IN\r\n",
                                      "CKELReg::GetDWORDRegVal OUT(1)\r\n", "CKELReg::IsDebugLogOn OUT(0)\r\n"}));
}

TEST_F(Lifecycle, InitializeCreatesTheDataFolderUnderLocalAppData) {
  fake->SetModulePath(u"C:\\Apps\\My.App.exe");
  (void)KelInitialize();
  EXPECT_TRUE(fake->Exists(u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\My"));
}

class ArgumentChecks : public testing::LibraryTest {};

TEST_F(ArgumentChecks, ModesAboveTwoAreRejectedUnsigned) {
  EXPECT_EQ(KelLaunchBySearchW(u"x", 3, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchByPFNW(u"Foo_abc", 0xFFFFFFFF, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchIEBySearch(3, 0, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchIEBySearch(0, 0xFFFFFFFF, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"http://x", 3), E_INVALIDARG);
}

TEST_F(ArgumentChecks, NullPointersComeBeforeEmptyStrings) {
  BOOL installed = 0;
  char16_t* name = nullptr;
  UINT mode = 0;
  EXPECT_EQ(KelIsInstalledW(nullptr, &installed), E_POINTER);
  EXPECT_EQ(KelIsInstalledW(u"", nullptr), E_POINTER);
  EXPECT_EQ(KelIsInstalledW(u"", &installed), E_INVALIDARG);
  EXPECT_EQ(KelGetAppDisplayNameByPFNW(nullptr, &name), E_POINTER);
  EXPECT_EQ(KelGetAppDisplayNameByPFNW(u"", nullptr), E_POINTER);
  EXPECT_EQ(KelGetAppDisplayNameByPFNW(u"", &name), E_INVALIDARG);
  EXPECT_EQ(KelGetMonitorMode(nullptr), E_POINTER);
  EXPECT_NE(KelGetMonitorMode(&mode), E_POINTER);
  EXPECT_EQ(KelLaunchStoreW(nullptr), E_POINTER);
  EXPECT_EQ(KelLaunchStoreW(u""), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBySearchW(nullptr, 7, 0), E_POINTER);
  EXPECT_EQ(KelLaunchBySearchW(u"", 0, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchByPFNW(nullptr, 7, 0), E_POINTER);
  EXPECT_EQ(KelLaunchByPFNW(u"", 0, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(nullptr, 7), E_POINTER);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"", 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchByAppUserModelIdW(nullptr, u"args"), E_POINTER);
}

TEST_F(ArgumentChecks, EmptyAppUserModelIdIsHandedOnNotRejected) {
  const HRESULT result = KelLaunchByAppUserModelIdW(u"", nullptr);
  EXPECT_NE(result, E_INVALIDARG);
  EXPECT_NE(result, E_POINTER);
}

TEST_F(ArgumentChecks, FailedCheckWritesItsExitLineAtOnce) {
  EnableLog();
  (void)KelLaunchBySearchW(u"x", 3, 0);
  (void)KelGetMonitorMode(nullptr);
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"KelLaunchBySearchW(x, 3, 0) IN\r\n", "KelLaunchBySearchW OUT(0x80070057)\r\n",
                                      "KelGetMonitorMode IN\r\n", "KelGetMonitorMode OUT(0x80004003)\r\n"}));
}

TEST_F(ArgumentChecks, EntryLinesShowTheArguments) {
  EnableLog();
  (void)KelLaunchByPFNW(u"Foo_abc", 4, -1);
  (void)KelLaunchIEBySearch(1, 3, 5);
  (void)KelLaunchBrowserByProtocolW(nullptr, 1);
  char16_t* name = nullptr;
  (void)KelGetAppDisplayNameByPFNW(u"", &name);
  const auto lines = LogLines();
  EXPECT_EQ(lines[0], "KelLaunchByPFNW(Foo_abc, 4, -1) IN\r\n");
  EXPECT_EQ(lines[2], "KelLaunchIEBySearch(1, 3, 5) IN\r\n");
  EXPECT_EQ(lines[4], "KelLaunchBrowserByProtocolW((null), 1) IN\r\n");
  EXPECT_EQ(lines[6].substr(0, 31), "KelGetAppDisplayNameByPFNW(, 0x");
  EXPECT_EQ(lines[7], "KelGetAppDisplayNameByPFNW OUT(0x80070057)\r\n");
}

TEST_F(ArgumentChecks, LaunchStoreRereadsTheLogSwitch) {
  fake->AddDirectory(testing::kLogFolder);
  fake->SetDword(kSettingsKey, kDebugLogValue, 1);
  (void)KelLaunchStoreW(u"");
  EXPECT_EQ(LogLinesStartingWith("KelLaunchStoreW"),
            (std::vector<std::string>{"KelLaunchStoreW() IN\r\n", "KelLaunchStoreW OUT(0x80070057)\r\n"}));
}

TEST_F(ArgumentChecks, ExportsWithoutRereadingKeepTheSwitchOff) {
  fake->AddDirectory(testing::kLogFolder);
  fake->SetDword(kSettingsKey, kDebugLogValue, 1);
  (void)KelLaunchBySearchW(u"", 0, 0);
  (void)KelGetMonitorMode(nullptr);
  EXPECT_TRUE(LogLines().empty());
}

class Substitution : public testing::LibraryTest {};

TEST_F(Substitution, OldNameIsReplacedOnEightPointOne) {
  fake->SetVersion(6, 3);
  WString replacement;
  ASSERT_TRUE(ReplaceObsoletePFN(u"microsoft.windowsphotos_8wekyb3d8bbwe", replacement));
  EXPECT_EQ(replacement, u"FileManager_cw5n1h2txyewy");
  ASSERT_TRUE(ReplaceObsoletePFN(u"microsoft.microsoftskydrive_8wekyb3d8bbwe", replacement));
  EXPECT_EQ(replacement, u"FileManager_cw5n1h2txyewy");
}

TEST_F(Substitution, MatchIgnoresCase) {
  fake->SetVersion(6, 3);
  WString replacement;
  ASSERT_TRUE(ReplaceObsoletePFN(u"MICROSOFT.CAMERA_8WEKYB3D8BBWE", replacement));
  EXPECT_EQ(replacement, u"Microsoft.MoCamera_cw5n1h2txyewy");
}

TEST_F(Substitution, NoReplacementOnEightOrTen) {
  WString replacement;
  fake->SetVersion(6, 2);
  EXPECT_FALSE(ReplaceObsoletePFN(u"microsoft.windowsphotos_8wekyb3d8bbwe", replacement));
  fake->SetVersion(10, 0);
  EXPECT_FALSE(ReplaceObsoletePFN(u"microsoft.windowsphotos_8wekyb3d8bbwe", replacement));
  EXPECT_TRUE(replacement.empty());
}

TEST_F(Substitution, OtherNamesAreNotReplaced) {
  fake->SetVersion(6, 3);
  WString replacement;
  EXPECT_FALSE(ReplaceObsoletePFN(u"microsoft.windowsphotos_8wekyb3d8bbw", replacement));
  EXPECT_FALSE(ReplaceObsoletePFN(u"Foo_abc", replacement));
}

TEST_F(Substitution, EffectiveNameIsTheSuccessorOrTheGivenNameItself) {
  const char16_t* given = u"Microsoft.Camera_8wekyb3d8bbwe";
  fake->SetVersion(6, 2);
  EXPECT_EQ(EffectivePFN(given), given);
  fake->SetVersion(6, 3);
  EXPECT_EQ(WString(EffectivePFN(given)), u"Microsoft.MoCamera_cw5n1h2txyewy");
  const char16_t* other = u"Foo_abc";
  EXPECT_EQ(EffectivePFN(other), other);
  EXPECT_EQ(EffectivePFN(nullptr), nullptr);
}

TEST_F(Substitution, VersionTestComparesOnlyTheMinorVersion) {
  fake->SetVersion(6, 3);
  WString replacement;
  ReplaceObsoletePFN(u"Foo_abc", replacement);
  const auto masks = fake->CallsNamed({"VerSetConditionMask"});
  ASSERT_EQ(masks.size(), 2u);
  EXPECT_EQ(masks[0].args, "0x0, 2, 3");
  EXPECT_EQ(masks[1].args, "0x18, 1, 3");
  const auto verify = fake->CallsNamed({"VerifyVersionInfo"});
  ASSERT_EQ(verify.size(), 1u);
  EXPECT_EQ(verify[0].args, "284, 6, 3, 1, 0x1B");
}

TEST_F(Substitution, StoreLaunchOpensTheSuccessorsPageOnEightPointOne) {
  fake->SetVersion(6, 3);
  EXPECT_EQ(KelLaunchStoreW(u"Microsoft.Camera_8wekyb3d8bbwe"), S_OK);
  EXPECT_EQ(fake->CallsNamed({"ShellExecute"}).at(0).args,
            "null, open, ms-windows-store:PDP?PFN=Microsoft.MoCamera_cw5n1h2txyewy, null, null, 5");
}

TEST_F(Substitution, StoreLaunchKeepsTheNameOnEight) {
  fake->SetVersion(6, 2);
  (void)KelLaunchStoreW(u"Microsoft.Camera_8wekyb3d8bbwe");
  EXPECT_EQ(fake->CallsNamed({"ShellExecute"}).at(0).args,
            "null, open, ms-windows-store:PDP?PFN=Microsoft.Camera_8wekyb3d8bbwe, null, null, 5");
}

TEST_F(Substitution, StoreLaunchFailureIsReportedAsFail) {
  fake->SetShellExecuteResult(32);
  EXPECT_EQ(KelLaunchStoreW(u"Foo_abc"), E_FAIL);
}

}  // namespace
}  // namespace kel
