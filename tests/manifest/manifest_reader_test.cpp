#include "manifest/manifest_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "fakes/fake_package.h"
#include "library_test.h"
#include "package_discovery/package_manager.h"
#include "text/xml/xml_reader.h"

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

  // The reader's own trace lines, in order.
  std::vector<std::string> ReaderLines() { return LogLinesStartingWith("CKELManifestReader::"); }

  std::vector<std::pair<WString, WString>> Names() const {
    std::vector<std::pair<WString, WString>> names;
    for (const auto& app : package.Applications()) names.emplace_back(app->DisplayName(), app->ShortName());
    return names;
  }

  // The display name the reader gives for the platform's package, its
  // buffer given back.
  WString ReadDisplayName() {
    char16_t* name = nullptr;
    EXPECT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, &name), S_OK);
    if (name == nullptr) return u"(no buffer)";
    WString text(name);
    fake->LocalFree(name);
    return text;
  }

  CKELPackage package{u"Example_abc", {}, 0, 1};
  fakes::FakePackage platformPackage{u"Example_abc", u"Example_1.0.0.0_x86__abc", u"Example", {1, 0, 0, 0}, kInstalled};
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
  (void)CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"pair one", u"two"}}));
}

TEST_F(ManifestReader, MissingDefaultTileAtTheEndLeavesTheShortNameEmpty) {
  UseManifest("two_apps_second_without_tile.xml");
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package), S_FALSE);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"suite mail", u"mail"}, {u"suite calendar", u""}}));
}

TEST_F(ManifestReader, NamesMatchWhateverTheirCase) {
  UseManifest("upper_case_attribute.xml");
  (void)CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"loud name", u"loud"}}));
}

TEST_F(ManifestReader, ResourceReferencesAreResolvedAndHandedOnInTheirCase) {
  EnableLog();
  UseManifest("win81_prefixed_resources.xml");
  package.FullName = u"Example.Weather_6.3.9600.16384_x64__abc";
  package.Name = u"Example.Weather";
  fake->indirectStrings[u"@{Example.Weather_6.3.9600.16384_x64__abc?ms-resource://Example.Weather/resources/appname}"] =
      u"Weather";
  fake->indirectStrings
      [u"@{Example.Weather_6.3.9600.16384_x64__abc?ms-resource://Example.Weather/resources/shortname}"] = u"Wx";
  (void)CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_FALSE(LogLinesStartingWith("CKELPackage::AddApplication(Weather, Wx) IN").empty());
  // The record itself keeps its names lower-cased.
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"weather", u"wx"}}));
}

TEST_F(ManifestReader, UnresolvedReferenceStaysLowerCased) {
  UseManifest("win81_prefixed_resources.xml");
  package.FullName = u"F";
  package.Name = u"N";
  (void)CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package);
  EXPECT_EQ(
      Names(),
      (std::vector<std::pair<WString, WString>>{{u"ms-resource:appname", u"ms-resource:///resources/shortname"}}));
}

TEST_F(ManifestReader, UnresolvedReferenceMeansNamesCannotBeHadYet) {
  UseManifest("win81_prefixed_resources.xml");
  package.FullName = u"F";
  package.Name = u"N";
  BOOL canGet = 7;
  (void)CKELManifestReader::IsCanGetAppNameFromManifest(kManifest.c_str(), &package, &canGet);
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
                         ::testing::Values("CreateAppxManifestReader", "GetApplications"));

TEST_F(ManifestReader, AddAppsFollowsTheSetting) {
  UseManifest("win8_single_app.xml");
  fake->appxApplications[kManifest] = {u"From The Api"};
  fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 0);
  (void)CKELManifestReader::AddAppsToPackage(kManifest.c_str(), &package);
  fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 1);
  (void)CKELManifestReader::AddAppsToPackage(kManifest.c_str(), &package);
  EXPECT_EQ(Names(), (std::vector<std::pair<WString, WString>>{{u"from the api", u""}, {u"my reader", u"reader"}}));
}

TEST_F(ManifestReader, DisplayNameOfALiteralNameIsLowerCased) {
  UseManifest("win8_single_app.xml");
  EXPECT_EQ(ReadDisplayName(), u"my reader");
  EXPECT_EQ(fake->CallsNamed({"LocalAlloc"}).at(0).args, "64, 512");
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
  EXPECT_EQ(ReadDisplayName(), u"Weather");
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
  EXPECT_EQ(ReadDisplayName(), WString(255, u'n'));
}

TEST_F(ManifestReader, DisplayNameArgumentsAreChecked) {
  char16_t* name = nullptr;
  EXPECT_EQ(CKELManifestReader::GetAppDisplayName(nullptr, &name), E_POINTER);
  EXPECT_EQ(CKELManifestReader::GetAppDisplayName(&platformPackage, nullptr), E_POINTER);
}

// --- trace lines of the walk ----------------------------------------------

std::vector<std::string> Traced(const char* function, const std::string& argument, const char* result) {
  const std::string name = std::string("CKELManifestReader::") + function;
  return {name + "(" + argument + ") IN\r\n", name + " OUT(" + result + ")\r\n"};
}

std::vector<std::string> Joined(std::initializer_list<std::vector<std::string>> parts) {
  std::vector<std::string> lines;
  for (const auto& part : parts) lines.insert(lines.end(), part.begin(), part.end());
  return lines;
}

TEST_F(ManifestReader, EveryElementSearchAndAttributeReadIsTracedWithItsName) {
  EnableLog();
  UseManifest("two_apps_second_without_tile.xml");
  ASSERT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(kManifest.c_str(), &package), S_FALSE);
  EXPECT_EQ(ReaderLines(), Joined({
                               {"CKELManifestReader::GetAppNameUsingXmlParser IN\r\n"},
                               Traced("MoveToElementByName", "Applications", "0x00000000"),
                               Traced("MoveToElementByName", "Application", "0x00000000"),
                               Traced("MoveToElementByName", "VisualElements", "0x00000000"),
                               Traced("GetAttributeValueByName", "DisplayName", "0x00000000"),
                               Traced("MoveToElementByName", "DefaultTile", "0x00000000"),
                               Traced("GetAttributeValueByName", "ShortName", "0x00000000"),
                               Traced("MoveToElementByName", "Application", "0x00000000"),
                               Traced("MoveToElementByName", "VisualElements", "0x00000000"),
                               Traced("GetAttributeValueByName", "DisplayName", "0x00000000"),
                               // No DefaultTile: the search runs to the end of the document.
                               Traced("MoveToElementByName", "DefaultTile", "0x00000001"),
                               Traced("GetAttributeValueByName", "ShortName", "0x00000001"),
                               Traced("MoveToElementByName", "Application", "0x00000001"),
                               {"CKELManifestReader::GetAppNameUsingXmlParser OUT(0x00000001)\r\n"},
                           }));
}

TEST_F(ManifestReader, RefusedArgumentsAreTracedOnEntryAndExit) {
  const std::string document = "<Package><Applications/></Package>";
  struct Case {
    const char* label;
    std::function<HRESULT(xml::XmlReader*, WString&)> call;
    HRESULT expected;
    std::vector<std::string> lines;
  };
  const std::vector<Case> cases = {
      {"search without a reader",
       [](xml::XmlReader*, WString&) { return CKELManifestReader::MoveToElementByName(nullptr, u"Applications"); },
       E_POINTER, Traced("MoveToElementByName", "Applications", "0x80004003")},
      {"search without a name",
       [](xml::XmlReader* reader, WString&) { return CKELManifestReader::MoveToElementByName(reader, nullptr); },
       E_POINTER, Traced("MoveToElementByName", "(null)", "0x80004003")},
      {"attribute without a reader",
       [](xml::XmlReader*, WString& value) {
         return CKELManifestReader::GetAttributeValueByName(nullptr, u"DisplayName", value);
       },
       E_POINTER, Traced("GetAttributeValueByName", "DisplayName", "0x80004003")},
      {"attribute without a name",
       [](xml::XmlReader* reader, WString& value) {
         return CKELManifestReader::GetAttributeValueByName(reader, nullptr, value);
       },
       E_POINTER, Traced("GetAttributeValueByName", "(null)", "0x80004003")},
      {"attribute with an empty name",
       [](xml::XmlReader* reader, WString& value) {
         return CKELManifestReader::GetAttributeValueByName(reader, u"", value);
       },
       E_INVALIDARG, Traced("GetAttributeValueByName", "", "0x80070057")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    EnableLog();
    xml::XmlReader reader;
    ASSERT_EQ(reader.SetInput(document), S_OK);
    WString value = u"kept";
    EXPECT_EQ(c.call(&reader, value), c.expected);
    EXPECT_EQ(value, u"kept");
    EXPECT_EQ(LogLines(), c.lines);
  }
}

TEST_F(ManifestReader, SettingReadIsTracedAroundTheRegistryRead) {
  EnableLog();
  fake->SetDword(kSettingsKey, kManifestReaderSettingValue, 7);
  EXPECT_EQ(CKELManifestReader::LoadSetting(), CKELManifestReader::kXmlReader);
  const std::vector<std::string> lines = LogLines();
  ASSERT_GE(lines.size(), 4u);
  EXPECT_EQ(lines.front(), "CKELManifestReader::LoadSetting IN\r\n");
  EXPECT_EQ(lines[1], "CKELReg::GetManifestReaderSetting IN\r\n");
  EXPECT_EQ(lines[lines.size() - 2], "CKELReg::GetManifestReaderSetting OUT(1)\r\n");
  EXPECT_EQ(lines.back(), "CKELManifestReader::LoadSetting OUT\r\n");
}

TEST_F(ManifestReader, AddingAppsReadsTheSettingFirst) {
  EnableLog();
  UseManifest("win8_single_app.xml");
  (void)CKELManifestReader::AddAppsToPackage(kManifest.c_str(), &package);
  const std::vector<std::string> lines = ReaderLines();
  ASSERT_GE(lines.size(), 4u);
  EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 4),
            (std::vector<std::string>{
                "CKELManifestReader::AddAppsToPackage IN\r\n", "CKELManifestReader::LoadSetting IN\r\n",
                "CKELManifestReader::LoadSetting OUT\r\n", "CKELManifestReader::GetAppNameUsingXmlParser IN\r\n"}));
  EXPECT_EQ(lines.back(), "CKELManifestReader::AddAppsToPackage OUT(0x00000001)\r\n");
}

// --- whether a changed package's names can be had ---------------------------

TEST_F(ManifestReader, ANameThatStaysAReferenceEndsTheTestRightAfterItsRead) {
  const std::string unresolvedDisplayName =
      "<Package><Applications><Application><VisualElements DisplayName=\"ms-resource:AppName\">"
      "<DefaultTile ShortName=\"ms-resource:ShortName\"/></VisualElements></Application>"
      "<Application><VisualElements DisplayName=\"Other\"/></Application></Applications></Package>";
  const std::string unresolvedDisplayNameWithoutTile =
      "<Package><Applications><Application><VisualElements DisplayName=\"ms-resource:AppName\"/>"
      "</Application></Applications></Package>";
  const std::string unresolvedShortName =
      "<Package><Applications><Application><VisualElements DisplayName=\"Literal\">"
      "<DefaultTile ShortName=\"ms-resource:ShortName\"/></VisualElements></Application>"
      "<Application><VisualElements DisplayName=\"Other\"/></Application></Applications></Package>";
  const std::vector<std::string> walkToDisplayName = Joined({
      {"CKELManifestReader::IsCanGetAppNameFromManifest IN\r\n"},
      Traced("MoveToElementByName", "Applications", "0x00000000"),
      Traced("MoveToElementByName", "Application", "0x00000000"),
      Traced("MoveToElementByName", "VisualElements", "0x00000000"),
      Traced("GetAttributeValueByName", "DisplayName", "0x00000000"),
  });
  struct Case {
    const char* label;
    const std::string& manifest;
    std::vector<std::string> walk;  // the walk's lines, resolutions left out
  };
  const std::vector<Case> cases = {
      {"display name", unresolvedDisplayName,
       Joined({walkToDisplayName, {"CKELManifestReader::IsCanGetAppNameFromManifest OUT(0x00000000)\r\n"}})},
      {"display name, no tile", unresolvedDisplayNameWithoutTile,
       Joined({walkToDisplayName, {"CKELManifestReader::IsCanGetAppNameFromManifest OUT(0x00000000)\r\n"}})},
      {"short name", unresolvedShortName,
       Joined({walkToDisplayName,
               Traced("MoveToElementByName", "DefaultTile", "0x00000000"),
               Traced("GetAttributeValueByName", "ShortName", "0x00000000"),
               {"CKELManifestReader::IsCanGetAppNameFromManifest OUT(0x00000000)\r\n"}})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    EnableLog();
    fake->AddFile(kManifest, c.manifest);
    package.FullName = u"Example_1.0.0.0_x86__abc";
    package.Name = u"Example";
    BOOL canGet = 7;
    EXPECT_EQ(CKELManifestReader::IsCanGetAppNameFromManifest(kManifest.c_str(), &package, &canGet), S_OK);
    EXPECT_EQ(canGet, 0);
    std::vector<std::string> walk;
    std::size_t resolutions = 0;
    for (const std::string& line : ReaderLines()) {
      if (line.rfind("CKELManifestReader::ConvertMsResourceToString", 0) == 0) {
        if (line.find(") IN\r\n") != std::string::npos) ++resolutions;
      } else {
        walk.push_back(line);
      }
    }
    EXPECT_EQ(walk, c.walk);
    // One name looked up: the shell is asked for its two indirect forms only.
    EXPECT_EQ(resolutions, 1u);
    EXPECT_EQ(fake->CallsNamed({"SHLoadIndirectString"}).size(), 2u);
    EXPECT_TRUE(package.Applications().empty());
  }
}

// --- the packaging API ----------------------------------------------------------

TEST_F(ManifestReader, PackagingApiSkipsAnApplicationItCannotGet) {
  struct Case {
    const char* label;
    std::map<std::size_t, HRESULT> failures;
    const char* givesNoObject;
    std::vector<std::pair<WString, WString>> names;
  };
  const std::vector<Case> cases = {
      {"first fails", {{0, static_cast<HRESULT>(0x80070490u)}}, "", {{u"second", u""}, {u"third", u""}}},
      {"middle fails", {{1, E_FAIL}}, "", {{u"first", u""}, {u"third", u""}}},
      {"every one fails", {{0, E_FAIL}, {1, E_FAIL}, {2, E_OUTOFMEMORY}}, "", {}},
      {"none handed out", {}, "GetCurrent", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    CKELPackage fresh(u"Example_abc", {}, 0, 1);
    fake->ClearCalls();
    fake->appxApplications[kManifest] = {u"First", u"Second", u"Third"};
    fake->appxGetCurrentFailures = c.failures;
    fake->succeedsWithoutObject = c.givesNoObject;
    // The walk's result is that of the enumerator's last step.
    EXPECT_EQ(CKELManifestReader::GetAppNameUsingAPI(kManifest.c_str(), &fresh), S_OK);
    std::vector<std::pair<WString, WString>> names;
    for (const auto& app : fresh.Applications()) names.emplace_back(app->DisplayName(), app->ShortName());
    EXPECT_EQ(names, c.names);
    EXPECT_EQ(fake->CallsNamed({"GetCurrent"}).size(), 3u);
    EXPECT_EQ(fake->CallsNamed({"MoveNext"}).size(), 3u);
    EXPECT_EQ(fake->appxObjectsAlive, 0);
    EXPECT_EQ(fake->coTaskStringsAlive, 0);
    EXPECT_EQ(fake->CallsNamed({"CoUninitialize"}).size(), 1u);
  }
}

// --- failed package queries -------------------------------------------------------

// A package whose installed folder can be had but whose identity cannot.
class PackageWithoutIdentity final : public platform::Package {
 public:
  explicit PackageWithoutIdentity(HRESULT failure) : failure_(failure) {}
  HRESULT GetFamilyName(WString&) override { return failure_; }
  HRESULT GetFullName(WString&) override { return failure_; }
  HRESULT GetName(WString&) override { return failure_; }
  HRESULT GetVersion(platform::PackageVersion&) override { return failure_; }
  HRESULT GetInstalledLocationPath(WString& value) override {
    value = kInstalled;
    return S_OK;
  }
  void AddRef() override {}
  void Release() override {}

 private:
  HRESULT failure_;
};

TEST_F(ManifestReader, FailedPackageQueriesCarryThePlatformsCodeAndText) {
  UseManifest("win81_prefixed_resources.xml");
  constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80070490u);
  constexpr HRESULT kDenied = static_cast<HRESULT>(0x80070005u);
  fakes::FakePackage withoutFolder{u"Example_abc", u"F", u"N", {}, kInstalled};
  withoutFolder.failWith = kNotFound;
  PackageWithoutIdentity withoutIdentity(kDenied);
  struct Case {
    const char* label;
    platform::Package* package;
    HRESULT code;
    const char16_t* text;
  };
  for (const Case& c : {Case{"installed folder", &withoutFolder, kNotFound, u"runtime error 0x80070490"},
                        Case{"identity", &withoutIdentity, kDenied, u"runtime error 0x80070005"}}) {
    SCOPED_TRACE(c.label);
    char16_t* name = nullptr;
    try {
      (void)CKELManifestReader::GetAppDisplayName(c.package, &name);
      ADD_FAILURE() << "no platform error";
    } catch (const platform::PlatformError& error) {
      EXPECT_EQ(error.code, c.code);
      EXPECT_EQ(error.message, c.text);
    }
    if (name != nullptr) fake->LocalFree(name);
  }
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

TEST_F(ManifestReader, DisplayNameLookupTracesThePlatformsTextForAFailedQuery) {
  EnableLog();
  fakes::FakePackage broken{u"Example.Broken_abc", u"F", u"N", {}, kInstalled};
  fake->deployed.push_back({fake->userSid, &broken});
  broken.failWith = static_cast<HRESULT>(0x80070490u);
  char16_t* name = nullptr;
  EXPECT_EQ(ThePackageManager().GetAppDisplayNameByPFN(u"Example.Broken_abc", &name), E_FAIL);
  EXPECT_EQ(LogLinesStartingWith("CKELPackageManager::GetAppDisplayNameByPFN OUT("),
            (std::vector<std::string>{
                "CKELPackageManager::GetAppDisplayNameByPFN OUT(runtime error 0x80070490)\r\n",
                "CKELPackageManager::GetAppDisplayNameByPFN OUT(0x80004005) DisplayName = (null)\r\n"}));
}

}  // namespace
}  // namespace kel
