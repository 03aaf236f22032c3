#include "manifest/manifest_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "fakes/fake_package.h"
#include "library_test.h"

namespace kel {
namespace {

const WString kInstalled = u"C:\\Program Files\\WindowsApps\\Example_1.0.0.0_x86__abc";
const WString kManifest = kInstalled + u"\\AppxManifest.xml";

std::string CorpusFile(const char* name) {
  std::ifstream in(std::string(KEL_TEST_MANIFESTS_DIR) + "/" + name, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  EXPECT_FALSE(content.str().empty()) << name;
  return content.str();
}

class ManifestReader : public testing::LibraryTest {
 protected:
  void UseManifest(const char* corpusName) { fake->AddFile(kManifest, CorpusFile(corpusName)); }

  std::vector<std::pair<WString, WString>> Names() const {
    std::vector<std::pair<WString, WString>> names;
    for (const auto& app : package.Applications()) names.emplace_back(app->DisplayName, app->ShortName);
    return names;
  }

  CKELPackage package{u"Example_abc", {}, 0, 1};
  fakes::FakePackage platformPackage{u"Example_abc", u"Example_1.0.0.0_x86__abc", u"Example", {1, 0, 0, 0},
                                     kInstalled};
};

TEST_F(ManifestReader, SettingAboveOneSelectsTheXmlReaderAndZeroThePackagingApi) {
  fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 7);
  EXPECT_EQ(CKELManifestReader::LoadSetting(), CKELManifestReader::kXmlReader);
  fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 0);
  EXPECT_EQ(CKELManifestReader::LoadSetting(), CKELManifestReader::kPackagingApi);
}

TEST_F(ManifestReader, XmlReaderTakesDisplayAndShortNames) {
  UseManifest("win8_single_app.xml");
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package), S_FALSE);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"my reader", u"reader"}}));
}

TEST_F(ManifestReader, MissingDefaultTileTakesTheNextApplicationsShortName) {
  UseManifest("first_without_tile.xml");
  CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"pair one", u"two"}}));
}

TEST_F(ManifestReader, MissingDefaultTileAtTheEndLeavesTheShortNameEmpty) {
  UseManifest("two_apps_second_without_tile.xml");
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package), S_FALSE);
  EXPECT_EQ(Names(),
            (std::vector<std::pair<WString, WString>>{{u"suite mail", u"mail"}, {u"suite calendar", u""}}));
}

TEST_F(ManifestReader, NamesMatchWhateverTheirCase) {
  UseManifest("upper_case_attribute.xml");
  CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"loud name", u"loud"}}));
}

TEST_F(ManifestReader, ResourceReferencesAreResolvedAndHandedOnInTheirCase) {
  EnableLog();
  UseManifest("win81_prefixed_resources.xml");
  package.FullName = u"Example.Weather_6.3.9600.16384_x64__abc";
  package.Name = u"Example.Weather";
  fake->indirectStrings[u"@{Example.Weather_6.3.9600.16384_x64__abc?ms-resource://Example.Weather/resources/appname}"] =
      u"Weather";
  fake->indirectStrings[u"@{Example.Weather_6.3.9600.16384_x64__abc?ms-resource://Example.Weather/resources/shortname}"] =
      u"Wx";
  CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_FALSE(LogLinesStartingWith("CKELPackage::AddApplication(Weather, Wx) IN").empty());
  // The record itself keeps its names lower-cased.
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"weather", u"wx"}}));
}

TEST_F(ManifestReader, UnresolvedReferenceStaysLowerCased) {
  UseManifest("win81_prefixed_resources.xml");
  package.FullName = u"F";
  package.Name = u"N";
  CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{
                         {u"ms-resource:appname", u"ms-resource:///resources/shortname"}}));
}

TEST_F(ManifestReader, UnresolvedReferenceMeansNamesCannotBeHadYet) {
  UseManifest("win81_prefixed_resources.xml");
  package.FullName = u"F";
  package.Name = u"N";
  BOOL canGet = 7;
  CKELManifestReader::IsCanGetAppNameFromManifest(kManifest.c_str(), &package, &canGet);
  EXPECT_EQ(canGet, 0);
  EXPECT_TRUE(package.Applications().empty());
}

TEST_F(ManifestReader, ReadableNamesCanBeHad) {
  UseManifest("two_apps_second_without_tile.xml");
  BOOL canGet = 0;
  EXPECT_EQ(CKELManifestReader::IsCanGetAppNameFromManifest(kManifest.c_str(), &package, &canGet), S_FALSE);
  EXPECT_EQ(canGet, 1);
  EXPECT_TRUE(package.Applications().empty());
}

TEST_F(ManifestReader, MissingManifestIsReturned) {
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package),
            static_cast<HRESULT>(0x80070003u));
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(nullptr, &package), E_POINTER);
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), nullptr), E_POINTER);
}

TEST_F(ManifestReader, MalformedManifestIsAnErrorNotAHang) {
  fake->AddFile(kManifest, "<Package><Applications><Application><VisualElements DisplayName=\"x\"");
  EXPECT_TRUE(Failed(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package)));
  fake->AddFile(kManifest, "<!DOCTYPE p [<!ENTITY e \"x\">]><Package/>");
  EXPECT_TRUE(Failed(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package)));
}

TEST_F(ManifestReader, PackagingApiAddsEveryReadableDisplayNameWithoutShortName) {
  fake->appxApplications[kManifest] = {u"First App", u"", u"ms-resource:Third"};
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingAPI(kManifest.c_str(), &package), S_OK);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"first app", u""}, {u"ms-resource:third", u""}}));
  EXPECT_EQ(fake->appxObjectsAlive, 0);
  EXPECT_EQ(fake->coTaskStringsAlive, 0);
  EXPECT_EQ(fake->CallsNamed({"CoInitializeEx"}).at(0).args, "2");
  EXPECT_EQ(fake->CallsNamed({"CoUninitialize"}).size(), 1u);
}

TEST_F(ManifestReader, PackagingApiFailureIsReturnedAndReleasesEverything) {
  fake->createAppxManifestReaderResult = REGDB_E_CLASSNOTREG;
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingAPI(kManifest.c_str(), &package), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(fake->CallsNamed({"CoUninitialize"}).size(), 1u);
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingAPI(u"", &package), E_INVALIDARG);
}

TEST_F(ManifestReader, PackagingApiInAMultiThreadedApartmentDoesNotUninitialize) {
  fake->coInitializeResult = RPC_E_CHANGED_MODE;
  fake->appxApplications[kManifest] = {u"One"};
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingAPI(kManifest.c_str(), &package), S_OK);
  EXPECT_TRUE(fake->CallsNamed({"CoUninitialize"}).empty());
}

class ManifestReaderWithoutObject : public ManifestReader, public ::testing::WithParamInterface<const char*> {};

TEST_P(ManifestReaderWithoutObject, PackagingApiSuccessWithoutAnObjectIsAPointerFailure) {
  fake->appxApplications[kManifest] = {u"One", u"Two"};
  fake->succeedsWithoutObject = GetParam();
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingAPI(kManifest.c_str(), &package), E_POINTER);
  EXPECT_TRUE(package.Applications().empty());
  EXPECT_EQ(fake->appxObjectsAlive, 0);
  EXPECT_EQ(fake->CallsNamed({"CoUninitialize"}).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(EachCall, ManifestReaderWithoutObject,
                         ::testing::Values("CreateAppxManifestReader", "GetApplications", "GetCurrent"));

TEST_F(ManifestReader, AddAppsFollowsTheSetting) {
  UseManifest("win8_single_app.xml");
  fake->appxApplications[kManifest] = {u"From The Api"};
  fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 0);
  CKELManifestReader::AddAppsToPackage(kManifest.c_str(), &package);
  fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 1);
  CKELManifestReader::AddAppsToPackage(kManifest.c_str(), &package);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"from the api", u""}, {u"my reader", u"reader"}}));
}

TEST_F(ManifestReader, DisplayNameOfALiteralNameIsLowerCased) {
  UseManifest("win8_single_app.xml");
  char16_t* name = nullptr;
  ASSERT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, &name), S_OK);
  EXPECT_EQ(WString(name), u"my reader");
  EXPECT_EQ(fake->CallsNamed({"LocalAlloc"}).at(0).args, "64, 512");
  fake->LocalFree(name);
}

TEST_F(ManifestReader, DisplayNameOfTwoApplicationsIsRefused) {
  UseManifest("two_apps_second_without_tile.xml");
  char16_t* name = nullptr;
  EXPECT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, &name), E_KEL_MULTIPLE_APPLICATIONS);
  EXPECT_EQ(name, nullptr);
}

TEST_F(ManifestReader, DisplayNameResolvesAReference) {
  UseManifest("win81_prefixed_resources.xml");
  fake->indirectStrings[u"@{Example_1.0.0.0_x86__abc? ms-resource://Example/appname}"] = u"Weather";
  char16_t* name = nullptr;
  ASSERT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, &name), S_OK);
  EXPECT_EQ(WString(name), u"Weather");
  fake->LocalFree(name);
}

TEST_F(ManifestReader, UnresolvedDisplayNameFailsButTheBufferIsTheCallers) {
  UseManifest("win81_prefixed_resources.xml");
  char16_t* name = nullptr;
  EXPECT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, &name), E_FAIL);
  ASSERT_NE(name, nullptr);
  fake->LocalFree(name);
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

TEST_F(ManifestReader, LongDisplayNameIsCutToTheBuffer) {
  const std::string longName(400, 'n');
  fake->AddFile(kManifest, "<Package><Applications><Application><VisualElements DisplayName=\"" + longName +
                               "\"/></Application></Applications></Package>");
  char16_t* name = nullptr;
  ASSERT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, &name), S_OK);
  EXPECT_EQ(WString(name), WString(255, u'n'));
  fake->LocalFree(name);
}

TEST_F(ManifestReader, DisplayNameArgumentsAreChecked) {
  char16_t* name = nullptr;
  EXPECT_EQ(CKELManifestReader::GetAppDisplayName(nullptr, &name), E_POINTER);
  EXPECT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, nullptr), E_POINTER);
}

}  // namespace
}  // namespace kel
