// Tests of the XML reader's decoding: UTF-8, UTF-16 with and without a
// byte-order mark, the 8-bit encodings a declaration names, and Shift JIS
// as the narrow exports decode it.
#include "text/xml/xml_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "text/cp932/cp932.h"
#include "text/xml_reader_walk.h"

namespace {

using namespace kel::xml;
using namespace kel::xml::reader_test;

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

// --- Shift JIS ----------------------------------------------------------------

// The five names of code page 932, in any case, and names that only look
// like them, which stay unknown, as do the other Japanese encodings.
TEST(XmlReader, ShiftJisIsDecodedForItsNamesInAnyCaseAndNoOthers) {
  struct Case {
    const char* name;
    bool decoded;
  };
  const Case cases[] = {
      {"Shift_JIS", true},        {"shift_jis", true},       {"SHIFT_JIS", true},    {"shift-jis", true},
      {"Shift-JIS", true},        {"x-sjis", true},          {"X-SJIS", true},       {"X-Sjis", true},
      {"windows-31j", true},      {"Windows-31J", true},     {"cp932", true},        {"CP932", true},
      {"EUC-JP", false},          {"euc-jp", false},         {"ISO-2022-JP", false}, {"csISO2022JP", false},
      {"Shift_JIS_X0213", false}, {"Shift_JIS-2004", false}, {"shift jis", false},   {"sjis-x", false},
      {"cp9320", false},          {"windows-31", false},     {"x-sjis ", false},     {"x-unknown", false},
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
      {"\x87\x40", u"\u2460"},                // NEC row 13
      {"\xED\x40", u"\u7E8A"},                // NEC's selection of IBM extensions
      {"\xFA\x40", u"\u2170"},                // IBM extensions
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
}  // namespace
