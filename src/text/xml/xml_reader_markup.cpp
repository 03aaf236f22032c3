// The markup other than elements and text: comments, CDATA sections,
// processing instructions and the XML declaration.
#include "text/xml/xml_reader.h"

#include <string_view>

#include "text/xml/xml_scan.h"

namespace kel::xml {

// The character classes are this file's vocabulary.
using namespace scan;

HRESULT XmlReader::ParseMarkupDeclaration() {
  const int comment = MatchWord(pos_, "<!--");
  if (comment > 0) return ParseComment();
  if (comment < 0) return EndError();
  if (pos_[2] == '-') return WC_E_COMMENT;
  if (pos_[2] == '[') {
    const int cdata = MatchWord(pos_, "<![CDATA[");
    if (cdata < 0) return EndError();
    if (cdata == 0 || open_.empty()) return WC_E_SYNTAX;
    return ParseCData();
  }
  if (pos_[2] == 'D') {
    const int doctype = MatchWord(pos_, "<!DOCTYPE");
    if (doctype < 0) return EndError();
    if (doctype > 0 && !rootSeen_) return WC_E_DTDPROHIBITED;
  }
  return WC_E_SYNTAX;
}

// Folds the text from `p` to the terminator that `ends` finds in place, each
// CR or CRLF becoming one LF, and names it in `text` (NUL-terminated where
// the terminator began). `p` is left at the terminator. `ends(p)` gives S_OK
// at the terminator, S_FALSE elsewhere, or an error.
template <typename Ends>
HRESULT XmlReader::FoldLineEndsUntil(char16_t*& p, Span& text, Ends ends) const {
  char16_t* const start = p;
  char16_t* out = p;
  for (;;) {
    const HRESULT at = ends(p);
    if (at == S_OK) break;
    if (at != S_FALSE) return at;
    const char16_t c = *p;
    if (c == 0) return EndError();
    if (c == '\r') {
      FoldLineEnd(p, out, '\n');
      continue;
    }
    *out++ = c;
    ++p;
  }
  text = {start, static_cast<UINT>(out - start)};
  *out = 0;
  return S_OK;
}

// The text from `p` to the three-unit terminator that `ends` finds, made the
// current node's value where it stands.
template <typename Ends>
HRESULT XmlReader::TakeDelimitedText(char16_t* p, XmlNodeType type, Ends ends) {
  const HRESULT hr = FoldLineEndsUntil(p, value_, ends);
  if (Failed(hr)) return hr;
  pos_ = p + 3;
  nodeType_ = type;
  depth_ = static_cast<UINT>(open_.size());
  return S_OK;
}

HRESULT XmlReader::ParseComment() {
  // "--" may only come before the closing '>'.
  return TakeDelimitedText(pos_ + 4, XmlNodeType_Comment, [this](const char16_t* p) -> HRESULT {
    if (p[0] != '-' || p[1] != '-') return S_FALSE;
    if (p[2] == '>') return S_OK;
    return p[2] == 0 ? EndError() : WC_E_COMMENT;
  });
}

HRESULT XmlReader::ParseCData() {
  return TakeDelimitedText(pos_ + 9, XmlNodeType_CDATA, [](const char16_t* p) -> HRESULT {
    return p[0] == ']' && p[1] == ']' && p[2] == '>' ? S_OK : S_FALSE;
  });
}

HRESULT XmlReader::ParseProcessingInstruction() {
  char16_t* p = pos_ + 2;
  char16_t* const target = p;
  if (!StepNameStart(p)) return *p == 0 ? EndError() : WC_E_PI;
  SkipNameParts(p);
  if (*p == ':') return NC_E_NAMECOLON;
  char16_t* const targetEnd = p;
  const std::size_t targetLength = static_cast<std::size_t>(targetEnd - target);
  if (targetLength == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' && (target[2] | 0x20) == 'l') {
    return WC_E_LEADINGXML;
  }
  Span value{kEmpty, 0};
  if (*p == '?' && p[1] == '>') {
    p += 2;
  } else if (IsSpace(*p)) {
    while (IsSpace(*p)) ++p;
    const HRESULT hr = FoldLineEndsUntil(
        p, value, [](const char16_t* at) -> HRESULT { return at[0] == '?' && at[1] == '>' ? S_OK : S_FALSE; });
    if (Failed(hr)) return hr;
    p += 2;
  } else if (*p == 0 || (*p == '?' && p[1] == 0)) {
    return EndError();
  } else {
    return WC_E_WHITESPACE;
  }
  *targetEnd = 0;
  pos_ = p;
  nodeType_ = XmlNodeType_ProcessingInstruction;
  depth_ = static_cast<UINT>(open_.size());
  localName_ = {target, static_cast<UINT>(targetLength)};
  value_ = value;
  return S_OK;
}

// <?xml version="1.x" encoding="..." standalone="yes|no"?>, reported as one
// node whose pseudo-attributes are its attributes.
HRESULT XmlReader::ParseDeclaration() {
  pendingTerminators_.clear();
  char16_t* p = pos_ + 5;
  auto skipSpaces = [&p] {
    char16_t* before = p;
    while (IsSpace(*p)) ++p;
    return p != before;
  };
  // Parses `name = "value"` at p into an attribute; 0 when the name is not
  // there, 1 when it was read, or a failure.
  auto attribute = [&](std::string_view name, Span& value) -> HRESULT {
    const int match = MatchWord(p, name);
    if (match < 0) return EndError();
    if (match == 0) return S_FALSE;
    Attribute a;
    a.prefix = {kEmpty, 0};
    a.localName = {p, static_cast<UINT>(name.size())};
    p += name.size();
    pendingTerminators_.push_back(p);
    skipSpaces();
    if (*p != '=') return *p == 0 ? EndError() : WC_E_XMLDECL;
    ++p;
    skipSpaces();
    const char16_t quote = *p;
    if (quote != '"' && quote != '\'') return quote == 0 ? EndError() : WC_E_XMLDECL;
    char16_t* const start = ++p;
    while (*p != quote) {
      if (*p == 0) return EndError();
      if (*p == '<' || *p == '&') return WC_E_XMLDECL;
      ++p;
    }
    a.value = {start, static_cast<UINT>(p - start)};
    pendingTerminators_.push_back(p);
    ++p;
    value = a.value;
    attributes_.push_back(a);
    return S_OK;
  };

  if (!skipSpaces()) return *p == 0 ? EndError() : WC_E_XMLDECL;
  Span value;
  HRESULT hr = attribute("version", value);
  if (hr != S_OK) return Failed(hr) ? hr : WC_E_XMLDECL;
  if (value.length < 3 || value.text[0] != '1' || value.text[1] != '.') return WC_E_XMLDECL;
  for (UINT i = 2; i < value.length; ++i) {
    if (value.text[i] < '0' || value.text[i] > '9') return WC_E_XMLDECL;
  }

  bool space = skipSpaces();
  if (space) {
    hr = attribute("encoding", value);
    if (Failed(hr)) return hr;
    if (hr == S_OK) {
      if (value.length == 0) return WC_E_XMLDECL;
      for (UINT i = 0; i < value.length; ++i) {
        const char16_t c = value.text[i];
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        const bool other = (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
        if (!letter && (i == 0 || !other)) return WC_E_XMLDECL;
      }
      space = skipSpaces();
    }
  }
  if (space) {
    hr = attribute("standalone", value);
    if (Failed(hr)) return hr;
    if (hr == S_OK) {
      if (!Equals(value.text, value.length, u"yes") && !Equals(value.text, value.length, u"no")) {
        return WC_E_XMLDECL;
      }
      skipSpaces();
    }
  }
  if (*p != '?' || p[1] != '>') return (*p == 0 || (*p == '?' && p[1] == 0)) ? EndError() : WC_E_XMLDECL;
  p += 2;

  char16_t* const name = pos_ + 2;
  pendingTerminators_.push_back(name + 3);
  for (char16_t* at : pendingTerminators_) *at = 0;
  pos_ = p;
  nodeType_ = XmlNodeType_XmlDeclaration;
  depth_ = 0;
  localName_ = {name, 3};
  return S_OK;
}

}  // namespace kel::xml
