#include "text/xml/xml_reader.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "text/cp932/cp932.h"

// The scanner's small helpers run for every character; they are forced
// inline so that unoptimised (debug) builds read large documents at a
// reasonable speed too.
#if defined(__GNUC__)
#define KEL_XML_INLINE inline __attribute__((always_inline))
#else
#define KEL_XML_INLINE inline
#endif

namespace kel::xml {
namespace {

const char16_t kEmpty[1] = {0};

// --- characters ---------------------------------------------------------------

KEL_XML_INLINE bool IsSpace(char16_t c) { return c == 0x20 || c == 0x0A || c == 0x09 || c == 0x0D; }

KEL_XML_INLINE bool IsXmlChar(std::uint32_t v) {
  if (v >= 0x20) return v <= 0xD7FF || (v >= 0xE000 && v <= 0xFFFD) || (v >= 0x10000 && v <= 0x10FFFF);
  return v == 0x09 || v == 0x0A || v == 0x0D;
}

// Name characters of the ASCII range, without the colon: namespaces give the
// colon its own meaning, so every name is scanned as colon-free parts.
enum : std::uint8_t { kNameStart = 1, kNamePart = 2 };

struct AsciiNameTable {
  std::uint8_t bits[128] = {};
  constexpr AsciiNameTable() {
    for (int c = 'A'; c <= 'Z'; ++c) bits[c] = kNameStart | kNamePart;
    for (int c = 'a'; c <= 'z'; ++c) bits[c] = kNameStart | kNamePart;
    bits[static_cast<int>('_')] = kNameStart | kNamePart;
    for (int c = '0'; c <= '9'; ++c) bits[c] = kNamePart;
    bits[static_cast<int>('-')] = kNamePart;
    bits[static_cast<int>('.')] = kNamePart;
  }
};
constexpr AsciiNameTable kAsciiNames;

bool IsWideNameStart(char16_t c) {
  return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
         (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) ||
         (c >= 0x2070 && c <= 0x218F) || (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
         (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD);
}

bool IsWideNamePart(char16_t c) {
  return IsWideNameStart(c) || c == 0xB7 || (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// Supplementary characters U+10000..U+EFFFF may appear in names; their high
// surrogates are D800..DB7F. Decoding already paired every surrogate.
KEL_XML_INLINE bool IsNameSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDB7F; }

// Steps over one name start character (colon excluded); false if there is none.
KEL_XML_INLINE bool StepNameStart(char16_t*& p) {
  const char16_t c = *p;
  if (c < 0x80) {
    if (kAsciiNames.bits[c] & kNameStart) {
      ++p;
      return true;
    }
    return false;
  }
  if (IsNameSurrogate(c)) {
    p += 2;
    return true;
  }
  if (IsWideNameStart(c)) {
    ++p;
    return true;
  }
  return false;
}

KEL_XML_INLINE void SkipNameParts(char16_t*& p) {
  for (;;) {
    const char16_t c = *p;
    if (c < 0x80) {
      if (!(kAsciiNames.bits[c] & kNamePart)) return;
      ++p;
    } else if (IsNameSurrogate(c)) {
      p += 2;
    } else if (IsWideNamePart(c)) {
      ++p;
    } else {
      return;
    }
  }
}

template <std::size_t N>
KEL_XML_INLINE bool Equals(const char16_t* a, std::size_t length, const char16_t (&word)[N]) {
  return length == N - 1 && std::memcmp(a, word, (N - 1) * sizeof(char16_t)) == 0;
}

KEL_XML_INLINE bool SameText(const char16_t* a, std::size_t aLength, const char16_t* b, std::size_t bLength) {
  return aLength == bLength && std::memcmp(a, b, aLength * sizeof(char16_t)) == 0;
}

// Makes room for `more` elements at once, growing geometrically all the
// same (so that many small requests stay linear).
template <typename T>
void ReserveMore(std::vector<T>& v, std::size_t more) {
  if (v.capacity() - v.size() < more) v.reserve(std::max(v.size() + more, 2 * v.capacity()));
}

// A hash of a name for the reader's tables: FNV-1a over its units, then
// mixed so that every bit of every unit reaches the low bits that pick a
// slot.
KEL_XML_INLINE std::uint32_t NameHash(const char16_t* text, std::size_t length) {
  std::uint64_t hash = 14695981039346656037ull;
  for (std::size_t i = 0; i < length; ++i) hash = (hash ^ text[i]) * 1099511628211ull;
  hash ^= hash >> 32;
  hash *= 0xD6E8FEB86659FD93ull;
  hash ^= hash >> 32;
  return static_cast<std::uint32_t>(hash);
}

// A slot of the reader's open-addressed tables is 32 bits: the index of its
// entry plus one in the low 24 (0 when free) and the top 8 bits of the
// entry's hash above them, which settle most mismatches without touching
// the entry. Half the size of a slot with the whole hash, a table of tens
// of thousands of names stays in the cache. Every attribute takes at least
// five bytes of input (` a=''`), so no index outgrows its bits.
constexpr std::uint32_t kSlotIndexMask = (std::uint32_t{1} << 24) - 1;
static_assert(kMaxInputBytes / 5 < kSlotIndexMask, "a slot's index bits hold every attribute of a document");

KEL_XML_INLINE std::uint32_t MakeSlot(std::uint32_t hash, std::size_t index) {
  return (hash & ~kSlotIndexMask) | static_cast<std::uint32_t>(index + 1);
}

KEL_XML_INLINE bool SlotHashMatches(std::uint32_t slot, std::uint32_t hash) {
  return ((slot ^ hash) & ~kSlotIndexMask) == 0;
}

KEL_XML_INLINE void Prefetch(const void* at) {
#if defined(__GNUC__)
  __builtin_prefetch(at);
#else
  (void)at;
#endif
}

KEL_XML_INLINE std::size_t SlotIndex(std::uint32_t slot) { return (slot & kSlotIndexMask) - 1; }

inline bool AsciiEqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i];
    char y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// Compares `p` with the ASCII `word`: 1 when it matches, 0 when it does not,
// -1 when the input ends first (a truncated document, not a mismatch).
inline int MatchWord(const char16_t* p, std::string_view word) {
  for (char w : word) {
    if (*p == 0) return -1;
    if (*p != static_cast<char16_t>(w)) return 0;
    ++p;
  }
  return 1;
}

KEL_XML_INLINE bool IsHexDigit(char16_t c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

KEL_XML_INLINE std::uint32_t HexValue(char16_t c) {
  if (c <= '9') return c - '0';
  if (c >= 'a') return c - 'a' + 10;
  return c - 'A' + 10;
}

// --- input encodings ----------------------------------------------------------

enum class Encoding { Utf8, Utf16Le, Utf16Be, Latin1, Ascii, Windows1252, ShiftJis };

// The characters of 0x80..0x9F in windows-1252; the five unassigned bytes map
// to the C1 control of the same value.
constexpr char16_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

// The encoding named by a leading declaration of an 8-bit or UTF-8 document,
// read from the raw bytes before anything is decoded. Empty when there is no
// declaration or it names none; a malformed declaration is left to the parser.
std::string_view DeclaredEncoding(const unsigned char* s, std::size_t n) {
  const std::string_view text(reinterpret_cast<const char*>(s), n);
  if (text.size() < 6 || text.compare(0, 5, "<?xml") != 0) return {};
  const char after = text[5];
  if (after != ' ' && after != '\t' && after != '\r' && after != '\n') return {};
  const std::size_t close = text.find("?>");
  const std::string_view declaration = text.substr(0, close);
  std::size_t at = declaration.find("encoding");
  if (at == std::string_view::npos) return {};
  at += 8;
  auto skipSpaces = [&] {
    while (at < declaration.size() &&
           (declaration[at] == ' ' || declaration[at] == '\t' || declaration[at] == '\r' || declaration[at] == '\n')) {
      ++at;
    }
  };
  skipSpaces();
  if (at >= declaration.size() || declaration[at] != '=') return {};
  ++at;
  skipSpaces();
  if (at >= declaration.size() || (declaration[at] != '"' && declaration[at] != '\'')) return {};
  const char quote = declaration[at++];
  const std::size_t end = declaration.find(quote, at);
  if (end == std::string_view::npos) return {};
  return declaration.substr(at, end - at);
}

bool IsUtf16Name(std::string_view name) {
  return AsciiEqualsIgnoreCase(name, "utf-16") || AsciiEqualsIgnoreCase(name, "utf-16le") ||
         AsciiEqualsIgnoreCase(name, "utf-16be") || AsciiEqualsIgnoreCase(name, "ucs-2") ||
         AsciiEqualsIgnoreCase(name, "iso-10646-ucs-2") || AsciiEqualsIgnoreCase(name, "unicode");
}

// The names a document may give code page 932 by: Windows' own for it and
// the ones the tools that write Japanese files put in their declarations.
bool IsShiftJisName(std::string_view name) {
  return AsciiEqualsIgnoreCase(name, "shift_jis") || AsciiEqualsIgnoreCase(name, "shift-jis") ||
         AsciiEqualsIgnoreCase(name, "x-sjis") || AsciiEqualsIgnoreCase(name, "windows-31j") ||
         AsciiEqualsIgnoreCase(name, "cp932");
}

// True when some byte of `v` (all below 0x80) is a control character.
KEL_XML_INLINE bool HasControlByte(std::uint64_t v) {
  return ((v - 0x2020202020202020ull) & ~v & 0x8080808080808080ull) != 0;
}

}  // namespace

bool IsNcName(std::u16string_view name) {
  // ASCII names, the usual case, are checked where they stand.
  auto asciiStart = [](char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'_'; };
  auto asciiPart = [&](char16_t c) { return asciiStart(c) || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.'; };
  if (!name.empty() && asciiStart(name[0])) {
    std::size_t i = 1;
    while (i < name.size() && asciiPart(name[i])) ++i;
    if (i == name.size()) return true;
  }
  // Copied so the scanning helpers see a terminator; names are short.
  std::u16string text(name);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == 0) return false;
    if (text[i] >= 0xD800 && text[i] <= 0xDBFF) {
      if (i + 1 >= text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
      return false;
    }
  }
  char16_t* p = text.data();
  if (!StepNameStart(p)) return false;
  SkipNameParts(p);
  return p == text.data() + text.size();
}

// --- reader -------------------------------------------------------------------

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

// Decodes the whole document once. Invalid bytes or characters do not fail
// here: the usable text simply stops before them and inputError_ records why,
// so Read reports the nodes before the fault and then the fault itself, as a
// streaming reader would.
void XmlReader::Decode(std::string_view bytes) {
  const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  std::size_t i = 0;
  inputError_ = S_OK;

  Encoding encoding = Encoding::Utf8;
  bool byteOrderMark = false;
  if (n >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF) {
    i = 3;
    byteOrderMark = true;
  } else if (n >= 2 && s[0] == 0xFF && s[1] == 0xFE) {
    encoding = Encoding::Utf16Le;
    i = 2;
  } else if (n >= 2 && s[0] == 0xFE && s[1] == 0xFF) {
    encoding = Encoding::Utf16Be;
    i = 2;
  } else if (n >= 2 && s[0] == '<' && s[1] == 0) {
    encoding = Encoding::Utf16Le;
  } else if (n >= 2 && s[0] == 0 && s[1] == '<') {
    encoding = Encoding::Utf16Be;
  }

  if (encoding == Encoding::Utf8) {
    const std::string_view declared = DeclaredEncoding(s + i, n - i);
    if (declared.empty() || AsciiEqualsIgnoreCase(declared, "utf-8") || AsciiEqualsIgnoreCase(declared, "utf8")) {
      encoding = Encoding::Utf8;
    } else if (IsUtf16Name(declared)) {
      inputError_ = MX_E_ENCODINGSWITCH;
    } else if (byteOrderMark) {
      inputError_ = MX_E_ENCODINGSWITCH;
    } else if (AsciiEqualsIgnoreCase(declared, "iso-8859-1") || AsciiEqualsIgnoreCase(declared, "latin1")) {
      encoding = Encoding::Latin1;
    } else if (AsciiEqualsIgnoreCase(declared, "us-ascii") || AsciiEqualsIgnoreCase(declared, "ascii")) {
      encoding = Encoding::Ascii;
    } else if (AsciiEqualsIgnoreCase(declared, "windows-1252")) {
      encoding = Encoding::Windows1252;
    } else if (IsShiftJisName(declared)) {
      encoding = Encoding::ShiftJis;
    } else {
      inputError_ = MX_E_ENCODING;
    }
  }

  std::size_t o = 0;
  if (inputError_ == S_OK) {
    const bool wide = encoding == Encoding::Utf16Le || encoding == Encoding::Utf16Be;
    text_.reset(new char16_t[(wide ? (n - i) / 2 : n - i) + 1]);
    char16_t* out = text_.get();
    if (encoding == Encoding::Utf8) {
      while (i < n) {
#if defined(__SSE2__)
        // Runs of printable ASCII, sixteen bytes at a time. All sixteen are
        // widened and stored; where an odd byte comes, only the plain ones
        // before it count, and what was stored after them is overwritten
        // later (the output never runs ahead of the input, so the stores
        // stay inside the buffer).
        while (n - i >= 16) {
          const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
          _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o), _mm_unpacklo_epi8(v, _mm_setzero_si128()));
          _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o + 8), _mm_unpackhi_epi8(v, _mm_setzero_si128()));
          // Bytes from 0x80 are negative, so one signed compare finds them
          // and the control bytes both.
          const unsigned odd = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v, _mm_set1_epi8(0x20))));
          if (odd != 0) {
            const unsigned plain = static_cast<unsigned>(__builtin_ctz(odd));
            i += plain;
            o += plain;
            break;
          }
          i += 16;
          o += 16;
        }
#endif
        // Runs of printable ASCII, eight bytes at a time.
        while (n - i >= 8) {
          std::uint64_t v;
          std::memcpy(&v, s + i, 8);
          if ((v & 0x8080808080808080ull) != 0 || HasControlByte(v)) break;
          const unsigned char* from = s + i;
          char16_t* to = out + o;
          to[0] = from[0];
          to[1] = from[1];
          to[2] = from[2];
          to[3] = from[3];
          to[4] = from[4];
          to[5] = from[5];
          to[6] = from[6];
          to[7] = from[7];
          i += 8;
          o += 8;
        }
        if (i >= n) break;
        const unsigned b = s[i];
        if (b < 0x80) {
          if (b < 0x20 && b != 0x09 && b != 0x0A && b != 0x0D) {
            inputError_ = WC_E_XMLCHARACTER;
            break;
          }
          out[o++] = static_cast<char16_t>(b);
          ++i;
          continue;
        }
        std::size_t length;
        std::uint32_t cp;
        unsigned low = 0x80;
        unsigned high = 0xBF;
        if (b >= 0xC2 && b <= 0xDF) {
          length = 2;
          cp = b & 0x1F;
        } else if (b >= 0xE0 && b <= 0xEF) {
          length = 3;
          cp = b & 0x0F;
          if (b == 0xE0) low = 0xA0;
          if (b == 0xED) high = 0x9F;  // no encoded surrogates
        } else if (b >= 0xF0 && b <= 0xF4) {
          length = 4;
          cp = b & 0x07;
          if (b == 0xF0) low = 0x90;
          if (b == 0xF4) high = 0x8F;
        } else {
          inputError_ = MX_E_ENCODING;
          break;
        }
        if (n - i < length) {
          inputError_ = MX_E_ENCODING;
          break;
        }
        bool valid = s[i + 1] >= low && s[i + 1] <= high;
        for (std::size_t k = 2; valid && k < length; ++k) valid = (s[i + k] & 0xC0) == 0x80;
        if (!valid) {
          inputError_ = MX_E_ENCODING;
          break;
        }
        for (std::size_t k = 1; k < length; ++k) cp = (cp << 6) | (s[i + k] & 0x3F);
        if (!IsXmlChar(cp)) {
          inputError_ = WC_E_XMLCHARACTER;
          break;
        }
        if (cp >= 0x10000) {
          cp -= 0x10000;
          out[o++] = static_cast<char16_t>(0xD800 + (cp >> 10));
          out[o++] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
          out[o++] = static_cast<char16_t>(cp);
        }
        i += length;
      }
    } else if (wide) {
      const bool little = encoding == Encoding::Utf16Le;
      auto unitAt = [&](std::size_t at) -> char16_t {
        return little ? static_cast<char16_t>(s[at] | (s[at + 1] << 8))
                      : static_cast<char16_t>((s[at] << 8) | s[at + 1]);
      };
      for (; n - i >= 2; i += 2) {
        const char16_t c = unitAt(i);
        if (c < 0x20) {
          if (c != 0x09 && c != 0x0A && c != 0x0D) {
            inputError_ = WC_E_XMLCHARACTER;
            break;
          }
        } else if (c >= 0xD800 && c <= 0xDFFF) {
          if (c >= 0xDC00 || n - i < 4) {
            inputError_ = c >= 0xDC00 ? WC_E_XMLCHARACTER : MX_E_ENCODING;
            break;
          }
          const char16_t next = unitAt(i + 2);
          if (next < 0xDC00 || next > 0xDFFF) {
            inputError_ = WC_E_XMLCHARACTER;
            break;
          }
          out[o++] = c;
          i += 2;
          out[o++] = next;
          continue;
        } else if (c >= 0xFFFE) {
          inputError_ = WC_E_XMLCHARACTER;
          break;
        }
        out[o++] = c;
      }
      if (inputError_ == S_OK && i != n) inputError_ = MX_E_ENCODING;
    } else if (encoding == Encoding::ShiftJis) {
      // Every byte or pair gives one unit, so the text fits where the
      // 8-bit encodings' does. The converter stops at the first sequence
      // without a character; a control character before that stops the text
      // first, where it stands.
      const cp932::Decoded decoded = cp932::DecodeValid(s + i, n - i, out);
      o = decoded.units;
      for (std::size_t k = 0; k < o; ++k) {
        const char16_t c = out[k];
        if (c < 0x20 && c != 0x09 && c != 0x0A && c != 0x0D) {
          inputError_ = WC_E_XMLCHARACTER;
          o = k;
          break;
        }
      }
      if (inputError_ == S_OK && decoded.bytes != n - i) inputError_ = MX_E_ENCODING;
    } else {
      for (; i < n; ++i) {
        const unsigned b = s[i];
        char16_t c = static_cast<char16_t>(b);
        if (b < 0x20) {
          if (b != 0x09 && b != 0x0A && b != 0x0D) {
            inputError_ = WC_E_XMLCHARACTER;
            break;
          }
        } else if (b >= 0x80) {
          if (encoding == Encoding::Ascii) {
            inputError_ = MX_E_ENCODING;
            break;
          }
          if (encoding == Encoding::Windows1252 && b < 0xA0) c = kWindows1252High[b - 0x80];
        }
        out[o++] = c;
      }
    }
  }
  if (text_ == nullptr || o == 0) text_.reset(new char16_t[1]);
  text_[o] = 0;
  begin_ = text_.get();
  end_ = begin_ + o;
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
      case 0: return EndError();
      case '<': return WC_E_LESSTHAN;
      case '&': {
        const HRESULT hr = ParseReference(p, out);
        if (Failed(hr)) return hr;
        continue;
      }
      case '\r':
        *out++ = ' ';
        ++p;
        if (*p == '\n') ++p;
        continue;
      case '\n':
      case '\t':
        *out++ = ' ';
        ++p;
        continue;
      default: *out++ = c; ++p;
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

HRESULT XmlReader::CheckAttributes() {
  const std::size_t count = attributes_.size();
  const Attribute* const attributes = attributes_.data();
  auto same = [](const Attribute& a, const Attribute& b) {
    return SameText(a.localName.text, a.localName.length, b.localName.text, b.localName.length) &&
           SameText(a.prefix.text, a.prefix.length, b.prefix.text, b.prefix.length);
  };
  if (count <= 16) {
    for (std::size_t i = 1; i < count; ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        if (same(attributes[i], attributes[j])) return WC_E_UNIQUEATTRIBUTE;
      }
    }
    return S_OK;
  }
  // Many attributes: each goes into a table of at least twice their number,
  // so a hostile element costs time in proportion to its text rather than
  // to the square of its attribute count.
  std::size_t size = 64;
  while (size < count * 2) size *= 2;
  const std::size_t mask = size - 1;
  attributeSlots_.assign(size, 0);
  auto hashOf = [attributes](std::size_t i) {
    const Attribute& attribute = attributes[i];
    std::uint32_t hash = NameHash(attribute.localName.text, attribute.localName.length);
    if (attribute.prefix.length != 0) hash = hash * 31 + NameHash(attribute.prefix.text, attribute.prefix.length);
    return hash;
  };
  // The slots are visited in no order and the table outgrows the nearest
  // cache, so each attribute's slot is fetched a few attributes ahead of
  // its turn: the waits for memory overlap instead of following each other.
  constexpr std::size_t kAhead = 8;
  std::uint32_t ahead[kAhead];
  auto hashAhead = [&](std::size_t i) {
    const std::uint32_t hash = hashOf(i);
    ahead[i % kAhead] = hash;
    Prefetch(&attributeSlots_[hash & mask]);
  };
  for (std::size_t i = 0; i < kAhead; ++i) hashAhead(i);  // count > 16 > kAhead
  for (std::size_t i = 0; i < count; ++i) {
    const Attribute& attribute = attributes[i];
    const std::uint32_t hash = ahead[i % kAhead];
    if (i + kAhead < count) hashAhead(i + kAhead);
    std::size_t slot = hash & mask;
    for (; attributeSlots_[slot] != 0; slot = (slot + 1) & mask) {
      const std::uint32_t entry = attributeSlots_[slot];
      if (SlotHashMatches(entry, hash) && same(attribute, attributes[SlotIndex(entry)])) {
        return WC_E_UNIQUEATTRIBUTE;
      }
    }
    attributeSlots_[slot] = MakeSlot(hash, i);
  }
  return S_OK;
}

// The slot of the table that holds `prefix`, or the free one where it
// would go. The table is never full: it grows before it is half full.
std::size_t XmlReader::PrefixSlot(const Span& prefix, std::uint32_t hash) const {
  const std::size_t mask = prefixSlots_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    const std::uint32_t entry = prefixSlots_[slot];
    if (entry == 0) return slot;
    if (!SlotHashMatches(entry, hash)) continue;
    const Prefix& known = prefixes_[SlotIndex(entry)];
    if (SameText(known.text, known.length, prefix.text, prefix.length)) return slot;
  }
}

// Makes room in the table for `more` prefixes beyond those known, keeping it
// at most half full. An element's declarations make room once, so that many
// on one element grow the table once rather than at every doubling.
void XmlReader::ReservePrefixSlots(std::size_t more) {
  ReserveMore(prefixes_, more);
  ReserveMore(bindings_, more);
  const std::size_t needed = 2 * (prefixes_.size() + more);
  if (prefixSlots_.size() >= needed) return;
  std::size_t size = std::max<std::size_t>(64, prefixSlots_.size() * 2);
  while (size < needed) size *= 2;
  // The slots keep only part of each hash, so the known prefixes are
  // hashed again; the table doubles, so that stays linear.
  prefixSlots_.assign(size, 0);
  const std::size_t mask = size - 1;
  for (std::size_t i = 0; i < prefixes_.size(); ++i) {
    const std::uint32_t hash = NameHash(prefixes_[i].text, prefixes_[i].length);
    std::size_t slot = hash & mask;
    while (prefixSlots_[slot] != 0) slot = (slot + 1) & mask;
    prefixSlots_[slot] = MakeSlot(hash, i);
  }
}

// Declares `prefix`, whose NameHash is `hash`, on the element at `depth`;
// room for it has been made.
void XmlReader::Bind(const Span& prefix, std::uint32_t hash, std::size_t depth) {
  std::uint32_t& entry = prefixSlots_[PrefixSlot(prefix, hash)];
  if (entry == 0) {
    entry = MakeSlot(hash, prefixes_.size());
    prefixes_.push_back({prefix.text, prefix.length, 0});
  }
  const std::uint32_t index = static_cast<std::uint32_t>(SlotIndex(entry));
  ++prefixes_[index].inScope;
  bindings_.push_back({index, depth});
}

// Takes back the declarations of the elements at `depth` and below, which
// have ended.
void XmlReader::UnbindFrom(std::size_t depth) {
  while (!bindings_.empty() && bindings_.back().depth >= depth) {
    --prefixes_[bindings_.back().prefix].inScope;
    bindings_.pop_back();
  }
}

bool XmlReader::IsBound(const Span& prefix) const {
  if (prefixes_.empty()) return false;
  const std::uint32_t entry = prefixSlots_[PrefixSlot(prefix, NameHash(prefix.text, prefix.length))];
  return entry != 0 && prefixes_[SlotIndex(entry)].inScope != 0;
}

// Records the prefixes this element declares and checks that every prefix it
// and its attributes use is declared (xml and xmlns are always bound).
HRESULT XmlReader::BindNamespaces(std::size_t depth) {
  const std::size_t count = attributes_.size();
  const Attribute* const attributes = attributes_.data();
  std::size_t declared = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Span& prefix = attributes[i].prefix;
    if (prefix.length != 0 && Equals(prefix.text, prefix.length, u"xmlns")) ++declared;
  }
  if (declared != 0) ReservePrefixSlots(declared);
  // As with the attribute table, each declaration's slot is fetched a few
  // attributes ahead of its turn when there are many.
  constexpr std::size_t kAhead = 8;
  std::uint32_t ahead[kAhead] = {};
  const bool fetchAhead = declared > 16;
  auto hashAhead = [&](std::size_t i) {
    const Span& prefix = attributes[i].prefix;
    if (!Equals(prefix.text, prefix.length, u"xmlns")) return;
    const Span& name = attributes[i].localName;
    const std::uint32_t hash = NameHash(name.text, name.length);
    ahead[i % kAhead] = hash;
    Prefetch(&prefixSlots_[hash & (prefixSlots_.size() - 1)]);
  };
  if (fetchAhead) {
    for (std::size_t i = 0; i < kAhead && i < count; ++i) hashAhead(i);
  }
  bool prefixed = false;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t hash = ahead[i % kAhead];  // before its place is reused
    if (fetchAhead && i + kAhead < count) hashAhead(i + kAhead);
    const Span& prefix = attributes[i].prefix;
    if (prefix.length == 0) continue;
    if (Equals(prefix.text, prefix.length, u"xmlns")) {
      if (attributes[i].value.length == 0) return NC_E_EMPTYURI;
      const Span& name = attributes[i].localName;
      Bind(name, fetchAhead ? hash : NameHash(name.text, name.length), depth);
    } else {
      prefixed = true;
    }
  }
  if (prefix_.length != 0) {
    if (Equals(prefix_.text, prefix_.length, u"xmlns")) return NC_E_XMLNSPREFIXRESERVED;
    if (!Equals(prefix_.text, prefix_.length, u"xml") && !IsBound(prefix_)) return NC_E_UNDECLAREDPREFIX;
  }
  if (!prefixed) return S_OK;
  for (std::size_t i = 0; i < count; ++i) {
    const Span& prefix = attributes[i].prefix;
    if (prefix.length == 0 || Equals(prefix.text, prefix.length, u"xmlns") ||
        Equals(prefix.text, prefix.length, u"xml")) {
      continue;
    }
    if (!IsBound(prefix)) return NC_E_UNDECLAREDPREFIX;
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
      case 0: return EndError();
      case '&': {
        whitespace = false;
        const HRESULT hr = ParseReference(p, out);
        if (Failed(hr)) return hr;
        continue;
      }
      case '\r':
        *out++ = '\n';
        ++p;
        if (*p == '\n') ++p;
        continue;
      case ']':
        if (p[1] == ']' && p[2] == '>') return WC_E_CDSECTEND;
        whitespace = false;
        break;
      case ' ':
      case '\n':
      case '\t': break;
      default: whitespace = false;
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
      *out++ = '\n';
      ++p;
      if (*p == '\n') ++p;
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

// The text from `p` to the three-unit terminator that `ends` finds, made the
// current node's value where it stands, with each CR or CRLF as one LF.
// `ends(p)` gives S_OK at the terminator, S_FALSE elsewhere, or an error.
template <typename Ends>
HRESULT XmlReader::TakeDelimitedText(char16_t* p, XmlNodeType type, Ends ends) {
  char16_t* const start = p;
  char16_t* out = p;
  for (;;) {
    const HRESULT at = ends(p);
    if (at == S_OK) break;
    if (at != S_FALSE) return at;
    const char16_t c = *p;
    if (c == 0) return EndError();
    if (c == '\r') {
      *out++ = '\n';
      ++p;
      if (*p == '\n') ++p;
      continue;
    }
    *out++ = c;
    ++p;
  }
  value_ = {start, static_cast<UINT>(out - start)};
  *out = 0;
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
    char16_t* const start = p;
    char16_t* out = p;
    for (;;) {
      const char16_t c = *p;
      if (c == '?' && p[1] == '>') break;
      if (c == 0) return EndError();
      if (c == '\r') {
        *out++ = '\n';
        ++p;
        if (*p == '\n') ++p;
        continue;
      }
      *out++ = c;
      ++p;
    }
    value = {start, static_cast<UINT>(out - start)};
    *out = 0;
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
