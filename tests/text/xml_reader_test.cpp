// Tests of the forward-only XML reader: document structure, the
// declaration, comments, processing instructions and CDATA, references,
// namespaces, navigation, limits and robustness. Expected node sequences,
// depths and result codes are those of the system's IXmlReader.
#include "text/xml/xml_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "text/xml_reader_walk.h"

namespace {

using namespace kel::xml;
using namespace kel::xml::reader_test;

// --- document structure -------------------------------------------------------

TEST_P(XmlReaderWalk, ReportsEachNodeAndTheEnd) {
  const WalkCase& c = GetParam();
  const Walk walk = ReadAll(c.document);
  ASSERT_EQ(walk.nodes.size(), c.nodes.size());
  for (std::size_t i = 0; i < c.nodes.size(); ++i) ExpectNode(walk.nodes[i], c.nodes[i], i);
  EXPECT_EQ(walk.end, c.end);
}

const WalkCase kStructures[] = {
    {"RootElementIsAtDepthZero", "<root/>", {{.type = XmlNodeType_Element, .localName = u"root", .depth = 0}}, S_FALSE},
    {"EndTagReportsItsStartTagDepthPlusOne",
     "<a attr1=\"_a\"><b attr2=\"_b\">text<c attr3=\"_c\"/><d attr4=\"_d\"></d></b></a>",
     {{.type = XmlNodeType_Element, .depth = 0},
      {.type = XmlNodeType_Element, .depth = 1},
      {.type = XmlNodeType_Text, .depth = 2},
      {.type = XmlNodeType_Element, .depth = 2},
      {.type = XmlNodeType_Element, .depth = 2},
      {.type = XmlNodeType_EndElement, .depth = 3},
      {.type = XmlNodeType_EndElement, .depth = 2},
      {.type = XmlNodeType_EndElement, .depth = 1}},
     S_FALSE},
    {"AttributeDepthIsItsElementDepthPlusOne",
     "<a x=\"1\"><b y=\"2\" z=\"3\"/></a>",
     {{.attributes = {{.depth = 1}}}, {.depth = 1, .attributes = {{.depth = 2}, {.depth = 2}}}, {}},
     S_FALSE},
    {"ContentIsOneLevelBelowItsElement",
     "<a>\n <!--c--><?p d?>t<![CDATA[x]]></a>",
     {{},
      {.type = XmlNodeType_Whitespace, .depth = 1},
      {.type = XmlNodeType_Comment, .depth = 1},
      {.type = XmlNodeType_ProcessingInstruction, .depth = 1},
      {.type = XmlNodeType_Text, .depth = 1},
      {.type = XmlNodeType_CDATA, .depth = 1},
      {}},
     S_FALSE},
    {"EmptyElementIsOneNodeWithoutEndElement",
     "<a><b/><c /></a>",
     {{.empty = false},
      {.type = XmlNodeType_Element, .empty = true},
      {.type = XmlNodeType_Element, .empty = true},
      {.type = XmlNodeType_EndElement, .localName = u"a"}},
     S_FALSE},
    {"ElementWithSeparateEndTagIsNotEmpty",
     "<a></a>",
     {{.empty = false}, {.type = XmlNodeType_EndElement, .depth = 1}},
     S_FALSE},
    {"WhitespaceOnlyTextIsWhitespaceNode",
     "<a> \t\r\n <b/>x y</a>",
     {{},
      {.type = XmlNodeType_Whitespace, .value = u" \t\n "},
      {.type = XmlNodeType_Element},
      {.type = XmlNodeType_Text, .value = u"x y"},
      {}},
     S_FALSE},
    {"TextLineEndsAreNormalised",
     "<a>\r \r\r\n \n\n text</a>",
     {{}, {.type = XmlNodeType_Text, .value = u"\n \n\n \n\n text"}, {}},
     S_FALSE},
    {"NodesOutsideTheRootAreReported",
     "<!-- comment1 --><!-- comment2 --><?pi1 pi1body ?><!-- comment3 --> \t \r \n<!-- comment4 -->"
     "<a>\r\n\t<b/>text<!-- comment -->text2<?pi pibody ?>\r\n</a>",
     {{.type = XmlNodeType_Comment, .value = u" comment1 "},
      {.type = XmlNodeType_Comment, .value = u" comment2 "},
      {.type = XmlNodeType_ProcessingInstruction, .value = u"pi1body "},
      {.type = XmlNodeType_Comment, .value = u" comment3 "},
      {.type = XmlNodeType_Whitespace, .value = u" \t \n \n"},
      {.type = XmlNodeType_Comment, .value = u" comment4 "},
      {.type = XmlNodeType_Element, .value = u""},
      {.type = XmlNodeType_Whitespace, .value = u"\n\t"},
      {.type = XmlNodeType_Element, .value = u""},
      {.type = XmlNodeType_Text, .value = u"text"},
      {.type = XmlNodeType_Comment, .value = u" comment "},
      {.type = XmlNodeType_Text, .value = u"text2"},
      {.type = XmlNodeType_ProcessingInstruction, .value = u"pibody "},
      {.type = XmlNodeType_Whitespace, .value = u"\n"},
      {.type = XmlNodeType_EndElement, .value = u""}},
     S_FALSE},
    {"WhitespaceAfterTheRootIsReportedBeforeTheEnd",
     "<a/>\r\n",
     {{}, {.type = XmlNodeType_Whitespace, .value = u"\n", .depth = 0}},
     S_FALSE},
};
INSTANTIATE_TEST_SUITE_P(DocumentStructure, XmlReaderWalk, ::testing::ValuesIn(kStructures), CaseName());

TEST(XmlReader, EmptyFlagIsClearedOnTheElementsAttributes) {
  XmlReader reader;
  (void)reader.SetInput("<a attr1='b' />");
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  EXPECT_TRUE(reader.IsEmptyElement());
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  EXPECT_FALSE(reader.IsEmptyElement());
  ASSERT_EQ(reader.MoveToElement(), S_OK);
  EXPECT_TRUE(reader.IsEmptyElement());
}

TEST(XmlReader, CompleteDocumentEndsWithSFalseAgainAndAgain) {
  XmlReader reader;
  (void)reader.SetInput("<a/>");
  XmlNodeType type = XmlNodeType_None;
  ASSERT_EQ(reader.Read(&type), S_OK);
  type = XmlNodeType_Element;
  EXPECT_EQ(reader.Read(&type), S_FALSE);
  EXPECT_EQ(type, XmlNodeType_None);
  EXPECT_EQ(reader.Read(&type), S_FALSE);
  ASSERT_EQ(reader.GetNodeType(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_None);
}

TEST(XmlReader, NodeTypePointerMayBeNull) {
  XmlReader reader;
  (void)reader.SetInput("<a/>");
  EXPECT_EQ(reader.Read(nullptr), S_OK);
  XmlNodeType type = XmlNodeType_None;
  ASSERT_EQ(reader.GetNodeType(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_Element);
  EXPECT_EQ(reader.Read(nullptr), S_FALSE);
}

TEST(XmlReader, ReadBeforeAnyInputReportsNothing) {
  XmlReader reader;
  XmlNodeType type = XmlNodeType_Element;
  EXPECT_EQ(reader.Read(&type), S_FALSE);
  EXPECT_EQ(type, XmlNodeType_None);
  EXPECT_EQ(reader.GetNodeType(&type), S_FALSE);
}

// --- the declaration ----------------------------------------------------------

TEST(XmlReader, XmlDeclarationIsANodeWithItsAttributes) {
  XmlReader reader;
  (void)reader.SetInput("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<a/>");
  XmlNodeType type = XmlNodeType_None;
  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_XmlDeclaration);
  EXPECT_EQ(LocalName(reader), u"xml");
  EXPECT_EQ(Prefix(reader), u"");
  EXPECT_EQ(Value(reader), u"");
  EXPECT_EQ(Depth(reader), 0u);
  EXPECT_FALSE(reader.IsEmptyElement());
  EXPECT_EQ(reader.GetAttributeCount(), 3u);

  const std::u16string names[] = {u"version", u"encoding", u"standalone"};
  const std::u16string values[] = {u"1.0", u"UTF-8", u"yes"};
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(reader.GetNodeType(&type), S_OK);
    EXPECT_EQ(type, XmlNodeType_Attribute);
    EXPECT_EQ(LocalName(reader), names[i]);
    EXPECT_EQ(Value(reader), values[i]);
    EXPECT_EQ(Depth(reader), 1u);
    EXPECT_EQ(reader.MoveToNextAttribute(), i < 2 ? S_OK : S_FALSE);
  }
  ASSERT_EQ(reader.MoveToElement(), S_OK);
  ASSERT_EQ(reader.GetNodeType(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_XmlDeclaration);

  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_Whitespace);
  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_Element);
  EXPECT_EQ(reader.Read(&type), S_FALSE);
}

const WalkCase kShortDeclarations[] = {
    {"XmlDeclarationWithOnlyVersionHasOneAttribute",
     "<?xml version='1.0'?><RegistrationInfo/>",
     {{.attributes = {{.localName = u"version"}}}, {.localName = u"RegistrationInfo", .empty = true}},
     S_FALSE},
};
INSTANTIATE_TEST_SUITE_P(Declaration, XmlReaderWalk, ::testing::ValuesIn(kShortDeclarations), CaseName());

// --- comments, processing instructions, CDATA -------------------------------

const WalkCase kComments[] = {
    {"CommentValueIsItsText",
     "<!-- - comment--><a/>",
     {{.type = XmlNodeType_Comment, .localName = u"", .value = u" - comment"}, {}},
     S_FALSE},
};
INSTANTIATE_TEST_SUITE_P(Comments, XmlReaderWalk, ::testing::ValuesIn(kComments), CaseName());

// A processing instruction before an empty root: its target and value.
WalkCase ProcessingInstructionCase(const char* name, const char* document, const char16_t* target,
                                   const char16_t* value) {
  return {
      name, document, {{.type = XmlNodeType_ProcessingInstruction, .localName = target, .value = value}, {}}, S_FALSE};
}

const WalkCase kProcessingInstructions[] = {
    ProcessingInstructionCase("WithoutData", "<?pi?><a/>", u"pi", u""),
    ProcessingInstructionCase("WithASpaceAndNoData", "<?pi ?><a/>", u"pi", u""),
    ProcessingInstructionCase("WithSpacesAndNoData", "<?pi  ?><a/>", u"pi", u""),
    ProcessingInstructionCase("ValueIsTheRestAfterItsTarget", "<?pi pi data?><a/>", u"pi", u"pi data"),
    ProcessingInstructionCase("ValueKeepsTrailingSpaces", "<?pi pi data  ?><a/>", u"pi", u"pi data  "),
    ProcessingInstructionCase("ValueLosesLeadingSpaces", "<?pi    data  ?><a/>", u"pi", u"data  "),
    ProcessingInstructionCase("LineEndsAreNormalised", "<?pi a\r\nb\rc\n\r\r\nd?><a/>", u"pi", u"a\nb\nc\n\n\nd"),
    ProcessingInstructionCase("EndingInACarriageReturn", "<?pi a\r?><a/>", u"pi", u"a\n"),
    ProcessingInstructionCase("TargetMayStartWithXml", "<?xml-stylesheet ?><a/>", u"xml-stylesheet", u""),
};
INSTANTIATE_TEST_SUITE_P(ProcessingInstructionTargetIsNameAndRestIsValue, XmlReaderWalk,
                         ::testing::ValuesIn(kProcessingInstructions), CaseName());

// A CDATA section as the only content of the root: its value.
WalkCase CDataCase(const char* name, const char* document, const char16_t* value) {
  return {name, document, {{}, {.type = XmlNodeType_CDATA, .localName = u"", .value = value}, {}}, S_FALSE};
}

const WalkCase kCDataSections[] = {
    CDataCase("KeepsBracketsNotFollowedByGreaterThan", "<a><![CDATA[ ]]data ]]></a>", u" ]]data "),
    CDataCase("KeepsAnOpeningMarkupInside", "<a><![CDATA[<![CDATA[ data ]]]]></a>", u"<![CDATA[ data ]]"),
    CDataCase("CrLfBecomesALineFeed", "<a><![CDATA[\n \r\n \n\n ]]></a>", u"\n \n \n\n "),
    CDataCase("CarriageReturnBecomesALineFeed", "<a><![CDATA[\r\r \n\r \r \n\n ]]></a>", u"\n\n \n\n \n \n\n "),
    CDataCase("MayBeEmpty", "<a><![CDATA[]]></a>", u""),
};
INSTANTIATE_TEST_SUITE_P(CDataIsOneNodeWithNormalisedLineEnds, XmlReaderWalk, ::testing::ValuesIn(kCDataSections),
                         CaseName());

// --- references and value normalisation --------------------------------------

TEST(XmlReader, AttributeValuesAreUnescaped) {
  struct Case {
    const char* xml;
    std::u16string value;
  };
  const Case cases[] = {
      {"<a attr1=\"attrvalue\"/>", u"attrvalue"},   {"<a attr1=\"a''ttrvalue\"/>", u"a''ttrvalue"},
      {"<a attr1='a\"ttrvalue'/>", u"a\"ttrvalue"}, {"<a attr1=' '/>", u" "},
      {"<a attr1=\" val \"/>", u" val "},           {"<a attr1=\"val&#32;\"/>", u"val "},
      {"<a attr1=\"val&#x20;\"/>", u"val "},        {"<a attr1=\"&lt;&gt;&amp;&apos;&quot;\"/>", u"<>&'\""},
      {"<a attr1=\"a &amp; b\"/>", u"a & b"},       {"<a attr1=\"\"/>", u""},
  };
  for (const Case& c : cases) EXPECT_EQ(FirstAttributeValue(c.xml), c.value) << c.xml;
}

TEST(XmlReader, AttributeWhitespaceBecomesSpaces) {
  EXPECT_EQ(FirstAttributeValue("<a attr1=\"\r\n \r \n \t\n\r\"/>"), u"         ");
  EXPECT_EQ(FirstAttributeValue("<a attr1=\"\r\n\tval\n\"/>"), u"  val ");
}

TEST(XmlReader, ReferencedTabsAndLineEndsStayInAttributes) {
  EXPECT_EQ(FirstAttributeValue("<a v='a&#9;b&#10;c&#13;d&#xD;&#xA;e'/>"), u"a\tb\nc\rd\r\ne");
}

TEST(XmlReader, CharacterReferenceAboveU10000IsASurrogatePair) {
  EXPECT_EQ(FirstAttributeValue("<a v='&#x1F600;&#128512;&#x10FFFF;'/>"), u"\U0001F600\U0001F600\U0010FFFF");
  const Walk walk = ReadAll("<a>&#x10000;</a>");
  ASSERT_EQ(walk.nodes.size(), 3u);
  EXPECT_EQ(walk.nodes[1].value, u"\U00010000");
}

const WalkCase kTextReferences[] = {
    {"TextReferencesAreDecoded",
     "<a b=\"c\">&#x1f3;&#x103;&gt;</a>",
     {{}, {.type = XmlNodeType_Text, .value = u"\u01F3\u0103>"}, {}},
     S_FALSE},
    {"ReferencedSpaceIsText", "<a>&#32;</a>", {{}, {.type = XmlNodeType_Text, .value = u" "}, {}}, S_FALSE},
};
INSTANTIATE_TEST_SUITE_P(References, XmlReaderWalk, ::testing::ValuesIn(kTextReferences), CaseName());

// --- namespaces and prefixes --------------------------------------------------

const WalkCase kNamespaces[] = {
    {"PrefixesAreReportedApartFromLocalNamesUnderADefaultNamespace",
     "<b xmlns=\"defns\" xml:a=\"a ns\"/>",
     {{.prefix = u"", .attributes = {{.prefix = u""}, {.prefix = u"xml", .localName = u"a"}}}},
     S_FALSE},
    {"PrefixesAreReportedApartFromLocalNamesUnderADeclaredPrefix",
     "<c:b xmlns:c=\"c ns\" xml:a=\"a ns\"/>",
     {{.prefix = u"c", .attributes = {{.prefix = u"xmlns"}, {.prefix = u"xml", .localName = u"a"}}}},
     S_FALSE},
    {"NamespaceDeclarationNamesAndValues",
     "<r xmlns=\"urn:d\" xmlns:p=\"urn:p\"/>",
     {{.attributes = {{.prefix = u"", .localName = u"xmlns", .value = u"urn:d"},
                      {.prefix = u"xmlns", .localName = u"p", .value = u"urn:p"}}}},
     S_FALSE},
    {"EndElementOfPrefixedElementHasItsNames",
     "<p:a xmlns:p='u'></p:a>",
     {{}, {.type = XmlNodeType_EndElement, .prefix = u"p", .localName = u"a"}},
     S_FALSE},
    {"EndTagWithAnotherPrefixForTheSameUriDoesNotMatch",
     "<p:a xmlns:p='u' xmlns:q='u'></q:a>",
     {{}},
     WC_E_ELEMENTMATCH},
};
INSTANTIATE_TEST_SUITE_P(Namespaces, XmlReaderWalk, ::testing::ValuesIn(kNamespaces), CaseName());

TEST(XmlReader, AppxManifestIsWalked) {
  XmlReader reader;
  (void)reader.SetInput(kManifest);
  XmlNodeType type = XmlNodeType_None;
  std::u16string displayName;
  std::u16string shortName;
  int elements = 0;
  int endElements = 0;
  HRESULT hr;
  while ((hr = reader.Read(&type)) == S_OK) {
    if (type == XmlNodeType_EndElement) ++endElements;
    if (type != XmlNodeType_Element) continue;
    ++elements;
    const std::u16string name = LocalName(reader);
    if (name == u"VisualElements") {
      EXPECT_EQ(Prefix(reader), u"m2");
      EXPECT_EQ(Depth(reader), 3u);
      while (reader.MoveToNextAttribute() == S_OK) {
        if (LocalName(reader) == u"DisplayName") displayName = Value(reader);
      }
    } else if (name == u"DefaultTile") {
      EXPECT_TRUE(reader.IsEmptyElement());
      ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
      shortName = Value(reader);
    }
  }
  EXPECT_EQ(hr, S_FALSE);
  EXPECT_EQ(elements, 5);
  EXPECT_EQ(endElements, 4);
  EXPECT_EQ(displayName, u"ms-resource:AppName");
  EXPECT_EQ(shortName, u"ms-resource:AppShortName");
}

// --- navigation ---------------------------------------------------------------

TEST(XmlReader, AttributeNavigation) {
  XmlReader reader;
  EXPECT_EQ(reader.MoveToFirstAttribute(), S_FALSE);
  EXPECT_EQ(reader.MoveToNextAttribute(), S_FALSE);
  EXPECT_EQ(reader.MoveToElement(), S_FALSE);

  (void)reader.SetInput("<a x='1' y='2'><b/></a>");
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  EXPECT_EQ(reader.GetAttributeCount(), 2u);
  EXPECT_EQ(reader.MoveToElement(), S_FALSE);
  // From the element, "next" is the first attribute.
  ASSERT_EQ(reader.MoveToNextAttribute(), S_OK);
  EXPECT_EQ(LocalName(reader), u"x");
  ASSERT_EQ(reader.MoveToNextAttribute(), S_OK);
  EXPECT_EQ(LocalName(reader), u"y");
  // Past the last attribute the reader stays where it is.
  EXPECT_EQ(reader.MoveToNextAttribute(), S_FALSE);
  XmlNodeType type = XmlNodeType_None;
  ASSERT_EQ(reader.GetNodeType(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_Attribute);
  EXPECT_EQ(LocalName(reader), u"y");
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  EXPECT_EQ(LocalName(reader), u"x");
  ASSERT_EQ(reader.MoveToElement(), S_OK);
  EXPECT_EQ(LocalName(reader), u"a");
  EXPECT_EQ(Value(reader), u"");

  // Reading on from an attribute goes to the next node.
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_Element);
  EXPECT_EQ(LocalName(reader), u"b");
  EXPECT_EQ(reader.GetAttributeCount(), 0u);
  EXPECT_EQ(reader.MoveToFirstAttribute(), S_FALSE);

  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_EndElement);
  EXPECT_EQ(reader.GetAttributeCount(), 0u);
  EXPECT_EQ(reader.MoveToFirstAttribute(), S_FALSE);
}

TEST(XmlReader, StringsStayValidAcrossAttributeMoves) {
  XmlReader reader;
  (void)reader.SetInput("<a name='first' other='second'>text</a>");
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  const char16_t* element = nullptr;
  ASSERT_EQ(reader.GetLocalName(&element, nullptr), S_OK);
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  const char16_t* name = nullptr;
  const char16_t* value = nullptr;
  ASSERT_EQ(reader.GetLocalName(&name, nullptr), S_OK);
  ASSERT_EQ(reader.GetValue(&value, nullptr), S_OK);
  ASSERT_EQ(reader.MoveToNextAttribute(), S_OK);
  ASSERT_EQ(reader.MoveToElement(), S_OK);
  ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
  const char16_t* again = nullptr;
  ASSERT_EQ(reader.GetValue(&again, nullptr), S_OK);
  EXPECT_EQ(again, value);
  EXPECT_EQ(std::u16string(element), u"a");
  EXPECT_EQ(std::u16string(name), u"name");
  EXPECT_EQ(std::u16string(value), u"first");

  ASSERT_EQ(reader.Read(nullptr), S_OK);
  const char16_t* text = nullptr;
  ASSERT_EQ(reader.GetValue(&text, nullptr), S_OK);
  EXPECT_EQ(std::u16string(text), u"text");
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  EXPECT_EQ(LocalName(reader), u"a");
  EXPECT_EQ(std::u16string(value), u"first");
}

TEST(XmlReader, LengthPointersMayBeNull) {
  XmlReader reader;
  (void)reader.SetInput("<p:a xmlns:p='u'/>");
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  const char16_t* text = nullptr;
  ASSERT_EQ(reader.GetLocalName(&text, nullptr), S_OK);
  EXPECT_EQ(std::u16string(text), u"a");
  ASSERT_EQ(reader.GetPrefix(&text, nullptr), S_OK);
  EXPECT_EQ(std::u16string(text), u"p");
  ASSERT_EQ(reader.GetValue(&text, nullptr), S_OK);
  EXPECT_EQ(std::u16string(text), u"");
}

TEST(XmlReader, ReaderCanBeGivenNewInput) {
  XmlReader reader;
  (void)reader.SetInput("<a><b></c></a>");
  while (reader.Read(nullptr) == S_OK) {
  }
  (void)reader.SetInput("<x/>");
  XmlNodeType type = XmlNodeType_None;
  ASSERT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(LocalName(reader), u"x");
  EXPECT_EQ(reader.Read(&type), S_FALSE);
}

// --- robustness ---------------------------------------------------------------

TEST(XmlReader, EveryTruncationEndsInErrorOrEndWithinBoundedReads) {
  struct Sample {
    std::string document;
    std::string rootEndTag;
  };
  const Sample samples[] = {
      {std::string(kManifest) + "<!-- after --><?pi x?>", "</Package>"},
      {"<r a='&lt;&#x1F600;'>t&amp;x<![CDATA[c]]><e/>\r\n<p:q xmlns:p='u' p:v=\"1\"/></r>", "</r>"},
      {"<?xml version='1.0'?><a><b c='d'/></a>", "</a>"},
  };
  for (const Sample& sample : samples) {
    const std::size_t complete = sample.document.find(sample.rootEndTag) + sample.rootEndTag.size();
    for (std::size_t length = 0; length <= sample.document.size(); ++length) {
      XmlReader reader;
      (void)reader.SetInput(std::string_view(sample.document).substr(0, length));
      HRESULT hr = S_OK;
      int reads = 0;
      while ((hr = reader.Read(nullptr)) == S_OK) {
        ASSERT_LT(++reads, static_cast<int>(length) + 2) << "length " << length;
      }
      if (length < complete) {
        EXPECT_TRUE(kel::Failed(hr)) << "length " << length;
      }
      if (length == sample.document.size()) {
        EXPECT_EQ(hr, S_FALSE);
      }
      EXPECT_EQ(reader.Read(nullptr), hr) << "length " << length;
    }
  }
}

TEST(XmlReader, RandomlyDamagedDocumentsNeverHang) {
  std::mt19937 random(20240521);
  const std::string original = kManifest;
  const char alphabet[] = "<>/?!-=\"'&;#x: \r\n\t[]aZ\x80\xC3\xFF";
  for (int round = 0; round < 3000; ++round) {
    std::string damaged = original;
    const int edits = 1 + static_cast<int>(random() % 4);
    for (int e = 0; e < edits; ++e) {
      const std::size_t at = random() % damaged.size();
      switch (random() % 3) {
        case 0:
          damaged[at] = alphabet[random() % (sizeof alphabet - 1)];
          break;
        case 1:
          damaged.erase(at, 1 + random() % 8);
          break;
        default:
          damaged.insert(at, 1, alphabet[random() % (sizeof alphabet - 1)]);
          break;
      }
      if (damaged.empty()) damaged = "<";
    }
    XmlReader reader;
    (void)reader.SetInput(damaged);
    int reads = 0;
    HRESULT hr;
    while ((hr = reader.Read(nullptr)) == S_OK) {
      ASSERT_LT(++reads, static_cast<int>(damaged.size()) + 2);
      while (reader.MoveToNextAttribute() == S_OK) {
        const char16_t* text = nullptr;
        (void)reader.GetValue(&text, nullptr);
        ASSERT_NE(text, nullptr);
      }
    }
    EXPECT_EQ(reader.Read(nullptr), hr);
  }
}

TEST(XmlReader, LargeCatalogueIsRead) {
  std::string document = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<AppNameList>";
  for (int i = 0; i < 10000; ++i) {
    document += "\r\n  <DesktopApp Name=\"App " + std::to_string(i) + " &amp; Co\" Path=\"C:\\Apps\\app" +
                std::to_string(i) + ".exe\" />";
  }
  document += "\r\n</AppNameList>";
  XmlReader reader;
  (void)reader.SetInput(document);
  XmlNodeType type = XmlNodeType_None;
  int elements = 0;
  std::u16string last;
  HRESULT hr;
  while ((hr = reader.Read(&type)) == S_OK) {
    if (type == XmlNodeType_Element && reader.IsEmptyElement()) {
      ++elements;
      ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
      last = Value(reader);
    }
  }
  EXPECT_EQ(hr, S_FALSE);
  EXPECT_EQ(elements, 10000);
  EXPECT_EQ(last, u"App 9999 & Co");
}
}  // namespace
