#include "catalogue/records.h"

#include <gtest/gtest.h>

#include "library_test.h"

namespace kel {
namespace {

const WString kShortcut = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\Paint.lnk";

class Records : public testing::LibraryTest {
 protected:
  RecordRef<CKELDesktopApp> Desktop(const char16_t* name, BOOL dualMode = 0, const char16_t* localize = nullptr,
                                    const char16_t* ruby = nullptr) {
    fake->AddFile(kShortcut, "shortcut");
    return CKELDesktopApp::Create(name, kShortcut.c_str(), localize, ruby, 0, 1, dualMode);
  }
  ExcludeAppNameList list;
  BOOL found = 7;
};

TEST_F(Records, ConstructorsLowerCaseDisplayAndShortNamesOnly) {
  const auto metro = CKELMetroApp::Create(u"My App", u"MyApp", u"RubyDisplay", u"RubyShort");
  EXPECT_EQ(metro->DisplayName(), u"my app");
  EXPECT_EQ(metro->ShortName(), u"myapp");
  EXPECT_EQ(metro->RubyDisplayName(), u"RubyDisplay");
  EXPECT_EQ(metro->RubyShortName(), u"RubyShort");
  const auto desktop = CKELDesktopApp::Create(u"Paint", u"C:\\Paint.LNK", u"Localized", u"Ruby", 1, 0, 1);
  EXPECT_EQ(desktop->DisplayName(), u"paint");
  EXPECT_EQ(desktop->LnkFileName(), u"C:\\Paint.LNK");
  EXPECT_EQ(desktop->LocalizeName(), u"Localized");
  EXPECT_EQ(desktop->RubyDisplayName(), u"Ruby");
}

TEST_F(Records, NullNamesBecomeEmpty) {
  const auto metro = CKELMetroApp::Create(nullptr, nullptr, nullptr, nullptr);
  EXPECT_TRUE(metro->DisplayName().empty());
  EXPECT_TRUE(metro->ShortName().empty());
}

TEST_F(Records, UniqueNamesIgnoreCase) {
  EXPECT_EQ(AddUniqueName(list, u"Paint"), S_OK);
  EXPECT_EQ(AddUniqueName(list, u"PAINT"), S_FALSE);
  EXPECT_EQ(AddUniqueName(list, u"Paint 3D"), S_OK);
  EXPECT_EQ(list, (ExcludeAppNameList{u"Paint", u"Paint 3D"}));
}

TEST_F(Records, MetroAppNamedByTheWordAddsNothingAndIsNotFound) {
  const auto app = CKELMetroApp::Create(u"Mail", u"Mail box", nullptr, nullptr);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"MAIL", &list, &found), S_OK);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(found, 0);
}

TEST_F(Records, MetroAppContainingTheWordIsExcluded) {
  const auto app = CKELMetroApp::Create(u"Mail Box", nullptr, nullptr, nullptr);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"mail", &list, &found), S_OK);
  EXPECT_EQ(list, (ExcludeAppNameList{u"mail box"}));
  EXPECT_EQ(found, 0);
}

TEST_F(Records, WordMatchingInBothDirectionsIsFoundAndAddsNothing) {
  const auto app = CKELMetroApp::Create(u"box mail", nullptr, nullptr, nullptr);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"mail box", &list, &found), S_OK);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(found, 1);
}

TEST_F(Records, RubyTextAddsTheNameNotTheRuby) {
  const auto app = CKELMetroApp::Create(u"\u5929\u6c17", u"\u5929", u"\u3066\u3093\u304d", u"\u3066\u3093");
  EXPECT_EQ(app->AddToExcludeAppNameList(u"\u3066\u3093", &list, &found), S_OK);
  EXPECT_EQ(list, (ExcludeAppNameList{u"\u5929\u6c17", u"\u5929"}));
}

TEST_F(Records, ShortNameIsMatchedToo) {
  const auto app = CKELMetroApp::Create(u"Weather Forecast", u"Forecast", nullptr, nullptr);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"forecast", &list, &found), S_OK);
  EXPECT_EQ(list, (ExcludeAppNameList{u"weather forecast"}));
  EXPECT_EQ(found, 1);  // the short name matches both ways
}

TEST_F(Records, SecondAppWithTheSameNameInOtherCaseGivesSFalse) {
  const auto first = CKELMetroApp::Create(u"Mail Box", nullptr, nullptr, nullptr);
  const auto second = CKELMetroApp::Create(u"MAIL BOX", nullptr, nullptr, nullptr);
  (void)first->AddToExcludeAppNameList(u"mail", &list, &found);
  EXPECT_EQ(second->AddToExcludeAppNameList(u"mail", &list, &found), S_FALSE);
  EXPECT_EQ(list.size(), 1u);
}

TEST_F(Records, MetroArgumentsAreChecked) {
  const auto app = CKELMetroApp::Create(u"Mail", nullptr, nullptr, nullptr);
  EXPECT_EQ(app->AddToExcludeAppNameList(nullptr, &list, &found), E_POINTER);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"x", nullptr, &found), E_POINTER);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"x", &list, nullptr), E_POINTER);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"", &list, &found), E_INVALIDARG);
}

TEST_F(Records, DesktopAppNamedByTheWordIsFoundUnlessDualMode) {
  const auto app = Desktop(u"Paint");
  EXPECT_EQ(app->AddToExcludeAppNameList(u"PAINT", &list, &found), S_OK);
  EXPECT_EQ(found, 1);
  const auto dual = Desktop(u"Paint", 1);
  found = 7;
  EXPECT_EQ(dual->AddToExcludeAppNameList(u"paint", &list, &found), S_OK);
  EXPECT_EQ(found, 0);
  EXPECT_TRUE(list.empty());
}

TEST_F(Records, DesktopAppUsesItsLocalizedNameWhenSet) {
  const auto app = Desktop(u"Paint", 0, u"pinsel programm");
  (void)app->AddToExcludeAppNameList(u"pinsel", &list, &found);
  EXPECT_EQ(list, (ExcludeAppNameList{u"pinsel programm"}));
}

TEST_F(Records, DesktopAppWithoutItsShortcutGivesSFalseAndIsMarkedUninstalled) {
  const auto app = CKELDesktopApp::Create(u"Paint", u"C:\\gone.lnk", nullptr, nullptr, 0, 1, 0);
  EXPECT_EQ(app->AddToExcludeAppNameList(u"pai", &list, &found), S_FALSE);
  EXPECT_EQ(app->IsInstalled, 0);
  EXPECT_EQ(found, 7);
  EXPECT_TRUE(list.empty());
}

TEST_F(Records, LocalizedNameKeepsItsCaseSoAnUpperCaseOneIsNotMatched) {
  const auto app = Desktop(u"Paint", 0, u"Pinsel Programm");
  EXPECT_EQ(app->AddToExcludeAppNameList(u"pinsel", &list, &found), S_OK);
  EXPECT_TRUE(list.empty());
}

TEST_F(Records, DesktopRubyAddsTheName) {
  const auto app = Desktop(u"\u96fb\u5353", 0, nullptr, u"\u3067\u3093\u305f\u304f");
  EXPECT_EQ(app->AddToExcludeAppNameList(u"\u3067\u3093", &list, &found), S_OK);
  EXPECT_EQ(list, (ExcludeAppNameList{u"\u96fb\u5353"}));
}

TEST_F(Records, ShortcutComparisonIgnoresCaseButNotEmptiness) {
  const auto app = CKELDesktopApp::Create(u"Paint", u"C:\\Paint.lnk", nullptr, nullptr, 0, 1, 0);
  EXPECT_TRUE(app->IsSameShortcut(u"c:\\PAINT.LNK"));
  EXPECT_FALSE(app->IsSameShortcut(u""));
  EXPECT_FALSE(app->IsSameShortcut(nullptr));
  const auto noPath = CKELDesktopApp::Create(u"Paint", u"", nullptr, nullptr, 0, 1, 0);
  EXPECT_FALSE(noPath->IsSameShortcut(u""));
}

TEST_F(Records, PackageIdentityIsCaseSensitive) {
  CKELPackage package(u"Microsoft.Reader_8wekyb3d8bbwe", {}, 0, 1);
  EXPECT_TRUE(package.IsThisPackage(u"Microsoft.Reader_8wekyb3d8bbwe"));
  EXPECT_FALSE(package.IsThisPackage(u"microsoft.reader_8wekyb3d8bbwe"));
  CKELPackage unnamed(u"", {}, 0, 1);
  EXPECT_FALSE(unnamed.IsThisPackage(u""));
}

TEST_F(Records, PackageFromStoredValuesHasNoNamesOrApps) {
  CKELPackage package(u"A_b", {1, 2, 3, 4}, 1, 0);
  EXPECT_TRUE(package.FullName.empty());
  EXPECT_TRUE(package.Name.empty());
  EXPECT_TRUE(package.Applications().empty());
  EXPECT_EQ(package.NeedReserve, 1);
  EXPECT_EQ(package.IsInstalled, 0);
}

TEST_F(Records, AddApplicationTakesOwnershipInOrder) {
  CKELPackage package(u"A_b", {}, 0, 1);
  EXPECT_EQ(package.AddApplication(nullptr), E_POINTER);
  EXPECT_EQ(package.AddApplication(CKELMetroApp::Create(u"One", nullptr, nullptr, nullptr).release()), S_OK);
  EXPECT_EQ(package.AddApplication(u"Two", u"2"), S_OK);
  ASSERT_EQ(package.Applications().size(), 2u);
  EXPECT_EQ(package.Applications().front()->DisplayName(), u"one");
  EXPECT_EQ(package.Applications().back()->ShortName(), u"2");
  package.DeleteAllApp();
  EXPECT_TRUE(package.Applications().empty());
}

TEST_F(Records, PackageExclusionAsksWhetherThePackageIsInstalled) {
  EnableLog();
  CKELPackage package(u"A_b", {}, 0, 1);
  (void)package.AddApplication(u"Mail Box", nullptr);
  (void)package.AddAppNameToExcludeList(u"mail", &list, &found);
  EXPECT_FALSE(LogLinesStartingWith("KelIsInstalledW(A_b) IN").empty());
}

TEST_F(Records, PackageTracesItsApplications) {
  EnableLog();
  {
    CKELPackage package(u"A_b", {}, 0, 1);
    (void)package.AddApplication(u"Mail", u"M");
  }
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"CKELPackage::AddApplication(Mail, M) IN\r\n",
                                      "CKELPackage::AddApplication OUT(0x00000000)\r\n",
                                      "CKELPackage::DeleteAllApp IN\r\n", "CKELPackage::DeleteAllApp OUT\r\n"}));
}

constexpr HRESULT kElementNotFound = static_cast<HRESULT>(0x80070490u);

struct FailingIdentityQuery {
  const char* name;
  HRESULT familyName, fullName, packageName, version;
};

class PackageFromThePlatform : public Records, public ::testing::WithParamInterface<FailingIdentityQuery> {};

// Each identity query answers in turn; the first failure is raised with the
// platform's own code and its text for that code.
class OneFailingQueryPackage final : public platform::Package {
 public:
  explicit OneFailingQueryPackage(const FailingIdentityQuery& answers) : answers_(answers) {}
  HRESULT GetFamilyName(WString& value) override { return Answer(answers_.familyName, value); }
  HRESULT GetFullName(WString& value) override { return Answer(answers_.fullName, value); }
  HRESULT GetName(WString& value) override { return Answer(answers_.packageName, value); }
  HRESULT GetVersion(platform::PackageVersion& value) override {
    if (Succeeded(answers_.version)) value = {1, 2, 3, 4};
    return answers_.version;
  }
  HRESULT GetInstalledLocationPath(WString& value) override { return Answer(S_OK, value); }
  void AddRef() override {}
  void Release() override {}

 private:
  static HRESULT Answer(HRESULT hr, WString& value) {
    if (Succeeded(hr)) value = u"Example.Mail_abc";
    return hr;
  }
  FailingIdentityQuery answers_;
};

TEST_P(PackageFromThePlatform, RaisesTheFailingQuerysCodeWithThePlatformsText) {
  OneFailingQueryPackage package(GetParam());
  try {
    CKELPackage record(package);
    FAIL() << "no error raised";
  } catch (const platform::PlatformError& error) {
    EXPECT_EQ(error.code, kElementNotFound);
    EXPECT_EQ(error.message, fake->DescribeError(kElementNotFound));
  }
}

INSTANTIATE_TEST_SUITE_P(Records, PackageFromThePlatform,
                         ::testing::Values(FailingIdentityQuery{"FamilyName", kElementNotFound, S_OK, S_OK, S_OK},
                                           FailingIdentityQuery{"FullName", S_OK, kElementNotFound, S_OK, S_OK},
                                           FailingIdentityQuery{"Name", S_OK, S_OK, kElementNotFound, S_OK},
                                           FailingIdentityQuery{"Version", S_OK, S_OK, S_OK, kElementNotFound}),
                         [](const ::testing::TestParamInfo<FailingIdentityQuery>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
}  // namespace kel
