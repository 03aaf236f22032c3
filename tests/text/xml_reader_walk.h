// What the reader's tests share: a walk that records every node with its
// attributes as the reader reports them, the result that ends a document,
// a table form for walks (a document, what each of its nodes must show and
// how it ends), and documents in the encodings the reader decodes.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "text/xml/xml_reader.h"
#include "text/xml_walk_records.h"

namespace kel::xml::reader_test {

using kel::HRESULT;
using kel::S_FALSE;
using kel::S_OK;
using kel::UINT;

inline std::u16string LocalName(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetLocalName(&text, &length), S_OK);
  return std::u16string(text, length);
}

inline std::u16string Prefix(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetPrefix(&text, &length), S_OK);
  return std::u16string(text, length);
}

inline std::u16string Value(XmlReader& reader) {
  const char16_t* text = nullptr;
  UINT length = 0;
  EXPECT_EQ(reader.GetValue(&text, &length), S_OK);
  EXPECT_EQ(std::u16string(text).size(), length) << "the value is NUL-terminated at its length";
  return std::u16string(text, length);
}

inline UINT Depth(XmlReader& reader) {
  UINT depth = 12345;
  EXPECT_EQ(reader.GetDepth(&depth), S_OK);
  return depth;
}

// Reads every node with its attributes until Read stops returning S_OK.
inline Walk ReadAll(std::string_view document, int maxNodes = 100000) {
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
inline HRESULT EndOf(std::string_view document) { return ReadAll(document).end; }

// Reads to the first element and returns the value of its first attribute.
inline std::u16string FirstAttributeValue(std::string_view document) {
  XmlReader reader;
  (void)reader.SetInput(document);
  XmlNodeType type = XmlNodeType_None;
  EXPECT_EQ(reader.Read(&type), S_OK);
  EXPECT_EQ(type, XmlNodeType_Element);
  EXPECT_EQ(reader.MoveToFirstAttribute(), S_OK);
  return Value(reader);
}

// What a walk must report of one attribute; a field left empty is not checked.
struct AttrExpectation {
  std::optional<std::u16string> prefix;
  std::optional<std::u16string> localName;
  std::optional<std::u16string> value;
  std::optional<UINT> depth;
};

// What a walk must report of one node; a field left empty is not checked.
// Attributes, when any are given, are checked in number and one by one.
struct NodeExpectation {
  std::optional<XmlNodeType> type;
  std::optional<std::u16string> prefix;
  std::optional<std::u16string> localName;
  std::optional<std::u16string> value;
  std::optional<UINT> depth;
  std::optional<bool> empty;
  std::vector<AttrExpectation> attributes;
};

// A document, one expectation for each node its walk reports, and the
// result that ends the walk; the name says what the document shows.
struct WalkCase {
  const char* name;
  std::string document;
  std::vector<NodeExpectation> nodes;
  HRESULT end;
};

inline void PrintTo(const WalkCase& c, std::ostream* out) { *out << c.name; }

// Names a parameterised case after its `name` field.
struct CaseName {
  template <typename Case>
  std::string operator()(const ::testing::TestParamInfo<Case>& info) const {
    return info.param.name;
  }
};

// Walks each case's document (instantiated beside the tests of the
// behaviour the cases show).
class XmlReaderWalk : public ::testing::TestWithParam<WalkCase> {};

template <typename T, typename Actual>
void ExpectGiven(const std::optional<T>& expected, const Actual& actual, std::string_view what) {
  if (expected) EXPECT_EQ(actual, *expected) << what;
}

inline void ExpectAttribute(const Attr& actual, const AttrExpectation& expected, std::size_t node, std::size_t index) {
  const std::string where = "node " + std::to_string(node) + " attribute " + std::to_string(index);
  ExpectGiven(expected.prefix, actual.prefix, where + " prefix");
  ExpectGiven(expected.localName, actual.localName, where + " local name");
  ExpectGiven(expected.value, actual.value, where + " value");
  ExpectGiven(expected.depth, actual.depth, where + " depth");
}

inline void ExpectNode(const Node& actual, const NodeExpectation& expected, std::size_t index) {
  const std::string where = "node " + std::to_string(index);
  ExpectGiven(expected.type, actual.type, where + " type");
  ExpectGiven(expected.prefix, actual.prefix, where + " prefix");
  ExpectGiven(expected.localName, actual.localName, where + " local name");
  ExpectGiven(expected.value, actual.value, where + " value");
  ExpectGiven(expected.depth, actual.depth, where + " depth");
  ExpectGiven(expected.empty, actual.empty, where + " empty");
  if (expected.attributes.empty()) return;
  ASSERT_EQ(actual.attributes.size(), expected.attributes.size()) << where << " attributes";
  for (std::size_t i = 0; i < actual.attributes.size(); ++i) {
    ExpectAttribute(actual.attributes[i], expected.attributes[i], index, i);
  }
}

inline std::string Utf16Le(std::u16string_view text, bool byteOrderMark) {
  std::string bytes = byteOrderMark ? std::string("\xFF\xFE") : std::string();
  for (char16_t c : text) {
    bytes += static_cast<char>(c & 0xFF);
    bytes += static_cast<char>(c >> 8);
  }
  return bytes;
}

inline std::string Utf16Be(std::u16string_view text, bool byteOrderMark) {
  std::string bytes = byteOrderMark ? std::string("\xFE\xFF") : std::string();
  for (char16_t c : text) {
    bytes += static_cast<char>(c >> 8);
    bytes += static_cast<char>(c & 0xFF);
  }
  return bytes;
}

inline constexpr char kManifest[] =
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

// The document in Shift JIS, declared under `name`.
inline std::string ShiftJis(std::string_view body, std::string_view name = "Shift_JIS") {
  return "<?xml version='1.0' encoding='" + std::string(name) + "'?>" + std::string(body);
}

inline std::u16string Widened(std::string_view ascii) { return std::u16string(ascii.begin(), ascii.end()); }

}  // namespace kel::xml::reader_test
