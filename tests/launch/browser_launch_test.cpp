#include <gtest/gtest.h>

#include "frame/exports.h"
#include "library_test.h"

namespace kel {
namespace {

class BrowserLaunch : public testing::LibraryTest {
 protected:
  BrowserLaunch() {
    fake->AddKey(kBrowserKey);
    fake->launcherAnswers = {1};
    fake->foregroundClass = u"SearchPane";
  }
  void SetAssociation(DWORD value) { fake->SetDword(kBrowserKey, kAssociationActivationModeValue, value); }
  void SetTile(DWORD value) { fake->SetDword(kBrowserKey, kTileImmersiveActivationValue, value); }
  // The registry writes and deletions, in order.
  std::vector<std::string> RegistryChanges() {
    std::vector<std::string> out;
    for (const auto& call : fake->CallsNamed({"RegSetValueEx", "RegDeleteValue"})) {
      out.push_back(call.name + "(" + call.args + ")");
    }
    return out;
  }
  bool Waited() {
    for (DWORD ms : fake->Sleeps()) {
      if (ms == 1000) return true;
    }
    return false;
  }
};

TEST_F(BrowserLaunch, SchemeInCapitalsPasses) {
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"HTTPS://example.invalid", 2), S_OK);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"Http:x", 2), S_OK);
}

TEST_F(BrowserLaunch, OtherSchemesAreRefusedWithoutTouchingTheRegistry) {
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"ftp://x", 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"httpx://x", 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"http", 0), E_INVALIDARG);
  EXPECT_TRUE(fake->CallsNamed({"RegOpenKeyEx", "ShellExecute"}).empty());
}

TEST_F(BrowserLaunch, AbsentValueModeZeroWritesTwoLaunchesWaitsAndDeletes) {
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"http://x", 0), S_OK);
  EXPECT_EQ(RegistryChanges(), (std::vector<std::string>{"RegSetValueEx(AssociationActivationMode, 4, 2, 4)",
                                                         "RegDeleteValue(AssociationActivationMode)"}));
  EXPECT_TRUE(Waited());
  EXPECT_FALSE(fake->HasValue(kBrowserKey, kAssociationActivationModeValue));
  EXPECT_EQ(fake->CallsNamed({"ShellExecute"}).size(), 1u);
}

TEST_F(BrowserLaunch, ValueTwoModeZeroWritesNothingAndDoesNotWait) {
  SetAssociation(2);
  (void)KelLaunchBrowserByProtocolW(u"http://x", 0);
  EXPECT_TRUE(RegistryChanges().empty());
  EXPECT_FALSE(Waited());
  EXPECT_EQ(fake->DwordValue(kBrowserKey, kAssociationActivationModeValue), 2u);
}

TEST_F(BrowserLaunch, ValueZeroModeOneWritesOneWaitsAndWritesZeroBack) {
  SetAssociation(0);
  (void)KelLaunchBrowserByProtocolW(u"http://x", 1);
  EXPECT_EQ(RegistryChanges(), (std::vector<std::string>{"RegSetValueEx(AssociationActivationMode, 4, 1, 4)",
                                                         "RegSetValueEx(AssociationActivationMode, 4, 0, 4)"}));
  EXPECT_TRUE(Waited());
  EXPECT_EQ(fake->DwordValue(kBrowserKey, kAssociationActivationModeValue), 0u);
}

TEST_F(BrowserLaunch, AbsentValueModeTwoStillWaitsAndDeletes) {
  (void)KelLaunchBrowserByProtocolW(u"http://x", 2);
  EXPECT_EQ(RegistryChanges(), (std::vector<std::string>{"RegDeleteValue(AssociationActivationMode)"}));
  EXPECT_TRUE(Waited());
}

TEST_F(BrowserLaunch, ValueStoredAsStringIsLeftAlone) {
  fake->SetString(kBrowserKey, kAssociationActivationModeValue, u"");
  (void)KelLaunchBrowserByProtocolW(u"http://x", 0);
  EXPECT_TRUE(RegistryChanges().empty());
  EXPECT_FALSE(Waited());
  EXPECT_EQ(fake->CallsNamed({"ShellExecute"}).size(), 1u);
}

TEST_F(BrowserLaunch, RestoreWaitComesFromTheRegistry) {
  fake->SetDword(kSettingsKey, kRestoreRegistryWaitTimeValue, 75);
  SetAssociation(0);
  (void)KelLaunchBrowserByProtocolW(u"http://x", 1);
  EXPECT_EQ(fake->Sleeps(), (std::vector<DWORD>{75}));
}

TEST_F(BrowserLaunch, FailedLaunchIsReturnedAndTheValueStillRestored) {
  SetAssociation(1);
  fake->SetShellExecuteResult(2);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"http://x", 0), E_FAIL);
  EXPECT_EQ(fake->DwordValue(kBrowserKey, kAssociationActivationModeValue), 1u);
}

TEST_F(BrowserLaunch, MissingBrowserKeyIsNotCreated) {
  fake->RemoveKey(kBrowserKey);
  EXPECT_EQ(KelLaunchBrowserByProtocolW(u"http://x", 0), S_OK);
  EXPECT_FALSE(fake->KeyExists(kBrowserKey));
}

TEST_F(BrowserLaunch, TileAbsentModeOneWritesNothingSearchesThenDeletes) {
  EXPECT_EQ(KelLaunchIEBySearch(1, 0, 0), S_OK);
  EXPECT_EQ(RegistryChanges(), (std::vector<std::string>{"RegDeleteValue(ApplicationTileImmersiveActivation)"}));
  EXPECT_EQ(fake->submitted, (std::vector<WString>{u"\"Internet Explorer\""}));
}

TEST_F(BrowserLaunch, TileOneModeZeroWritesZeroAndWritesOneBackWithoutWaiting) {
  SetTile(1);
  EXPECT_EQ(KelLaunchIEBySearch(0, 1, 0), S_OK);
  EXPECT_EQ(RegistryChanges(),
            (std::vector<std::string>{"RegSetValueEx(ApplicationTileImmersiveActivation, 4, 0, 4)",
                                      "RegSetValueEx(ApplicationTileImmersiveActivation, 4, 1, 4)"}));
  EXPECT_EQ(fake->DwordValue(kBrowserKey, kTileImmersiveActivationValue), 1u);
  // The only waits are the search launch's own; the restore follows at once.
  EXPECT_EQ(fake->Sleeps().back(), 1000u);  // the clipboard wait of the paste-only mode
  EXPECT_EQ(fake->pasted, (std::vector<WString>{u"Internet Explorer"}));
}

TEST_F(BrowserLaunch, TileModeThreeIsRefusedWithoutReadingOrLaunching) {
  EXPECT_EQ(KelLaunchIEBySearch(3, 0, 0), E_INVALIDARG);
  EXPECT_TRUE(fake->CallsNamed({"RegOpenKeyEx"}).empty());
  EXPECT_TRUE(fake->inputs.empty());
}

TEST_F(BrowserLaunch, TileModeTwoWithAStoredValueChangesNothing) {
  SetTile(0);
  (void)KelLaunchIEBySearch(2, 0, 0);
  EXPECT_TRUE(RegistryChanges().empty());
}

TEST_F(BrowserLaunch, NarrowAddressReachesTheWideLaunch) {
  EXPECT_EQ(KelLaunchBrowserByProtocolA("http://x", 2), S_OK);
  EXPECT_EQ(fake->CallsNamed({"ShellExecute"}).at(0).args, "null, open, http://x, null, null, 5");
}

}  // namespace
}  // namespace kel
