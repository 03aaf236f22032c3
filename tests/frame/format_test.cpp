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
  EXPECT_EQ(FormatNarrow("%S", {text}), "a\xEF\xBF\xBD" "b");
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

TEST(Format, AbsurdFieldWidthIsCapped) {
  EXPECT_EQ(FormatNarrow("%99999999999999999999d", {1}).size(), 4096u);
}

}  // namespace
}  // namespace kel
