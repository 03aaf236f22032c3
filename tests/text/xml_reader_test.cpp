// Tests of the forward-only XML reader. Expected node sequences, depths and
// result codes are those of the system's IXmlReader.
#include "text/xml/xml_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "text/cp932/cp932.h"

namespace {

using namespace kel::xml;
using kel::HRESULT;
using kel::S_FALSE;
using kel::S_OK;
using kel::UINT;

struct Attr {
  std::u16string prefix;
  std::u16string localName;
  std::u16string value;
  UINT depth = 0;
};

struct Node {
  XmlNodeType type = XmlNodeType_None;
  std::u16string prefix;
  std::u16string localName;
  std::u16string value;
  UINT depth = 0;
  bool empty = false;
  std::vector<Attr> attributes;
};

struct Walk {
  std::vector<Node> nodes;
  HRESULT end = S_OK;
};

std::u16string LocalName(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetLocalName(&text, &length), S_OK);
  return std::u16string(text, length);
}

std::u16string Prefix(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetPrefix(&text, &length), S_OK);
  return std::u16string(text, length);
}

std::u16string Value(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetValue(&text, &length), S_OK);
  EXPECT_EQ(std::u16string(text).size(), length) << "the value is NUL-terminated at its length";
  return std::u16string(text, length);
}

UINT Depth(XmlReader& reader) {
  UINT depth = 12345;
  EXPECT_EQ(reader.GetDepth(&depth), S_OK);
  return depth;
}

// Reads every node with its attributes until Read stops returning S_OK.
Walk ReadAll(std::string_view document, int maxNodes = 100000) {
  XmlReader reader;
  EXPECT_EQ(reader.SetInput(document), S_OK);
  Walk walk;
  for (int i = 0; i < maxNodes; ++i) {
    XmlNodeType type = XmlNodeType_Attribute;
    const HRESULT hr = reader.Read(&type);
    if (hr != S_OK) {
      EXPECT_EQ(type, XmlNodeType_None);
      walk.end = hr;
      return walk;
    }
    Node node;
    node.type = type;
    node.prefix = Prefix(reader);
    node.localName = LocalName(reader);
    node.value = Value(reader);
    node.depth = Depth(reader);
    node.empty = reader.IsEmptyElement();
    while (reader.MoveToNextAttribute() == S_OK) {
      node.attributes.push_back({Prefix(reader), LocalName(reader), Value(reader), Depth(reader)});
    }
    EXPECT_EQ(node.attributes.size(), reader.GetAttributeCount());
    (void)reader.MoveToElement();
    walk.nodes.push_back(node);
  }
  ADD_FAILURE() << "the reader did not stop";
  return walk;
}

// The result that ends the walk of `document`.
HRESULT EndOf(std::string_view document) { return ReadAll(document).end; }

// Reads to the first element and returns the value of its first attribute.
std::u16string FirstAttributeValue(std::string_view document) {
  XmlReader reader;
  (void)reader.SetInput(document);
  XmlNodeType type = XmlNodeType_None;
  EXPECT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_Element);
  EXPECT_EQ(reader.MoveToFirstAttribute(), S_OK);
  return Value(reader);
}

std::string Utf16Le(std::u16string_view text, bool byteOrderMark) {
  std::string bytes = byteOrderMark ? std::string("\xFF\xFE") : std::string();
  for (char16_t c : text) {
    bytes += static_cast<char>(c & 0xFF);
    bytes += static_cast<char>(c >> 8);
  }
  return bytes;
}

std::string Utf16Be(std::u16string_view text, bool byteOrderMark) {
  std::string bytes = byteOrderMark ? std::string("\xFE\xFF") : std::string();
  for (char16_t c : text) {
    bytes += static_cast<char>(c >> 8);
    bytes += static_cast<char>(c & 0xFF);
  }
  return bytes;
}

constexpr char kManifest[] =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
    "<Package xmlns=\"http://schemas.microsoft.com/appx/2010/manifest\" "
    "xmlns:m2=\"http://schemas.microsoft.com/appx/2013/manifest\">\r\n"
    "  <Applications>\r\n"
    "    <Application Id=\"App\" StartPage=\"default.html\">\r\n"
    "      <m2:VisualElements DisplayName=\"ms-resource:AppName\" BackgroundColor=\"#4617B4\">\r\n"
    "        <m2:DefaultTile ShortName=\"ms-resource:AppShortName\"/>\r\n"
    "      </m2:VisualElements>\r\n"
    "    </Application>\r\n"
    "  </Applications>\r\n"
    "</Package>\r\n";

// --- document structure -------------------------------------------------------

TEST(XmlReader, RootElementIsAtDepthZero) {
  const Walk walk = ReadAll("<root/>");
  ASSERT_EQ(walk.nodes.size(), 1u);
  EXPECT_EQ(walk.nodes[0].type, XmlNodeType_Element);
  EXPECT_EQ(walk.nodes[0].localName, u"root");
  EXPECT_EQ(walk.nodes[0].depth, 0u);
  EXPECT_EQ(walk.end, S_FALSE);
}

TEST(XmlReader, EndTagReportsItsStartTagDepthPlusOne) {
  const Walk walk = ReadAll("<a attr1=\"_a\"><b attr2=\"_b\">text<c attr3=\"_c\"/><d attr4=\"_d\"></d></b></a>");
  const std::vector<XmlNodeType> types = {XmlNodeType_Element,    XmlNodeType_Element,   XmlNodeType_Text,
                                          XmlNodeType_Element,    XmlNodeType_Element,   XmlNodeType_EndElement,
                                          XmlNodeType_EndElement, XmlNodeType_EndElement};
  const std::vector<UINT> depths = {0, 1, 2, 2, 2, 3, 2, 1};
  ASSERT_EQ(walk.nodes.size(), types.size());
  for (std::size_t i = 0; i < types.size(); ++i) {
    EXPECT_EQ(walk.nodes[i].type, types[i]) << i;
    EXPECT_EQ(walk.nodes[i].depth, depths[i]) << i;
  }
  EXPECT_EQ(walk.end, S_FALSE);
}

TEST(XmlReader, AttributeDepthIsItsElementDepthPlusOne) {
  const Walk walk = ReadAll("<a x=\"1\"><b y=\"2\" z=\"3\"/></a>");
  ASSERT_EQ(walk.nodes.size(), 3u);
  ASSERT_EQ(walk.nodes[0].attributes.size(), 1u);
  EXPECT_EQ(walk.nodes[0].attributes[0].depth, 1u);
  ASSERT_EQ(walk.nodes[1].attributes.size(), 2u);
  EXPECT_EQ(walk.nodes[1].attributes[0].depth, 2u);
  EXPECT_EQ(walk.nodes[1].attributes[1].depth, 2u);
  EXPECT_EQ(walk.nodes[1].depth, 1u);
}

TEST(XmlReader, ContentIsOneLevelBelowItsElement) {
  const Walk walk = ReadAll("<a>\n <!--c--><?p d?>t<![CDATA[x]]></a>");
  ASSERT_EQ(walk.nodes.size(), 7u);
  for (std::size_t i = 1; i <= 5; ++i) EXPECT_EQ(walk.nodes[i].depth, 1u) << i;
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_Whitespace);
  EXPECT_EQ(walk.nodes[2].type, XmlNodeType_Comment);
  EXPECT_EQ(walk.nodes[3].type, XmlNodeType_ProcessingInstruction);
  EXPECT_EQ(walk.nodes[4].type, XmlNodeType_Text);
  EXPECT_EQ(walk.nodes[5].type, XmlNodeType_CDATA);
}

TEST(XmlReader, EmptyElementIsOneNodeWithoutEndElement) {
  const Walk walk = ReadAll("<a><b/><c /></a>");
  ASSERT_EQ(walk.nodes.size(), 4u);
  EXPECT_FALSE(walk.nodes[0].empty);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_Element);
  EXPECT_TRUE(walk.nodes[1].empty);
  EXPECT_EQ(walk.nodes[2].type, XmlNodeType_Element);
  EXPECT_TRUE(walk.nodes[2].empty);
  EXPECT_EQ(walk.nodes[3].type, XmlNodeType_EndElement);
  EXPECT_EQ(walk.nodes[3].localName, u"a");
}

TEST(XmlReader, ElementWithSeparateEndTagIsNotEmpty) {
  const Walk walk = ReadAll("<a></a>");
  ASSERT_EQ(walk.nodes.size(), 2u);
  EXPECT_FALSE(walk.nodes[0].empty);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_EndElement);
  EXPECT_EQ(walk.nodes[1].depth, 1u);
}

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

TEST(XmlReader, WhitespaceOnlyTextIsWhitespaceNode) {
  const Walk walk = ReadAll("<a> \t\r\n <b/>x y</a>");
  ASSERT_EQ(walk.nodes.size(), 5u);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_Whitespace);
  EXPECT_EQ(walk.nodes[1].value, u" \t\n ");
  EXPECT_EQ(walk.nodes[2].type, XmlNodeType_Element);
  EXPECT_EQ(walk.nodes[3].type, XmlNodeType_Text);
  EXPECT_EQ(walk.nodes[3].value, u"x y");
}

TEST(XmlReader, TextLineEndsAreNormalised) {
  const Walk walk = ReadAll("<a>\r \r\r\n \n\n text</a>");
  ASSERT_EQ(walk.nodes.size(), 3u);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_Text);
  EXPECT_EQ(walk.nodes[1].value, u"\n \n\n \n\n text");
}

TEST(XmlReader, NodesOutsideTheRootAreReported) {
  const Walk walk = ReadAll(
      "<!-- comment1 --><!-- comment2 --><?pi1 pi1body ?><!-- comment3 --> \t \r \n<!-- comment4 -->"
      "<a>\r\n\t<b/>text<!-- comment -->text2<?pi pibody ?>\r\n</a>");
  const std::vector<std::pair<XmlNodeType, std::u16string>> expected = {
      {XmlNodeType_Comment, u" comment1 "},
      {XmlNodeType_Comment, u" comment2 "},
      {XmlNodeType_ProcessingInstruction, u"pi1body "},
      {XmlNodeType_Comment, u" comment3 "},
      {XmlNodeType_Whitespace, u" \t \n \n"},
      {XmlNodeType_Comment, u" comment4 "},
      {XmlNodeType_Element, u""},
      {XmlNodeType_Whitespace, u"\n\t"},
      {XmlNodeType_Element, u""},
      {XmlNodeType_Text, u"text"},
      {XmlNodeType_Comment, u" comment "},
      {XmlNodeType_Text, u"text2"},
      {XmlNodeType_ProcessingInstruction, u"pibody "},
      {XmlNodeType_Whitespace, u"\n"},
      {XmlNodeType_EndElement, u""},
  };
  ASSERT_EQ(walk.nodes.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(walk.nodes[i].type, expected[i].first) << i;
    EXPECT_EQ(walk.nodes[i].value, expected[i].second) << i;
  }
  EXPECT_EQ(walk.end, S_FALSE);
}

TEST(XmlReader, WhitespaceAfterTheRootIsReportedBeforeTheEnd) {
  const Walk walk = ReadAll("<a/>\r\n");
  ASSERT_EQ(walk.nodes.size(), 2u);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_Whitespace);
  EXPECT_EQ(walk.nodes[1].value, u"\n");
  EXPECT_EQ(walk.nodes[1].depth, 0u);
  EXPECT_EQ(walk.end, S_FALSE);
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

TEST(XmlReader, XmlDeclarationWithOnlyVersionHasOneAttribute) {
  const Walk walk = ReadAll("<?xml version='1.0'?><RegistrationInfo/>");
  ASSERT_EQ(walk.nodes.size(), 2u);
  ASSERT_EQ(walk.nodes[0].attributes.size(), 1u);
  EXPECT_EQ(walk.nodes[0].attributes[0].localName, u"version");
  EXPECT_EQ(walk.nodes[1].localName, u"RegistrationInfo");
  EXPECT_TRUE(walk.nodes[1].empty);
}

TEST(XmlReader, MalformedXmlDeclarationIsError) {
  EXPECT_EQ(EndOf("<?xml version=\"1.0\"encoding=\"UTF-8\"?><a/>"), WC_E_XMLDECL);
  EXPECT_EQ(EndOf("<?xml version=\"1.0\"standalone=\"yes\"?><a/>"), WC_E_XMLDECL);
  EXPECT_EQ(EndOf("<?xml encoding=\"UTF-8\"?><a/>"), WC_E_XMLDECL);
  EXPECT_EQ(EndOf("<?xml version=\"2.0\"?><a/>"), WC_E_XMLDECL);
  EXPECT_EQ(EndOf("<?xml version=\"1.0\" standalone=\"maybe\"?><a/>"), WC_E_XMLDECL);
  EXPECT_EQ(EndOf("<?xml version=\"1.0\" standalone=\"yes\" encoding=\"UTF-8\"?><a/>"), WC_E_XMLDECL);
  EXPECT_EQ(EndOf("<?xml?><a/>"), WC_E_XMLDECL);
}

TEST(XmlReader, XmlDeclarationAfterTheStartIsError) {
  EXPECT_EQ(EndOf(" <?xml version=\"1.0\"?><a/>"), WC_E_LEADINGXML);
  EXPECT_EQ(EndOf("<a/><?xml version=\"1.0\"?>"), WC_E_LEADINGXML);
}

TEST(XmlReader, NulAfterTheDeclarationIsSyntaxError) {
  std::string document = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
  document += '\0';
  const Walk walk = ReadAll(document);
  ASSERT_EQ(walk.nodes.size(), 1u);
  EXPECT_EQ(walk.end, WC_E_SYNTAX);
}

// --- comments, processing instructions, CDATA -------------------------------

TEST(XmlReader, CommentValueIsItsText) {
  const Walk walk = ReadAll("<!-- - comment--><a/>");
  ASSERT_EQ(walk.nodes.size(), 2u);
  EXPECT_EQ(walk.nodes[0].type, XmlNodeType_Comment);
  EXPECT_EQ(walk.nodes[0].localName, u"");
  EXPECT_EQ(walk.nodes[0].value, u" - comment");
}

TEST(XmlReader, DoubleHyphenInCommentIsError) {
  EXPECT_EQ(EndOf("<!-- -- comment--><a/>"), WC_E_COMMENT);
  EXPECT_EQ(EndOf("<a><!-- x---></a>"), WC_E_COMMENT);
}

TEST(XmlReader, ProcessingInstructionTargetIsNameAndRestIsValue) {
  struct Case {
    const char* xml;
    std::u16string target;
    std::u16string value;
  };
  const Case cases[] = {
      {"<?pi?><a/>", u"pi", u""},
      {"<?pi ?><a/>", u"pi", u""},
      {"<?pi  ?><a/>", u"pi", u""},
      {"<?pi pi data?><a/>", u"pi", u"pi data"},
      {"<?pi pi data  ?><a/>", u"pi", u"pi data  "},
      {"<?pi    data  ?><a/>", u"pi", u"data  "},
      {"<?xml-stylesheet ?><a/>", u"xml-stylesheet", u""},
  };
  for (const Case& c : cases) {
    const Walk walk = ReadAll(c.xml);
    ASSERT_EQ(walk.nodes.size(), 2u) << c.xml;
    EXPECT_EQ(walk.nodes[0].type, XmlNodeType_ProcessingInstruction) << c.xml;
    EXPECT_EQ(walk.nodes[0].localName, c.target) << c.xml;
    EXPECT_EQ(walk.nodes[0].value, c.value) << c.xml;
  }
}

TEST(XmlReader, BadProcessingInstructionTargetIsError) {
  EXPECT_EQ(EndOf("<?pi:pi?><a/>"), NC_E_NAMECOLON);
  EXPECT_EQ(EndOf("<?:pi ?><a/>"), WC_E_PI);
  EXPECT_EQ(EndOf("<?-pi ?><a/>"), WC_E_PI);
}

TEST(XmlReader, CDataIsOneNodeWithNormalisedLineEnds) {
  struct Case {
    const char* xml;
    std::u16string value;
  };
  const Case cases[] = {
      {"<a><![CDATA[ ]]data ]]></a>", u" ]]data "},
      {"<a><![CDATA[<![CDATA[ data ]]]]></a>", u"<![CDATA[ data ]]"},
      {"<a><![CDATA[\n \r\n \n\n ]]></a>", u"\n \n \n\n "},
      {"<a><![CDATA[\r\r \n\r \r \n\n ]]></a>", u"\n\n \n\n \n \n\n "},
      {"<a><![CDATA[]]></a>", u""},
  };
  for (const Case& c : cases) {
    const Walk walk = ReadAll(c.xml);
    ASSERT_EQ(walk.nodes.size(), 3u) << c.xml;
    EXPECT_EQ(walk.nodes[1].type, XmlNodeType_CDATA) << c.xml;
    EXPECT_EQ(walk.nodes[1].localName, u"") << c.xml;
    EXPECT_EQ(walk.nodes[1].value, c.value) << c.xml;
  }
}

TEST(XmlReader, CDataOutsideTheRootIsSyntaxError) { EXPECT_EQ(EndOf("<![CDATA[x]]><a/>"), WC_E_SYNTAX); }

TEST(XmlReader, CDataEndMarkerInTextIsError) { EXPECT_EQ(EndOf("<a>text ]]> text</a>"), WC_E_CDSECTEND); }

TEST(XmlReader, DoctypeIsRefused) {
  EXPECT_EQ(EndOf("<!DOCTYPE testdtd SYSTEM \"externalid uri\" ><a/>"), WC_E_DTDPROHIBITED);
  EXPECT_EQ(EndOf("<?xml version=\"1.0\"?>\n<!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>"), WC_E_DTDPROHIBITED);
}

// --- end of input -------------------------------------------------------------

TEST(XmlReader, EmptyDocumentIsInputEndError) {
  EXPECT_EQ(EndOf(""), MX_E_INPUTEND);
  EXPECT_EQ(EndOf("\xEF\xBB\xBF"), MX_E_INPUTEND);
}

TEST(XmlReader, DocumentWithoutRootIsInputEndError) {
  const Walk walk = ReadAll("<?xml version=\"1.0\"?>\r\n<!-- only a comment -->");
  ASSERT_EQ(walk.nodes.size(), 3u);
  EXPECT_EQ(walk.end, MX_E_INPUTEND);
  EXPECT_EQ(EndOf("   "), MX_E_INPUTEND);
}

TEST(XmlReader, UnclosedRootIsInputEndError) {
  const Walk walk = ReadAll("<a>");
  ASSERT_EQ(walk.nodes.size(), 1u);
  EXPECT_EQ(walk.nodes[0].type, XmlNodeType_Element);
  EXPECT_EQ(walk.end, MX_E_INPUTEND);

  EXPECT_EQ(EndOf("<a><b></b>"), MX_E_INPUTEND);
  EXPECT_EQ(EndOf("<a>text"), MX_E_INPUTEND);
  EXPECT_EQ(EndOf("<a><b/>\r\n"), MX_E_INPUTEND);
}

TEST(XmlReader, TruncatedTagIsInputEndError) {
  const char* truncated[] = {"<",
                             "<a",
                             "<a ",
                             "<a b",
                             "<a b=",
                             "<a b='",
                             "<a b='1",
                             "<a b='1'",
                             "<a b='1'/",
                             "<a></",
                             "<a></a",
                             "<a><!",
                             "<a><!-",
                             "<a><!--",
                             "<a><!-- x -",
                             "<a><?pi",
                             "<a><?pi x",
                             "<a><?pi x?",
                             "<a><![CD",
                             "<a><![CDATA[x]]",
                             "<a>&am",
                             "<a>&#x4",
                             "<?xml",
                             "<?xml ",
                             "<?xml version='1.0'",
                             "<?xml version='1.0'?",
                             "<!DOC",
                             "<a:"};
  for (const char* document : truncated) EXPECT_EQ(EndOf(document), MX_E_INPUTEND) << document;
}

// --- well-formedness errors ---------------------------------------------------

TEST(XmlReader, MismatchedEndTagIsError) {
  XmlReader reader;
  (void)reader.SetInput("<a></b>");
  XmlNodeType type = XmlNodeType_None;
  ASSERT_EQ(reader.Read(&type), S_OK);
  type = XmlNodeType_Element;
  EXPECT_EQ(reader.Read(&type), WC_E_ELEMENTMATCH);
  EXPECT_EQ(type, XmlNodeType_None);
}

TEST(XmlReader, NamesAreComparedCaseSensitively) {
  EXPECT_EQ(EndOf("<Package></package>"), WC_E_ELEMENTMATCH);
  const Walk walk = ReadAll("<Package ID='1' id='2'/>");
  ASSERT_EQ(walk.nodes.size(), 1u);
  EXPECT_EQ(walk.nodes[0].localName, u"Package");
  ASSERT_EQ(walk.nodes[0].attributes.size(), 2u);
  EXPECT_EQ(walk.nodes[0].attributes[0].localName, u"ID");
  EXPECT_EQ(walk.nodes[0].attributes[1].localName, u"id");
}

TEST(XmlReader, DuplicateAttributeIsError) {
  EXPECT_EQ(EndOf("<a x='1' y='2' x='3'/>"), WC_E_UNIQUEATTRIBUTE);
  std::string many = "<a";
  for (int i = 0; i < 40; ++i) many += " n" + std::to_string(i) + "='v'";
  EXPECT_EQ(EndOf(many + "/>"), S_FALSE);
  EXPECT_EQ(EndOf(many + " n17='again'/>"), WC_E_UNIQUEATTRIBUTE);
}

TEST(XmlReader, ManyAttributesAreReadInOrder) {
  std::string document = "<a";
  for (int i = 0; i < 5000; ++i) document += " attr" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
  document += "/>";
  const Walk walk = ReadAll(document);
  ASSERT_EQ(walk.nodes.size(), 1u);
  ASSERT_EQ(walk.nodes[0].attributes.size(), 5000u);
  EXPECT_EQ(walk.nodes[0].attributes[4321].localName, u"attr4321");
  EXPECT_EQ(walk.nodes[0].attributes[4321].value, u"4321");
}

TEST(XmlReader, StrayTextOutsideTheRootIsSyntaxError) {
  const Walk walk = ReadAll("<a/>text");
  ASSERT_EQ(walk.nodes.size(), 1u);
  EXPECT_EQ(walk.end, WC_E_SYNTAX);
  EXPECT_EQ(EndOf("text<a/>"), WC_E_SYNTAX);
  EXPECT_EQ(EndOf("xml"), WC_E_SYNTAX);
  EXPECT_EQ(EndOf("<a/>&amp;"), WC_E_SYNTAX);
}

TEST(XmlReader, SecondRootElementIsSyntaxError) {
  EXPECT_EQ(EndOf("<a/><b/>"), WC_E_SYNTAX);
  EXPECT_EQ(EndOf("<a></a>\r\n<b></b>"), WC_E_SYNTAX);
}

TEST(XmlReader, BadElementNamesAreErrors) {
  EXPECT_EQ(EndOf("<:a/>"), NC_E_QNAMECHARACTER);
  EXPECT_EQ(EndOf("< a/>"), NC_E_QNAMECHARACTER);
  EXPECT_EQ(EndOf("</a>"), NC_E_QNAMECHARACTER);
  EXPECT_EQ(EndOf("<1a/>"), NC_E_QNAMECHARACTER);
  EXPECT_EQ(EndOf("<a:b:c />"), NC_E_QNAMECOLON);
  EXPECT_EQ(EndOf("<:b:c />"), NC_E_QNAMECHARACTER);
}

TEST(XmlReader, MalformedAttributesAreErrors) {
  EXPECT_EQ(EndOf("<a attr1=attrvalue/>"), WC_E_QUOTE);
  EXPECT_EQ(EndOf("<a attr1=\"attr<value\"/>"), WC_E_LESSTHAN);
  EXPECT_EQ(EndOf("<a attr1/>"), WC_E_EQUAL);
  EXPECT_EQ(EndOf("<a x='1'y='2'/>"), WC_E_WHITESPACE);
  EXPECT_EQ(EndOf("<a x='1' / >"), WC_E_GREATERTHAN);
}

TEST(XmlReader, InvalidCharacterIsError) {
  const Walk walk = ReadAll("<a><b/>te\x01xt</a>");
  ASSERT_EQ(walk.nodes.size(), 2u);
  EXPECT_EQ(walk.end, WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf("<a x='\x1F'/>"), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf("<a>\xEF\xBF\xBE</a>"), WC_E_XMLCHARACTER);  // U+FFFE
}

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

TEST(XmlReader, TextReferencesAreDecoded) {
  const Walk walk = ReadAll("<a b=\"c\">&#x1f3;&#x103;&gt;</a>");
  ASSERT_EQ(walk.nodes.size(), 3u);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_Text);
  EXPECT_EQ(walk.nodes[1].value, u"\u01F3\u0103>");
  EXPECT_EQ(walk.end, S_FALSE);
}

TEST(XmlReader, ReferencedSpaceIsText) {
  const Walk walk = ReadAll("<a>&#32;</a>");
  ASSERT_EQ(walk.nodes.size(), 3u);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_Text);
  EXPECT_EQ(walk.nodes[1].value, u" ");
}

TEST(XmlReader, BadReferencesAreErrors) {
  EXPECT_EQ(EndOf("<a attr1=\"&entname;\"/>"), WC_E_UNDECLAREDENTITY);
  EXPECT_EQ(EndOf("<a attr1=\"val&#xfffe;\"/>"), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf("<a attr1=\"val &#a;\"/>"), WC_E_DIGIT);
  EXPECT_EQ(EndOf("<a attr1=\"val &#12a;\"/>"), WC_E_SEMICOLON);
  EXPECT_EQ(EndOf("<a attr1=\"val &#x12g;\"/>"), WC_E_SEMICOLON);
  EXPECT_EQ(EndOf("<a attr1=\"val &#xg;\"/>"), WC_E_HEXDIGIT);
  EXPECT_EQ(EndOf("<a attr1=\"&entname\"/>"), WC_E_SEMICOLON);
  EXPECT_EQ(EndOf("<a>&#0;</a>"), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf("<a>&#x110000;</a>"), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf("<a>&#99999999999999999999;</a>"), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf("<a>&#xD800;</a>"), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf("<a>a & b</a>"), WC_E_NAME);
  EXPECT_EQ(EndOf("<a>&nbsp;</a>"), WC_E_UNDECLAREDENTITY);
}

// --- namespaces and prefixes --------------------------------------------------

TEST(XmlReader, PrefixesAreReportedApartFromLocalNames) {
  struct Case {
    const char* xml;
    std::u16string element;
    std::u16string first;
    std::u16string second;
  };
  const Case cases[] = {
      {"<b xmlns=\"defns\" xml:a=\"a ns\"/>", u"", u"", u"xml"},
      {"<c:b xmlns:c=\"c ns\" xml:a=\"a ns\"/>", u"c", u"xmlns", u"xml"},
  };
  for (const Case& c : cases) {
    const Walk walk = ReadAll(c.xml);
    ASSERT_EQ(walk.nodes.size(), 1u) << c.xml;
    EXPECT_EQ(walk.nodes[0].prefix, c.element);
    ASSERT_EQ(walk.nodes[0].attributes.size(), 2u);
    EXPECT_EQ(walk.nodes[0].attributes[0].prefix, c.first);
    EXPECT_EQ(walk.nodes[0].attributes[1].prefix, c.second);
    EXPECT_EQ(walk.nodes[0].attributes[1].localName, u"a");
  }
}

TEST(XmlReader, NamespaceDeclarationNamesAndValues) {
  const Walk walk = ReadAll("<r xmlns=\"urn:d\" xmlns:p=\"urn:p\"/>");
  ASSERT_EQ(walk.nodes.size(), 1u);
  ASSERT_EQ(walk.nodes[0].attributes.size(), 2u);
  EXPECT_EQ(walk.nodes[0].attributes[0].prefix, u"");
  EXPECT_EQ(walk.nodes[0].attributes[0].localName, u"xmlns");
  EXPECT_EQ(walk.nodes[0].attributes[0].value, u"urn:d");
  EXPECT_EQ(walk.nodes[0].attributes[1].prefix, u"xmlns");
  EXPECT_EQ(walk.nodes[0].attributes[1].localName, u"p");
  EXPECT_EQ(walk.nodes[0].attributes[1].value, u"urn:p");
}

TEST(XmlReader, UndeclaredPrefixIsError) {
  EXPECT_EQ(EndOf("<a:b/>"), NC_E_UNDECLAREDPREFIX);
  EXPECT_EQ(EndOf("<a p:x='1'/>"), NC_E_UNDECLAREDPREFIX);
  EXPECT_EQ(EndOf("<a xmlns:p='u'><p:b/></a>"), S_FALSE);
  EXPECT_EQ(EndOf("<p:a xmlns:p='u'/>"), S_FALSE);
  EXPECT_EQ(EndOf("<a><b xmlns:p='u'/><p:c/></a>"), NC_E_UNDECLAREDPREFIX);
  EXPECT_EQ(EndOf("<a><b xmlns:p='u'></b><p:c/></a>"), NC_E_UNDECLAREDPREFIX);
  EXPECT_EQ(EndOf("<a xmlns:p=''/>"), NC_E_EMPTYURI);
  EXPECT_EQ(EndOf("<xmlns:a/>"), NC_E_XMLNSPREFIXRESERVED);
}

TEST(XmlReader, EndElementOfPrefixedElementHasItsNames) {
  const Walk walk = ReadAll("<p:a xmlns:p='u'></p:a>");
  ASSERT_EQ(walk.nodes.size(), 2u);
  EXPECT_EQ(walk.nodes[1].type, XmlNodeType_EndElement);
  EXPECT_EQ(walk.nodes[1].prefix, u"p");
  EXPECT_EQ(walk.nodes[1].localName, u"a");
  EXPECT_EQ(EndOf("<p:a xmlns:p='u' xmlns:q='u'></q:a>"), WC_E_ELEMENTMATCH);
}

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

// --- encodings ----------------------------------------------------------------

TEST(XmlReader, Utf8WithAndWithoutByteOrderMarkIsRead) {
  for (const std::string& prefix : {std::string(), std::string("\xEF\xBB\xBF")}) {
    const Walk walk = ReadAll(prefix + "<\xE3\x83\xAB name='caf\xC3\xA9 \xF0\x9F\x98\x80'/>");
    ASSERT_EQ(walk.nodes.size(), 1u);
    EXPECT_EQ(walk.nodes[0].localName, u"\u30EB");
    ASSERT_EQ(walk.nodes[0].attributes.size(), 1u);
    EXPECT_EQ(walk.nodes[0].attributes[0].value, u"caf\u00E9 \U0001F600");
  }
}

TEST(XmlReader, Utf16WithBomIsRead) {
  const std::u16string text = u"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<a v=\"\u30C6\U0001F680\"><b/></a>";
  for (const std::string& bytes : {Utf16Le(text, true), Utf16Be(text, true)}) {
    const Walk walk = ReadAll(bytes);
    ASSERT_EQ(walk.nodes.size(), 5u);
    EXPECT_EQ(walk.nodes[0].type, XmlNodeType_XmlDeclaration);
    ASSERT_EQ(walk.nodes[0].attributes.size(), 2u);
    EXPECT_EQ(walk.nodes[0].attributes[1].value, u"UTF-16");
    EXPECT_EQ(walk.nodes[2].localName, u"a");
    ASSERT_EQ(walk.nodes[2].attributes.size(), 1u);
    EXPECT_EQ(walk.nodes[2].attributes[0].value, u"\u30C6\U0001F680");
    EXPECT_EQ(walk.end, S_FALSE);
  }
}

TEST(XmlReader, Utf16WithoutBomIsDetected) {
  EXPECT_EQ(ReadAll(Utf16Le(u"<a/>", false)).nodes.size(), 1u);
  EXPECT_EQ(ReadAll(Utf16Be(u"<a/>", false)).nodes.size(), 1u);
}

TEST(XmlReader, BadUtf16IsError) {
  EXPECT_EQ(EndOf(Utf16Le(u"<a>\xDC00</a>", true)), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf(Utf16Le(u"<a>\xD800x</a>", true)), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf(Utf16Le(u"<a/>", true) + "x"), MX_E_ENCODING);
}

TEST(XmlReader, InvalidUtf8IsEncodingError) {
  const char* documents[] = {
      "<a>\x80</a>",              // a continuation byte alone
      "<a>\xC0\x80</a>",          // an overlong form
      "<a>\xE3\x81</a>",          // a truncated sequence
      "<a>\xED\xA0\x80</a>",      // an encoded surrogate
      "<a>\xF4\x90\x80\x80</a>",  // above U+10FFFF
      "<a>\xF5</a>",
      "<a>\xE0\x80\x80</a>",
      "<a x='\xFF'/>",
  };
  for (const char* document : documents) EXPECT_EQ(EndOf(document), MX_E_ENCODING) << document;
}

TEST(XmlReader, NodesBeforeInvalidBytesAreStillReported) {
  const Walk walk = ReadAll("<a><b/><c/>\xC3</a>");
  ASSERT_EQ(walk.nodes.size(), 3u);
  EXPECT_EQ(walk.end, MX_E_ENCODING);
}

TEST(XmlReader, EightBitEncodingsNamedByTheDeclarationAreDecoded) {
  const Walk latin = ReadAll("<?xml version='1.0' encoding='ISO-8859-1'?><a v='caf\xE9'/>");
  ASSERT_EQ(latin.nodes.size(), 2u);
  EXPECT_EQ(latin.nodes[1].attributes[0].value, u"caf\u00E9");
  const Walk windows = ReadAll("<?xml version='1.0' encoding='windows-1252'?><a v='\x80'/>");
  ASSERT_EQ(windows.nodes.size(), 2u);
  EXPECT_EQ(windows.nodes[1].attributes[0].value, u"\u20AC");
  EXPECT_EQ(EndOf("<?xml version='1.0' encoding='us-ascii'?><a v='\xE9'/>"), MX_E_ENCODING);
}

TEST(XmlReader, UnusableDeclaredEncodingIsError) {
  EXPECT_EQ(EndOf("<?xml version='1.0' encoding='UTF-16'?><a/>"), MX_E_ENCODINGSWITCH);
  EXPECT_EQ(EndOf("\xEF\xBB\xBF<?xml version='1.0' encoding='ISO-8859-1'?><a/>"), MX_E_ENCODINGSWITCH);
  EXPECT_EQ(EndOf("<?xml version='1.0' encoding='x-unknown'?><a/>"), MX_E_ENCODING);
  EXPECT_EQ(EndOf("<?xml version='1.0' encoding='utf-8'?><a/>"), S_FALSE);
}

// --- Shift JIS ----------------------------------------------------------------

std::string ShiftJis(std::string_view body, std::string_view name = "Shift_JIS") {
  return "<?xml version='1.0' encoding='" + std::string(name) + "'?>" + std::string(body);
}

std::u16string Widened(std::string_view ascii) { return std::u16string(ascii.begin(), ascii.end()); }

// The five names of code page 932, in any case, and names that only look
// like them, which stay unknown, as do the other Japanese encodings.
TEST(XmlReader, ShiftJisIsDecodedForItsNamesInAnyCaseAndNoOthers) {
  struct Case {
    const char* name;
    bool decoded;
  };
  const Case cases[] = {
      {"Shift_JIS", true},       {"shift_jis", true},        {"SHIFT_JIS", true},      {"shift-jis", true},
      {"Shift-JIS", true},       {"x-sjis", true},           {"X-SJIS", true},         {"X-Sjis", true},
      {"windows-31j", true},     {"Windows-31J", true},      {"cp932", true},          {"CP932", true},
      {"EUC-JP", false},         {"euc-jp", false},          {"ISO-2022-JP", false},   {"csISO2022JP", false},
      {"Shift_JIS_X0213", false}, {"Shift_JIS-2004", false}, {"shift jis", false},     {"sjis-x", false},
      {"cp9320", false},         {"windows-31", false},      {"x-sjis ", false},       {"x-unknown", false},
  };
  for (const Case& c : cases) {
    // あ and 表 (whose trail byte is a backslash), the single-byte ｱ, and ソ.
    const Walk walk = ReadAll(ShiftJis("<a v='\x82\xA0\x95\x5C\xB1'>\x83\x5C</a>", c.name));
    if (!c.decoded) {
      EXPECT_EQ(walk.end, MX_E_ENCODING) << c.name;
      EXPECT_TRUE(walk.nodes.empty()) << c.name;
      continue;
    }
    ASSERT_EQ(walk.nodes.size(), 4u) << c.name;
    ASSERT_EQ(walk.nodes[0].attributes.size(), 2u) << c.name;
    EXPECT_EQ(walk.nodes[0].attributes[1].value, Widened(c.name)) << c.name;
    ASSERT_EQ(walk.nodes[1].attributes.size(), 1u) << c.name;
    EXPECT_EQ(walk.nodes[1].attributes[0].value, u"\u3042\u8868\uFF71") << c.name;
    EXPECT_EQ(walk.nodes[2].value, u"\u30BD") << c.name;
    EXPECT_EQ(walk.end, S_FALSE) << c.name;
  }
}

TEST(XmlReader, ShiftJisDocumentReadsAsItsUtf8Twin) {
  // Japanese names in elements, attributes, text, a comment and a
  // processing instruction; the two documents differ only in their bytes.
  const std::string shiftJis =
      "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>\r\n"
      "<\x88\xEA\x97\x97 \x96\xBC\x91\x4F=\"\x83\x81\x83\x82\x92\xA0\" ruby='\x82\xDF\x82\xE0'>\r\n"
      "  <!-- \x83\x5C\x83\x74\x83\x67 -->\r\n"
      "  <?pi \x95\x5C\x8E\xA6?>\r\n"
      "  \x83\x65\x83\x4C\x83\x58\x83\x67 &amp; \xB6\xC0\xB6\xC5\r\n"
      "</\x88\xEA\x97\x97>";
  const std::string utf8 =
      "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>\r\n"
      "<\xE4\xB8\x80\xE8\xA6\xA7 \xE5\x90\x8D\xE5\x89\x8D=\"\xE3\x83\xA1\xE3\x83\xA2\xE5\xB8\xB3\" "
      "ruby='\xE3\x82\x81\xE3\x82\x82'>\r\n"
      "  <!-- \xE3\x82\xBD\xE3\x83\x95\xE3\x83\x88 -->\r\n"
      "  <?pi \xE8\xA1\xA8\xE7\xA4\xBA?>\r\n"
      "  \xE3\x83\x86\xE3\x82\xAD\xE3\x82\xB9\xE3\x83\x88 &amp; \xEF\xBD\xB6\xEF\xBE\x80\xEF\xBD\xB6\xEF\xBE\x85\r\n"
      "</\xE4\xB8\x80\xE8\xA6\xA7>";
  const Walk fromShiftJis = ReadAll(shiftJis);
  // The twin's declaration names an encoding it is not in; read it as UTF-8.
  std::string twin = utf8;
  twin.replace(twin.find("Shift_JIS"), 9, "UTF-8");
  Walk fromUtf8 = ReadAll(twin);
  ASSERT_EQ(fromUtf8.end, S_FALSE);
  ASSERT_FALSE(fromUtf8.nodes.empty());
  ASSERT_EQ(fromUtf8.nodes[0].attributes.size(), 2u);
  fromUtf8.nodes[0].attributes[1].value = u"Shift_JIS";

  EXPECT_EQ(fromShiftJis.end, S_FALSE);
  ASSERT_EQ(fromShiftJis.nodes.size(), fromUtf8.nodes.size());
  for (std::size_t i = 0; i < fromUtf8.nodes.size(); ++i) {
    const Node& a = fromShiftJis.nodes[i];
    const Node& b = fromUtf8.nodes[i];
    EXPECT_EQ(a.type, b.type) << "node " << i;
    EXPECT_EQ(a.localName, b.localName) << "node " << i;
    EXPECT_EQ(a.value, b.value) << "node " << i;
    EXPECT_EQ(a.depth, b.depth) << "node " << i;
    ASSERT_EQ(a.attributes.size(), b.attributes.size()) << "node " << i;
    for (std::size_t k = 0; k < a.attributes.size(); ++k) {
      EXPECT_EQ(a.attributes[k].localName, b.attributes[k].localName) << "node " << i << " attribute " << k;
      EXPECT_EQ(a.attributes[k].value, b.attributes[k].value) << "node " << i << " attribute " << k;
    }
  }
  ASSERT_GE(fromShiftJis.nodes.size(), 3u);
  EXPECT_EQ(fromShiftJis.nodes[2].localName, u"\u4E00\u89A7");
  EXPECT_EQ(fromShiftJis.nodes[2].attributes[0].localName, u"\u540D\u524D");
  EXPECT_EQ(fromShiftJis.nodes[2].attributes[0].value, u"\u30E1\u30E2\u5E33");
}

TEST(XmlReader, ShiftJisTrailBytesThatLookLikeMarkupAreText) {
  // 81 5D is a hyphen whose trail byte is ']': decoded first, "‐‐>" is no
  // end of a CDATA section; 83 5C (ソ) and 95 5C (表) end in a backslash.
  const Walk walk = ReadAll(ShiftJis("<a v='\x83\x5C'>\x81\x5D\x81\x5D>\x95\x5C</a>"));
  ASSERT_EQ(walk.nodes.size(), 4u);
  EXPECT_EQ(walk.nodes[1].attributes[0].value, u"\u30BD");
  EXPECT_EQ(walk.nodes[2].value, u"\u2010\u2010>\u8868");
  EXPECT_EQ(walk.end, S_FALSE);
}

TEST(XmlReader, ShiftJisTextDecodesAsTheNarrowExportsDecodeIt) {
  struct Case {
    const char* bytes;
    std::u16string text;
  };
  const Case cases[] = {
      {"\x81\x45", u"\u30FB"},  // the code page's default character, written on purpose
      {"\x80", u"\u0080"},
      {"\xA1\xDF", u"\uFF61\uFF9F"},
      {"\x87\x40", u"\u2460"},  // NEC row 13
      {"\xED\x40", u"\u7E8A"},  // NEC's selection of IBM extensions
      {"\xFA\x40", u"\u2170"},  // IBM extensions
      {"\xF0\x40\xF9\xFC", u"\uE000\uE757"},  // the user-defined area
      {"\x5C\x7E", u"\\~"},
  };
  for (const Case& c : cases) {
    const Walk walk = ReadAll(ShiftJis("<a>" + std::string(c.bytes) + "</a>"));
    ASSERT_EQ(walk.nodes.size(), 4u) << c.bytes;
    EXPECT_EQ(walk.nodes[2].value, c.text) << c.bytes;
    EXPECT_EQ(walk.end, S_FALSE) << c.bytes;
  }
}

TEST(XmlReader, ShiftJisSequenceWithoutACharacterIsEncodingError) {
  struct Case {
    const char* label;
    std::string bytes;
  };
  const Case cases[] = {
      {"a trail byte below the trail range", "\x81\x20"},
      {"a trail byte of 7F", "\x81\x7F"},
      {"a trail byte above the trail range", "\x81\xFD"},
      {"a zero trail byte", std::string("\x81\0", 2)},
      {"a lead byte before markup", "\x81<"},
      {"a pair nothing is assigned to", "\x85\x40"},
      {"another unassigned pair", "\xEB\x40"},
      {"the stand-in byte A0", "\xA0"},
      {"the stand-in byte FD", "\xFD"},
      {"the stand-in byte FE", "\xFE"},
      {"the stand-in byte FF", "\xFF"},
  };
  for (const Case& c : cases) {
    // The nodes before the bad bytes are still reported.
    const Walk walk = ReadAll(ShiftJis("<a><b/>\x82\xA0" + c.bytes + "</a>"));
    EXPECT_EQ(walk.end, MX_E_ENCODING) << c.label;
    ASSERT_EQ(walk.nodes.size(), 3u) << c.label;
    EXPECT_EQ(walk.nodes[2].localName, u"b") << c.label;
  }
  EXPECT_EQ(EndOf(ShiftJis("<a/>\x81")), MX_E_ENCODING) << "a lead byte at the end";
  EXPECT_EQ(EndOf(ShiftJis("<a/><!--\x88")), MX_E_ENCODING) << "a lead byte at the end";
}

// Every pair after every lead byte, and every single byte from 0x80: either
// the character the narrow exports decode it to, or, where they can only
// give the default character or a private-use stand-in, an encoding error.
TEST(XmlReader, EveryShiftJisSequenceIsItsNarrowDecodingOrAnEncodingError) {
  std::vector<std::string> sequences;
  for (int first = 0x80; first <= 0xFF; ++first) {
    const bool lead = (first >= 0x81 && first <= 0x9F) || (first >= 0xE0 && first <= 0xFC);
    if (!lead) sequences.push_back(std::string(1, static_cast<char>(first)));
    for (int trail = 0x00; lead && trail <= 0xFF; ++trail) {
      sequences.push_back({static_cast<char>(first), static_cast<char>(trail)});
    }
  }
  int decoded = 0;
  for (const std::string& bytes : sequences) {
    char16_t narrow[2] = {};
    const int units = kel::cp932::MultiByteToWide(bytes.data(), static_cast<int>(bytes.size()), narrow, 2);
    const bool defaultCharacter = narrow[0] == u'\u30FB' && bytes != "\x81\x45";
    const bool standIn = narrow[0] >= u'\uF8F0' && narrow[0] <= u'\uF8F3';
    const Walk walk = ReadAll(ShiftJis("<a>" + bytes + "</a>"));
    const std::string label = "bytes " + std::to_string(static_cast<unsigned char>(bytes[0])) + " " +
                              (bytes.size() > 1 ? std::to_string(static_cast<unsigned char>(bytes[1])) : "");
    if (units != 1 || defaultCharacter || standIn) {
      EXPECT_EQ(walk.end, MX_E_ENCODING) << label;
      continue;
    }
    ++decoded;
    ASSERT_EQ(walk.nodes.size(), 4u) << label;
    EXPECT_EQ(walk.nodes[2].value, std::u16string(1, narrow[0])) << label;
  }
  // 9,604 pairs (1,880 of them user-defined), 63 half-width katakana and
  // 0x80.
  EXPECT_EQ(decoded, 9604 + 63 + 1);
}

TEST(XmlReader, ShiftJisControlCharacterIsXmlCharacterErrorWhereItStands) {
  EXPECT_EQ(EndOf(ShiftJis("<a>\x82\xA0\x01</a>")), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf(ShiftJis(std::string("<a>\0</a>", 8))), WC_E_XMLCHARACTER);
  // Whichever comes first in the document decides.
  EXPECT_EQ(EndOf(ShiftJis("<a>\x01\x81\x20</a>")), WC_E_XMLCHARACTER);
  EXPECT_EQ(EndOf(ShiftJis("<a>\x81\x20\x01</a>")), MX_E_ENCODING);
  EXPECT_EQ(EndOf(ShiftJis("<a>\t\r\n\x82\xA0</a>")), S_FALSE);
}

TEST(XmlReader, ByteOrderMarkDecidesOverADeclaredShiftJis) {
  // Without a mark the document is Shift JIS; a UTF-8 mark before the same
  // declaration contradicts it, as with every other 8-bit name.
  const std::string document = ShiftJis("<a v='\x82\xA0'/>");
  const Walk walk = ReadAll(document);
  ASSERT_EQ(walk.nodes.size(), 2u);
  EXPECT_EQ(walk.nodes[1].attributes[0].value, u"\u3042");
  EXPECT_EQ(EndOf("\xEF\xBB\xBF" + document), MX_E_ENCODINGSWITCH);
  // A UTF-16 document is read as UTF-16 whatever its declaration names.
  const Walk wide = ReadAll(Utf16Le(u"<?xml version='1.0' encoding='Shift_JIS'?><a v='\u3042'/>", true));
  ASSERT_EQ(wide.nodes.size(), 2u);
  EXPECT_EQ(wide.nodes[1].attributes[0].value, u"\u3042");
  EXPECT_EQ(wide.end, S_FALSE);
  // Without its declaration a Shift JIS document is taken for UTF-8.
  EXPECT_EQ(EndOf("<a v='\x82\xA0'/>"), MX_E_ENCODING);
}

// --- errors, limits -----------------------------------------------------------

TEST(XmlReader, ErrorIsReturnedByEveryLaterRead) {
  XmlReader reader;
  (void)reader.SetInput("<a><b></c></a>");
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  ASSERT_EQ(reader.Read(nullptr), S_OK);
  XmlNodeType type = XmlNodeType_Element;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(reader.Read(&type), WC_E_ELEMENTMATCH);
    EXPECT_EQ(type, XmlNodeType_None);
  }
  ASSERT_EQ(reader.GetNodeType(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_None);
  EXPECT_EQ(LocalName(reader), u"");
  EXPECT_EQ(Depth(reader), 0u);
}

TEST(XmlReader, NestingIsLimitedTo256Levels) {
  auto nested = [](std::size_t levels) {
    std::string document;
    for (std::size_t i = 0; i < levels; ++i) document += "<e>";
    for (std::size_t i = 0; i < levels; ++i) document += "</e>";
    return document;
  };
  EXPECT_EQ(EndOf(nested(kMaxElementDepth)), S_FALSE);
  const Walk walk = ReadAll(nested(kMaxElementDepth + 1));
  EXPECT_EQ(walk.nodes.size(), kMaxElementDepth);
  EXPECT_EQ(walk.end, SC_E_MAXELEMENTDEPTH);
}

TEST(XmlReader, VeryDeepDocumentIsRefusedWithoutExhaustingTheStack) {
  std::string document;
  for (int i = 0; i < 200000; ++i) document += "<e>";
  EXPECT_EQ(EndOf(document), SC_E_MAXELEMENTDEPTH);
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
