// The catalogue's one matching rule: a word fits a name when every piece of
// the word occurs in the name, in any order. Latin letters, digits, '/' and
// '_' form runs that must occur as substrings; kana, ideographs and
// full-width letters and digits count one by one; everything else is
// ignored.
#include <string_view>

#include "catalogue/records.h"
#include "frame/log.h"

namespace kel {
namespace {

bool IsRunCharacter(char16_t c) {
  return c == u'/' || c == u'_' || (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}

bool IsSingleCharacter(char16_t c) {
  return c == u'\\' || (c >= 0x3041 && c <= 0x30FF) || (c >= 0x3400 && c <= 0x4DB5) ||
         (c >= 0x4E00 && c <= 0x9FC3) || (c >= 0xF900 && c <= 0xFA2D) || (c >= 0xFA30 && c <= 0xFA6A) ||
         (c >= 0xFF10 && c <= 0xFF19) || (c >= 0xFF21 && c <= 0xFF3A) || (c >= 0xFF41 && c <= 0xFF5A) ||
         (c >= 0xFF66 && c <= 0xFF9F);
}

bool Contains(const std::u16string_view& whole, const std::u16string_view& token) {
  return whole.find(token) != std::u16string_view::npos;
}

}  // namespace

BOOL CKELApp::IsSubStrNoOrder(const char16_t* part, const char16_t* whole) {
  constexpr char16_t kName[] = u"CKELApp::IsSubStrNoOrder";
  WriteDebugLog("%S(%S, %S) IN\r\n", kName, part, whole);
  BOOL result = 1;
  {
    const std::u16string_view partView(part == nullptr ? u"" : part);
    const std::u16string_view wholeView(whole == nullptr ? u"" : whole);
    std::size_t i = 0;
    while (i < partView.size()) {
      if (IsRunCharacter(partView[i])) {
        std::size_t end = i;
        while (end < partView.size() && IsRunCharacter(partView[end])) ++end;
        if (!Contains(wholeView, partView.substr(i, end - i))) {
          result = 0;
          break;
        }
        if (end == partView.size()) break;
        i = end;  // the character after the run is looked at below
      }
      if (IsSingleCharacter(partView[i]) && wholeView.find(partView[i]) == std::u16string_view::npos) {
        result = 0;
        break;
      }
      ++i;
    }
  }
  WriteDebugLog("%S OUT(%d)\r\n", kName, result);
  return result;
}

}  // namespace kel
