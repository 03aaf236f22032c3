#include "frame/format.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

TEST(Format, WideArgumentOfCapitalSIsWrittenAsUtf8) {
  EXPECT_EQ(FormatNarrow("%S IN\r\n", {u"KelInitialize"}), "KelInitialize IN\r\n");
  EXPECT_EQ(FormatNarrow("[%S]", {u"\u30e1\u30fc\u30eb"}), "[\xE3\x83\xA1\xE3\x83\xBC\xE3\x83\xAB]");
}

TEST(Format, UnpairedSurrogateBecomesReplacementCharacter) {
  const char16_t text[] = {u'a', 0xD800, u'b', 0};
  EXPECT_EQ(FormatNarrow("%S", {text}),
            "a\xEF\xBF\xBD"
            "b");
}

TEST(Format, SurrogatePairBecomesOneFourByteSequence) {
  EXPECT_EQ(FormatNarrow("%S", {u"\U0001F600"}), "\xF0\x9F\x98\x80");
}

TEST(Format, NarrowArgumentOfSmallSIsCopied) {
  EXPECT_EQ(FormatNarrow("%S(%s) IN\r\n", {u"KelLaunchStoreA", "Foo_abc"}), "KelLaunchStoreA(Foo_abc) IN\r\n");
}

TEST(Format, WideArgumentOfSmallSShowsItsBytesUpToTheFirstZeroByte) {
  EXPECT_EQ(FormatNarrow("DisplayName = %s\r\n", {u"Mail"}), "DisplayName = M\r\n");
  // U+3042 is 0x42 0x30 in memory: both bytes are printed before the zero.
  EXPECT_EQ(FormatNarrow("%s", {u"\u3042"}), "\x42\x30");
}

TEST(Format, NullStringsPrintAsNull) {
  EXPECT_EQ(FormatNarrow("%S(%S) IN", {u"KelLaunchByProtocolW", static_cast<const char16_t*>(nullptr)}),
            "KelLaunchByProtocolW((null)) IN");
  EXPECT_EQ(FormatNarrow("%s", {static_cast<const char*>(nullptr)}), "(null)");
  EXPECT_EQ(FormatWide(u"%s", {static_cast<const char16_t*>(nullptr)}), u"(null)");
}

TEST(Format, HexResultsArePaddedToEightUpperCaseDigits) {
  EXPECT_EQ(FormatNarrow("%S OUT(0x%08X)\r\n", {u"KelInitialize", 0}), "KelInitialize OUT(0x00000000)\r\n");
  EXPECT_EQ(FormatNarrow("0x%08X", {static_cast<std::int32_t>(0x80070057u)}), "0x80070057");
  EXPECT_EQ(FormatNarrow("0x%04X", {0x2D}), "0x002D");
}

TEST(Format, SignedAndUnsignedDecimal) {
  EXPECT_EQ(FormatNarrow("%d", {0xFFFFFFFFu}), "-1");
  EXPECT_EQ(FormatNarrow("%u", {0xFFFFFFFFu}), "4294967295");
  EXPECT_EQ(FormatNarrow("%d", {-2147483647 - 1}), "-2147483648");
  EXPECT_EQ(FormatNarrow("%hu", {0x12345}), "9029");
  EXPECT_EQ(FormatNarrow("%d", {4242}), "4242");
}

TEST(Format, TimestampFieldsAreZeroPadded) {
  EXPECT_EQ(FormatNarrow("[%04d/%02d/%02d %02d:%02d:%02d.%03d]", {2013, 5, 20, 9, 4, 7, 31}),
            "[2013/05/20 09:04:07.031]");
}

TEST(Format, PercentPercentIsOnePercentSign) { EXPECT_EQ(FormatNarrow("100%%", {}), "100%"); }

TEST(Format, ConversionWithoutArgumentPrintsNothing) { EXPECT_EQ(FormatNarrow("a%db", {}), "ab"); }

TEST(Format, WideFormatTakesWideAndNarrowStrings) {
  EXPECT_EQ(FormatWide(u"%s\\Osk\\Kelbrook\\%s", {u"C:\\Local", "KelbrookLogFS.txt"}),
            u"C:\\Local\\Osk\\Kelbrook\\KelbrookLogFS.txt");
  EXPECT_EQ(FormatWide(u"%s%d", {u"Local\\KEL_Event_Exit_RefreshThread", 4242}),
            u"Local\\KEL_Event_Exit_RefreshThread4242");
}

TEST(Format, BoundedWideFormatRefusesWhatDoesNotFit) {
  WString out = u"unchanged";
  EXPECT_FALSE(FormatWideInto(out, 4, u"%s", {u"abcd"}));
  EXPECT_EQ(out, u"unchanged");
  EXPECT_TRUE(FormatWideInto(out, 5, u"%s", {u"abcd"}));
  EXPECT_EQ(out, u"abcd");
}

}  // namespace
}  // namespace kel

namespace kel {
namespace {

TEST(Format, AbsurdFieldWidthIsCapped) { EXPECT_EQ(FormatNarrow("%99999999999999999999d", {1}).size(), 4096u); }

}  // namespace
}  // namespace kel

#include <cstring>
#include <memory>
#include <vector>

#include "alloc_counter.h"

namespace kel {
namespace {

// What a fixed 1,024-byte buffer keeps of a text: the text when it fits, else
// its beginning, cut before any UTF-8 sequence it would split, with the
// text's final "\r\n" kept.
std::string CutToFit(std::string text) {
  constexpr std::size_t kLimit = 1023;
  if (text.size() <= kLimit) return text;
  const bool lineBreak = text.compare(text.size() - 2, 2, "\r\n") == 0;
  std::size_t keep = lineBreak ? kLimit - 2 : kLimit;
  while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xC0) == 0x80) --keep;
  text.resize(keep);
  if (lineBreak) text += "\r\n";
  return text;
}

std::string FormatIntoLogBuffer(const char* format, std::initializer_list<FormatArg> args) {
  char buffer[1024];
  std::memset(buffer, 'Z', sizeof(buffer));
  const std::size_t length = FormatNarrowInto(buffer, sizeof(buffer), format, args.begin(), args.size());
  EXPECT_LT(length, sizeof(buffer));
  EXPECT_EQ(buffer[length], '\0');
  return std::string(buffer, length);
}

// Texts of every length around the buffer's limit, in one-, two-, three- and
// four-byte characters, with and without a line end, through every kind of
// conversion: the fixed buffer keeps exactly what cutting the whole text
// would keep.
TEST(Format, FixedBufferKeepsWhatCuttingTheWholeTextKeeps) {
  struct Unit {
    WString text;
    std::size_t utf8Bytes;
  };
  const std::vector<Unit> units = {{u"a", 1}, {u"\u00e9", 2}, {u"\u3042", 3}, {u"\U0001F600", 4}, {u"\xD800", 3}};
  const std::vector<const char*> formats = {"%S",
                                            "%S\r\n",
                                            "%S(%d, %s, %S) IN\r\n",
                                            "x%S\r",
                                            "%S\n",
                                            "%S OUT(0x%08X)\r\n",
                                            "%S%-5d|%9s|%-7S|%c\r\n",
                                            "%S%%\r\n",
                                            "%S %2000d\r\n",
                                            "%S %-2000d|%s\r\n"};
  int cases = 0;
  for (const Unit& unit : units) {
    std::vector<std::size_t> counts = {0, 1, 100};
    for (std::size_t count = 990 / unit.utf8Bytes; count <= 1030 / unit.utf8Bytes; ++count) counts.push_back(count);
    for (std::size_t count : counts) {
      WString text;
      for (std::size_t i = 0; i < count; ++i) text += unit.text;
      for (const char* format : formats) {
        const std::initializer_list<FormatArg> args = {text, static_cast<std::int32_t>(-42), "narrow", u"wide", 'c'};
        ASSERT_EQ(FormatIntoLogBuffer(format, args), CutToFit(FormatNarrow(format, args.begin(), args.size())))
            << format << " with " << count << " characters of U+" << std::hex << static_cast<int>(unit.text[0]);
        ++cases;
      }
    }
  }
  EXPECT_GT(cases, 500);
}

TEST(Format, FixedBufferTakesShortTextsAsTheyAre) {
  EXPECT_EQ(FormatIntoLogBuffer("[%04d/%02d/%02d %02d:%02d:%02d.%03d]", {2013, 5, 20, 9, 4, 7, 31}),
            "[2013/05/20 09:04:07.031]");
  EXPECT_EQ(FormatIntoLogBuffer("%S(%s) IN\r\n", {u"KelLaunchStoreA", static_cast<const char*>(nullptr)}),
            "KelLaunchStoreA((null)) IN\r\n");
  EXPECT_EQ(FormatIntoLogBuffer("DisplayName = %s\r\n", {u"Mail"}), "DisplayName = M\r\n");
  EXPECT_EQ(FormatIntoLogBuffer("", {}), "");
  char buffer[4] = {'Z', 'Z', 'Z', 'Z'};
  EXPECT_EQ(FormatNarrowInto(buffer, sizeof(buffer), nullptr, nullptr, 0), 0u);
  EXPECT_EQ(buffer[0], '\0');
}

TEST(Format, SmallFixedBufferCutsToItsOwnSize) {
  char buffer[8];
  const FormatArg args[] = {u"KelInitialize"};
  EXPECT_EQ(FormatNarrowInto(buffer, sizeof(buffer), "%S IN\r\n", args, 1), 7u);
  EXPECT_EQ(std::string(buffer), "KelIn\r\n");
  char one[1] = {'Z'};
  EXPECT_EQ(FormatNarrowInto(one, sizeof(one), "%S", args, 1), 0u);
  EXPECT_EQ(one[0], '\0');
}

TEST(Format, AllocationCounterSeesThisThreadsAllocations) {
  testing::AllocationCounter counter;
  auto block = std::make_unique<char[]>(100);
  EXPECT_EQ(counter.Count(), 1u);
  EXPECT_EQ(counter.Bytes(), 100u);
}

TEST(Format, FixedBufferNeverTouchesTheHeapHoweverLongTheArguments) {
  const WString keyword(100000, u'm');
  const std::string narrow(100000, 'h');
  const FormatArg args[] = {u"KelLaunchBySearchW", keyword, narrow, 0x80004005u};
  char buffer[1024];
  std::size_t length = 0;
  std::size_t allocations = 0;
  {
    testing::AllocationCounter counter;
    length = FormatNarrowInto(buffer, sizeof(buffer), "%S(%S, %s, %-3000d, %5000S) OUT(0x%08X)\r\n", args, 4);
    allocations = counter.Count();
  }
  EXPECT_EQ(allocations, 0u);
  EXPECT_EQ(length, 1023u);
  EXPECT_EQ(std::string(buffer).substr(0, 20), "KelLaunchBySearchW(m");
  EXPECT_EQ(std::string(buffer).substr(1021), "\r\n");
}

}  // namespace
}  // namespace kel
