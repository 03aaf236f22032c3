// Tests of the XML writer: the shape of what it writes (that of the system's
// writer with indentation on), its escaping, its refusals, and that whatever
// it writes reads back unchanged through the reader.
#include "text/xml/xml_writer.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "text/xml/xml_reader.h"

namespace {

using namespace kel::xml;
using kel::E_INVALIDARG;
using kel::HRESULT;
using kel::S_FALSE;
using kel::S_OK;
using kel::UINT;

constexpr char kStart[] = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// Opens `elements`, each inside the one before. The results go unchecked:
// the tests that use this are about what the writer does next.
void OpenElements(XmlWriter& writer, std::initializer_list<const char16_t*> elements) {
  for (const char16_t* name : elements) (void)writer.WriteStartElement(nullptr, name, nullptr);
}

// Starts the document and opens `elements` as OpenElements does.
void StartDocumentWith(XmlWriter& writer, std::initializer_list<const char16_t*> elements) {
  (void)writer.WriteStartDocument();
  OpenElements(writer, elements);
}

TEST(XmlWriter, StartDocumentWritesByteOrderMarkAndDeclaration) {
  XmlWriter writer;
  ASSERT_EQ(writer.WriteStartDocument(), S_OK);
  EXPECT_EQ(writer.Output(), kStart);
}

TEST(XmlWriter, CatalogueHasTheIndentedShape) {
  XmlWriter writer;
  ASSERT_EQ(writer.WriteStartDocument(), S_OK);
  ASSERT_EQ(writer.WriteStartElement(nullptr, u"AppNameList", nullptr), S_OK);
  ASSERT_EQ(writer.WriteStartElement(nullptr, u"DesktopApp", nullptr), S_OK);
  ASSERT_EQ(writer.WriteAttributeString(nullptr, u"Name", nullptr, u"a & b"), S_OK);
  ASSERT_EQ(writer.WriteEndElement(), S_OK);
  ASSERT_EQ(writer.WriteEndDocument(), S_OK);
  ASSERT_EQ(writer.Flush(), S_OK);
  EXPECT_EQ(writer.Output(),
            "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
            "<AppNameList>\r\n"
            "  <DesktopApp Name=\"a &amp; b\" />\r\n"
            "</AppNameList>");
}

TEST(XmlWriter, NestedElementsAreIndentedTwoSpacesPerLevel) {
  XmlWriter writer;
  StartDocumentWith(writer, {u"a", u"b", u"c"});
  (void)writer.WriteAttributeString(nullptr, u"x", nullptr, u"1");
  (void)writer.WriteAttributeString(nullptr, u"y", nullptr, u"2");
  (void)writer.WriteEndElement();
  (void)writer.WriteStartElement(nullptr, u"d", nullptr);
  (void)writer.WriteEndElement();
  (void)writer.WriteEndElement();
  (void)writer.WriteStartElement(nullptr, u"e", nullptr);
  (void)writer.WriteEndElement();
  (void)writer.WriteEndElement();
  EXPECT_EQ(writer.Output(), std::string(kStart) +
                                 "\r\n<a>\r\n"
                                 "  <b>\r\n"
                                 "    <c x=\"1\" y=\"2\" />\r\n"
                                 "    <d />\r\n"
                                 "  </b>\r\n"
                                 "  <e />\r\n"
                                 "</a>");
}

TEST(XmlWriter, ChildlessRootIsSelfClosedWithSpaceBeforeSlash) {
  XmlWriter writer;
  StartDocumentWith(writer, {u"AppNameList"});
  ASSERT_EQ(writer.WriteEndDocument(), S_OK);
  EXPECT_EQ(writer.Output(), std::string(kStart) + "\r\n<AppNameList />");
}

TEST(XmlWriter, WithoutStartDocumentTheRootStartsTheOutput) {
  XmlWriter writer;
  OpenElements(writer, {u"a", u"b"});
  (void)writer.WriteEndDocument();
  EXPECT_EQ(writer.Output(), "<a>\r\n  <b />\r\n</a>");
}

TEST(XmlWriter, OpenStartTagIsLeftOpenUntilSomethingFollows) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"a", nullptr);
  (void)writer.WriteAttributeString(nullptr, u"x", nullptr, u"1");
  ASSERT_EQ(writer.Flush(), S_OK);
  EXPECT_EQ(writer.Output(), "<a x=\"1\"");
}

// What the writer makes of `element` with the one attribute v="`value`".
std::string ElementWithAttribute(const char16_t* element, const char16_t* value) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, element, nullptr);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"v", nullptr, value), S_OK);
  (void)writer.WriteEndElement();
  return writer.Output();
}

TEST(XmlWriter, AttributeValuesAreEscaped) {
  EXPECT_EQ(ElementWithAttribute(u"a", u"& < > \" ' \t \r \n ]]>"),
            "<a v=\"&amp; &lt; &gt; &quot; ' &#x9; &#xD; &#xA; ]]&gt;\" />");
}

TEST(XmlWriter, NonAsciiAndSupplementaryCharactersAreUtf8) {
  EXPECT_EQ(ElementWithAttribute(u"\u30EB\u30FC\u30C8", u"caf\u00E9 \U0001F600 \u20AC"),
            "<\xE3\x83\xAB\xE3\x83\xBC\xE3\x83\x88 v=\"caf\xC3\xA9 \xF0\x9F\x98\x80 \xE2\x82\xAC\" />");
}

TEST(XmlWriter, NullAttributeValueIsEmpty) { EXPECT_EQ(ElementWithAttribute(u"a", nullptr), "<a v=\"\" />"); }

TEST(XmlWriter, UnwritableCharactersAreRefusedAndNothingIsWritten) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"a", nullptr);
  const std::u16string loneHigh = u"x\xD800y";
  const std::u16string loneLow = u"\xDC00";
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"v", nullptr, loneHigh.c_str()), WR_E_INVALIDSURROGATEPAIR);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"v", nullptr, loneLow.c_str()), WR_E_INVALIDSURROGATEPAIR);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"v", nullptr, u"\x01"), WC_E_XMLCHARACTER);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"v", nullptr, u"\xFFFE"), WC_E_XMLCHARACTER);
  EXPECT_EQ(writer.Output(), "<a");
  // Those refusals do not end the document.
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"v", nullptr, u"ok"), S_OK);
  EXPECT_EQ(writer.WriteEndElement(), S_OK);
  EXPECT_EQ(writer.Output(), "<a v=\"ok\" />");
}

TEST(XmlWriter, MissingLocalNameIsInvalidArgument) {
  XmlWriter writer;
  EXPECT_EQ(writer.WriteStartElement(nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(writer.WriteStartElement(nullptr, u"", nullptr), E_INVALIDARG);
  ASSERT_EQ(writer.WriteStartElement(nullptr, u"a", nullptr), S_OK);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, nullptr, nullptr, u"v"), E_INVALIDARG);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"", nullptr, u"v"), E_INVALIDARG);
  EXPECT_EQ(writer.WriteEndElement(), S_OK);
  EXPECT_EQ(writer.Output(), "<a />");
}

TEST(XmlWriter, BadNamesAreRefused) {
  XmlWriter writer;
  EXPECT_EQ(writer.WriteStartElement(nullptr, u".a", nullptr), WC_E_NAMECHARACTER);
  EXPECT_EQ(writer.WriteStartElement(nullptr, u":a", nullptr), WC_E_NAMECHARACTER);
  EXPECT_EQ(writer.WriteStartElement(nullptr, u"a:b", nullptr), WC_E_NAMECHARACTER);
  EXPECT_EQ(writer.WriteStartElement(u"pre:fix", u"a", u"uri"), WC_E_NAMECHARACTER);
  EXPECT_EQ(writer.WriteStartElement(nullptr, u"a b", nullptr), WC_E_NAMECHARACTER);
  ASSERT_EQ(writer.WriteStartElement(nullptr, u"a", nullptr), S_OK);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"1x", nullptr, u"v"), WC_E_NAMECHARACTER);
  EXPECT_EQ(writer.Output(), "<a");
}

TEST(XmlWriter, EndElementWithNothingOpenIsInvalidActionFromThenOn) {
  XmlWriter writer;
  EXPECT_EQ(writer.WriteEndElement(), WR_E_INVALIDACTION);
  EXPECT_EQ(writer.WriteStartElement(nullptr, u"a", nullptr), WR_E_INVALIDACTION);
  EXPECT_EQ(writer.WriteStartDocument(), WR_E_INVALIDACTION);
  EXPECT_EQ(writer.WriteEndDocument(), WR_E_INVALIDACTION);
  EXPECT_EQ(writer.Output(), "");
}

TEST(XmlWriter, AttributeWithoutOpenStartTagIsInvalidAction) {
  XmlWriter writer;
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"a", nullptr, u"a"), WR_E_INVALIDACTION);

  XmlWriter afterChild;
  (void)afterChild.WriteStartElement(nullptr, u"a", nullptr);
  (void)afterChild.WriteStartElement(nullptr, u"b", nullptr);
  (void)afterChild.WriteEndElement();
  EXPECT_EQ(afterChild.WriteAttributeString(nullptr, u"x", nullptr, u"1"), WR_E_INVALIDACTION);
}

TEST(XmlWriter, StartDocumentOnlyComesFirst) {
  XmlWriter twice;
  ASSERT_EQ(twice.WriteStartDocument(), S_OK);
  EXPECT_EQ(twice.WriteStartDocument(), WR_E_INVALIDACTION);

  XmlWriter late;
  (void)late.WriteStartElement(nullptr, u"a", nullptr);
  EXPECT_EQ(late.WriteStartDocument(), WR_E_INVALIDACTION);
}

TEST(XmlWriter, SecondRootElementIsInvalidAction) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"a", nullptr);
  (void)writer.WriteEndElement();
  EXPECT_EQ(writer.WriteStartElement(nullptr, u"b", nullptr), WR_E_INVALIDACTION);
  EXPECT_EQ(writer.Output(), "<a />");
}

TEST(XmlWriter, EndDocumentClosesEveryOpenElement) {
  XmlWriter writer;
  StartDocumentWith(writer, {u"a", u"b", u"c"});
  ASSERT_EQ(writer.WriteEndDocument(), S_OK);
  EXPECT_EQ(writer.Output(), std::string(kStart) + "\r\n<a>\r\n  <b>\r\n    <c />\r\n  </b>\r\n</a>");
  EXPECT_EQ(writer.WriteStartElement(nullptr, u"d", nullptr), WR_E_INVALIDACTION);
  EXPECT_EQ(writer.WriteEndDocument(), WR_E_INVALIDACTION);
}

TEST(XmlWriter, EndDocumentWithoutRootIsInvalidAction) {
  XmlWriter writer;
  EXPECT_EQ(writer.WriteEndDocument(), WR_E_INVALIDACTION);
  XmlWriter started;
  (void)started.WriteStartDocument();
  EXPECT_EQ(started.WriteEndDocument(), WR_E_INVALIDACTION);
}

TEST(XmlWriter, DuplicateAttributeIsRefused) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"a", nullptr);
  ASSERT_EQ(writer.WriteAttributeString(nullptr, u"x", nullptr, u"1"), S_OK);
  EXPECT_EQ(writer.WriteAttributeString(nullptr, u"x", nullptr, u"2"), WR_E_DUPLICATEATTRIBUTE);
  ASSERT_EQ(writer.WriteAttributeString(nullptr, u"X", nullptr, u"3"), S_OK);
  (void)writer.WriteEndElement();
  EXPECT_EQ(writer.Output(), "<a x=\"1\" X=\"3\" />");
}

TEST(XmlWriter, ElementNamespaceIsDeclaredOnceAfterItsAttributes) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"Package", u"http://schemas.microsoft.com/appx/2010/manifest");
  (void)writer.WriteAttributeString(u"xmlns", u"m2", nullptr, u"http://schemas.microsoft.com/appx/2013/manifest");
  (void)writer.WriteStartElement(nullptr, u"Applications", u"http://schemas.microsoft.com/appx/2010/manifest");
  (void)writer.WriteStartElement(u"m2", u"VisualElements", u"http://schemas.microsoft.com/appx/2013/manifest");
  (void)writer.WriteAttributeString(nullptr, u"DisplayName", nullptr, u"ms-resource:AppName");
  (void)writer.WriteEndDocument();
  EXPECT_EQ(writer.Output(),
            "<Package xmlns:m2=\"http://schemas.microsoft.com/appx/2013/manifest\" "
            "xmlns=\"http://schemas.microsoft.com/appx/2010/manifest\">\r\n"
            "  <Applications>\r\n"
            "    <m2:VisualElements DisplayName=\"ms-resource:AppName\" />\r\n"
            "  </Applications>\r\n"
            "</Package>");
}

TEST(XmlWriter, PrefixedElementDeclaresItsPrefix) {
  XmlWriter writer;
  (void)writer.WriteStartElement(u"p", u"a", u"urn:p");
  (void)writer.WriteStartElement(nullptr, u"b", u"urn:p");
  (void)writer.WriteStartElement(u"", u"c", u"urn:p");
  (void)writer.WriteEndDocument();
  EXPECT_EQ(writer.Output(), "<p:a xmlns:p=\"urn:p\">\r\n  <p:b>\r\n    <c xmlns=\"urn:p\" />\r\n  </p:b>\r\n</p:a>");
}

TEST(XmlWriter, PrefixWithoutNamespaceIsRefused) {
  XmlWriter writer;
  EXPECT_EQ(writer.WriteStartElement(u"p", u"a", nullptr), WR_E_NSPREFIXWITHEMPTYNSURI);
  ASSERT_EQ(writer.WriteStartElement(nullptr, u"a", nullptr), S_OK);
  EXPECT_EQ(writer.WriteAttributeString(u"q", u"x", nullptr, u"1"), WR_E_NSPREFIXWITHEMPTYNSURI);
  ASSERT_EQ(writer.WriteAttributeString(u"xml", u"lang", nullptr, u"en"), S_OK);
  EXPECT_EQ(writer.WriteEndElement(), S_OK);
  EXPECT_EQ(writer.Output(), "<a xml:lang=\"en\" />");
}

TEST(XmlWriter, AttributeNamespaceIsDeclaredAfterTheAttribute) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"e", nullptr);
  (void)writer.WriteAttributeString(u"prefix", u"local", u"uri", u"b");
  (void)writer.WriteAttributeString(u"prefix", u"other", u"uri", u"c");
  (void)writer.WriteEndElement();
  EXPECT_EQ(writer.Output(), "<e prefix:local=\"b\" xmlns:prefix=\"uri\" prefix:other=\"c\" />");
}

TEST(XmlWriter, TakeOutputHandsOverTheTextAndStartsAfresh) {
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"a", nullptr);
  (void)writer.WriteEndDocument();
  EXPECT_EQ(writer.TakeOutput(), "<a />");
  EXPECT_EQ(writer.Output(), "");
  ASSERT_EQ(writer.WriteStartDocument(), S_OK);
  ASSERT_EQ(writer.WriteStartElement(nullptr, u"b", nullptr), S_OK);
  ASSERT_EQ(writer.WriteEndDocument(), S_OK);
  EXPECT_EQ(writer.TakeOutput(), std::string(kStart) + "\r\n<b />");
}

// --- round trips through the reader -------------------------------------------

std::u16string ReadValue(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetValue(&text, &length), S_OK);
  return std::u16string(text, length);
}

std::u16string ReadLocalName(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetLocalName(&text, &length), S_OK);
  return std::u16string(text, length);
}

std::u16string RandomValue(std::mt19937& random) {
  static const std::u16string kPieces[] = {
      u"&",      u"<",      u">",      u"\"",     u"'",          u"\t",         u"\r",     u"\n",     u"\r\n",
      u" ",      u"  ",     u"a",      u"Z",      u"0",          u";",          u"&amp;",  u"&#x9;",  u"]]>",
      u"\u00E9", u"\u30C6", u"\u20AC", u"\uFFFD", u"\U0001F600", u"\U0010FFFF", u"\u0085", u"\u2028",
  };
  std::u16string value;
  const int count = static_cast<int>(random() % 12);
  for (int i = 0; i < count; ++i) value += kPieces[random() % (sizeof kPieces / sizeof kPieces[0])];
  return value;
}

TEST(XmlWriter, RandomAttributeValuesReadBackUnchanged) {
  std::mt19937 random(4242);
  for (int round = 0; round < 200; ++round) {
    std::vector<std::u16string> values;
    XmlWriter writer;
    ASSERT_EQ(writer.WriteStartDocument(), S_OK);
    ASSERT_EQ(writer.WriteStartElement(nullptr, u"AppNameList", nullptr), S_OK);
    const int elements = 1 + static_cast<int>(random() % 10);
    for (int e = 0; e < elements; ++e) {
      ASSERT_EQ(writer.WriteStartElement(nullptr, u"DesktopApp", nullptr), S_OK);
      for (int a = 0; a < 3; ++a) {
        values.push_back(RandomValue(random));
        const std::u16string name = u"A" + std::u16string(1, static_cast<char16_t>(u'0' + a));
        ASSERT_EQ(writer.WriteAttributeString(nullptr, name.c_str(), nullptr, values.back().c_str()), S_OK);
      }
      ASSERT_EQ(writer.WriteEndElement(), S_OK);
    }
    ASSERT_EQ(writer.WriteEndDocument(), S_OK);
    const std::string document = writer.TakeOutput();

    XmlReader reader;
    ASSERT_EQ(reader.SetInput(document), S_OK);
    std::vector<std::u16string> read;
    XmlNodeType type = XmlNodeType_None;
    HRESULT hr;
    while ((hr = reader.Read(&type)) == S_OK) {
      if (type != XmlNodeType_Element || ReadLocalName(reader) != u"DesktopApp") continue;
      EXPECT_TRUE(reader.IsEmptyElement());
      while (reader.MoveToNextAttribute() == S_OK) read.push_back(ReadValue(reader));
    }
    ASSERT_EQ(hr, S_FALSE) << "round " << round;
    EXPECT_EQ(read, values) << "round " << round;
  }
}

TEST(XmlWriter, NamesReadBackUnchanged) {
  const std::u16string names[] = {u"AppNameList", u"\u30A2\u30D7\u30EA", u"caf\u00E9", u"x-y.z_1", u"\U00010000n"};
  XmlWriter writer;
  (void)writer.WriteStartElement(nullptr, u"root", nullptr);
  for (const std::u16string& name : names) {
    ASSERT_EQ(writer.WriteStartElement(nullptr, name.c_str(), nullptr), S_OK);
    ASSERT_EQ(writer.WriteAttributeString(nullptr, name.c_str(), nullptr, name.c_str()), S_OK);
    ASSERT_EQ(writer.WriteEndElement(), S_OK);
  }
  (void)writer.WriteEndDocument();

  XmlReader reader;
  (void)reader.SetInput(writer.Output());
  XmlNodeType type = XmlNodeType_None;
  std::size_t next = 0;
  while (reader.Read(&type) == S_OK) {
    if (type != XmlNodeType_Element || !reader.IsEmptyElement()) continue;
    ASSERT_LT(next, std::size(names));
    EXPECT_EQ(ReadLocalName(reader), names[next]);
    ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
    EXPECT_EQ(ReadLocalName(reader), names[next]);
    EXPECT_EQ(ReadValue(reader), names[next]);
    ++next;
  }
  EXPECT_EQ(next, std::size(names));
}

TEST(XmlWriter, ManifestShapedDocumentReadsBackWithItsPrefixes) {
  XmlWriter writer;
  (void)writer.WriteStartDocument();
  (void)writer.WriteStartElement(nullptr, u"Package", u"http://schemas.microsoft.com/appx/2010/manifest");
  (void)writer.WriteAttributeString(u"xmlns", u"m2", nullptr, u"http://schemas.microsoft.com/appx/2013/manifest");
  (void)writer.WriteStartElement(u"m2", u"VisualElements", u"http://schemas.microsoft.com/appx/2013/manifest");
  (void)writer.WriteAttributeString(nullptr, u"DisplayName", nullptr, u"ms-resource:AppName");
  (void)writer.WriteStartElement(u"m2", u"DefaultTile", nullptr);
  (void)writer.WriteAttributeString(nullptr, u"ShortName", nullptr, u"Short & sweet");
  ASSERT_EQ(writer.WriteEndDocument(), S_OK);

  XmlReader reader;
  (void)reader.SetInput(writer.Output());
  XmlNodeType type = XmlNodeType_None;
  std::vector<std::u16string> seen;
  HRESULT hr;
  while ((hr = reader.Read(&type)) == S_OK) {
    if (type != XmlNodeType_Element) continue;
    const char16_t* prefix = nullptr;
    (void)reader.GetPrefix(&prefix, nullptr);
    seen.push_back(std::u16string(prefix) + u"|" + ReadLocalName(reader));
    if (ReadLocalName(reader) == u"DefaultTile") {
      ASSERT_EQ(reader.MoveToFirstAttribute(), S_OK);
      EXPECT_EQ(ReadValue(reader), u"Short & sweet");
    }
  }
  EXPECT_EQ(hr, S_FALSE);
  const std::vector<std::u16string> expected = {u"|Package", u"m2|VisualElements", u"m2|DefaultTile"};
  EXPECT_EQ(seen, expected);
}

}  // namespace
