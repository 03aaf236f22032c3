#include <gtest/gtest.h>

#include "catalogue/records.h"
#include "library_test.h"

namespace kel {
namespace {

class NameMatch : public testing::LibraryTest {
 protected:
  static bool Fits(const char16_t* part, const char16_t* whole) { return CKELApp::IsSubStrNoOrder(part, whole) != 0; }
};

TEST_F(NameMatch, PiecesMatchInAnyOrder) {
  EXPECT_TRUE(Fits(u"abc def", u"def abc x"));
  EXPECT_TRUE(Fits(u"ab", u"cab"));
}

TEST_F(NameMatch, IgnoredCharactersSeparateRuns) {
  EXPECT_TRUE(Fits(u"ab-cd", u"cdxab"));
  EXPECT_FALSE(Fits(u"ab", u"a b"));
}

TEST_F(NameMatch, KanaCountOneByOne) {
  EXPECT_TRUE(Fits(u"\u30a2\u30d7\u30ea", u"\u30ea\u30a2\u30d7"));
  EXPECT_FALSE(Fits(u"\u30a2\u30d7\u30ea", u"\u30a2\u30d7"));
  // Repeated characters are not counted.
  EXPECT_TRUE(Fits(u"\u30a2\u30a2", u"\u30a2"));
}

TEST_F(NameMatch, CaseMatters) { EXPECT_FALSE(Fits(u"abc", u"ABC")); }

TEST_F(NameMatch, EmptyPartFitsEverything) {
  EXPECT_TRUE(Fits(u"", u"anything"));
  EXPECT_TRUE(Fits(u"", u""));
}

TEST_F(NameMatch, PartOfIgnoredCharactersOnlyFitsEverything) {
  EXPECT_TRUE(Fits(u"  - ! ", u""));
  EXPECT_TRUE(Fits(u"\u00e9\u00e8", u"x"));
  EXPECT_TRUE(Fits(u"\ud55c\uae00", u"x"));
}

TEST_F(NameMatch, SlashAndUnderscoreBelongToRuns) {
  EXPECT_TRUE(Fits(u"a/b_c", u"xa/b_cx"));
  EXPECT_FALSE(Fits(u"a/b", u"a b"));
}

TEST_F(NameMatch, SingleCharacterAfterARunIsChecked) {
  EXPECT_TRUE(Fits(u"ab\u30a2", u"\u30a2 ab"));
  EXPECT_FALSE(Fits(u"ab\u30a2", u"ab"));
  EXPECT_FALSE(Fits(u"ab\\", u"ab"));
  EXPECT_TRUE(Fits(u"ab\\", u"\\ab"));
}

TEST_F(NameMatch, FullWidthAndIdeographsAreSingleCharacters) {
  EXPECT_TRUE(Fits(u"\uff21\u4e00", u"\u4e00\uff21"));
  EXPECT_FALSE(Fits(u"\uff11", u"1"));
  EXPECT_FALSE(Fits(u"\uff71", u"\u30a2"));
}

TEST_F(NameMatch, MatchIsTraced) {
  EnableLog();
  Fits(u"ab", u"cab");
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELApp::IsSubStrNoOrder(ab, cab) IN\r\n",
                                                  "CKELApp::IsSubStrNoOrder OUT(1)\r\n"}));
}

}  // namespace
}  // namespace kel
