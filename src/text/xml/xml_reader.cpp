#include "text/xml/xml_reader.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "text/xml/xml_decoder.h"
#include "text/xml/xml_scan.h"

namespace kel::xml {

// The character classes are this file's vocabulary.
using namespace scan;

XmlReader::XmlReader() { ResetNode(); }

void XmlReader::ResetNode() {
  nodeType_ = XmlNodeType_None;
  emptyElement_ = false;
  prefix_ = {kEmpty, 0};
  localName_ = {kEmpty, 0};
  value_ = {kEmpty, 0};
  attributes_.clear();
  currentAttribute_ = -1;
}

HRESULT XmlReader::SetInput(std::string_view bytes) {
  // The declared prefixes point into the old text.
  bindings_.clear();
  prefixes_.clear();
  prefixSlots_.clear();
  open_.clear();
  hasInput_ = true;
  savedAt_ = nullptr;
  done_ = false;
  rootSeen_ = false;
  popOnNextRead_ = false;
  scopeEndsOnNextRead_ = false;
  depth_ = 0;
  ResetNode();
  if (bytes.size() > kMaxInputBytes) {
    Decode({});
    error_ = kInputTooLarge;
    return error_;
  }
  Decode(bytes);
  error_ = S_OK;
  return S_OK;
}

// The decoded text becomes the reader's own: from here on it is scanned and
// its values are rewritten where they stand.
void XmlReader::Decode(std::string_view bytes) {
  DecodedText decoded = DecodeDocument(bytes);
  text_ = std::move(decoded.text);
  inputError_ = decoded.error;
  begin_ = text_.get();
  end_ = begin_ + decoded.length;
  pos_ = begin_;
}

HRESULT XmlReader::EndError() const { return inputError_ != S_OK ? inputError_ : MX_E_INPUTEND; }

HRESULT XmlReader::Read(XmlNodeType* nodeType) {
  if (nodeType) *nodeType = XmlNodeType_None;
  if (!hasInput_) return S_FALSE;
  if (error_ != S_OK) return error_;
  if (done_) return S_FALSE;

  if (savedAt_) {
    *savedAt_ = savedChar_;
    savedAt_ = nullptr;
  }
  if (popOnNextRead_) {
    open_.pop_back();
    popOnNextRead_ = false;
  }
  if (scopeEndsOnNextRead_) {
    UnbindFrom(scopeEndDepth_);
    scopeEndsOnNextRead_ = false;
  }
  ResetNode();

  const HRESULT hr = ParseNode();
  if (hr == S_OK) {
    if (nodeType) *nodeType = nodeType_;
    return S_OK;
  }
  ResetNode();
  depth_ = 0;
  if (hr == S_FALSE) {
    done_ = true;
    return S_FALSE;
  }
  error_ = hr;
  return hr;
}

HRESULT XmlReader::ParseNode() { return (rootSeen_ && !open_.empty()) ? ParseContent() : ParseTopLevel(); }

// Before and after the root element: whitespace, comments, processing
// instructions, the declaration at the very start, and the root itself.
HRESULT XmlReader::ParseTopLevel() {
  const char16_t c = *pos_;
  if (c == 0) {
    // An invalid character outside the root is a syntax error, like any
    // other stray text there.
    if (inputError_ == WC_E_XMLCHARACTER) return WC_E_SYNTAX;
    if (rootSeen_ && inputError_ == S_OK) return S_FALSE;
    return EndError();
  }
  if (IsSpace(c)) return ParseTopLevelWhitespace();
  if (c != '<') return WC_E_SYNTAX;
  const char16_t next = pos_[1];
  if (next == '?') {
    if (pos_ == begin_) {
      const int xml = MatchWord(pos_, "<?xml");
      if (xml < 0) return EndError();
      if (xml > 0 && (IsSpace(pos_[5]) || pos_[5] == '?')) return ParseDeclaration();
      if (xml > 0 && pos_[5] == 0) return EndError();
    }
    return ParseProcessingInstruction();
  }
  if (next == '!') return ParseMarkupDeclaration();
  if (next == 0) return EndError();
  if (rootSeen_) return WC_E_SYNTAX;
  if (next == '/') return NC_E_QNAMECHARACTER;
  return ParseStartTag();
}

HRESULT XmlReader::ParseContent() {
  const char16_t c = *pos_;
  if (c == '<') {
    const char16_t next = pos_[1];
    if (next == '/') return ParseEndTag();
    if (next == '?') return ParseProcessingInstruction();
    if (next == '!') return ParseMarkupDeclaration();
    if (next == 0) return EndError();
    return ParseStartTag();
  }
  if (c == 0) return EndError();
  return ParseText();
}

void XmlReader::Terminate(char16_t* at) {
  if (*at != 0) {
    savedAt_ = at;
    savedChar_ = *at;
    *at = 0;
  }
}

HRESULT XmlReader::ParseQName(char16_t*& p, Span& prefix, Span& localName) {
  char16_t* start = p;
  if (!StepNameStart(p)) return *p == 0 ? EndError() : NC_E_QNAMECHARACTER;
  SkipNameParts(p);
  if (*p == ':') {
    char16_t* colon = p++;
    char16_t* local = p;
    if (!StepNameStart(p)) return *p == 0 ? EndError() : NC_E_QNAMECHARACTER;
    SkipNameParts(p);
    if (*p == ':') return NC_E_QNAMECOLON;
    prefix = {start, static_cast<UINT>(colon - start)};
    localName = {local, static_cast<UINT>(p - local)};
  } else {
    prefix = {kEmpty, 0};
    localName = {start, static_cast<UINT>(p - start)};
  }
  return S_OK;
}

// Decodes the reference at `p` ('&') into `out`, which never runs ahead of
// `p`: a reference is always longer than what it stands for.
HRESULT XmlReader::ParseReference(char16_t*& p, char16_t*& out) {
  char16_t* q = p + 1;
  if (*q == '#') {
    ++q;
    std::uint32_t v = 0;
    if (*q == 'x') {
      ++q;
      if (!IsHexDigit(*q)) return *q == 0 ? EndError() : WC_E_HEXDIGIT;
      while (IsHexDigit(*q)) {
        v = std::min<std::uint32_t>(v * 16 + HexValue(*q), 0x110000);
        ++q;
      }
    } else {
      if (*q < '0' || *q > '9') return *q == 0 ? EndError() : WC_E_DIGIT;
      while (*q >= '0' && *q <= '9') {
        v = std::min<std::uint32_t>(v * 10 + (*q - '0'), 0x110000);
        ++q;
      }
    }
    if (*q != ';') return *q == 0 ? EndError() : WC_E_SEMICOLON;
    if (!IsXmlChar(v)) return WC_E_XMLCHARACTER;
    if (v >= 0x10000) {
      v -= 0x10000;
      *out++ = static_cast<char16_t>(0xD800 + (v >> 10));
      *out++ = static_cast<char16_t>(0xDC00 + (v & 0x3FF));
    } else {
      *out++ = static_cast<char16_t>(v);
    }
    p = q + 1;
    return S_OK;
  }
  char16_t* name = q;
  if (!StepNameStart(q)) return *q == 0 ? EndError() : WC_E_NAME;
  SkipNameParts(q);
  while (*q == ':') {
    ++q;
    SkipNameParts(q);
  }
  if (*q != ';') return *q == 0 ? EndError() : WC_E_SEMICOLON;
  const std::size_t length = static_cast<std::size_t>(q - name);
  char16_t c;
  if (Equals(name, length, u"lt")) {
    c = '<';
  } else if (Equals(name, length, u"gt")) {
    c = '>';
  } else if (Equals(name, length, u"amp")) {
    c = '&';
  } else if (Equals(name, length, u"apos")) {
    c = '\'';
  } else if (Equals(name, length, u"quot")) {
    c = '"';
  } else {
    return WC_E_UNDECLAREDENTITY;
  }
  *out++ = c;
  p = q + 1;
  return S_OK;
}

// Unescapes and normalises the quoted value at `p` in place: line ends and
// literal tabs become spaces, references are decoded (a referenced tab or
// line end stays what it is).
HRESULT XmlReader::ParseAttributeValue(char16_t*& p, Span& value) {
  const char16_t quote = *p++;
  char16_t* const start = p;
  // Until the first character that needs rewriting, the value stays where
  // it is.
  const std::uint64_t stops =
      (1ull << 0) | (1ull << '\t') | (1ull << '\n') | (1ull << '\r') | (1ull << '&') | (1ull << '<') | (1ull << quote);
#if defined(__SSE2__)
  // Eight units at a time while none is a control character, '&', '<' or
  // the quote; the scan below settles the rest. The text's final NUL bounds
  // the loads.
  const __m128i below = _mm_set1_epi16(0x20), amp = _mm_set1_epi16('&'), lt = _mm_set1_epi16('<'),
                q = _mm_set1_epi16(static_cast<short>(quote));
  while (end_ - p >= 8) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    // Units from 0x8000 compare as negative; they are not stops, so they
    // are taken out of the "below" test.
    const __m128i control = _mm_andnot_si128(_mm_srai_epi16(v, 15), _mm_cmplt_epi16(v, below));
    const __m128i stop = _mm_or_si128(_mm_or_si128(control, _mm_cmpeq_epi16(v, amp)),
                                      _mm_or_si128(_mm_cmpeq_epi16(v, lt), _mm_cmpeq_epi16(v, q)));
    if (_mm_movemask_epi8(stop) != 0) break;
    p += 8;
  }
#endif
  for (char16_t c = *p; c >= 0x40 || !((stops >> c) & 1);) c = *++p;
  char16_t* out = p;
  for (;;) {
    const char16_t c = *p;
    if (c == quote) break;
    switch (c) {
      case 0:
        return EndError();
      case '<':
        return WC_E_LESSTHAN;
      case '&':
        if (const HRESULT hr = ParseReference(p, out); Failed(hr)) return hr;
        continue;
      case '\r':
        FoldLineEnd(p, out, ' ');
        continue;
      case '\n':
      case '\t':
        *out++ = ' ';
        ++p;
        continue;
      default:
        *out++ = c;
        ++p;
    }
  }
  value = {start, static_cast<UINT>(out - start)};
  ++p;
  *out = 0;
  return S_OK;
}

// Writes the terminators of a name read by ParseQName: over its colon and
// after its local name.
void XmlReader::TerminateName(const Span& prefix, const Span& localName) {
  if (prefix.length != 0) begin_[prefix.text + prefix.length - begin_] = 0;
  begin_[localName.text + localName.length - begin_] = 0;
}

HRESULT XmlReader::ParseStartTag() {
  char16_t* p = pos_ + 1;
  Span prefix;
  Span localName;
  HRESULT hr = ParseQName(p, prefix, localName);
  if (Failed(hr)) return hr;
  const std::size_t depth = open_.size();
  if (depth >= kMaxElementDepth) return SC_E_MAXELEMENTDEPTH;

  bool empty = false;
  for (;;) {
    char16_t* beforeSpace = p;
    while (IsSpace(*p)) ++p;
    const char16_t c = *p;
    if (c == '>') {
      ++p;
      break;
    }
    if (c == '/') {
      if (p[1] == '>') {
        p += 2;
        empty = true;
        break;
      }
      return p[1] == 0 ? EndError() : WC_E_GREATERTHAN;
    }
    if (c == 0) return EndError();
    if (p == beforeSpace) {
      char16_t* probe = p;
      return StepNameStart(probe) ? WC_E_WHITESPACE : WC_E_GREATERTHAN;
    }
    Attribute attribute;
    hr = ParseQName(p, attribute.prefix, attribute.localName);
    if (Failed(hr)) return hr;
    while (IsSpace(*p)) ++p;
    if (*p != '=') return *p == 0 ? EndError() : WC_E_EQUAL;
    ++p;
    while (IsSpace(*p)) ++p;
    if (*p != '"' && *p != '\'') return *p == 0 ? EndError() : WC_E_QUOTE;
    hr = ParseAttributeValue(p, attribute.value);
    if (Failed(hr)) return hr;
    attributes_.push_back(attribute);
  }

  hr = CheckAttributes();
  if (Failed(hr)) return hr;
  prefix_ = prefix;
  hr = BindNamespaces(depth);
  if (Failed(hr)) return hr;
  // The names end where the tag's text went on, so they are terminated only
  // now that it has been read.
  TerminateName(prefix, localName);
  for (const Attribute& attribute : attributes_) TerminateName(attribute.prefix, attribute.localName);

  pos_ = p;
  rootSeen_ = true;
  nodeType_ = XmlNodeType_Element;
  depth_ = static_cast<UINT>(depth);
  localName_ = localName;
  emptyElement_ = empty;
  if (empty) {
    scopeEndsOnNextRead_ = true;
    scopeEndDepth_ = depth;
  } else {
    open_.push_back({prefix, localName});
  }
  return S_OK;
}

HRESULT XmlReader::ParseEndTag() {
  char16_t* p = pos_ + 2;
  Span prefix;
  Span localName;
  const HRESULT hr = ParseQName(p, prefix, localName);
  if (Failed(hr)) return hr;
  while (IsSpace(*p)) ++p;
  if (*p != '>') return *p == 0 ? EndError() : WC_E_GREATERTHAN;
  const OpenElement& open = open_.back();
  if (!SameText(localName.text, localName.length, open.localName.text, open.localName.length) ||
      !SameText(prefix.text, prefix.length, open.prefix.text, open.prefix.length)) {
    return WC_E_ELEMENTMATCH;
  }
  pos_ = p + 1;
  nodeType_ = XmlNodeType_EndElement;
  // The end tag sits one level below its start tag, as the system reader
  // reports it; the element leaves the stack on the next Read.
  depth_ = static_cast<UINT>(open_.size());
  prefix_ = open.prefix;
  localName_ = open.localName;
  popOnNextRead_ = true;
  scopeEndsOnNextRead_ = true;
  scopeEndDepth_ = open_.size() - 1;
  return S_OK;
}

HRESULT XmlReader::ParseText() {
  char16_t* p = pos_;
  char16_t* out = p;
  bool whitespace = true;
  for (;;) {
    const char16_t c = *p;
    if (c == '<') break;
    switch (c) {
      case 0:
        return EndError();
      case '&':
        whitespace = false;
        if (const HRESULT hr = ParseReference(p, out); Failed(hr)) return hr;
        continue;
      case ']':
        if (p[1] == ']' && p[2] == '>') return WC_E_CDSECTEND;
        whitespace = false;
        break;
      // White space keeps the node whitespace; a CR, alone or before an LF,
      // is written as the one LF it stands for.
      case '\r':
        FoldLineEnd(p, out, '\n');
        continue;
      case ' ':
      case '\n':
      case '\t':
        break;
      default:
        whitespace = false;
    }
    *out++ = c;
    ++p;
  }
  value_ = {pos_, static_cast<UINT>(out - pos_)};
  if (out == p) {
    Terminate(p);
  } else {
    *out = 0;
  }
  pos_ = p;
  nodeType_ = whitespace ? XmlNodeType_Whitespace : XmlNodeType_Text;
  depth_ = static_cast<UINT>(open_.size());
  return S_OK;
}

HRESULT XmlReader::ParseTopLevelWhitespace() {
  char16_t* p = pos_;
  char16_t* out = p;
  while (IsSpace(*p)) {
    if (*p == '\r') {
      FoldLineEnd(p, out, '\n');
    } else {
      *out++ = *p++;
    }
  }
  if (*p == 0) {
    if (inputError_ == WC_E_XMLCHARACTER) return WC_E_SYNTAX;
  } else if (*p != '<') {
    return WC_E_SYNTAX;
  }
  value_ = {pos_, static_cast<UINT>(out - pos_)};
  if (out == p) {
    Terminate(p);
  } else {
    *out = 0;
  }
  pos_ = p;
  nodeType_ = XmlNodeType_Whitespace;
  depth_ = 0;
  return S_OK;
}

// --- node properties ----------------------------------------------------------

HRESULT XmlReader::GetNodeType(XmlNodeType* nodeType) const {
  if (!nodeType) return E_INVALIDARG;
  *nodeType = currentAttribute_ >= 0 ? XmlNodeType_Attribute : nodeType_;
  return hasInput_ ? S_OK : S_FALSE;
}

HRESULT XmlReader::GetLocalName(const char16_t** name, UINT* length) const {
  if (!name) return E_INVALIDARG;
  const Span& span = currentAttribute_ >= 0 ? attributes_[currentAttribute_].localName : localName_;
  *name = span.text;
  if (length) *length = span.length;
  return S_OK;
}

HRESULT XmlReader::GetPrefix(const char16_t** prefix, UINT* length) const {
  if (!prefix) return E_INVALIDARG;
  const Span& span = currentAttribute_ >= 0 ? attributes_[currentAttribute_].prefix : prefix_;
  *prefix = span.text;
  if (length) *length = span.length;
  return S_OK;
}

HRESULT XmlReader::GetValue(const char16_t** value, UINT* length) const {
  if (!value) return E_INVALIDARG;
  const Span& span = currentAttribute_ >= 0 ? attributes_[currentAttribute_].value : value_;
  *value = span.text;
  if (length) *length = span.length;
  return S_OK;
}

HRESULT XmlReader::MoveToFirstAttribute() {
  if (attributes_.empty()) return S_FALSE;
  currentAttribute_ = 0;
  return S_OK;
}

HRESULT XmlReader::MoveToNextAttribute() {
  if (currentAttribute_ < 0) return MoveToFirstAttribute();
  if (static_cast<std::size_t>(currentAttribute_) + 1 >= attributes_.size()) return S_FALSE;
  ++currentAttribute_;
  return S_OK;
}

HRESULT XmlReader::MoveToElement() {
  if (currentAttribute_ < 0) return S_FALSE;
  currentAttribute_ = -1;
  return S_OK;
}

HRESULT XmlReader::GetDepth(UINT* depth) const {
  if (!depth) return E_INVALIDARG;
  *depth = currentAttribute_ >= 0 ? depth_ + 1 : depth_;
  return S_OK;
}

bool XmlReader::IsEmptyElement() const { return currentAttribute_ < 0 && emptyElement_; }

UINT XmlReader::GetAttributeCount() const { return static_cast<UINT>(attributes_.size()); }

}  // namespace kel::xml
