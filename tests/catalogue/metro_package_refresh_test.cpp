// AddMetroPackage with a platform package, step by step: which lines it
// traces and in what order, how often it asks the package for its installed
// location, and what a failing query of the package leaves in the log.
#include "catalogue/app_name_list.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "fakes/example_mail.h"
#include "frame/constants.h"
#include "frame/format.h"
#include "library_test.h"

namespace kel {
namespace {

using fakes::kExampleMailManifest;
const WString kInstalled = fakes::ExampleMailFolder({2, 0, 0, 0});
const WString kManifest = kInstalled + u"\\AppxManifest.xml";
constexpr char kUnresolvedManifest[] =
    "<Package><Applications><Application><VisualElements DisplayName=\"ms-resource:Name\">"
    "<DefaultTile ShortName=\"x\"/></VisualElements></Application></Applications></Package>";
constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80070490u);

enum class Query { None, FamilyName, FullName, Name, Version, InstalledLocation };

// The platform's package, counting each query; the `failOn`-th call of the
// `failing` query fails with `failure`.
class CountingPackage final : public platform::Package {
 public:
  HRESULT GetFamilyName(WString& value) override { return Answer(Query::FamilyName, u"Example.Mail_abc", value); }
  HRESULT GetFullName(WString& value) override {
    return Answer(Query::FullName, u"Example.Mail_2.0.0.0_x86__abc", value);
  }
  HRESULT GetName(WString& value) override { return Answer(Query::Name, u"Example.Mail", value); }
  HRESULT GetVersion(platform::PackageVersion& value) override {
    const HRESULT hr = Count(Query::Version);
    if (Succeeded(hr)) value = {2, 0, 0, 0};
    return hr;
  }
  HRESULT GetInstalledLocationPath(WString& value) override {
    return Answer(Query::InstalledLocation, kInstalled, value);
  }
  void AddRef() override {}
  void Release() override {}

  [[nodiscard]] int Calls(Query query) const { return calls_[static_cast<int>(query)]; }

  Query failing = Query::None;
  int failOn = 1;
  HRESULT failure = kNotFound;

 private:
  HRESULT Count(Query query) {
    const int call = ++calls_[static_cast<int>(query)];
    return query == failing && call == failOn ? failure : S_OK;
  }
  HRESULT Answer(Query query, const WString& stored, WString& value) {
    const HRESULT hr = Count(query);
    if (Succeeded(hr)) value = stored;
    return hr;
  }

  int calls_[6] = {};
};

class MetroPackageRefresh : public testing::LibraryTest {
 protected:
  MetroPackageRefresh() {
    fake->AddFile(kManifest, kExampleMailManifest);
    fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 1);
  }

  // The catalogue holds the package in version 1 with one application.
  void CatalogueTheOldVersion() {
    auto* old = new CKELPackage(u"Example.Mail_abc", {1, 0, 0, 0}, 0, 1);
    (void)old->AddApplication(u"Old Name", nullptr);
    ASSERT_EQ(list.AddMetroPackage(old), S_OK);
  }

  // The lines of the catalogue and its records, with the manifest reader's
  // entry and exit around them, from the log just written.
  std::vector<std::string> CatalogueLines() {
    std::vector<std::string> kept;
    for (const std::string& line : LogLines()) {
      for (const char* prefix :
           {"CKELAppNameList::", "CKELPackage::", "CKELManifestReader::IsCanGetAppNameFromManifest ",
            "CKELManifestReader::AddAppsToPackage "}) {
        if (line.rfind(prefix, 0) == 0) {
          kept.push_back(line);
          break;
        }
      }
    }
    return kept;
  }

  CountingPackage mail;
  CKELAppNameList list;
};

TEST_F(MetroPackageRefresh, ChangedVersionDeletesTheOldApplicationsBetweenTheTwoReadingsAndEndsAtItsExitLine) {
  ASSERT_NO_FATAL_FAILURE(CatalogueTheOldVersion());
  EnableLog();
  EXPECT_EQ(list.AddMetroPackage(&mail), S_FALSE);  // the readability check's last status
  EXPECT_EQ(CatalogueLines(), (std::vector<std::string>{
                                  "CKELAppNameList::AddMetroPackage IN\r\n",
                                  "CKELAppNameList::GetPackage IN\r\n",
                                  "CKELPackage::IsThisPackage(Example.Mail_abc) IN\r\n",
                                  "CKELPackage::IsThisPackage OUT(1)\r\n",
                                  "CKELAppNameList::GetPackage OUT\r\n",
                                  "CKELManifestReader::IsCanGetAppNameFromManifest IN\r\n",
                                  "CKELManifestReader::IsCanGetAppNameFromManifest OUT(0x00000001)\r\n",
                                  "CKELPackage::DeleteAllApp IN\r\n",
                                  "CKELPackage::DeleteAllApp OUT\r\n",
                                  "CKELManifestReader::AddAppsToPackage IN\r\n",
                                  "CKELPackage::AddApplication(mail box, mail) IN\r\n",
                                  "CKELPackage::AddApplication OUT(0x00000000)\r\n",
                                  "CKELManifestReader::AddAppsToPackage OUT(0x00000001)\r\n",
                                  "CKELAppNameList::AddMetroPackage OUT(0x00000001)\r\n",
                              }));
  EXPECT_EQ(LogLines().back(), "CKELAppNameList::AddMetroPackage OUT(0x00000001)\r\n");

  ASSERT_EQ(list.Packages().size(), 1u);
  const CKELPackage& record = *list.Packages().front();
  EXPECT_EQ(record.Version, (PackageVersion{2, 0, 0, 0}));
  EXPECT_EQ(record.FullName, u"Example.Mail_2.0.0.0_x86__abc");
  EXPECT_EQ(record.Name, u"Example.Mail");
  ASSERT_EQ(record.Applications().size(), 1u);
  EXPECT_EQ(record.Applications().front()->DisplayName(), u"mail box");
  EXPECT_EQ(record.Applications().front()->ShortName(), u"mail");
}

TEST_F(MetroPackageRefresh, ChangedVersionWithUnreadableNamesEndsAtItsExitLineAndKeepsTheRecord) {
  fake->AddFile(kManifest, kUnresolvedManifest);
  ASSERT_NO_FATAL_FAILURE(CatalogueTheOldVersion());
  EnableLog();
  const HRESULT result = list.AddMetroPackage(&mail);
  const std::vector<std::string> lines = CatalogueLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2].rfind("CKELManifestReader::IsCanGetAppNameFromManifest OUT(", 0), 0u)
      << lines[lines.size() - 2];
  EXPECT_EQ(lines.back(),
            "CKELAppNameList::AddMetroPackage OUT(" + fakes::Narrow(FormatWide(u"0x%08X", {result})) + ")\r\n");
  EXPECT_EQ(LogLines().back(), lines.back());
  EXPECT_TRUE(LogLinesStartingWith("CKELPackage::DeleteAllApp").empty());
  EXPECT_TRUE(LogLinesStartingWith("CKELManifestReader::AddAppsToPackage").empty());

  const CKELPackage& record = *list.Packages().front();
  EXPECT_EQ(record.Version, (PackageVersion{1, 0, 0, 0}));
  ASSERT_EQ(record.Applications().size(), 1u);
  EXPECT_EQ(record.Applications().front()->DisplayName(), u"old name");
}

struct LocationCase {
  const char* name;
  bool catalogued;
  PackageVersion version;  // of the catalogued record
  BOOL reserved;
  const char* manifest;
  int locationQueries;
};

class InstalledLocationQueries : public MetroPackageRefresh, public ::testing::WithParamInterface<LocationCase> {};

TEST_P(InstalledLocationQueries, FollowTheStepsThatBuildTheManifestPath) {
  const LocationCase& c = GetParam();
  fake->AddFile(kManifest, c.manifest);
  if (c.catalogued) {
    ASSERT_EQ(list.AddMetroPackage(new CKELPackage(u"Example.Mail_abc", c.version, c.reserved, 1)), S_OK);
  }
  (void)list.AddMetroPackage(&mail);
  EXPECT_EQ(mail.Calls(Query::InstalledLocation), c.locationQueries);
}

INSTANTIATE_TEST_SUITE_P(
    AddMetroPackage, InstalledLocationQueries,
    ::testing::Values(LocationCase{"NewPackage", false, {}, 0, kExampleMailManifest, 1},
                      LocationCase{"SameVersion", true, {2, 0, 0, 0}, 0, kExampleMailManifest, 0},
                      LocationCase{"ReservedOlderVersion", true, {1, 0, 0, 0}, 1, kExampleMailManifest, 0},
                      LocationCase{"OlderVersionWithReadableNames", true, {1, 0, 0, 0}, 0, kExampleMailManifest, 2},
                      LocationCase{"OlderVersionWithUnreadableNames", true, {1, 0, 0, 0}, 0, kUnresolvedManifest, 1}),
    [](const ::testing::TestParamInfo<LocationCase>& info) { return std::string(info.param.name); });

struct FailureCase {
  const char* name;
  bool oldVersionCatalogued;
  Query failing;
  int failOn;
  std::size_t packages;      // in the catalogue afterwards
  PackageVersion version;    // of the catalogued record afterwards
  std::size_t applications;  // of the catalogued record afterwards
};

class FailingPackageQuery : public MetroPackageRefresh, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(FailingPackageQuery, TracesThePlatformsTextForItsCodeAndGivesFail) {
  const FailureCase& c = GetParam();
  if (c.oldVersionCatalogued) ASSERT_NO_FATAL_FAILURE(CatalogueTheOldVersion());
  mail.failing = c.failing;
  mail.failOn = c.failOn;
  EnableLog();
  EXPECT_EQ(list.AddMetroPackage(&mail), E_FAIL);
  const std::vector<std::string> lines = LogLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2],
            "CKELAppNameList::AddMetroPackage OUT(" + fakes::Narrow(fake->DescribeError(kNotFound)) + ")\r\n");
  EXPECT_EQ(lines.back(), "CKELAppNameList::AddMetroPackage OUT(0x80004005)\r\n");
  ASSERT_EQ(list.Packages().size(), c.packages);
  if (c.packages == 0) return;
  EXPECT_EQ(list.Packages().front()->Version, c.version);
  EXPECT_EQ(list.Packages().front()->Applications().size(), c.applications);
}

INSTANTIATE_TEST_SUITE_P(
    AddMetroPackage, FailingPackageQuery,
    ::testing::Values(
        FailureCase{"FamilyNameOfANewPackage", false, Query::FamilyName, 1, 0, {}, 0},
        FailureCase{"FullNameOfANewPackage", false, Query::FullName, 1, 0, {}, 0},
        FailureCase{"NameOfANewPackage", false, Query::Name, 1, 0, {}, 0},
        FailureCase{"VersionOfANewPackage", false, Query::Version, 1, 0, {}, 0},
        FailureCase{"InstalledLocationOfANewPackage", false, Query::InstalledLocation, 1, 0, {}, 0},
        FailureCase{"VersionOfACataloguedPackage", true, Query::Version, 1, 1, {1, 0, 0, 0}, 1},
        FailureCase{"FullNameOfACataloguedPackage", true, Query::FullName, 1, 1, {1, 0, 0, 0}, 1},
        FailureCase{
            "FirstInstalledLocationOfACataloguedPackage", true, Query::InstalledLocation, 1, 1, {1, 0, 0, 0}, 1},
        // The applications were deleted and the version stored
        // before the manifest path is built the second time.
        FailureCase{
            "SecondInstalledLocationOfACataloguedPackage", true, Query::InstalledLocation, 2, 1, {2, 0, 0, 0}, 0}),
    [](const ::testing::TestParamInfo<FailureCase>& info) { return std::string(info.param.name); });

TEST_F(MetroPackageRefresh, NewPackageWhoseLocationFailsGoesWithoutATraceOfItsDeletion) {
  mail.failing = Query::InstalledLocation;
  EnableLog();
  EXPECT_EQ(list.AddMetroPackage(&mail), E_FAIL);
  EXPECT_TRUE(LogLinesStartingWith("CKELPackage::DeleteAllApp").empty());
}

// A platform whose text for an error cannot be had for want of memory.
class PlatformOutOfMemoryForErrorText final : public fakes::FakePlatform {
 public:
  WString DescribeError(HRESULT) override { throw std::bad_alloc(); }
};

TEST_F(MetroPackageRefresh, FailedQueryWhoseTextCannotBeAllocatedGivesOutOfMemory) {
  PlatformOutOfMemoryForErrorText platform;
  platform::Install(&platform);
  mail.failing = Query::FamilyName;
  const HRESULT first = list.AddMetroPackage(&mail);
  mail.failing = Query::Version;  // asked while the new record is made
  const HRESULT second = list.AddMetroPackage(&mail);
  platform::Install(&*fake);
  EXPECT_EQ(first, E_OUTOFMEMORY);
  EXPECT_EQ(second, E_OUTOFMEMORY);
  EXPECT_TRUE(list.Packages().empty());
}

}  // namespace
}  // namespace kel
