#include "frame/wide.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

TEST(Wide, HasUnitFindsTheUnitAtEveryPositionAndLength) {
  for (std::size_t length = 0; length <= 13; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      WString text(length, u'a');
      text[at] = u'%';
      EXPECT_TRUE(HasUnit(text, u'%')) << length << " " << at;
    }
    EXPECT_FALSE(HasUnit(WString(length, u'a'), u'%')) << length;
  }
}

TEST(Wide, HasUnitIsNotFooledByNeighbouringLanes) {
  // Units whose lanes differ from '%' (0x0025) by borrows between lanes.
  const WString near = {0x0024, 0x0026, 0x0125, 0x2500, 0x0005, 0x0020, 0xFFFF, 0x0000, 0x8025};
  EXPECT_FALSE(HasUnit(near, u'%'));
  EXPECT_TRUE(HasUnit(near, 0x0000));
  EXPECT_TRUE(HasUnit(near, 0xFFFF));
  EXPECT_TRUE(HasUnit(near, 0x8025));
  EXPECT_FALSE(HasUnit(near, 0x8024));
}

TEST(Wide, HasUnitLooksOnlyInsideTheView) {
  const WString text = u"abcd%";
  EXPECT_FALSE(HasUnit(std::u16string_view(text).substr(0, 4), u'%'));
  EXPECT_TRUE(HasUnit(text, u'%'));
}

TEST(Wide, CaseFoldingIsAsciiOnly) {
  EXPECT_TRUE(EqualsIgnoreCase(u"Photo APP", u"photo app"));
  EXPECT_FALSE(EqualsIgnoreCase(u"\u00C9", u"\u00E9"));
  WString text = u"AbC\u00C9\uFF21";
  LowerInPlace(text);
  EXPECT_EQ(text, u"abc\u00C9\uFF21");
}

}  // namespace
}  // namespace kel

namespace kel {
namespace {

TEST(Wide, CountedTextComparesByLengthThenIgnoringAsciiCase) {
  EXPECT_TRUE(EqualsIgnoreCase(std::u16string_view(u"DisplayName"), std::u16string_view(u"displayname")));
  EXPECT_TRUE(EqualsIgnoreCase(std::u16string_view(u"LnkFileName"), std::u16string_view(u"LnkFileName")));
  EXPECT_FALSE(EqualsIgnoreCase(std::u16string_view(u"DisplayName"), std::u16string_view(u"DisplayNam")));
  EXPECT_FALSE(EqualsIgnoreCase(std::u16string_view(u"[a]"), std::u16string_view(u"{A}")));
  EXPECT_FALSE(EqualsIgnoreCase(std::u16string_view(u"\u0141"), std::u16string_view(u"\u0161")));
  const WString withNul(u"a\0b", 3);
  EXPECT_FALSE(EqualsIgnoreCase(std::u16string_view(withNul), std::u16string_view(u"a")));
  EXPECT_TRUE(EqualsIgnoreCase(std::u16string_view(withNul), std::u16string_view(WString(u"A\0B", 3))));
}

}  // namespace
}  // namespace kel
