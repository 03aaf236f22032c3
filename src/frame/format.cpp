#include "frame/format.h"

#include <algorithm>

namespace kel {
namespace {

constexpr char kNull[] = "(null)";

// Where the formatter's output goes. A sink takes one character at a time;
// the text sinks grow a string, the counting sink only measures, and the cut
// sink fills a fixed buffer and remembers just enough of what did not fit to
// cut the text the way the log wants it.
template <typename Text>
class TextSink {
 public:
  using Char = typename Text::value_type;
  explicit TextSink(Text& out) : out_(out) {}
  void Put(Char c) { out_.push_back(c); }
  void Fill(Char c, std::size_t count) { out_.append(count, c); }

 private:
  Text& out_;
};

template <typename CharType>
class CountingSink {
 public:
  using Char = CharType;
  void Put(Char) { ++size_; }
  void Fill(Char, std::size_t count) { size_ += count; }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  std::size_t size_ = 0;
};

// Keeps the first `limit` bytes in the buffer and the byte after them; of
// the rest it keeps only the count and the last two bytes, which tell
// whether the whole text ended in a line break.
class CutSink {
 public:
  using Char = char;
  CutSink(char* buffer, std::size_t limit) : buffer_(buffer), limit_(limit) {}
  void Put(char c) {
    if (size_ < limit_) {
      buffer_[size_] = c;
    } else if (size_ == limit_) {
      next_ = c;
    }
    ++size_;
    lastTwo_ = static_cast<unsigned>(((lastTwo_ << 8) | static_cast<unsigned char>(c)) & 0xFFFF);
  }
  void Fill(char c, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) Put(c);
  }

  // Terminates the buffer and returns the length kept. A text longer than
  // the limit loses its end: the cut never splits a UTF-8 sequence, and a
  // text that ended in a line break keeps it, so a log file stays one line
  // per message.
  std::size_t Finish() {
    if (size_ <= limit_) {
      buffer_[size_] = 0;
      return size_;
    }
    const bool endsWithLineBreak = size_ >= 2 && lastTwo_ == ((unsigned{'\r'} << 8) | unsigned{'\n'}) && limit_ >= 2;
    std::size_t keep = endsWithLineBreak ? limit_ - 2 : limit_;
    while (keep > 0 && (static_cast<unsigned char>(At(keep)) & 0xC0) == 0x80) --keep;
    if (endsWithLineBreak) {
      buffer_[keep++] = '\r';
      buffer_[keep++] = '\n';
    }
    buffer_[keep] = 0;
    return keep;
  }

 private:
  [[nodiscard]] char At(std::size_t index) const { return index < limit_ ? buffer_[index] : next_; }

  char* buffer_;
  std::size_t limit_;
  std::size_t size_ = 0;
  char next_ = 0;
  unsigned lastTwo_ = 0;
};

template <typename Sink>
void PutUtf8(Sink& out, char32_t c) {
  if (c < 0x80) {
    out.Put(static_cast<char>(c));
  } else if (c < 0x800) {
    out.Put(static_cast<char>(0xC0 | (c >> 6)));
    out.Put(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.Put(static_cast<char>(0xE0 | (c >> 12)));
    out.Put(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.Put(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.Put(static_cast<char>(0xF0 | (c >> 18)));
    out.Put(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.Put(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.Put(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

template <typename Sink>
void PutUtf8(Sink& out, const char16_t* text) {
  for (const char16_t* p = text; *p != 0; ++p) {
    char32_t c = *p;
    if (c >= 0xD800 && c <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (p[1] - 0xDC00);
      ++p;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    PutUtf8(out, c);
  }
}

// The bytes of a UTF-16 string in memory (little-endian) up to the first
// zero byte: what a narrow string conversion sees of a wide argument.
template <typename Sink>
void PutWideBytesAsNarrow(Sink& out, const char16_t* text) {
  for (const char16_t* p = text;; ++p) {
    const char low = static_cast<char>(*p & 0xFF);
    const char high = static_cast<char>(*p >> 8);
    if (low == 0) return;
    out.Put(low);
    if (high == 0) return;
    out.Put(high);
  }
}

template <typename Sink, typename Char>
void PutText(Sink& out, const Char* text) {
  for (const Char* p = text; *p != 0; ++p) out.Put(static_cast<typename Sink::Char>(*p));
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

template <typename Sink>
void PutInteger(Sink& out, const Spec& spec, std::uint32_t bits) {
  std::uint32_t value = spec.half ? (bits & 0xFFFF) : bits;
  char digits[12];  // ten decimal digits at most, written from the end
  char* const end = digits + sizeof(digits);
  char* first = end;
  bool negative = false;
  switch (spec.conversion) {
    case 'd':
    case 'i': {
      const std::int64_t signedValue = spec.half ? static_cast<std::int16_t>(value) : static_cast<std::int32_t>(value);
      negative = signedValue < 0;
      std::uint64_t magnitude =
          negative ? static_cast<std::uint64_t>(-signedValue) : static_cast<std::uint64_t>(signedValue);
      do {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
      } while (magnitude != 0);
      break;
    }
    case 'u':
      do {
        *--first = static_cast<char>('0' + value % 10);
        value /= 10;
      } while (value != 0);
      break;
    case 'X':
    case 'x': {
      const char* hex = spec.conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
      do {
        *--first = hex[value & 0xF];
        value >>= 4;
      } while (value != 0);
      break;
    }
    default:
      break;
  }
  using Char = typename Sink::Char;
  const std::size_t length = static_cast<std::size_t>(end - first) + (negative ? 1 : 0);
  const std::size_t fill = length < spec.width ? spec.width - length : 0;
  if (fill != 0 && !spec.leftAlign && !spec.zeroPad) out.Fill(Char(' '), fill);
  if (negative) out.Put(Char('-'));
  if (fill != 0 && !spec.leftAlign && spec.zeroPad) out.Fill(Char('0'), fill);
  for (const char* p = first; p != end; ++p) out.Put(static_cast<Char>(*p));
  if (fill != 0 && spec.leftAlign) out.Fill(Char(' '), fill);
}

// A string argument of narrow text.
template <typename Sink>
void PutNarrowStringBody(Sink& out, const Spec& spec, const FormatArg& arg) {
  switch (arg.GetKind()) {
    case FormatArg::Kind::Integer:
      return;
    case FormatArg::Kind::Narrow:
      PutText(out, arg.Narrow() == nullptr ? kNull : arg.Narrow());
      return;
    case FormatArg::Kind::Wide:
      if (arg.Wide() == nullptr) {
        PutText(out, kNull);
      } else if (spec.conversion == 'S') {
        PutUtf8(out, arg.Wide());
      } else {
        PutWideBytesAsNarrow(out, arg.Wide());
      }
      return;
  }
}

// A string argument of wide text.
template <typename Sink>
void PutWideStringBody(Sink& out, const Spec&, const FormatArg& arg) {
  if (arg.GetKind() == FormatArg::Kind::Wide) {
    PutText(out, arg.Wide() == nullptr ? u"(null)" : arg.Wide());
  } else if (arg.GetKind() == FormatArg::Kind::Narrow) {
    if (arg.Narrow() == nullptr) {
      PutText(out, u"(null)");
    } else {
      for (const char* p = arg.Narrow(); *p != 0; ++p) out.Put(static_cast<unsigned char>(*p));
    }
  }
}

// A string argument padded to its field. The padding has to know the
// length first, so a field width costs a measuring pass.
template <typename Sink, typename PutBody>
void PutString(Sink& out, const Spec& spec, const FormatArg& arg, PutBody putBody) {
  using Char = typename Sink::Char;
  if (spec.width == 0 || (arg.GetKind() == FormatArg::Kind::Integer && !PutBody::kPadsAnInteger)) {
    putBody(out, spec, arg);
    return;
  }
  CountingSink<Char> measure;
  putBody(measure, spec, arg);
  const std::size_t fill = measure.size() < spec.width ? spec.width - measure.size() : 0;
  if (!spec.leftAlign) out.Fill(Char(' '), fill);
  putBody(out, spec, arg);
  if (spec.leftAlign) out.Fill(Char(' '), fill);
}

template <typename Char, typename Sink, typename PutBody>
void FormatAny(Sink& out, const Char* format, const FormatArg* args, std::size_t count, PutBody putBody) {
  if (format == nullptr) return;
  std::size_t next = 0;
  for (const Char* p = format; *p != 0;) {
    if (*p != '%') {
      out.Put(*p++);
      continue;
    }
    if (p[1] == '%') {
      out.Put(Char('%'));
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
        PutString(out, spec, arg, putBody);
        break;
      case 'c':
        if (arg.GetKind() == FormatArg::Kind::Integer) out.Put(static_cast<Char>(arg.Bits()));
        break;
      default:
        if (arg.GetKind() == FormatArg::Kind::Integer) PutInteger(out, spec, arg.Bits());
        break;
    }
  }
}

// An integer given to a string conversion prints nothing; in narrow text
// its field is not padded either, in wide text it is.
struct NarrowBody {
  static constexpr bool kPadsAnInteger = false;
  template <typename Sink>
  void operator()(Sink& out, const Spec& spec, const FormatArg& arg) const {
    PutNarrowStringBody(out, spec, arg);
  }
};

struct WideBody {
  static constexpr bool kPadsAnInteger = true;
  template <typename Sink>
  void operator()(Sink& out, const Spec& spec, const FormatArg& arg) const {
    PutWideStringBody(out, spec, arg);
  }
};

}  // namespace

std::string FormatNarrow(const char* format, const FormatArg* args, std::size_t count) {
  std::string text;
  TextSink<std::string> out(text);
  FormatAny(out, format, args, count, NarrowBody{});
  return text;
}

std::string FormatNarrow(const char* format, FormatArgs args) {
  return FormatNarrow(format, args.begin(), args.size());
}

std::size_t FormatNarrowInto(char* buffer, std::size_t capacity, const char* format, const FormatArg* args,
                             std::size_t count) noexcept {
  if (buffer == nullptr || capacity == 0) return 0;
  CutSink out(buffer, capacity - 1);
  FormatAny(out, format, args, count, NarrowBody{});
  return out.Finish();
}

WString FormatWide(const char16_t* format, FormatArgs args) {
  WString text;
  TextSink<WString> out(text);
  FormatAny(out, format, args.begin(), args.size(), WideBody{});
  return text;
}

bool FormatWideInto(WString& out, std::size_t capacity, const char16_t* format, FormatArgs args) {
  WString text = FormatWide(format, args);
  if (text.size() + 1 > capacity) return false;
  out = std::move(text);
  return true;
}

std::string ToUtf8(const char16_t* text) {
  std::string out;
  TextSink<std::string> sink(out);
  if (text != nullptr) PutUtf8(sink, text);
  return out;
}

std::string ToUtf8(const WString& text) { return ToUtf8(text.c_str()); }

}  // namespace kel
