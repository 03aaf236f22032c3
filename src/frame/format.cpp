#include "frame/format.h"

#include <algorithm>

namespace kel {
namespace {

constexpr char kNull[] = "(null)";

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

void AppendUtf8(std::string& out, const char16_t* text) {
  for (const char16_t* p = text; *p != 0; ++p) {
    char32_t c = *p;
    if (c >= 0xD800 && c <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (p[1] - 0xDC00);
      ++p;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    AppendUtf8(out, c);
  }
}

// The bytes of a UTF-16 string in memory (little-endian) up to the first
// zero byte: what a narrow string conversion sees of a wide argument.
void AppendWideBytesAsNarrow(std::string& out, const char16_t* text) {
  for (const char16_t* p = text;; ++p) {
    const char low = static_cast<char>(*p & 0xFF);
    const char high = static_cast<char>(*p >> 8);
    if (low == 0) return;
    out.push_back(low);
    if (high == 0) return;
    out.push_back(high);
  }
}

struct Spec {
  bool zeroPad = false;
  bool leftAlign = false;
  std::size_t width = 0;
  bool half = false;
  char conversion = 0;
};

// Parses one conversion after '%'; returns the position after it.
template <typename Char>
const Char* ParseSpec(const Char* p, Spec& spec) {
  for (;; ++p) {
    if (*p == '0') {
      spec.zeroPad = true;
    } else if (*p == '-') {
      spec.leftAlign = true;
    } else {
      break;
    }
  }
  // A field wider than any buffer the library formats into is pointless;
  // the cap keeps an absurd width from asking for absurd memory.
  constexpr std::size_t kMaxWidth = 4096;
  while (*p >= '0' && *p <= '9') {
    spec.width = std::min(kMaxWidth, spec.width * 10 + static_cast<std::size_t>(*p - '0'));
    ++p;
  }
  if (*p == 'h') {
    spec.half = true;
    ++p;
  } else if (*p == 'l') {
    ++p;
  }
  spec.conversion = static_cast<char>(*p);
  return *p == 0 ? p : p + 1;
}

std::string FormatInteger(const Spec& spec, std::uint32_t bits) {
  std::uint32_t value = spec.half ? (bits & 0xFFFF) : bits;
  std::string digits;
  bool negative = false;
  switch (spec.conversion) {
    case 'd':
    case 'i': {
      std::int64_t signedValue = spec.half ? static_cast<std::int16_t>(value)
                                           : static_cast<std::int32_t>(value);
      negative = signedValue < 0;
      std::uint64_t magnitude =
          negative ? static_cast<std::uint64_t>(-signedValue) : static_cast<std::uint64_t>(signedValue);
      do {
        digits.insert(digits.begin(), static_cast<char>('0' + magnitude % 10));
        magnitude /= 10;
      } while (magnitude != 0);
      break;
    }
    case 'u':
      do {
        digits.insert(digits.begin(), static_cast<char>('0' + value % 10));
        value /= 10;
      } while (value != 0);
      break;
    case 'X':
    case 'x': {
      const char* hex = spec.conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
      do {
        digits.insert(digits.begin(), hex[value & 0xF]);
        value >>= 4;
      } while (value != 0);
      break;
    }
    default:
      break;
  }
  const std::size_t length = digits.size() + (negative ? 1 : 0);
  std::string out;
  if (length < spec.width && !spec.leftAlign) {
    if (spec.zeroPad) {
      digits.insert(digits.begin(), spec.width - length, '0');
    } else {
      out.append(spec.width - length, ' ');
    }
  }
  if (negative) out.push_back('-');
  out += digits;
  if (out.size() < spec.width && spec.leftAlign) out.append(spec.width - out.size(), ' ');
  return out;
}

template <typename Text>
void Pad(Text& out, std::size_t start, const Spec& spec) {
  const std::size_t written = out.size() - start;
  if (written >= spec.width) return;
  const std::size_t fill = spec.width - written;
  if (spec.leftAlign) {
    out.append(fill, ' ');
  } else {
    out.insert(start, fill, ' ');
  }
}

void AppendNarrowString(std::string& out, const Spec& spec, const FormatArg& arg) {
  const std::size_t start = out.size();
  switch (arg.kind()) {
    case FormatArg::Kind::Integer:
      return;
    case FormatArg::Kind::Narrow:
      out += arg.narrow() == nullptr ? kNull : arg.narrow();
      break;
    case FormatArg::Kind::Wide:
      if (arg.wide() == nullptr) {
        out += kNull;
      } else if (spec.conversion == 'S') {
        AppendUtf8(out, arg.wide());
      } else {
        AppendWideBytesAsNarrow(out, arg.wide());
      }
      break;
  }
  Pad(out, start, spec);
}

void AppendWideString(WString& out, const Spec& spec, const FormatArg& arg) {
  const std::size_t start = out.size();
  if (arg.kind() == FormatArg::Kind::Wide) {
    out += arg.wide() == nullptr ? u"(null)" : arg.wide();
  } else if (arg.kind() == FormatArg::Kind::Narrow) {
    if (arg.narrow() == nullptr) {
      out += u"(null)";
    } else {
      for (const char* p = arg.narrow(); *p != 0; ++p) out.push_back(static_cast<unsigned char>(*p));
    }
  }
  Pad(out, start, spec);
}

template <typename Char, typename Text, typename AppendString>
Text FormatAny(const Char* format, const FormatArg* args, std::size_t count, AppendString appendString) {
  Text out;
  if (format == nullptr) return out;
  std::size_t next = 0;
  for (const Char* p = format; *p != 0;) {
    if (*p != '%') {
      out.push_back(*p++);
      continue;
    }
    if (p[1] == '%') {
      out.push_back('%');
      p += 2;
      continue;
    }
    Spec spec;
    p = ParseSpec(p + 1, spec);
    if (spec.conversion == 0) break;
    if (next >= count) continue;  // a conversion without an argument prints nothing
    const FormatArg& arg = args[next++];
    switch (spec.conversion) {
      case 's':
      case 'S':
        appendString(out, spec, arg);
        break;
      case 'c':
        if (arg.kind() == FormatArg::Kind::Integer) out.push_back(static_cast<Char>(arg.bits()));
        break;
      default:
        if (arg.kind() == FormatArg::Kind::Integer) {
          for (char c : FormatInteger(spec, arg.bits())) out.push_back(static_cast<Char>(c));
        }
        break;
    }
  }
  return out;
}

}  // namespace

std::string FormatNarrow(const char* format, const FormatArg* args, std::size_t count) {
  return FormatAny<char, std::string>(format, args, count, AppendNarrowString);
}

std::string FormatNarrow(const char* format, FormatArgs args) {
  return FormatNarrow(format, args.begin(), args.size());
}

WString FormatWide(const char16_t* format, FormatArgs args) {
  return FormatAny<char16_t, WString>(format, args.begin(), args.size(), AppendWideString);
}

bool FormatWideInto(WString& out, std::size_t capacity, const char16_t* format, FormatArgs args) {
  WString text = FormatWide(format, args);
  if (text.size() + 1 > capacity) return false;
  out = std::move(text);
  return true;
}

std::string ToUtf8(const char16_t* text) {
  std::string out;
  if (text != nullptr) AppendUtf8(out, text);
  return out;
}

std::string ToUtf8(const WString& text) { return ToUtf8(text.c_str()); }

}  // namespace kel
