#include <gtest/gtest.h>

#include "library_test.h"
#include "manifest/manifest_reader.h"

namespace kel {
namespace {

class ResourceReference : public testing::LibraryTest {
 protected:
  std::vector<std::string> Attempts() { return CallArgs("SHLoadIndirectString"); }
  BOOL Convert(const char16_t* reference, const char16_t* fullName = u"F", const char16_t* name = u"N") {
    return CKELManifestReader::ConvertMsResourceToString(reference, fullName, name, buffer);
  }
  char16_t buffer[256] = {};
};

TEST_F(ResourceReference, ShortReferenceTriesResourcesThenTheBareForm) {
  EXPECT_FALSE(Convert(u"ms-resource:AppName"));
  EXPECT_EQ(Attempts(), (std::vector<std::string>{"@{F?ms-resource://N/resources/appname}, 256",
                                                  "@{F? ms-resource://N/appname}, 256"}));
}

TEST_F(ResourceReference, FirstFormThatResolvesWins) {
  fake->indirectStrings[u"@{F? ms-resource://N/appname}"] = u"App Name";
  EXPECT_TRUE(Convert(u"ms-resource:AppName"));
  EXPECT_EQ(WString(buffer), u"App Name");
  fake->indirectStrings[u"@{F?ms-resource://N/resources/appname}"] = u"First";
  EXPECT_TRUE(Convert(u"ms-resource:AppName"));
  EXPECT_EQ(WString(buffer), u"First");
}

TEST_F(ResourceReference, AbsoluteReferenceHasOneAttempt) {
  EXPECT_FALSE(Convert(u"ms-resource:///Resources/AppName"));
  EXPECT_EQ(Attempts(), (std::vector<std::string>{"@{F?ms-resource://N/resources/appname}, 256"}));
}

TEST_F(ResourceReference, UpperCasePrefixIsAccepted) {
  Convert(u"MS-RESOURCE:Name");
  EXPECT_EQ(Attempts().at(0), "@{F?ms-resource://N/resources/name}, 256");
}

TEST_F(ResourceReference, SurroundingSlashesAreTrimmed) {
  Convert(u"ms-resource://Name/");
  EXPECT_EQ(Attempts().at(0), "@{F?ms-resource://N/resources/name}, 256");
}

TEST_F(ResourceReference, TwoSlashesMakeAShortReferenceWithItsHostPart) {
  Convert(u"ms-resource://Host/Path");
  EXPECT_EQ(Attempts().at(0), "@{F?ms-resource://N/resources/host/path}, 256");
}

TEST_F(ResourceReference, ReferenceMustStandAtTheStart) {
  EXPECT_FALSE(Convert(u"x ms-resource:Name"));
  EXPECT_TRUE(Attempts().empty());
}

TEST_F(ResourceReference, EmptyPackageNamesGiveFalseWithoutAnAttempt) {
  EXPECT_FALSE(Convert(u"ms-resource:Name", u"F", u""));
  EXPECT_FALSE(Convert(u"ms-resource:Name", u"", u"N"));
  EXPECT_FALSE(Convert(u"ms-resource:Name", nullptr, u"N"));
  EXPECT_FALSE(CKELManifestReader::ConvertMsResourceToString(u"ms-resource:Name", u"F", u"N", nullptr));
  EXPECT_TRUE(Attempts().empty());
}

TEST_F(ResourceReference, AttemptsAreTraced) {
  EnableLog();
  Convert(u"ms-resource:Name");
  const auto lines = LogLines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "CKELManifestReader::ConvertMsResourceToString(ms-resource:Name, F, N, , 256) IN\r\n");
  EXPECT_EQ(lines[1],
            "CKELManifestReader::ConvertMsResourceToString ms-resource = @{F?ms-resource://N/resources/name})\r\n");
  EXPECT_EQ(lines[3], "CKELManifestReader::ConvertMsResourceToString OUT(pStr = )\r\n");
}

}  // namespace
}  // namespace kel
