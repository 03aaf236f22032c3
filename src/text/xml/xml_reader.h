// The library's own forward-only XML reader. It reads the catalogue file the
// library writes itself and the AppxManifest.xml files of Store packages, and
// it answers the way the system's pull reader (IXmlReader) does for the calls
// the library makes: the same node types, names, values, depths and result
// codes, so the logic behaves the same on every system and under Wine, whose
// reader spins forever on an unclosed root element.
//
// The whole input is decoded to UTF-16 once, in SetInput. Names and values are
// then handed out as pointers into that one buffer: values that need
// unescaping are rewritten in place (an unescaped value is never longer than
// its source text), and every string handed out is NUL-terminated. Reading a
// node allocates nothing once the buffers have grown to the document's needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace kel::xml {

enum XmlNodeType {
  XmlNodeType_None = 0,
  XmlNodeType_Element = 1,
  XmlNodeType_Attribute = 2,
  XmlNodeType_Text = 3,
  XmlNodeType_CDATA = 4,
  XmlNodeType_ProcessingInstruction = 7,
  XmlNodeType_Comment = 8,
  XmlNodeType_DocumentType = 10,
  XmlNodeType_Whitespace = 13,
  XmlNodeType_EndElement = 15,
  XmlNodeType_XmlDeclaration = 17,
};

// Result codes, with the values the system's reader and writer use.
// Input and encoding.
constexpr HRESULT MX_E_INPUTEND = static_cast<HRESULT>(0xC00CEE01u);
constexpr HRESULT MX_E_ENCODING = static_cast<HRESULT>(0xC00CEE02u);
constexpr HRESULT MX_E_ENCODINGSWITCH = static_cast<HRESULT>(0xC00CEE03u);
// Well-formedness.
constexpr HRESULT WC_E_WHITESPACE = static_cast<HRESULT>(0xC00CEE21u);
constexpr HRESULT WC_E_SEMICOLON = static_cast<HRESULT>(0xC00CEE22u);
constexpr HRESULT WC_E_GREATERTHAN = static_cast<HRESULT>(0xC00CEE23u);
constexpr HRESULT WC_E_QUOTE = static_cast<HRESULT>(0xC00CEE24u);
constexpr HRESULT WC_E_EQUAL = static_cast<HRESULT>(0xC00CEE25u);
constexpr HRESULT WC_E_LESSTHAN = static_cast<HRESULT>(0xC00CEE26u);
constexpr HRESULT WC_E_HEXDIGIT = static_cast<HRESULT>(0xC00CEE27u);
constexpr HRESULT WC_E_DIGIT = static_cast<HRESULT>(0xC00CEE28u);
constexpr HRESULT WC_E_XMLCHARACTER = static_cast<HRESULT>(0xC00CEE2Bu);
constexpr HRESULT WC_E_NAMECHARACTER = static_cast<HRESULT>(0xC00CEE2Cu);
constexpr HRESULT WC_E_SYNTAX = static_cast<HRESULT>(0xC00CEE2Du);
constexpr HRESULT WC_E_CDSECT = static_cast<HRESULT>(0xC00CEE2Eu);
constexpr HRESULT WC_E_COMMENT = static_cast<HRESULT>(0xC00CEE2Fu);
constexpr HRESULT WC_E_NAME = static_cast<HRESULT>(0xC00CEE39u);
constexpr HRESULT WC_E_ELEMENTMATCH = static_cast<HRESULT>(0xC00CEE3Bu);
constexpr HRESULT WC_E_UNIQUEATTRIBUTE = static_cast<HRESULT>(0xC00CEE3Cu);
constexpr HRESULT WC_E_LEADINGXML = static_cast<HRESULT>(0xC00CEE3Eu);
constexpr HRESULT WC_E_XMLDECL = static_cast<HRESULT>(0xC00CEE40u);
constexpr HRESULT WC_E_UNDECLAREDENTITY = static_cast<HRESULT>(0xC00CEE47u);
constexpr HRESULT WC_E_PI = static_cast<HRESULT>(0xC00CEE4Au);
constexpr HRESULT WC_E_CDSECTEND = static_cast<HRESULT>(0xC00CEE4Du);
constexpr HRESULT WC_E_DTDPROHIBITED = static_cast<HRESULT>(0xC00CEE4Fu);
// Namespaces.
constexpr HRESULT NC_E_QNAMECHARACTER = static_cast<HRESULT>(0xC00CEE61u);
constexpr HRESULT NC_E_QNAMECOLON = static_cast<HRESULT>(0xC00CEE62u);
constexpr HRESULT NC_E_NAMECOLON = static_cast<HRESULT>(0xC00CEE63u);
constexpr HRESULT NC_E_UNDECLAREDPREFIX = static_cast<HRESULT>(0xC00CEE65u);
constexpr HRESULT NC_E_EMPTYURI = static_cast<HRESULT>(0xC00CEE66u);
constexpr HRESULT NC_E_XMLNSPREFIXRESERVED = static_cast<HRESULT>(0xC00CEE68u);
// Limits.
constexpr HRESULT SC_E_MAXELEMENTDEPTH = static_cast<HRESULT>(0xC00CEE81u);
// Writer.
constexpr HRESULT WR_E_NSPREFIXWITHEMPTYNSURI = static_cast<HRESULT>(0xC00CEF03u);
constexpr HRESULT WR_E_DUPLICATEATTRIBUTE = static_cast<HRESULT>(0xC00CEF04u);
constexpr HRESULT WR_E_INVALIDACTION = static_cast<HRESULT>(0xC00CEF0Bu);
constexpr HRESULT WR_E_INVALIDSURROGATEPAIR = static_cast<HRESULT>(0xC00CEF0Cu);

// Elements may nest this deep (the root is at depth 0); one level more is
// SC_E_MAXELEMENTDEPTH, as with the system reader's default limit.
constexpr std::size_t kMaxElementDepth = 256;

// The largest document the library reads, in bytes: its data file, its
// preset file and package manifests are a few megabytes at most, and a file
// past this is refused before its bytes are read (Platform::ReadFileBytes)
// and by SetInput, with kInputTooLarge: the result of a document too large
// to hold, so a hostile file costs neither the memory nor the time.
constexpr std::size_t kMaxInputBytes = std::size_t{64} << 20;
constexpr HRESULT kInputTooLarge = E_OUTOFMEMORY;

// Whether `name` is a name without a colon, the form of every prefix and
// local name (the writer checks the names it is given with it).
bool IsNcName(std::u16string_view name);

class XmlReader {
 public:
  XmlReader();
  XmlReader(const XmlReader&) = delete;
  XmlReader& operator=(const XmlReader&) = delete;

  // Takes a copy of the document (raw bytes: UTF-8 with or without a byte
  // order mark, UTF-16 LE or BE, or an 8-bit encoding or Shift JIS (code
  // page 932) named by the declaration) and positions the reader before its first node. Problems
  // with the bytes are reported by Read once it reaches them. A document of
  // more than kMaxInputBytes is not taken: SetInput and every Read after it
  // give kInputTooLarge.
  [[nodiscard]] HRESULT SetInput(std::string_view bytes);

  // Moves to the next node: S_OK with a node, S_FALSE after the end of a
  // complete document, an error for malformed input. After an error every
  // later call returns that same error. `nodeType` may be null.
  [[nodiscard]] HRESULT Read(XmlNodeType* nodeType);

  [[nodiscard]] HRESULT GetNodeType(XmlNodeType* nodeType) const;
  // The strings stay valid until the next Read or SetInput (moving between
  // an element and its attributes keeps them); `length` may be null.
  [[nodiscard]] HRESULT GetLocalName(const char16_t** name, UINT* length) const;
  [[nodiscard]] HRESULT GetPrefix(const char16_t** prefix, UINT* length) const;
  [[nodiscard]] HRESULT GetValue(const char16_t** value, UINT* length) const;

  [[nodiscard]] HRESULT MoveToFirstAttribute();
  [[nodiscard]] HRESULT MoveToNextAttribute();
  [[nodiscard]] HRESULT MoveToElement();

  [[nodiscard]] HRESULT GetDepth(UINT* depth) const;
  [[nodiscard]] bool IsEmptyElement() const;
  [[nodiscard]] UINT GetAttributeCount() const;

 private:
  struct Span {
    const char16_t* text;
    UINT length;
  };
  struct Attribute {
    Span prefix;
    Span localName;
    Span value;
  };
  struct OpenElement {
    Span prefix;
    Span localName;
  };
  // A prefix some element has declared, and how many of its declarations
  // are in scope now.
  struct Prefix {
    const char16_t* text;
    UINT length;
    UINT inScope;
  };
  // A declaration in scope: the prefix (an index into prefixes_) and the
  // depth of the element that made it.
  struct Binding {
    std::uint32_t prefix;
    std::size_t depth;
  };

  void ResetNode();
  void Decode(std::string_view bytes);
  [[nodiscard]] HRESULT ParseNode();
  [[nodiscard]] HRESULT ParseTopLevel();
  [[nodiscard]] HRESULT ParseContent();
  [[nodiscard]] HRESULT ParseStartTag();
  [[nodiscard]] HRESULT ParseEndTag();
  [[nodiscard]] HRESULT ParseText();
  [[nodiscard]] HRESULT ParseTopLevelWhitespace();
  [[nodiscard]] HRESULT ParseComment();
  [[nodiscard]] HRESULT ParseCData();
  template <typename Ends>
  [[nodiscard]] HRESULT FoldLineEndsUntil(char16_t*& p, Span& text, Ends ends) const;
  template <typename Ends>
  [[nodiscard]] HRESULT TakeDelimitedText(char16_t* p, XmlNodeType type, Ends ends);
  [[nodiscard]] HRESULT ParseProcessingInstruction();
  [[nodiscard]] HRESULT ParseDeclaration();
  [[nodiscard]] HRESULT ParseMarkupDeclaration();
  [[nodiscard]] HRESULT ParseQName(char16_t*& p, Span& prefix, Span& localName);
  void TerminateName(const Span& prefix, const Span& localName);
  [[nodiscard]] HRESULT ParseAttributeValue(char16_t*& p, Span& value);
  [[nodiscard]] HRESULT ParseReference(char16_t*& p, char16_t*& out);
  [[nodiscard]] HRESULT CheckAttributes();
  [[nodiscard]] HRESULT BindNamespaces(std::size_t depth);
  void ReservePrefixSlots(std::size_t more);
  void Bind(const Span& prefix, std::uint32_t hash, std::size_t depth);
  void UnbindFrom(std::size_t depth);
  [[nodiscard]] bool IsBound(const Span& prefix) const;
  [[nodiscard]] std::size_t PrefixSlot(const Span& prefix, std::uint32_t hash) const;
  [[nodiscard]] HRESULT EndError() const;
  void Terminate(char16_t* at);

  // The decoded document. It ends in a NUL where the usable input ends: the
  // decoded text holds no NUL of its own (that is not an XML character), so
  // every scan stops there without a bounds check. Left uninitialised until
  // decoded: a file of megabytes need not be zero-filled first.
  std::unique_ptr<char16_t[]> text_;
  char16_t* begin_ = nullptr;
  char16_t* end_ = nullptr;  // the decoded text's final NUL
  char16_t* pos_ = nullptr;
  HRESULT inputError_ = S_OK;  // why the text ends where it does, S_OK at the document's real end
  bool hasInput_ = false;

  // A character overwritten by the terminator of the last value, put back
  // before parsing goes on.
  char16_t* savedAt_ = nullptr;
  char16_t savedChar_ = 0;

  // The declaration's names and values, terminated once it has been parsed.
  std::vector<char16_t*> pendingTerminators_;

  HRESULT error_ = S_OK;
  bool done_ = false;
  bool rootSeen_ = false;
  bool popOnNextRead_ = false;
  bool scopeEndsOnNextRead_ = false;
  std::size_t scopeEndDepth_ = 0;

  XmlNodeType nodeType_ = XmlNodeType_None;
  UINT depth_ = 0;
  bool emptyElement_ = false;
  Span prefix_{};
  Span localName_{};
  Span value_{};
  std::vector<Attribute> attributes_;
  int currentAttribute_ = -1;

  std::vector<OpenElement> open_;
  // The declarations in scope, innermost last, and every prefix declared so
  // far with the number of its declarations in scope, found through an
  // open-addressed table: whether a prefix is bound is one lookup however
  // many are declared, and an element's end takes back only its own. A
  // prefix that falls out of scope keeps its entry (at zero) until the next
  // document. The table is kept at most half full.
  std::vector<Binding> bindings_;
  std::vector<Prefix> prefixes_;
  std::vector<std::uint32_t> prefixSlots_;
  // An open-addressed table of attributes, for finding a repeated one among
  // many.
  std::vector<std::uint32_t> attributeSlots_;
};

}  // namespace kel::xml
