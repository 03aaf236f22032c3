#include "text/xml/xml_decoder.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cstdint>
#include <cstring>

#include "text/cp932/cp932.h"
#include "text/xml/xml_reader.h"
#include "text/xml/xml_scan.h"

namespace kel::xml {
namespace {

using scan::AsciiEqualsIgnoreCase;
using scan::IsXmlChar;

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

// The byte-order mark, or without one the shape of the first character.
// `i` steps over the mark; `byteOrderMark` says a UTF-8 mark was there.
Encoding EncodingOfFirstBytes(const unsigned char* s, std::size_t n, std::size_t& i, bool& byteOrderMark) {
  if (n >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF) {
    i = 3;
    byteOrderMark = true;
    return Encoding::Utf8;
  }
  if (n >= 2 && s[0] == 0xFF && s[1] == 0xFE) {
    i = 2;
    return Encoding::Utf16Le;
  }
  if (n >= 2 && s[0] == 0xFE && s[1] == 0xFF) {
    i = 2;
    return Encoding::Utf16Be;
  }
  if (n >= 2 && s[0] == '<' && s[1] == 0) return Encoding::Utf16Le;
  if (n >= 2 && s[0] == 0 && s[1] == '<') return Encoding::Utf16Be;
  return Encoding::Utf8;
}

// The encoding that a document of 8-bit units declares, or in `error` why
// it cannot be read: UTF-16 declared (or anything but UTF-8 after a UTF-8
// mark) is a switch the bytes cannot make; an unknown name is an encoding
// the reader does not know.
Encoding DeclaredByteEncoding(std::string_view declared, bool byteOrderMark, HRESULT& error) {
  if (declared.empty() || AsciiEqualsIgnoreCase(declared, "utf-8") || AsciiEqualsIgnoreCase(declared, "utf8")) {
    return Encoding::Utf8;
  }
  if (IsUtf16Name(declared) || byteOrderMark) {
    error = MX_E_ENCODINGSWITCH;
    return Encoding::Utf8;
  }
  if (AsciiEqualsIgnoreCase(declared, "iso-8859-1") || AsciiEqualsIgnoreCase(declared, "latin1")) {
    return Encoding::Latin1;
  }
  if (AsciiEqualsIgnoreCase(declared, "us-ascii") || AsciiEqualsIgnoreCase(declared, "ascii")) return Encoding::Ascii;
  if (AsciiEqualsIgnoreCase(declared, "windows-1252")) return Encoding::Windows1252;
  if (IsShiftJisName(declared)) return Encoding::ShiftJis;
  error = MX_E_ENCODING;
  return Encoding::Utf8;
}

// Copies the run of printable ASCII at s[i], the bulk of most documents,
// widened; `i` and `o` end past it.
KEL_XML_INLINE void CopyPrintableAscii(const unsigned char* s, std::size_t& i, std::size_t n, char16_t* out,
                                       std::size_t& o) {
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
}

// Decodes the sequence led by s[i] (0x80 or above) into one or two units;
// false, with `error` set, where it is no valid encoding of an XML
// character.
KEL_XML_INLINE bool DecodeUtf8Sequence(const unsigned char* s, std::size_t& i, std::size_t n, char16_t* out,
                                       std::size_t& o, HRESULT& error) {
  const unsigned b = s[i];
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
    error = MX_E_ENCODING;
    return false;
  }
  if (n - i < length) {
    error = MX_E_ENCODING;
    return false;
  }
  bool valid = s[i + 1] >= low && s[i + 1] <= high;
  for (std::size_t k = 2; valid && k < length; ++k) valid = (s[i + k] & 0xC0) == 0x80;
  if (!valid) {
    error = MX_E_ENCODING;
    return false;
  }
  for (std::size_t k = 1; k < length; ++k) cp = (cp << 6) | (s[i + k] & 0x3F);
  if (!IsXmlChar(cp)) {
    error = WC_E_XMLCHARACTER;
    return false;
  }
  if (cp >= 0x10000) {
    cp -= 0x10000;
    out[o++] = static_cast<char16_t>(0xD800 + (cp >> 10));
    out[o++] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  } else {
    out[o++] = static_cast<char16_t>(cp);
  }
  i += length;
  return true;
}

// Each decoder turns s[i..n) into `out` and gives the number of units it
// wrote. It stops before the first byte or character that is not allowed
// and sets `error` to why. The output never runs ahead of the input, so
// `out` holds as many units as there are bytes (UTF-16: byte pairs) left.

std::size_t DecodeUtf8(const unsigned char* s, std::size_t i, std::size_t n, char16_t* out, HRESULT& error) {
  std::size_t o = 0;
  while (i < n) {
    CopyPrintableAscii(s, i, n, out, o);
    if (i >= n) break;
    const unsigned b = s[i];
    if (b < 0x80) {
      if (b < 0x20 && b != 0x09 && b != 0x0A && b != 0x0D) {
        error = WC_E_XMLCHARACTER;
        break;
      }
      out[o++] = static_cast<char16_t>(b);
      ++i;
      continue;
    }
    if (!DecodeUtf8Sequence(s, i, n, out, o, error)) break;
  }
  return o;
}

std::size_t DecodeUtf16(const unsigned char* s, std::size_t i, std::size_t n, bool little, char16_t* out,
                        HRESULT& error) {
  std::size_t o = 0;
  auto unitAt = [&](std::size_t at) -> char16_t {
    return little ? static_cast<char16_t>(s[at] | (s[at + 1] << 8)) : static_cast<char16_t>((s[at] << 8) | s[at + 1]);
  };
  for (; n - i >= 2; i += 2) {
    const char16_t c = unitAt(i);
    if (c < 0x20) {
      if (c != 0x09 && c != 0x0A && c != 0x0D) {
        error = WC_E_XMLCHARACTER;
        break;
      }
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      if (c >= 0xDC00 || n - i < 4) {
        error = c >= 0xDC00 ? WC_E_XMLCHARACTER : MX_E_ENCODING;
        break;
      }
      const char16_t next = unitAt(i + 2);
      if (next < 0xDC00 || next > 0xDFFF) {
        error = WC_E_XMLCHARACTER;
        break;
      }
      out[o++] = c;
      i += 2;
      out[o++] = next;
      continue;
    } else if (c >= 0xFFFE) {
      error = WC_E_XMLCHARACTER;
      break;
    }
    out[o++] = c;
  }
  if (error == S_OK && i != n) error = MX_E_ENCODING;
  return o;
}

std::size_t DecodeShiftJis(const unsigned char* s, std::size_t i, std::size_t n, char16_t* out, HRESULT& error) {
  std::size_t o = 0;
  // Every byte or pair gives one unit, so the text fits where the
  // 8-bit encodings' does. The converter stops at the first sequence
  // without a character; a control character before that stops the text
  // first, where it stands.
  const cp932::Decoded decoded = cp932::DecodeValid(s + i, n - i, out);
  o = decoded.units;
  for (std::size_t k = 0; k < o; ++k) {
    const char16_t c = out[k];
    if (c < 0x20 && c != 0x09 && c != 0x0A && c != 0x0D) {
      error = WC_E_XMLCHARACTER;
      o = k;
      break;
    }
  }
  if (error == S_OK && decoded.bytes != n - i) error = MX_E_ENCODING;
  return o;
}

// Latin-1, US-ASCII and windows-1252: one byte, one unit.
std::size_t DecodeSingleByte(const unsigned char* s, std::size_t i, std::size_t n, Encoding encoding, char16_t* out,
                             HRESULT& error) {
  std::size_t o = 0;
  for (; i < n; ++i) {
    const unsigned b = s[i];
    char16_t c = static_cast<char16_t>(b);
    if (b < 0x20) {
      if (b != 0x09 && b != 0x0A && b != 0x0D) {
        error = WC_E_XMLCHARACTER;
        break;
      }
    } else if (b >= 0x80) {
      if (encoding == Encoding::Ascii) {
        error = MX_E_ENCODING;
        break;
      }
      if (encoding == Encoding::Windows1252 && b < 0xA0) c = kWindows1252High[b - 0x80];
    }
    out[o++] = c;
  }
  return o;
}

std::size_t DecodeAs(Encoding encoding, const unsigned char* s, std::size_t i, std::size_t n, char16_t* out,
                     HRESULT& error) {
  switch (encoding) {
    case Encoding::Utf8:
      return DecodeUtf8(s, i, n, out, error);
    case Encoding::Utf16Le:
      return DecodeUtf16(s, i, n, true, out, error);
    case Encoding::Utf16Be:
      return DecodeUtf16(s, i, n, false, out, error);
    case Encoding::ShiftJis:
      return DecodeShiftJis(s, i, n, out, error);
    case Encoding::Latin1:
    case Encoding::Ascii:
    case Encoding::Windows1252:
      return DecodeSingleByte(s, i, n, encoding, out, error);
  }
  return 0;
}

}  // namespace

DecodedText DecodeDocument(std::string_view bytes) {
  const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  std::size_t i = 0;
  bool byteOrderMark = false;
  DecodedText decoded;
  Encoding encoding = EncodingOfFirstBytes(s, n, i, byteOrderMark);
  if (encoding == Encoding::Utf8) {
    encoding = DeclaredByteEncoding(DeclaredEncoding(s + i, n - i), byteOrderMark, decoded.error);
  }
  std::size_t o = 0;
  if (decoded.error == S_OK) {
    const bool wide = encoding == Encoding::Utf16Le || encoding == Encoding::Utf16Be;
    decoded.text.reset(new char16_t[(wide ? (n - i) / 2 : n - i) + 1]);
    o = DecodeAs(encoding, s, i, n, decoded.text.get(), decoded.error);
  }
  // A text that stopped before its first unit need not keep the room its
  // bytes would have taken.
  if (o == 0) decoded.text.reset(new char16_t[1]);
  decoded.text[o] = 0;
  decoded.length = o;
  return decoded;
}

}  // namespace kel::xml
