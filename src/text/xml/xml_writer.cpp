#include "text/xml/xml_writer.h"

#include <algorithm>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <cstdint>
#include <string>
#include <string_view>

#include "text/xml/xml_reader.h"

namespace kel::xml {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kIndentWidth = 2;

void AppendUtf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// The reference written for a character of an attribute value, or nothing.
// Literal tabs and line ends would read back as spaces, so they are written
// as references too.
std::string_view AttributeReference(char16_t c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\t':
      return "&#x9;";
    case '\n':
      return "&#xA;";
    case '\r':
      return "&#xD;";
    default:
      return {};
  }
}

inline bool IsPlainUnit(char16_t c, bool escape) {
  return c >= 0x20 && c < 0x80 && !(escape && (c == '&' || c == '<' || c == '>' || c == '"'));
}

// Where the run of units from `i` that are written as one byte each, with
// no reference, ends: printable ASCII, and with `escape` none of & < > ".
std::size_t PlainRunEnd(std::u16string_view text, std::size_t i, bool escape) {
  const char16_t* units = text.data();
  const std::size_t n = text.size();
#if defined(__SSE2__)
  const __m128i nonAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
  const __m128i control = _mm_set1_epi16(0x1F);
  const __m128i amp = _mm_set1_epi16('&'), lt = _mm_set1_epi16('<'), gt = _mm_set1_epi16('>'),
                quot = _mm_set1_epi16('"');
  while (n - i >= 8) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + i));
    __m128i bad = _mm_cmpeq_epi16(_mm_and_si128(v, nonAscii), _mm_setzero_si128());  // ASCII lanes
    bad = _mm_and_si128(bad, _mm_cmpgt_epi16(v, control));                           // and printable
    if (escape) {
      const __m128i special = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(v, amp), _mm_cmpeq_epi16(v, lt)),
                                           _mm_or_si128(_mm_cmpeq_epi16(v, gt), _mm_cmpeq_epi16(v, quot)));
      bad = _mm_andnot_si128(special, bad);
    }
    const unsigned plain = static_cast<unsigned>(_mm_movemask_epi8(bad));
    if (plain != 0xFFFF) return i + static_cast<std::size_t>(__builtin_ctz(~plain & 0xFFFF)) / 2;
    i += 8;
  }
#endif
  while (i < n && IsPlainUnit(units[i], escape)) ++i;
  return i;
}

// Appends `text` as UTF-8; with `escape`, as the content of a double-quoted
// attribute value. On failure `out` is left as it was.
HRESULT AppendText(std::string& out, std::u16string_view text, bool escape) {
  const std::size_t mark = out.size();
  for (std::size_t i = 0; i < text.size(); ++i) {
    // A run that needs neither a reference nor more than one byte is
    // copied in one go.
    std::size_t end = PlainRunEnd(text, i, escape);
    if (end > i) {
      char narrow[256];
      while (i < end) {
        const std::size_t n = std::min<std::size_t>(end - i, sizeof narrow);
        for (std::size_t k = 0; k < n; ++k) narrow[k] = static_cast<char>(text[i + k]);
        out.append(narrow, n);
        i += n;
      }
      --i;  // the loop steps on to the character after the run
      continue;
    }
    const char16_t c = text[i];
    if (escape) {
      const std::string_view reference = AttributeReference(c);
      if (!reference.empty()) {
        out += reference;
        continue;
      }
    }
    if ((c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0xFFFE || c == 0xFFFF) {
      out.resize(mark);
      return WC_E_XMLCHARACTER;
    }
    if (c >= 0xD800 && c <= 0xDFFF) {
      if (c >= 0xDC00 || i + 1 >= text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) {
        out.resize(mark);
        return WR_E_INVALIDSURROGATEPAIR;
      }
      const std::uint32_t cp = 0x10000 + ((static_cast<std::uint32_t>(c) - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      AppendUtf8(out, cp);
      ++i;
      continue;
    }
    AppendUtf8(out, c);
  }
  return S_OK;
}

std::u16string_view View(const char16_t* text) { return text ? std::u16string_view(text) : std::u16string_view(); }

std::string QualifiedName(std::u16string_view prefix, std::u16string_view localName) {
  std::string name;
  if (!prefix.empty()) {
    AppendText(name, prefix, false);
    name += ':';
  }
  AppendText(name, localName, false);
  return name;
}

}  // namespace

HRESULT XmlWriter::Fail(HRESULT hr) {
  state_ = State::Failed;
  failure_ = hr;
  return hr;
}

std::string XmlWriter::TakeOutput() {
  std::string output = std::move(output_);
  output_.clear();
  state_ = State::Initial;
  failure_ = S_OK;
  startTagOpen_ = false;
  open_.clear();
  bindings_.clear();
  pending_.clear();
  attributeNames_.clear();
  generatedPrefixes_ = 0;
  return output;
}

void XmlWriter::NewLine(std::size_t depth) {
  output_ += kLineEnd;
  output_.append(depth * kIndentWidth, ' ');
}

void XmlWriter::WriteNamespaceDeclaration(const std::u16string& prefix, const std::u16string& uri) {
  output_ += prefix.empty() ? " xmlns" : " xmlns:";
  AppendText(output_, prefix, false);
  output_ += "=\"";
  AppendText(output_, uri, true);
  output_ += '"';
}

// The system writer puts an element's own namespace declaration after the
// attributes written for it, so it is held until the start tag closes.
void XmlWriter::WritePendingDeclarations() {
  for (const PendingDeclaration& declaration : pending_) WriteNamespaceDeclaration(declaration.prefix, declaration.uri);
  pending_.clear();
}

void XmlWriter::CloseStartTag() {
  if (!startTagOpen_) return;
  WritePendingDeclarations();
  output_ += '>';
  startTagOpen_ = false;
}

const std::u16string* XmlWriter::LookupPrefix(const std::u16string& prefix) const {
  for (auto it = bindings_.rbegin(); it != bindings_.rend(); ++it) {
    if (it->prefix == prefix) return &it->uri;
  }
  return nullptr;
}

// A prefix in scope for `uri` that no inner declaration hides.
const std::u16string* XmlWriter::LookupUri(const std::u16string& uri, bool allowDefault) const {
  for (auto it = bindings_.rbegin(); it != bindings_.rend(); ++it) {
    if (it->uri != uri || (!allowDefault && it->prefix.empty())) continue;
    if (LookupPrefix(it->prefix) == &it->uri) return &it->prefix;
  }
  return nullptr;
}

HRESULT XmlWriter::WriteStartDocument() {
  if (state_ == State::Failed) return failure_;
  if (state_ != State::Initial) return Fail(WR_E_INVALIDACTION);
  output_ += kByteOrderMark;
  output_ += kDeclaration;
  state_ = State::Prolog;
  return S_OK;
}

HRESULT XmlWriter::WriteStartElement(const char16_t* prefix, const char16_t* localName, const char16_t* namespaceUri) {
  if (state_ == State::Failed) return failure_;
  if (!localName || !*localName) return E_INVALIDARG;
  if (state_ == State::Epilog || state_ == State::Closed) return Fail(WR_E_INVALIDACTION);
  std::u16string elementPrefix(View(prefix));
  const std::u16string uri(View(namespaceUri));
  if (!IsNcName(localName) || (!elementPrefix.empty() && !IsNcName(elementPrefix))) return WC_E_NAMECHARACTER;

  bool declare = false;
  if (!uri.empty()) {
    if (!prefix) {
      const std::u16string* found = LookupUri(uri, true);
      declare = found == nullptr;
      if (found) elementPrefix = *found;
    } else {
      const std::u16string* bound = LookupPrefix(elementPrefix);
      declare = !bound || *bound != uri;
    }
  } else if (!elementPrefix.empty() && elementPrefix != u"xml" && !LookupPrefix(elementPrefix)) {
    return WR_E_NSPREFIXWITHEMPTYNSURI;
  }

  CloseStartTag();
  if (!open_.empty() || state_ == State::Prolog) NewLine(open_.size());
  open_.push_back(QualifiedName(elementPrefix, localName));
  output_ += '<';
  output_ += open_.back();
  state_ = State::Content;
  startTagOpen_ = true;
  attributeNames_.clear();
  if (declare) {
    pending_.push_back({elementPrefix, uri});
    bindings_.push_back({elementPrefix, uri, open_.size() - 1});
  }
  return S_OK;
}

bool XmlWriter::HasAttributeNamed(std::string_view name) const {
  for (const auto& [at, length] : attributeNames_) {
    if (std::string_view(output_.data() + at, length) == name) return true;
  }
  return false;
}

HRESULT XmlWriter::FinishAttribute(std::size_t mark, std::size_t nameAt, std::size_t nameLength,
                                   std::u16string_view value) {
  output_ += "=\"";
  const HRESULT hr = AppendText(output_, value, true);
  if (Failed(hr)) {
    output_.resize(mark);
    return hr;
  }
  output_ += '"';
  attributeNames_.emplace_back(nameAt, nameLength);
  return S_OK;
}

HRESULT XmlWriter::WriteAttributeString(const char16_t* prefix, const char16_t* localName, const char16_t* namespaceUri,
                                        const char16_t* value) {
  return WriteAttributeString(prefix, localName, namespaceUri, View(value));
}

HRESULT XmlWriter::WriteAttributeString(const char16_t* prefix, const char16_t* localName, const char16_t* namespaceUri,
                                        std::u16string_view value) {
  if (state_ == State::Failed) return failure_;
  if (!localName || !*localName) return E_INVALIDARG;
  if (!startTagOpen_) return Fail(WR_E_INVALIDACTION);
  // An attribute without prefix or namespace, the usual case.
  if (prefix == nullptr && namespaceUri == nullptr) {
    const std::u16string_view local(localName);
    if (local != u"xmlns") {
      if (!IsNcName(local)) return WC_E_NAMECHARACTER;
      // The name is written first and compared where it stands.
      const std::size_t mark = output_.size();
      output_ += ' ';
      const std::size_t nameAt = output_.size();
      AppendText(output_, local, false);
      const std::size_t nameLength = output_.size() - nameAt;
      if (HasAttributeNamed(std::string_view(output_.data() + nameAt, nameLength))) {
        output_.resize(mark);
        return WR_E_DUPLICATEATTRIBUTE;
      }
      return FinishAttribute(mark, nameAt, nameLength, value);
    }
  }
  std::u16string attributePrefix(View(prefix));
  const std::u16string local(localName);
  const std::u16string uri(View(namespaceUri));
  if (!IsNcName(local) || (!attributePrefix.empty() && !IsNcName(attributePrefix))) return WC_E_NAMECHARACTER;

  const bool declaresPrefix = attributePrefix == u"xmlns";
  const bool declaresDefault = attributePrefix.empty() && local == u"xmlns";
  bool declare = false;
  if (!declaresPrefix && !declaresDefault) {
    if (!uri.empty()) {
      if (attributePrefix.empty()) {
        // An unprefixed attribute is in no namespace, so this one needs a
        // prefix: one already bound to the namespace, or a new one.
        if (const std::u16string* found = LookupUri(uri, false)) {
          attributePrefix = *found;
        } else {
          do {
            std::u16string generated(1, u'p');
            for (char d : std::to_string(++generatedPrefixes_)) generated += static_cast<char16_t>(d);
            attributePrefix.swap(generated);
          } while (LookupPrefix(attributePrefix));
          declare = true;
        }
      } else if (attributePrefix != u"xml") {
        const std::u16string* bound = LookupPrefix(attributePrefix);
        declare = !bound || *bound != uri;
      }
    } else if (!attributePrefix.empty() && attributePrefix != u"xml" && !LookupPrefix(attributePrefix)) {
      return WR_E_NSPREFIXWITHEMPTYNSURI;
    }
  }

  const std::string name = QualifiedName(attributePrefix, local);
  if (HasAttributeNamed(name)) return WR_E_DUPLICATEATTRIBUTE;
  const std::size_t mark = output_.size();
  output_ += ' ';
  const std::size_t nameAt = output_.size();
  output_ += name;
  const HRESULT hr = FinishAttribute(mark, nameAt, name.size(), value);
  if (Failed(hr)) return hr;

  const std::size_t depth = open_.size() - 1;
  if (declaresPrefix || declaresDefault) {
    const std::u16string bound = declaresPrefix ? local : std::u16string();
    // Declared explicitly: the element's own declaration of it would
    // only repeat it.
    pending_.erase(std::remove_if(pending_.begin(), pending_.end(),
                                  [&](const PendingDeclaration& d) { return d.prefix == bound; }),
                   pending_.end());
    bindings_.push_back({bound, std::u16string(value), depth});
  } else if (declare) {
    WriteNamespaceDeclaration(attributePrefix, uri);
    bindings_.push_back({attributePrefix, uri, depth});
  }
  return S_OK;
}

HRESULT XmlWriter::WriteEndElement() {
  if (state_ == State::Failed) return failure_;
  if (open_.empty()) return Fail(WR_E_INVALIDACTION);
  if (startTagOpen_) {
    WritePendingDeclarations();
    output_ += " />";
    startTagOpen_ = false;
  } else {
    NewLine(open_.size() - 1);
    output_ += "</";
    output_ += open_.back();
    output_ += '>';
  }
  const std::size_t depth = open_.size() - 1;
  while (!bindings_.empty() && bindings_.back().depth >= depth) bindings_.pop_back();
  open_.pop_back();
  if (open_.empty()) state_ = State::Epilog;
  return S_OK;
}

HRESULT XmlWriter::WriteEndDocument() {
  if (state_ == State::Failed) return failure_;
  if (state_ != State::Content && state_ != State::Epilog) return Fail(WR_E_INVALIDACTION);
  while (!open_.empty()) (void)WriteEndElement();  // closes an open element: cannot fail
  state_ = State::Closed;
  return S_OK;
}

HRESULT XmlWriter::Flush() { return S_OK; }

}  // namespace kel::xml
