#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "catalogue/records.h"
#include "library_test.h"

namespace kel {
namespace {

class NameMatch : public testing::LibraryTest {
 protected:
  static bool Fits(const char16_t* part, const char16_t* whole) { return CKELApp::IsSubStrNoOrder(part, whole) != 0; }
};

// The rule written the plain way: each run of letters, digits, '/' and '_'
// must be a substring of the name, each kana, ideograph, full-width letter
// or digit and '\\' must occur in it, everything else is skipped.
bool ReferenceFits(const WString& part, const WString& whole) {
  auto run = [](char16_t c) {
    return c == u'/' || c == u'_' || (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
  };
  auto single = [](char16_t c) {
    return c == u'\\' || (c >= 0x3041 && c <= 0x30FF) || (c >= 0x3400 && c <= 0x4DB5) || (c >= 0x4E00 && c <= 0x9FC3) ||
           (c >= 0xF900 && c <= 0xFA2D) || (c >= 0xFA30 && c <= 0xFA6A) || (c >= 0xFF10 && c <= 0xFF19) ||
           (c >= 0xFF21 && c <= 0xFF3A) || (c >= 0xFF41 && c <= 0xFF5A) || (c >= 0xFF66 && c <= 0xFF9F);
  };
  for (std::size_t i = 0; i < part.size();) {
    if (run(part[i])) {
      std::size_t end = i;
      while (end < part.size() && run(part[end])) ++end;
      if (whole.find(part.substr(i, end - i)) == WString::npos) return false;
      i = end;
    } else {
      if (single(part[i]) && whole.find(part[i]) == WString::npos) return false;
      ++i;
    }
  }
  return true;
}

TEST_F(NameMatch, AgreesWithThePlainRuleOnRandomNames) {
  // Few distinct units, so pieces often do and often do not occur.
  const char16_t alphabet[] = {u'a',   u'b',   u'A',   u'1',   u'/',   u'_',   u' ',   u'-',  u'\\',
                               0x30A2, 0x30D7, 0x4E00, 0xFF21, 0xFF66, 0x00E9, 0x3040, 0xFFA0};
  std::uint32_t seed = 12345;
  auto next = [&] { return seed = seed * 1103515245u + 12345u, (seed >> 16) & 0x7FFF; };
  auto random = [&](std::size_t maxLength) {
    WString text;
    const std::size_t length = next() % (maxLength + 1);
    for (std::size_t i = 0; i < length; ++i) text += alphabet[next() % (sizeof alphabet / sizeof alphabet[0])];
    return text;
  };
  int fits = 0;
  for (int i = 0; i < 20000; ++i) {
    const WString part = random(4), whole = random(12);
    const bool expected = ReferenceFits(part, whole);
    ASSERT_EQ(Fits(part.c_str(), whole.c_str()), expected) << i;
    fits += expected ? 1 : 0;
  }
  EXPECT_GT(fits, 2000);
  EXPECT_LT(fits, 18000);
}

// A part, a name and whether the part fits the name.
struct Fit {
  const char16_t* part;
  const char16_t* whole;
  bool fits;
};

struct FitCase {
  const char* name;
  std::vector<Fit> fits;
};

void PrintTo(const FitCase& c, std::ostream* out) { *out << c.name; }

class NameMatchRule : public NameMatch, public ::testing::WithParamInterface<FitCase> {};

TEST_P(NameMatchRule, DecidesEachPair) {
  const std::vector<Fit>& fits = GetParam().fits;
  for (std::size_t i = 0; i < fits.size(); ++i) EXPECT_EQ(Fits(fits[i].part, fits[i].whole), fits[i].fits) << i;
}

INSTANTIATE_TEST_SUITE_P(
    NameMatch, NameMatchRule,
    ::testing::Values(
        FitCase{"PiecesMatchInAnyOrder", {{u"abc def", u"def abc x", true}, {u"ab", u"cab", true}}},
        FitCase{"IgnoredCharactersSeparateRuns", {{u"ab-cd", u"cdxab", true}, {u"ab", u"a b", false}}},
        FitCase{"KanaCountOneByOne",
                {{u"\u30a2\u30d7\u30ea", u"\u30ea\u30a2\u30d7", true},
                 {u"\u30a2\u30d7\u30ea", u"\u30a2\u30d7", false},
                 // Repeated characters are not counted.
                 {u"\u30a2\u30a2", u"\u30a2", true}}},
        FitCase{"CaseMatters", {{u"abc", u"ABC", false}}},
        FitCase{"EmptyPartFitsEverything", {{u"", u"anything", true}, {u"", u"", true}}},
        FitCase{"PartOfIgnoredCharactersOnlyFitsEverything",
                {{u"  - ! ", u"", true}, {u"\u00e9\u00e8", u"x", true}, {u"\ud55c\uae00", u"x", true}}},
        FitCase{"SlashAndUnderscoreBelongToRuns", {{u"a/b_c", u"xa/b_cx", true}, {u"a/b", u"a b", false}}},
        FitCase{"SingleCharacterAfterARunIsChecked",
                {{u"ab\u30a2", u"\u30a2 ab", true},
                 {u"ab\u30a2", u"ab", false},
                 {u"ab\\", u"ab", false},
                 {u"ab\\", u"\\ab", true}}},
        FitCase{"FullWidthAndIdeographsAreSingleCharacters",
                {{u"\uff21\u4e00", u"\u4e00\uff21", true}, {u"\uff11", u"1", false}, {u"\uff71", u"\u30a2", false}}}),
    [](const ::testing::TestParamInfo<FitCase>& info) { return std::string(info.param.name); });

TEST_F(NameMatch, MatchIsTraced) {
  EnableLog();
  Fits(u"ab", u"cab");
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELApp::IsSubStrNoOrder(ab, cab) IN\r\n",
                                                  "CKELApp::IsSubStrNoOrder OUT(1)\r\n"}));
}

}  // namespace
}  // namespace kel
