#include "catalogue/app_name_list.h"

#include <gtest/gtest.h>

#include "fakes/example_mail.h"
#include "library_test.h"

namespace kel {
namespace {

using fakes::kExampleMailManifest;
const WString kInstalled = fakes::ExampleMailFolder({2, 0, 0, 0});
const WString kManifest = kInstalled + u"\\AppxManifest.xml";

class AppNameList : public testing::LibraryTest {
 protected:
  AppNameList() { fake->AddFile(kManifest, kExampleMailManifest); }

  fakes::FakePackage mail = fakes::ExampleMail({2, 0, 0, 0});
  CKELAppNameList list;
  ExcludeAppNameList excluded;
  BOOL found = 7;
};

TEST_F(AppNameList, NewPlatformPackageIsReadFromItsManifestAndAppended) {
  EXPECT_EQ(list.AddMetroPackage(&mail), S_OK);
  ASSERT_EQ(list.Packages().size(), 1u);
  const CKELPackage& record = *list.Packages().front();
  EXPECT_EQ(record.PackageFamilyName, u"Example.Mail_abc");
  EXPECT_EQ(record.FullName, u"Example.Mail_2.0.0.0_x86__abc");
  EXPECT_EQ(record.Name, u"Example.Mail");
  EXPECT_EQ(record.Version, (PackageVersion{2, 0, 0, 0}));
  ASSERT_EQ(record.Applications().size(), 1u);
  EXPECT_EQ(record.Applications().front()->DisplayName(), u"mail box");
}

TEST_F(AppNameList, NewPackageIsAppendedEvenWithoutApplications) {
  fake->RemoveFile(kManifest);
  EXPECT_EQ(list.AddMetroPackage(&mail), S_OK);
  ASSERT_EQ(list.Packages().size(), 1u);
  EXPECT_TRUE(list.Packages().front()->Applications().empty());
}

TEST_F(AppNameList, KnownPackageWithTheSameVersionIsNotReadAgain) {
  (void)list.AddMetroPackage(&mail);
  fake->ClearCalls();
  EXPECT_EQ(list.AddMetroPackage(&mail), S_OK);
  EXPECT_TRUE(fake->CallsNamed({"ReadFileBytes"}).empty());
  EXPECT_EQ(list.Packages().size(), 1u);
}

TEST_F(AppNameList, ReservedPackageIsNeverRefreshed) {
  (void)list.AddMetroPackage(new CKELPackage(u"Example.Mail_abc", {1, 0, 0, 0}, 1, 1));
  EXPECT_EQ(list.AddMetroPackage(&mail), S_OK);
  EXPECT_EQ(list.Packages().front()->Version, (PackageVersion{1, 0, 0, 0}));
  EXPECT_TRUE(list.Packages().front()->Applications().empty());
}

TEST_F(AppNameList, NewerVersionReplacesTheApplications) {
  auto* old = new CKELPackage(u"Example.Mail_abc", {1, 0, 0, 0}, 0, 1);
  (void)old->AddApplication(u"Old Name", nullptr);
  (void)list.AddMetroPackage(old);
  EXPECT_EQ(list.AddMetroPackage(&mail), S_FALSE);  // the readability check's last status
  const CKELPackage& record = *list.Packages().front();
  EXPECT_EQ(record.Version, (PackageVersion{2, 0, 0, 0}));
  ASSERT_EQ(record.Applications().size(), 1u);
  EXPECT_EQ(record.Applications().front()->DisplayName(), u"mail box");
  EXPECT_EQ(list.Packages().size(), 1u);
}

TEST_F(AppNameList, NewerVersionWithUnreadableNamesKeepsTheOldRecord) {
  fake->AddFile(kManifest,
                "<Package><Applications><Application><VisualElements DisplayName=\"ms-resource:Name\">"
                "<DefaultTile ShortName=\"x\"/></VisualElements></Application></Applications></Package>");
  auto* old = new CKELPackage(u"Example.Mail_abc", {1, 0, 0, 0}, 0, 1);
  (void)old->AddApplication(u"Old Name", nullptr);
  (void)list.AddMetroPackage(old);
  (void)list.AddMetroPackage(&mail);
  const CKELPackage& record = *list.Packages().front();
  EXPECT_EQ(record.Version, (PackageVersion{1, 0, 0, 0}));
  EXPECT_EQ(record.Applications().front()->DisplayName(), u"old name");
}

TEST_F(AppNameList, PlatformFailureBecomesFailAndIsTraced) {
  EnableLog();
  mail.failWith = static_cast<HRESULT>(0x80070490u);
  EXPECT_EQ(list.AddMetroPackage(&mail), E_FAIL);
  EXPECT_TRUE(list.Packages().empty());
  EXPECT_EQ(LogLines().back(), "CKELAppNameList::AddMetroPackage OUT(0x80004005)\r\n");
  const std::vector<std::string> lines = LogLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2],
            "CKELAppNameList::AddMetroPackage OUT(" + fakes::Narrow(fake->DescribeError(mail.failWith)) + ")\r\n");
  EXPECT_EQ(list.AddMetroPackage(static_cast<platform::Package*>(nullptr)), E_POINTER);
}

TEST_F(AppNameList, PackageLookupIsCaseSensitive) {
  (void)list.AddMetroPackage(new CKELPackage(u"Example.Mail_abc", {}, 0, 1));
  EXPECT_NE(list.GetPackage(u"Example.Mail_abc"), nullptr);
  EXPECT_EQ(list.GetPackage(u"example.mail_abc"), nullptr);
  EXPECT_EQ(list.GetPackage(u""), nullptr);
  EXPECT_EQ(list.GetPackage(nullptr), nullptr);
}

TEST_F(AppNameList, ShortcutDifferingOnlyInCaseIsNotAddedAgain) {
  EXPECT_EQ(list.AddDesktopApp(u"Paint", u"C:\\Start\\Paint.lnk"), S_OK);
  EXPECT_EQ(list.AddDesktopApp(u"Other", u"c:\\start\\PAINT.LNK"), S_FALSE);
  ASSERT_EQ(list.DesktopApps().size(), 1u);
  EXPECT_EQ(list.DesktopApps().front()->DisplayName(), u"paint");
  EXPECT_EQ(list.AddDesktopApp(nullptr, u"x"), E_POINTER);
  EXPECT_EQ(list.AddDesktopApp(u"x", u""), E_INVALIDARG);
  EXPECT_FALSE(list.IsInDesktopAppList(u""));
}

TEST_F(AppNameList, EmptyCatalogueGivesAnUnchangedListNotFound) {
  (void)excluded.AddUnique(u"kept");
  EXPECT_EQ(list.GetExcludeAppNameList(u"mail", &excluded, &found), S_OK);
  EXPECT_EQ(excluded, (ExcludeAppNameList{u"kept"}));
  EXPECT_EQ(found, 0);
}

TEST_F(AppNameList, ExclusionListFollowsPackagesThenDesktopApps) {
  fake->deployed.push_back({fake->userSid, &mail});
  (void)list.AddMetroPackage(&mail);
  fake->AddFile(u"C:\\Start\\Mail Merge.lnk", "");
  fake->AddFile(u"C:\\Start\\Mail.lnk", "");
  (void)list.AddDesktopApp(u"Mail Merge", u"C:\\Start\\Mail Merge.lnk");
  (void)list.AddDesktopApp(u"Mail", u"C:\\Start\\Mail.lnk");
  (void)list.AddDesktopApp(u"Mailer", u"C:\\Start\\gone.lnk");
  EXPECT_EQ(list.GetExcludeAppNameList(u"Mail", &excluded, &found), S_OK);
  EXPECT_EQ(excluded, (ExcludeAppNameList{u"mail box", u"mail merge"}));
  EXPECT_EQ(found, 1);  // the desktop app named Mail, and the short name
  EXPECT_EQ(list.DesktopApps().back()->IsInstalled, 0);
}

TEST_F(AppNameList, ExclusionArgumentsAreChecked) {
  EXPECT_EQ(list.GetExcludeAppNameList(nullptr, &excluded, &found), E_POINTER);
  EXPECT_EQ(list.GetExcludeAppNameList(u"x", nullptr, &found), E_POINTER);
  EXPECT_EQ(list.GetExcludeAppNameList(u"x", &excluded, nullptr), E_POINTER);
  EXPECT_EQ(list.GetExcludeAppNameList(u"", &excluded, &found), E_INVALIDARG);
}

TEST_F(AppNameList, UninstalledPackageContributesNothing) {
  (void)list.AddMetroPackage(&mail);  // not deployed for this user
  EXPECT_EQ(list.GetExcludeAppNameList(u"Mail", &excluded, &found), S_OK);
  EXPECT_TRUE(excluded.empty());
  EXPECT_EQ(list.Packages().front()->IsInstalled, 0);
}

TEST_F(AppNameList, InstalledMarksFollowTheDeploymentServiceAndTheShortcutFiles) {
  fakes::FakePackage other{
      u"Example.Other_abc", u"Example.Other_1.0.0.0_x86__abc", u"Example.Other", {1, 0, 0, 0}, kInstalled};
  fake->deployed.push_back({fake->userSid, &mail});
  (void)list.AddMetroPackage(new CKELPackage(u"Example.Mail_abc", {}, 0, 0));
  (void)list.AddMetroPackage(new CKELPackage(u"Example.Other_abc", {}, 0, 1));
  list.RefreshInstalledFlags();
  EXPECT_EQ(list.Packages().front()->IsInstalled, 1);
  EXPECT_EQ(list.Packages().back()->IsInstalled, 0);
}

TEST_F(AppNameList, InstalledMarksFollowTheShortcutFiles) {
  fake->AddFile(u"C:\\Start\\Here.lnk", "");
  (void)list.AddDesktopApp(u"Here", u"C:\\Start\\Here.lnk");
  (void)list.AddDesktopApp(u"Gone", u"C:\\Start\\Gone.lnk");
  list.RefreshInstalledFlags();
  EXPECT_EQ(list.DesktopApps().front()->IsInstalled, 1);
  EXPECT_EQ(list.DesktopApps().back()->IsInstalled, 0);
}

TEST_F(AppNameList, ClearEmptiesBothLists) {
  (void)list.AddMetroPackage(new CKELPackage(u"A_b", {}, 0, 1));
  (void)list.AddDesktopApp(u"x", u"C:\\x.lnk");
  list.Clear();
  EXPECT_TRUE(list.Packages().empty());
  EXPECT_TRUE(list.DesktopApps().empty());
}

}  // namespace
}  // namespace kel
