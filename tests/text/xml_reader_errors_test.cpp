// Tests of how the XML reader ends a document it cannot read: the result
// that stops the walk for each kind of error, where the error stands and
// what the reader reported before it.
#include "text/xml/xml_reader.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "text/xml_reader_walk.h"

namespace {

using namespace kel::xml;
using namespace kel::xml::reader_test;

// --- the result that ends a document ------------------------------------------

// A document and the result its walk ends with; the name says what is
// wrong with it (or, for S_FALSE, what is allowed).
struct EndCase {
  std::string name;
  std::string document;
  HRESULT end;
};

void PrintTo(const EndCase& c, std::ostream* out) { *out << c.name; }

// The cases that show one behaviour of the reader.
struct EndGroup {
  const char* behaviour;
  std::vector<EndCase> cases;
};

// Every group's cases, each named after its behaviour and itself.
template <std::size_t Count>
std::vector<EndCase> Flattened(const EndGroup (&groups)[Count]) {
  std::vector<EndCase> cases;
  for (const EndGroup& group : groups) {
    for (const EndCase& c : group.cases) {
      cases.push_back({std::string(group.behaviour) + "_" + c.name, c.document, c.end});
    }
  }
  return cases;
}

class XmlReaderEnd : public ::testing::TestWithParam<EndCase> {};

TEST_P(XmlReaderEnd, IsTheDocumentsResult) { EXPECT_EQ(EndOf(GetParam().document), GetParam().end); }

const EndGroup kEndGroups[] = {
    {"MalformedXmlDeclarationIsError",
     {
         {"NoSpaceBeforeEncoding", "<?xml version=\"1.0\"encoding=\"UTF-8\"?><a/>", WC_E_XMLDECL},
         {"NoSpaceBeforeStandalone", "<?xml version=\"1.0\"standalone=\"yes\"?><a/>", WC_E_XMLDECL},
         {"EncodingWithoutVersion", "<?xml encoding=\"UTF-8\"?><a/>", WC_E_XMLDECL},
         {"VersionTwo", "<?xml version=\"2.0\"?><a/>", WC_E_XMLDECL},
         {"StandaloneMaybe", "<?xml version=\"1.0\" standalone=\"maybe\"?><a/>", WC_E_XMLDECL},
         {"StandaloneBeforeEncoding", "<?xml version=\"1.0\" standalone=\"yes\" encoding=\"UTF-8\"?><a/>",
          WC_E_XMLDECL},
         {"NoAttributes", "<?xml?><a/>", WC_E_XMLDECL},
     }},
    {"XmlDeclarationAfterTheStartIsError",
     {
         {"AfterASpace", " <?xml version=\"1.0\"?><a/>", WC_E_LEADINGXML},
         {"AfterTheRoot", "<a/><?xml version=\"1.0\"?>", WC_E_LEADINGXML},
     }},
    {"DoubleHyphenInCommentIsError",
     {
         {"InsideTheComment", "<!-- -- comment--><a/>", WC_E_COMMENT},
         {"BeforeTheCommentsEnd", "<a><!-- x---></a>", WC_E_COMMENT},
     }},
    {"BadProcessingInstructionTargetIsError",
     {
         {"ColonInside", "<?pi:pi?><a/>", NC_E_NAMECOLON},
         {"ColonFirst", "<?:pi ?><a/>", WC_E_PI},
         {"HyphenFirst", "<?-pi ?><a/>", WC_E_PI},
     }},
    {"CDataOutOfPlace",
     {
         {"SectionOutsideTheRootIsSyntaxError", "<![CDATA[x]]><a/>", WC_E_SYNTAX},
         {"EndMarkerInTextIsError", "<a>text ]]> text</a>", WC_E_CDSECTEND},
     }},
    {"DoctypeIsRefused",
     {
         {"WithExternalId", "<!DOCTYPE testdtd SYSTEM \"externalid uri\" ><a/>", WC_E_DTDPROHIBITED},
         {"WithEntityAfterTheDeclaration", "<?xml version=\"1.0\"?>\n<!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>",
          WC_E_DTDPROHIBITED},
     }},
    {"EmptyDocumentIsInputEndError",
     {
         {"NoBytes", "", MX_E_INPUTEND},
         {"ByteOrderMarkOnly", "\xEF\xBB\xBF", MX_E_INPUTEND},
     }},
    {"DocumentWithoutRootIsInputEndError",
     {
         {"WhitespaceOnly", "   ", MX_E_INPUTEND},
     }},
    {"UnclosedRootIsInputEndError",
     {
         {"AfterAClosedChild", "<a><b></b>", MX_E_INPUTEND},
         {"AfterText", "<a>text", MX_E_INPUTEND},
         {"AfterAnEmptyChildAndALineEnd", "<a><b/>\r\n", MX_E_INPUTEND},
     }},
    {"EndTagNamesAreComparedCaseSensitively",
     {
         {"NameInAnotherCase", "<Package></package>", WC_E_ELEMENTMATCH},
     }},
    {"StrayTextOutsideTheRootIsSyntaxError",
     {
         {"BeforeTheRoot", "text<a/>", WC_E_SYNTAX},
         {"WithoutAnyRoot", "xml", WC_E_SYNTAX},
         {"ReferenceAfterTheRoot", "<a/>&amp;", WC_E_SYNTAX},
     }},
    {"InvalidCharacterIsError",
     {
         {"ControlInAnAttribute", "<a x='\x1F'/>", WC_E_XMLCHARACTER},
         {"UFFFEInText", "<a>\xEF\xBF\xBE</a>", WC_E_XMLCHARACTER},
     }},
    {"SecondRootElementIsSyntaxError",
     {
         {"EmptyElements", "<a/><b/>", WC_E_SYNTAX},
         {"ElementsWithEndTagsOnTwoLines", "<a></a>\r\n<b></b>", WC_E_SYNTAX},
     }},
    {"BadElementNamesAreErrors",
     {
         {"ColonFirst", "<:a/>", NC_E_QNAMECHARACTER},
         {"SpaceBeforeTheName", "< a/>", NC_E_QNAMECHARACTER},
         {"EndTagWithoutStart", "</a>", NC_E_QNAMECHARACTER},
         {"DigitFirst", "<1a/>", NC_E_QNAMECHARACTER},
         {"TwoColons", "<a:b:c />", NC_E_QNAMECOLON},
         {"ColonFirstAndAnother", "<:b:c />", NC_E_QNAMECHARACTER},
     }},
    {"MalformedAttributesAreErrors",
     {
         {"UnquotedValue", "<a attr1=attrvalue/>", WC_E_QUOTE},
         {"LessThanInValue", "<a attr1=\"attr<value\"/>", WC_E_LESSTHAN},
         {"NameWithoutValue", "<a attr1/>", WC_E_EQUAL},
         {"NoSpaceBetweenAttributes", "<a x='1'y='2'/>", WC_E_WHITESPACE},
         {"SpaceInsideTheEmptyElementsEnd", "<a x='1' / >", WC_E_GREATERTHAN},
     }},
    {"BadReferencesAreErrors",
     {
         {"UndeclaredEntityInAttribute", "<a attr1=\"&entname;\"/>", WC_E_UNDECLAREDENTITY},
         {"NonCharacterInAttribute", "<a attr1=\"val&#xfffe;\"/>", WC_E_XMLCHARACTER},
         {"DecimalReferenceWithoutDigits", "<a attr1=\"val &#a;\"/>", WC_E_DIGIT},
         {"DecimalReferenceRunningIntoALetter", "<a attr1=\"val &#12a;\"/>", WC_E_SEMICOLON},
         {"HexReferenceRunningIntoALetter", "<a attr1=\"val &#x12g;\"/>", WC_E_SEMICOLON},
         {"HexReferenceWithoutDigits", "<a attr1=\"val &#xg;\"/>", WC_E_HEXDIGIT},
         {"EntityWithoutSemicolon", "<a attr1=\"&entname\"/>", WC_E_SEMICOLON},
         {"ReferenceToNul", "<a>&#0;</a>", WC_E_XMLCHARACTER},
         {"ReferenceAboveU10FFFF", "<a>&#x110000;</a>", WC_E_XMLCHARACTER},
         {"ReferenceTooLongForAnyNumber", "<a>&#99999999999999999999;</a>", WC_E_XMLCHARACTER},
         {"ReferenceToASurrogate", "<a>&#xD800;</a>", WC_E_XMLCHARACTER},
         {"AmpersandWithoutAName", "<a>a & b</a>", WC_E_NAME},
         {"UndeclaredEntityInText", "<a>&nbsp;</a>", WC_E_UNDECLAREDENTITY},
     }},
    {"UndeclaredPrefixIsError",
     {
         {"UndeclaredOnTheElement", "<a:b/>", NC_E_UNDECLAREDPREFIX},
         {"UndeclaredOnAnAttribute", "<a p:x='1'/>", NC_E_UNDECLAREDPREFIX},
         {"DeclaredOnTheParentIsFine", "<a xmlns:p='u'><p:b/></a>", S_FALSE},
         {"DeclaredOnTheElementItselfIsFine", "<p:a xmlns:p='u'/>", S_FALSE},
         {"DeclaredOnAnEmptySibling", "<a><b xmlns:p='u'/><p:c/></a>", NC_E_UNDECLAREDPREFIX},
         {"DeclaredOnAClosedSibling", "<a><b xmlns:p='u'></b><p:c/></a>", NC_E_UNDECLAREDPREFIX},
         {"BoundToAnEmptyUri", "<a xmlns:p=''/>", NC_E_EMPTYURI},
         {"XmlnsAsAnElementsPrefix", "<xmlns:a/>", NC_E_XMLNSPREFIXRESERVED},
     }},
    {"BadUtf16IsError",
     {
         {"LowSurrogateAlone", Utf16Le(u"<a>\xDC00</a>", true), WC_E_XMLCHARACTER},
         {"HighSurrogateBeforeALetter", Utf16Le(u"<a>\xD800x</a>", true), WC_E_XMLCHARACTER},
         {"OddByteAtTheEnd", Utf16Le(u"<a/>", true) + "x", MX_E_ENCODING},
     }},
    {"InvalidUtf8IsEncodingError",
     {
         {"ContinuationByteAlone", "<a>\x80</a>", MX_E_ENCODING},
         {"OverlongTwoByteForm", "<a>\xC0\x80</a>", MX_E_ENCODING},
         {"TruncatedSequence", "<a>\xE3\x81</a>", MX_E_ENCODING},
         {"EncodedSurrogate", "<a>\xED\xA0\x80</a>", MX_E_ENCODING},
         {"AboveU10FFFF", "<a>\xF4\x90\x80\x80</a>", MX_E_ENCODING},
         {"ByteF5", "<a>\xF5</a>", MX_E_ENCODING},
         {"OverlongThreeByteForm", "<a>\xE0\x80\x80</a>", MX_E_ENCODING},
         {"ByteFFInAnAttribute", "<a x='\xFF'/>", MX_E_ENCODING},
     }},
    {"UnusableDeclaredEncodingIsError",
     {
         {"Utf16DeclaredInAnEightBitDocument", "<?xml version='1.0' encoding='UTF-16'?><a/>", MX_E_ENCODINGSWITCH},
         {"Latin1DeclaredAfterAUtf8Mark", "\xEF\xBB\xBF<?xml version='1.0' encoding='ISO-8859-1'?><a/>",
          MX_E_ENCODINGSWITCH},
         {"UnknownName", "<?xml version='1.0' encoding='x-unknown'?><a/>", MX_E_ENCODING},
         {"Utf8InLowerCaseIsFine", "<?xml version='1.0' encoding='utf-8'?><a/>", S_FALSE},
     }},
    // Whichever comes first in the document decides between a control character
    // and a Shift JIS sequence without a character.
    {"ShiftJisControlCharacterIsXmlCharacterErrorWhereItStands",
     {
         {"ControlAfterACharacter", ShiftJis("<a>\x82\xA0\x01</a>"), WC_E_XMLCHARACTER},
         {"Nul", ShiftJis(std::string("<a>\0</a>", 8)), WC_E_XMLCHARACTER},
         {"ControlBeforeABadPair", ShiftJis("<a>\x01\x81\x20</a>"), WC_E_XMLCHARACTER},
         {"BadPairBeforeAControl", ShiftJis("<a>\x81\x20\x01</a>"), MX_E_ENCODING},
         {"TabAndLineEndsAreFine", ShiftJis("<a>\t\r\n\x82\xA0</a>"), S_FALSE},
     }},
};
INSTANTIATE_TEST_SUITE_P(Documents, XmlReaderEnd, ::testing::ValuesIn(Flattened(kEndGroups)), CaseName());

// --- errors with the nodes before them ----------------------------------------

const WalkCase kErrorsAfterNodes[] = {
    {"NulAfterTheDeclarationIsSyntaxError",
     std::string("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n") + '\0',
     {{}},
     WC_E_SYNTAX},
    {"DocumentWithoutRootIsInputEndError",
     "<?xml version=\"1.0\"?>\r\n<!-- only a comment -->",
     {{}, {}, {}},
     MX_E_INPUTEND},
    {"UnclosedRootIsInputEndError", "<a>", {{.type = XmlNodeType_Element}}, MX_E_INPUTEND},
    {"MismatchedEndTagIsError", "<a></b>", {{}}, WC_E_ELEMENTMATCH},
    {"NamesAreComparedCaseSensitively",
     "<Package ID='1' id='2'/>",
     {{.localName = u"Package", .attributes = {{.localName = u"ID"}, {.localName = u"id"}}}},
     S_FALSE},
    {"StrayTextOutsideTheRootIsSyntaxError", "<a/>text", {{}}, WC_E_SYNTAX},
    {"InvalidCharacterIsError", "<a><b/>te\x01xt</a>", {{}, {}}, WC_E_XMLCHARACTER},
};
INSTANTIATE_TEST_SUITE_P(ErrorAfterNodes, XmlReaderWalk, ::testing::ValuesIn(kErrorsAfterNodes), CaseName());

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

// --- limits -------------------------------------------------------------------

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
}  // namespace
