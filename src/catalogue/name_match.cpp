// The catalogue's one matching rule: a word fits a name when every piece of
// the word occurs in the name, in any order. Latin letters, digits, '/' and
// '_' form runs that must occur as substrings; kana, ideographs and
// full-width letters and digits count one by one; everything else is
// ignored.
#include <cstddef>

#include "catalogue/records.h"
#include "frame/log.h"

namespace kel {
namespace {

enum class CharClass : unsigned char { Ignored, Run, Single };

// Runs are Latin letters, digits, '/' and '_'; of ASCII only '\\' counts
// alone.
constexpr CharClass AsciiClass(char16_t c) {
  return (c == u'/' || c == u'_' || (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z'))
             ? CharClass::Run
         : c == u'\\' ? CharClass::Single
                      : CharClass::Ignored;
}

struct AsciiClasses {
  CharClass of[128];
  constexpr AsciiClasses() : of() {
    for (char16_t c = 0; c < 128; ++c) of[c] = AsciiClass(c);
  }
};
constexpr AsciiClasses kAscii;

CharClass ClassOf(char16_t c) {
  if (c < 128) return kAscii.of[c];
  const bool single = (c >= 0x3041 && c <= 0x30FF) || (c >= 0x3400 && c <= 0x4DB5) || (c >= 0x4E00 && c <= 0x9FC3) ||
                      (c >= 0xF900 && c <= 0xFA2D) || (c >= 0xFA30 && c <= 0xFA6A) || (c >= 0xFF10 && c <= 0xFF19) ||
                      (c >= 0xFF21 && c <= 0xFF3A) || (c >= 0xFF41 && c <= 0xFF5A) || (c >= 0xFF66 && c <= 0xFF9F);
  return single ? CharClass::Single : CharClass::Ignored;
}

// Whether token[0..m) occurs in the NUL-terminated `whole`; m is at least 1
// and the token holds no NUL, so a comparison never reads past the
// terminator. Names are short, so a plain scan beats anything cleverer.
bool Occurs(const char16_t* whole, const char16_t* token, std::size_t m) {
  const char16_t first = token[0];
  for (const char16_t* p = whole; *p != 0; ++p) {
    if (*p != first) continue;
    std::size_t k = 1;
    while (k < m && p[k] == token[k]) ++k;
    if (k == m) return true;
  }
  return false;
}

bool PiecesOccur(const char16_t* part, const char16_t* whole) {
  const char16_t* p = part;
  while (*p != 0) {
    const CharClass kind = ClassOf(*p);
    if (kind == CharClass::Run) {
      const char16_t* end = p + 1;
      while (*end != 0 && ClassOf(*end) == CharClass::Run) ++end;
      if (!Occurs(whole, p, static_cast<std::size_t>(end - p))) return false;
      p = end;  // the character after the run is looked at on its own
    } else {
      if (kind == CharClass::Single && !Occurs(whole, p, 1)) return false;
      ++p;
    }
  }
  return true;
}

}  // namespace

BOOL CKELApp::IsSubStrNoOrder(const char16_t* part, const char16_t* whole) {
  constexpr char16_t kName[] = u"CKELApp::IsSubStrNoOrder";
  WriteDebugLog("%S(%S, %S) IN\r\n", kName, part, whole);
  const BOOL result = PiecesOccur(part == nullptr ? u"" : part, whole == nullptr ? u"" : whole) ? 1 : 0;
  WriteDebugLog("%S OUT(%d)\r\n", kName, result);
  return result;
}

}  // namespace kel
