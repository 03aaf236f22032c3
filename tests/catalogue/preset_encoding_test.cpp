// A preset list written in Shift JIS, as Japanese tooling writes it, loads
// to the records of the same list in UTF-8.
#include <gtest/gtest.h>

#include <string>

#include "catalogue/app_name_list.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"

namespace kel {
namespace {

const WString kPresetFile = u"C:\\Program Files\\Launcher\\PresetAppNameList.xml";

// Display names メモ帳プラス, ソフト表示 (the trail bytes of ソ and 表 are
// backslashes), 表示設定ツール and "ＡＢＣ ｶﾒﾗ ①" (full-width letters, half-width
// katakana, a circled digit), with readings and shortcut paths in Japanese.
// A hex escape runs on through any hex digit, so a literal ends where one
// follows an escape; the lines keep each element whole.
// clang-format off
constexpr char kShiftJisPreset[] =
    "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>\r\n"
    "<Applications>\r\n"
    "  <MetroApps>\r\n"
    "    <Package PackageFamilyName=\"Osk.MemoPlus_1a2b3c4d5e6f7\" Version=\"1.2.3.4\" NeedReserve=\"1\">\r\n"
    "      <MetroApp DisplayName=\"\x83\x81\x83\x82\x92\xA0\x83v\x83\x89\x83X\" "
    "ShortName=\"\x83\x81\x83\x82\" "
    "RubyDisplayName=\"\x82\xDF\x82\xE0\x82\xBF\x82\xE5\x82\xA4\x82\xD5\x82\xE7\x82\xB7\" "
    "RubyShortName=\"\x82\xDF\x82\xE0\" />\r\n"
    "      <MetroApp DisplayName=\"\x83\\\x83t\x83g\x95\\\x8E\xA6\" ShortName=\"\x95\\\x8E\xA6\" />\r\n"
    "    </Package>\r\n"
    "  </MetroApps>\r\n"
    "  <DesktopApps>\r\n"
    "    <DesktopApp DisplayName=\"\x95\\\x8E\xA6\x90\xDD\x92\xE8\x83" "c\x81[\x83\x8B\" "
    "LnkFileName=\"C:\\Programs\\\x83\\\x83t\x83g\\\x95\\\x8E\xA6\x90\xDD\x92\xE8.lnk\" "
    "LocalizeName=\"\x89\xE6\x96\xCA\x82\xCC\x90\xDD\x92\xE8\" "
    "RubyDisplayName=\"\x82\xD0\x82\xE5\x82\xA4\x82\xB6\x82\xB9\x82\xC1\x82\xC4\x82\xA2\" NeedReserve=\"1\" "
    "IsInstalled=\"0\" IsDualMode=\"1\" />\r\n"
    "    <DesktopApp DisplayName=\"\x82`\x82" "a\x82" "b \xB6\xD2\xD7 \x87@\" "
    "LnkFileName=\"C:\\Programs\\\x82`\x82" "a\x82" "b\\\x83J\x83\x81\x83\x89.lnk\" />\r\n"
    "  </DesktopApps>\r\n"
    "</Applications>\r\n";
// clang-format on

constexpr char kUtf8Preset[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<Applications>\r\n"
    "  <MetroApps>\r\n"
    "    <Package PackageFamilyName=\"Osk.MemoPlus_1a2b3c4d5e6f7\" Version=\"1.2.3.4\" NeedReserve=\"1\">\r\n"
    "      <MetroApp DisplayName=\"\xE3\x83\xA1\xE3\x83\xA2\xE5\xB8\xB3\xE3\x83\x97\xE3\x83\xA9\xE3\x82\xB9\" "
    "ShortName=\"\xE3\x83\xA1\xE3\x83\xA2\" "
    "RubyDisplayName=\"\xE3\x82\x81\xE3\x82\x82\xE3\x81\xA1\xE3\x82\x87\xE3\x81\x86\xE3\x81\xB7\xE3\x82\x89\xE3\x81\x99\" "
    "RubyShortName=\"\xE3\x82\x81\xE3\x82\x82\" />\r\n"
    "      <MetroApp DisplayName=\"\xE3\x82\xBD\xE3\x83\x95\xE3\x83\x88\xE8\xA1\xA8\xE7\xA4\xBA\" "
    "ShortName=\"\xE8\xA1\xA8\xE7\xA4\xBA\" />\r\n"
    "    </Package>\r\n"
    "  </MetroApps>\r\n"
    "  <DesktopApps>\r\n"
    "    <DesktopApp DisplayName=\"\xE8\xA1\xA8\xE7\xA4\xBA\xE8\xA8\xAD\xE5\xAE\x9A\xE3\x83\x84\xE3\x83\xBC\xE3\x83\xAB\" "
    "LnkFileName=\"C:\\Programs\\\xE3\x82\xBD\xE3\x83\x95\xE3\x83\x88\\\xE8\xA1\xA8\xE7\xA4\xBA\xE8\xA8\xAD\xE5\xAE\x9A.lnk\" "
    "LocalizeName=\"\xE7\x94\xBB\xE9\x9D\xA2\xE3\x81\xAE\xE8\xA8\xAD\xE5\xAE\x9A\" "
    "RubyDisplayName=\"\xE3\x81\xB2\xE3\x82\x87\xE3\x81\x86\xE3\x81\x98\xE3\x81\x9B\xE3\x81\xA3\xE3\x81\xA6\xE3\x81\x84\" "
    "NeedReserve=\"1\" IsInstalled=\"0\" IsDualMode=\"1\" />\r\n"
    "    <DesktopApp DisplayName=\"\xEF\xBC\xA1\xEF\xBC\xA2\xEF\xBC\xA3 \xEF\xBD\xB6\xEF\xBE\x92\xEF\xBE\x97 \xE2\x91\xA0\" "
    "LnkFileName=\"C:\\Programs\\\xEF\xBC\xA1\xEF\xBC\xA2\xEF\xBC\xA3\\\xE3\x82\xAB\xE3\x83\xA1\xE3\x83\xA9.lnk\" />\r\n"
    "  </DesktopApps>\r\n"
    "</Applications>\r\n";

// One line per record, every field of it, in catalogue order.
std::u16string Describe(const CKELAppNameList& list) {
  std::u16string text;
  auto number = [](long value) {
    const std::string digits = std::to_string(value);
    return std::u16string(digits.begin(), digits.end());
  };
  for (const auto& package : list.Packages()) {
    const PackageVersion& v = package->Version;
    text += u"package " + package->PackageFamilyName + u"|" + package->FullName + u"|" + package->Name + u"|" +
            number(v.Major) + u"." + number(v.Minor) + u"." + number(v.Build) + u"." + number(v.Revision) + u"|" +
            number(package->NeedReserve) + u"|" + number(package->IsInstalled) + u"\n";
    for (const auto& app : package->Applications()) {
      text += u"  app " + WString(app->DisplayName()) + u"|" + WString(app->ShortName()) + u"|" +
              WString(app->RubyDisplayName()) + u"|" + WString(app->RubyShortName()) + u"\n";
    }
  }
  for (const auto& app : list.DesktopApps()) {
    text += u"desktop " + WString(app->DisplayName()) + u"|" + WString(app->LnkFileName()) + u"|" +
            WString(app->LocalizeName()) + u"|" + WString(app->RubyDisplayName()) + u"|" + number(app->NeedReserve) +
            u"|" + number(app->IsInstalled) + u"|" + number(app->IsDualMode) + u"\n";
  }
  return text;
}

class PresetEncoding : public testing::LibraryTest {
 protected:
  PresetEncoding() { fake->AddDirectory(u"C:\\Program Files\\Launcher"); }

  HRESULT Load(const char* document, CKELAppNameList& list) {
    fake->AddFile(kPresetFile, document);
    return list.Load(kPresetFile.c_str());
  }
};

TEST_F(PresetEncoding, ShiftJisPresetListLoadsTheRecordsOfItsUtf8Twin) {
  CKELAppNameList fromUtf8;
  CKELAppNameList fromShiftJis;
  ASSERT_EQ(Load(kUtf8Preset, fromUtf8), S_FALSE);
  EXPECT_EQ(Load(kShiftJisPreset, fromShiftJis), S_FALSE);
  EXPECT_EQ(Describe(fromShiftJis), Describe(fromUtf8));

  ASSERT_EQ(fromShiftJis.Packages().size(), 1u);
  const auto& apps = fromShiftJis.Packages().front()->Applications();
  ASSERT_EQ(apps.size(), 2u);
  EXPECT_EQ(apps.front()->DisplayName(), u"\u30E1\u30E2\u5E33\u30D7\u30E9\u30B9");
  EXPECT_EQ(apps.back()->DisplayName(), u"\u30BD\u30D5\u30C8\u8868\u793A");
  ASSERT_EQ(fromShiftJis.DesktopApps().size(), 2u);
  EXPECT_EQ(fromShiftJis.DesktopApps().front()->LnkFileName(),
            u"C:\\Programs\\\u30BD\u30D5\u30C8\\\u8868\u793A\u8A2D\u5B9A.lnk");
  EXPECT_EQ(fromShiftJis.DesktopApps().front()->IsDualMode, 1);
}

TEST_F(PresetEncoding, ShiftJisPresetListIsTheStartingCatalogueWithoutADataFile) {
  fake->SetModulePath(u"C:\\Program Files\\Launcher\\Launcher.exe");
  fake->AddFile(kPresetFile, kShiftJisPreset);
  ASSERT_EQ(KelInitialize(), S_OK);
  CKELAppNameList fromUtf8;
  ASSERT_EQ(Load(kUtf8Preset, fromUtf8), S_FALSE);
  EXPECT_EQ(Describe(ThePackageManager().m_AppNameList), Describe(fromUtf8));
}

}  // namespace
}  // namespace kel
