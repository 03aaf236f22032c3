// The reader on documents built to be costly (thousands of namespace
// declarations, of attributes on one element, very long names, many
// references) and on inputs past the size the library reads. The results
// are checked here; what they cost is measured by the benchmarks.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "catalogue/app_name_list.h"
#include "library_test.h"
#include "manifest/manifest_reader.h"
#include "platform/platform.h"
#include "text/xml/xml_reader.h"

namespace kel {
namespace {

using xml::XmlNodeType;
using xml::XmlReader;

std::u16string Wide(std::string_view ascii) { return std::u16string(ascii.begin(), ascii.end()); }

std::u16string LocalName(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  (void)reader.GetLocalName(&text, &length);
  return std::u16string(text, length);
}

std::u16string Prefix(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  (void)reader.GetPrefix(&text, &length);
  return std::u16string(text, length);
}

std::u16string Value(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  (void)reader.GetValue(&text, &length);
  return std::u16string(text, length);
}

// The result that ends a walk over every node of `document`.
HRESULT EndOf(std::string_view document) {
  XmlReader reader;
  HRESULT hr = reader.SetInput(document);
  if (Failed(hr)) return hr;
  while ((hr = reader.Read(nullptr)) == S_OK) {
  }
  return hr;
}

std::string Number(int i) { return std::to_string(i); }

// --- namespaces -----------------------------------------------------------------

constexpr int kPrefixes = 30000;

// The root declares p0 .. p29999; a child per prefix uses it.
std::string ManyPrefixesDocument(const std::string& lastChild) {
  std::string document = "<r";
  for (int i = 0; i < kPrefixes; ++i) document += " xmlns:p" + Number(i) + "='urn:" + Number(i) + "'";
  document += ">";
  for (int i = 0; i < kPrefixes; ++i) document += "<p" + Number(i) + ":e/>";
  return document + lastChild + "</r>";
}

TEST(XmlReaderLimits, ThirtyThousandDeclaredPrefixesAreEachBoundForTheChildren) {
  const std::string document = ManyPrefixesDocument("");
  XmlReader reader;
  ASSERT_EQ(reader.SetInput(document), S_OK);
  XmlNodeType type = xml::XmlNodeType_None;
  ASSERT_EQ(reader.Read(&type), S_OK);
  ASSERT_EQ(reader.GetAttributeCount(), static_cast<UINT>(kPrefixes));
  for (int i = 0; i < kPrefixes; ++i) {
    ASSERT_EQ(reader.Read(&type), S_OK) << i;
    ASSERT_EQ(type, xml::XmlNodeType_Element);
    ASSERT_EQ(Prefix(reader), Wide("p" + Number(i)));
    ASSERT_EQ(LocalName(reader), u"e");
  }
  EXPECT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, xml::XmlNodeType_EndElement);
  EXPECT_EQ(reader.Read(&type), S_FALSE);
}

TEST(XmlReaderLimits, APrefixNoneOfThirtyThousandDeclarationsBindsIsUndeclared) {
  EXPECT_EQ(EndOf(ManyPrefixesDocument("<p30000:e/>")), xml::NC_E_UNDECLAREDPREFIX);
  EXPECT_EQ(EndOf(ManyPrefixesDocument("<e p29999:a='1' p30000:a='1'/>")), xml::NC_E_UNDECLAREDPREFIX);
  EXPECT_EQ(EndOf(ManyPrefixesDocument("<e p29999:a='1' p0:b='1'/>")), S_FALSE);
}

TEST(XmlReaderLimits, DeclarationsOfManyEndedSiblingsAreAllTakenBack) {
  // Each sibling declares its own prefix and uses it; once it has ended,
  // none of those prefixes is bound any more.
  std::string siblings = "<r>";
  for (int i = 0; i < kPrefixes; ++i) siblings += "<s" + Number(i) + ":e xmlns:s" + Number(i) + "='u'/>";
  EXPECT_EQ(EndOf(siblings + "</r>"), S_FALSE);
  EXPECT_EQ(EndOf(siblings + "<s0:e/></r>"), xml::NC_E_UNDECLAREDPREFIX);
  EXPECT_EQ(EndOf(siblings + "<s29999:e/></r>"), xml::NC_E_UNDECLAREDPREFIX);
  // The same prefix declared again and again.
  std::string again = "<r>";
  for (int i = 0; i < kPrefixes; ++i) again += "<p:e xmlns:p='u'/>";
  EXPECT_EQ(EndOf(again + "</r>"), S_FALSE);
  EXPECT_EQ(EndOf(again + "<p:e/></r>"), xml::NC_E_UNDECLAREDPREFIX);
}

TEST(XmlReaderLimits, ARedeclaredPrefixStaysBoundUntilItsOuterDeclarationEnds) {
  struct Case {
    const char* document;
    HRESULT end;
  };
  const Case cases[] = {
      {"<a xmlns:p='1'><b xmlns:p='2'/><p:c/></a>", S_FALSE},
      {"<a xmlns:p='1'><b xmlns:p='2'><c xmlns:p='3'/></b><p:c/></a>", S_FALSE},
      {"<a><b xmlns:p='1'><c xmlns:p='2'/><p:d/></b><p:d/></a>", xml::NC_E_UNDECLAREDPREFIX},
      {"<a><b xmlns:p='1' xmlns:q='1'></b><q:d/></a>", xml::NC_E_UNDECLAREDPREFIX},
      {"<a xmlns:p='1'><p:b xmlns:q='1'><q:c/></p:b><p:c/></a>", S_FALSE},
  };
  for (const Case& c : cases) EXPECT_EQ(EndOf(c.document), c.end) << c.document;
}

TEST(XmlReaderLimits, PrefixesDeclaredAcrossTheWholeDepthStayBoundBeneathThem) {
  // Two hundred prefixes on each of the deepest levels there may be, so the
  // table grows while declarations of outer elements are in scope, then a
  // child of the innermost element uses every one of them.
  std::string document;
  const int levels = static_cast<int>(xml::kMaxElementDepth) - 1;
  for (int level = 0; level < levels; ++level) {
    document += "<d";
    for (int k = 0; k < 200; ++k) document += " xmlns:l" + Number(level) + "k" + Number(k) + "='u'";
    document += ">";
  }
  document += "<e";
  for (int level = 0; level < levels; ++level) document += " l" + Number(level) + "k199:a='1'";
  document += "/>";
  for (int level = 0; level < levels; ++level) document += "</d>";
  EXPECT_EQ(EndOf(document), S_FALSE);
  // The innermost level's prefixes are gone once it has ended.
  document.insert(document.size() - 4, "<l" + Number(levels - 1) + "k0:e/>");
  EXPECT_EQ(EndOf(document), xml::NC_E_UNDECLAREDPREFIX);
}

// --- attributes -----------------------------------------------------------------

constexpr int kAttributes = 100000;

std::string ManyAttributesElement(const std::string& last) {
  std::string element = "<e xmlns:p='u' xmlns:q='u'";
  for (int i = 0; i < kAttributes; ++i) element += " a" + Number(i) + "='" + Number(i) + "'";
  return element + last + "/>";
}

TEST(XmlReaderLimits, AHundredThousandAttributesAreReadInTheirOrder) {
  const std::string document = ManyAttributesElement(" p:a0='p' q:a0='q'");
  XmlReader reader;
  ASSERT_EQ(reader.SetInput(document), S_OK);
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  ASSERT_EQ(reader.GetAttributeCount(), static_cast<UINT>(kAttributes + 4));
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  ASSERT_EQ(reader.MoveToNextAttribute(), S_OK);
  for (int i = 0; i < kAttributes; ++i) {
    ASSERT_EQ(reader.MoveToNextAttribute(), S_OK);
    ASSERT_EQ(LocalName(reader), Wide("a" + Number(i)));
    ASSERT_EQ(Value(reader), Wide(Number(i)));
  }
  ASSERT_EQ(reader.MoveToNextAttribute(), S_OK);
  EXPECT_EQ(Prefix(reader), u"p");
  ASSERT_EQ(reader.MoveToNextAttribute(), S_OK);
  EXPECT_EQ(Prefix(reader), u"q");
  EXPECT_EQ(reader.MoveToNextAttribute(), S_FALSE);
  EXPECT_EQ(reader.Read(nullptr), S_FALSE);
}

TEST(XmlReaderLimits, ARepeatedAttributeAmongAHundredThousandIsFound) {
  struct Case {
    const char* last;
    HRESULT end;
  };
  const Case cases[] = {
      {" a0='again'", xml::WC_E_UNIQUEATTRIBUTE},
      {" a99999='again'", xml::WC_E_UNIQUEATTRIBUTE},
      {" a50000='again' b='1'", xml::WC_E_UNIQUEATTRIBUTE},
      {" p:a0='1' p:a0='2'", xml::WC_E_UNIQUEATTRIBUTE},
      {" xmlns:p='again'", xml::WC_E_UNIQUEATTRIBUTE},
      {" a100000='new'", S_FALSE},
      {" p:a0='1' q:a0='1' a='1'", S_FALSE},
      {" A0='case differs'", S_FALSE},
  };
  for (const Case& c : cases) EXPECT_EQ(EndOf(ManyAttributesElement(c.last)), c.end) << c.last;
}

// --- names, references, nesting -------------------------------------------------

TEST(XmlReaderLimits, AMillionUnitNameMatchesOnlyItsOwnEndTag) {
  const std::string name(1000000, 'n');
  const std::string document = "<" + name + ">t</" + name + ">";
  XmlReader reader;
  ASSERT_EQ(reader.SetInput(document), S_OK);
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  EXPECT_EQ(LocalName(reader).size(), name.size());
  std::string other = name;
  other.back() = 'm';
  EXPECT_EQ(EndOf(document), S_FALSE);
  EXPECT_EQ(EndOf("<" + name + ">t</" + other + ">"), xml::WC_E_ELEMENTMATCH);
}

TEST(XmlReaderLimits, AMillionReferencesAreEachDecoded) {
  std::string references;
  for (int i = 0; i < 250000; ++i) references += "&amp;&#x41;&lt;&#66;";
  const std::string document = "<e a='" + references + "'>" + references + "</e>";
  std::u16string expected;
  for (int i = 0; i < 250000; ++i) expected += u"&A<B";
  XmlReader reader;
  ASSERT_EQ(reader.SetInput(document), S_OK);
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  EXPECT_EQ(Value(reader), expected);
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  EXPECT_EQ(Value(reader), expected);
}

TEST(XmlReaderLimits, NestingToTheLimitThousandsOfTimesOver) {
  std::string document = "<r>";
  const std::size_t levels = xml::kMaxElementDepth - 1;
  for (int round = 0; round < 1000; ++round) {
    for (std::size_t i = 0; i < levels; ++i) document += "<d xmlns:p='u'>";
    for (std::size_t i = 0; i < levels; ++i) document += "</d>";
  }
  EXPECT_EQ(EndOf(document + "</r>"), S_FALSE);
  EXPECT_EQ(EndOf(document + "<p:d/></r>"), xml::NC_E_UNDECLAREDPREFIX);
}

// --- the size the library reads -------------------------------------------------

TEST(XmlReaderLimits, ADocumentOverTheLimitIsRefusedAndEveryReadSaysSo) {
  XmlReader reader;
  std::string document = "<r/>";
  document.resize(xml::kMaxInputBytes + 1, ' ');
  EXPECT_EQ(reader.SetInput(document), xml::kInputTooLarge);
  XmlNodeType type = xml::XmlNodeType_Element;
  EXPECT_EQ(reader.Read(&type), xml::kInputTooLarge);
  EXPECT_EQ(type, xml::XmlNodeType_None);
  EXPECT_EQ(reader.Read(&type), xml::kInputTooLarge);
  // The next document is read as usual.
  ASSERT_EQ(reader.SetInput("<r/>"), S_OK);
  EXPECT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, xml::XmlNodeType_Element);
}

TEST(XmlReaderLimits, ADocumentOfExactlyTheLimitIsRead) {
  std::string document = "<r/>";
  document.resize(xml::kMaxInputBytes, ' ');
  XmlReader reader;
  ASSERT_EQ(reader.SetInput(document), S_OK);
  XmlNodeType type = xml::XmlNodeType_None;
  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, xml::XmlNodeType_Element);
  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, xml::XmlNodeType_Whitespace);
  UINT length = 0;
  const char16_t* value = nullptr;
  (void)reader.GetValue(&value, &length);
  EXPECT_EQ(length, xml::kMaxInputBytes - 4);
  EXPECT_EQ(reader.Read(&type), S_FALSE);
}

const WString kFolder = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher";
const WString kFile = kFolder + u"\\AppNameList1.0.4.0.xml";

constexpr char kCatalogue[] =
    "<Applications><DesktopApps><DesktopApp DisplayName=\"notepad\" LnkFileName=\"C:\\n.lnk\" />"
    "</DesktopApps></Applications>";

class ReadLimit : public testing::LibraryTest {
 protected:
  ReadLimit() {
    fake->AddDirectory(kFolder);
    fake->AddFile(kFile, kCatalogue);
  }
};

TEST_F(ReadLimit, AFileOverTheLimitIsRefusedWithoutItsBytes) {
  fake->SetReportedFileSize(kFile, xml::kMaxInputBytes + 1);
  std::string bytes = "left over";
  EXPECT_EQ(platform::Current().ReadFileBytes(kFile.c_str(), bytes), xml::kInputTooLarge);
  EXPECT_TRUE(bytes.empty());
  fake->SetReportedFileSize(kFile, 0xFFFFFFFFFFull);
  EXPECT_EQ(platform::Current().ReadFileBytes(kFile.c_str(), bytes), xml::kInputTooLarge);
}

TEST_F(ReadLimit, AFileOfExactlyTheLimitIsRead) {
  fake->SetReportedFileSize(kFile, xml::kMaxInputBytes);
  std::string bytes;
  EXPECT_EQ(platform::Current().ReadFileBytes(kFile.c_str(), bytes), S_OK);
  EXPECT_EQ(bytes, kCatalogue);
}

TEST_F(ReadLimit, TheCatalogueRefusesAnOversizedFileAndKeepsWhatItHeld) {
  CKELAppNameList list;
  ASSERT_EQ(list.AddDesktopApp(u"calc", u"C:\\c.lnk"), S_OK);
  EnableLog();
  fake->SetReportedFileSize(kFile, xml::kMaxInputBytes + 1);
  EXPECT_EQ(list.Load(kFile.c_str()), xml::kInputTooLarge);
  ASSERT_EQ(list.DesktopApps().size(), 1u);
  EXPECT_EQ(list.DesktopApps().front()->DisplayName(), u"calc");
  EXPECT_EQ(LogLines(), (std::vector<std::string>{
                            "CKELAppNameList::Load(" + ToUtf8(kFile.c_str()) + ") IN\r\n",
                            "CKELAppNameList::Load OUT(0x8007000E)\r\n",
                        }));
  // The same file within the limit loads.
  fake->SetReportedFileSize(kFile, 0);
  EXPECT_EQ(list.Load(kFile.c_str()), S_FALSE);
  EXPECT_EQ(list.DesktopApps().size(), 2u);
}

TEST_F(ReadLimit, TheManifestReaderRefusesAnOversizedManifest) {
  const WString manifest = u"C:\\Program Files\\WindowsApps\\Example_1.0.0.0_x86__abc\\AppxManifest.xml";
  fake->AddFile(manifest,
                "<Package><Applications><Application><VisualElements DisplayName='n'><DefaultTile ShortName='s'/>"
                "</VisualElements></Application></Applications></Package>");
  fake->SetReportedFileSize(manifest, xml::kMaxInputBytes + 1);
  CKELPackage package{u"Example_abc", {}, 0, 1};
  EnableLog();
  EXPECT_EQ(CKELManifestReader::GetAppNameUsingXmlParser(manifest.c_str(), &package), xml::kInputTooLarge);
  EXPECT_TRUE(package.Applications().empty());
  EXPECT_EQ(LogLines(), (std::vector<std::string>{
                            "CKELManifestReader::GetAppNameUsingXmlParser IN\r\n",
                            "CKELManifestReader::GetAppNameUsingXmlParser SHCreateStreamOnFile failed. "
                            "ErrCode = 0x8007000E\r\n",
                            "CKELManifestReader::GetAppNameUsingXmlParser OUT(0x8007000E)\r\n",
                        }));
}

}  // namespace
}  // namespace kel
