#include "platform/temporary_path.h"

#include <gtest/gtest.h>

#include <set>

namespace kel::platform {
namespace {

struct TemporaryPathCase {
  const char16_t* target;
  std::uint32_t unique;
  const char16_t* temporary;
};

class TemporaryPath : public testing::TestWithParam<TemporaryPathCase> {};

TEST_P(TemporaryPath, LiesBesideTheTargetAndIsNoLongerThanIt) {
  const TemporaryPathCase& c = GetParam();
  const WString temporary = TemporaryPathBeside(c.target, c.unique);
  EXPECT_EQ(temporary, WString(c.temporary));
  EXPECT_LE(temporary.size(), WString(c.target).size());
}

INSTANTIATE_TEST_SUITE_P(
    Names, TemporaryPath,
    testing::Values(TemporaryPathCase{u"C:\\Data\\AppNameList1.0.4.0.xml", 0x0012ABCD, u"C:\\Data\\~kel0012ABCD"},
                    TemporaryPathCase{u"C:\\Data\\abcdefghijkl", 0xFFFFFFFF, u"C:\\Data\\~kelFFFFFFFF"},
                    // Too short for the prefix: "~" and the low digits that fit.
                    TemporaryPathCase{u"C:\\Data\\abcdefghijk", 0x12345678, u"C:\\Data\\~12345678"},
                    TemporaryPathCase{u"C:\\Data\\a.xml", 0x12345678, u"C:\\Data\\~5678"},
                    TemporaryPathCase{u"C:\\Data\\ab", 0x1234567A, u"C:\\Data\\~A"},
                    // No room for even one digit.
                    TemporaryPathCase{u"C:\\Data\\a", 0x1, u""}, TemporaryPathCase{u"C:\\Data\\", 0x1, u""},
                    // Forward slashes and a bare drive name separate a folder too.
                    TemporaryPathCase{u"C:/Data/AppNameList1.0.4.0.xml", 0x1, u"C:/Data/~kel00000001"},
                    TemporaryPathCase{u"C:AppNameList1.0.4.0.xml", 0x1, u"C:~kel00000001"},
                    TemporaryPathCase{u"AppNameList1.0.4.0.xml", 0xA, u"~kel0000000A"}));

TEST(TemporaryPathBeside, FitsWhereATargetOf256To259CharactersFits) {
  for (std::size_t length = 256; length <= 259; ++length) {
    WString folder = u"C:\\";
    while (folder.size() + 1 + 22 < length) folder += u'd';
    const WString target = folder + u"\\AppNameList1.0.4.0.xml";
    ASSERT_EQ(target.size(), length);
    const WString temporary = TemporaryPathBeside(target, 0xCAFE0001);
    EXPECT_EQ(temporary, folder + u"\\~kelCAFE0001");
    EXPECT_LT(temporary.size(), kMaxPath) << "a target of " << length << " characters";
  }
}

TEST(TemporaryPathBeside, AShortNameStillDiffersForEveryValueOfItsDigits) {
  std::set<WString> names;
  for (std::uint32_t unique = 0; unique < 4096; ++unique) names.insert(TemporaryPathBeside(u"D:\\x\\abcd", unique));
  EXPECT_EQ(names.size(), 4096u);
}

}  // namespace
}  // namespace kel::platform
