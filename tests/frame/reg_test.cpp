#include "frame/reg.h"

#include <gtest/gtest.h>

#include "library_test.h"

namespace kel {
namespace {

class Settings : public testing::LibraryTest {
 protected:
  void SetSetting(const WString& name, DWORD value) { fake->SetDword(kSettingsKey, name, value); }
};

TEST_F(Settings, ManifestReaderSettingAboveOneReadsAsOne) {
  SetSetting(kManifestReaderSettingValue, 5);
  EXPECT_EQ(CKELReg::GetManifestReaderSetting(), 1u);
  SetSetting(kManifestReaderSettingValue, 0xFFFFFFFF);
  EXPECT_EQ(CKELReg::GetManifestReaderSetting(), 1u);
}

TEST_F(Settings, ManifestReaderSettingZeroStands) {
  SetSetting(kManifestReaderSettingValue, 0);
  EXPECT_EQ(CKELReg::GetManifestReaderSetting(), 0u);
}

TEST_F(Settings, ManifestReaderSettingStoredAsStringReadsAsOne) {
  fake->SetString(kSettingsKey, kManifestReaderSettingValue, u"0");
  EXPECT_EQ(CKELReg::GetManifestReaderSetting(), 1u);
}

TEST_F(Settings, AbsentValuesReadAsTheirDefaults) {
  fake->AddKey(kSettingsKey);
  EXPECT_EQ(CKELReg::GetRefreshInterval(), 720u);
  EXPECT_EQ(CKELReg::GetClearClipboardWaitTime(), 1000u);
  EXPECT_EQ(CKELReg::GetRestoreRegistryWaitTime(), 1000u);
  EXPECT_EQ(CKELReg::GetManifestReaderSetting(), 1u);
  EXPECT_FALSE(CKELReg::IsDebugLogOn());
}

TEST_F(Settings, MissingSettingsKeyGivesTheDefaults) {
  EXPECT_EQ(CKELReg::GetRefreshInterval(), 720u);
  EXPECT_FALSE(CKELReg::IsDebugLogOn());
}

TEST_F(Settings, StoredValuesAreTakenAsTheyStand) {
  SetSetting(kRefreshIntervalValue, 0);
  SetSetting(kClearClipboardWaitTimeValue, 5);
  SetSetting(kRestoreRegistryWaitTimeValue, 0xFFFFFFFF);
  EXPECT_EQ(CKELReg::GetRefreshInterval(), 0u);
  EXPECT_EQ(CKELReg::GetClearClipboardWaitTime(), 5u);
  EXPECT_EQ(CKELReg::GetRestoreRegistryWaitTime(), 0xFFFFFFFFu);
}

TEST_F(Settings, DebugLogStoredAsStringCountsAsOff) {
  fake->SetString(kSettingsKey, kDebugLogValue, u"1");
  EXPECT_FALSE(CKELReg::IsDebugLogOn());
}

TEST_F(Settings, AnyNonZeroDebugLogCountsAsOn) {
  SetSetting(kDebugLogValue, 7);
  EXPECT_TRUE(CKELReg::IsDebugLogOn());
  SetSetting(kDebugLogValue, 0);
  EXPECT_FALSE(CKELReg::IsDebugLogOn());
}

TEST_F(Settings, ValueLongerThanFourBytesFallsBackToTheDefault) {
  fake->SetRaw(kSettingsKey, kRefreshIntervalValue, platform::REG_DWORD, std::string(8, '\x01'));
  EXPECT_EQ(CKELReg::GetRefreshInterval(), 720u);
}

TEST_F(Settings, ReaderOpensTheKeyForReadingQueriesFourBytesAndClosesIt) {
  SetSetting(kRefreshIntervalValue, 30);
  fake->ClearCalls();
  CKELReg::GetRefreshInterval();
  const auto calls = fake->CallsNamed({"RegOpenKeyEx", "RegQueryValueEx", "RegCloseKey"});
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].args, "HKCU\\Software\\Osk\\Kelbrook, 0, 0x20019");
  EXPECT_EQ(calls[1].args, "RefreshInterval, 4");
  EXPECT_EQ(calls[2].name, "RegCloseKey");
}

TEST_F(Settings, GetDWORDRegValWithEmptyNameWritesOnlyItsEntryLine) {
  EnableLog();
  DWORD value = 0;
  EXPECT_FALSE(CKELReg::GetDWORDRegVal(u"", &value));
  EXPECT_FALSE(CKELReg::GetDWORDRegVal(nullptr, &value));
  EXPECT_FALSE(CKELReg::GetDWORDRegVal(u"DebugLog", nullptr));
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELReg::GetDWORDRegVal IN\r\n", "CKELReg::GetDWORDRegVal IN\r\n",
                                                  "CKELReg::GetDWORDRegVal IN\r\n"}));
  EXPECT_TRUE(fake->CallsNamed({"RegOpenKeyEx"}).empty());
}

TEST_F(Settings, GetDWORDRegValWithoutKeyWritesPlainExitLine) {
  EnableLog();
  fake->RemoveKey(kSettingsKey);
  DWORD value = 0;
  EXPECT_FALSE(CKELReg::GetDWORDRegVal(u"RefreshInterval", &value));
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"CKELReg::GetDWORDRegVal IN\r\n", "CKELReg::GetDWORDRegVal OUT\r\n"}));
}

TEST_F(Settings, ReaderTracesItsNameAndResult) {
  EnableLog();
  SetSetting(kClearClipboardWaitTimeValue, 250);
  CKELReg::GetClearClipboardWaitTime();
  EXPECT_EQ(LogLines(), (std::vector<std::string>{
                            "CKELReg::GetClearClipboardWaitTime IN\r\n",
                            "CKELReg::GetDWORDRegVal IN\r\n",
                            "CKELReg::GetDWORDRegVal OUT(1)\r\n",
                            "CKELReg::GetClearClipboardWaitTime OUT(250)\r\n",
                        }));
}

class BrowserValues : public testing::LibraryTest {
 protected:
  void AddBrowserKey() { fake->AddKey(kBrowserKey); }
};

TEST_F(BrowserValues, GetterWithoutKeyReturnsFileNotFoundAndTracesTheUnchangedValue) {
  EnableLog();
  DWORD value = 77;
  EXPECT_EQ(CKELReg::GetCurrentAssociationMode(&value), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(value, 77u);
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"CKELReg::GetCurrentAssociationMode IN\r\n",
                                      "CKELReg::GetCurrentAssociationMode OUT(*pdwAssociationMode = 77)\r\n"}));
}

TEST_F(BrowserValues, GetterReadsAStoredDword) {
  EnableLog();
  fake->SetDword(kBrowserKey, kTileImmersiveActivationValue, 0);
  DWORD value = 1;
  EXPECT_EQ(CKELReg::GetCurrentTileImmersiveActivation(&value), ERROR_SUCCESS);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(LogLines().back(), "CKELReg::GetCurrentTileImmersiveActivation OUT(*pdwTileImmersiveActivation = 0)\r\n");
}

TEST_F(BrowserValues, GetterOfAValueOfAnotherTypeReportsBadFileType) {
  fake->SetString(kBrowserKey, kAssociationActivationModeValue, u"");  // two bytes: fits
  DWORD value = 0;
  EXPECT_EQ(CKELReg::GetCurrentAssociationMode(&value), ERROR_BAD_FILE_TYPE);
}

TEST_F(BrowserValues, GetterOfALongValueReportsMoreData) {
  fake->SetString(kBrowserKey, kAssociationActivationModeValue, u"long text");
  DWORD value = 0;
  EXPECT_EQ(CKELReg::GetCurrentAssociationMode(&value), ERROR_MORE_DATA);
}

TEST_F(BrowserValues, GetterWithNullPointerReturnsInvalidParameter) {
  EnableLog();
  EXPECT_EQ(CKELReg::GetCurrentAssociationMode(nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(LogLines().back(), "CKELReg::GetCurrentAssociationMode OUT(87)\r\n");
}

TEST_F(BrowserValues, SetterWithoutKeyReturnsFalseCreatesNothingAndTracesZero) {
  EnableLog();
  EXPECT_FALSE(CKELReg::SetCurrentAssociationMode(2));
  EXPECT_FALSE(fake->KeyExists(kBrowserKey));
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELReg::SetCurrentAssociationMode(2) IN\r\n",
                                                  "CKELReg::SetCurrentAssociationMode OUT(0)\r\n"}));
}

TEST_F(BrowserValues, SetterWritesADwordThroughAKeyOpenedForWriting) {
  EnableLog();
  AddBrowserKey();
  EXPECT_TRUE(CKELReg::SetCurrentTileImmersiveActivation(1));
  EXPECT_EQ(fake->DwordValue(kBrowserKey, kTileImmersiveActivationValue), 1u);
  EXPECT_EQ(fake->CallsNamed({"RegOpenKeyEx"}).at(0).args,
            "HKCU\\Software\\Microsoft\\Internet Explorer\\Main, 0, 0x20006");
  EXPECT_EQ(fake->CallsNamed({"RegSetValueEx"}).at(0).args, "ApplicationTileImmersiveActivation, 4, 1, 4");
  EXPECT_EQ(LogLines().back(), "CKELReg::SetCurrentTileImmersiveActivation OUT\r\n");
}

TEST_F(BrowserValues, DeleterRemovesTheValueAndReportsAnAbsentOne) {
  fake->SetDword(kBrowserKey, kAssociationActivationModeValue, 1);
  EXPECT_TRUE(CKELReg::DeleteAssociationMode());
  EXPECT_FALSE(fake->HasValue(kBrowserKey, kAssociationActivationModeValue));
  EXPECT_FALSE(CKELReg::DeleteAssociationMode());
  EXPECT_FALSE(CKELReg::DeleteTileImmersiveActivation());
}

TEST_F(BrowserValues, DeleterWithoutKeyTracesZero) {
  EnableLog();
  EXPECT_FALSE(CKELReg::DeleteTileImmersiveActivation());
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELReg::DeleteTileImmersiveActivation IN\r\n",
                                                  "CKELReg::DeleteTileImmersiveActivation OUT(0)\r\n"}));
}

}  // namespace
}  // namespace kel
