// Tests of the code page 932 decoder. Expected values are what
// MultiByteToWideChar(932, MB_PRECOMPOSED, ...) returns on Windows and Wine.
#include "text/cp932/cp932.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kel::cp932::MultiByteToWide;

constexpr char16_t kMiddleDot = u'\u30FB';

// Decodes `bytes` with an explicit length through the size query and a
// buffer of exactly that size, checking that both agree.
std::u16string Decode(const std::vector<unsigned char>& bytes) {
  const char* source = reinterpret_cast<const char*>(bytes.data());
  const int length = static_cast<int>(bytes.size());
  const int needed = MultiByteToWide(source, length, nullptr, 0);
  std::u16string result(static_cast<std::size_t>(needed), u'\0');
  const int written = MultiByteToWide(source, length, result.data(), needed);
  EXPECT_EQ(written, needed);
  return result;
}

// Decodes the zero-terminated `bytes` with length -1; the result includes
// the terminator.
std::u16string DecodeTerminated(const std::vector<unsigned char>& bytes) {
  std::vector<unsigned char> terminated = bytes;
  terminated.push_back(0);
  const char* source = reinterpret_cast<const char*>(terminated.data());
  const int needed = MultiByteToWide(source, -1, nullptr, 0);
  std::u16string result(static_cast<std::size_t>(needed), u'\0');
  const int written = MultiByteToWide(source, -1, result.data(), needed);
  EXPECT_EQ(written, needed);
  return result;
}

bool IsLeadByte(int byte) { return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC); }

// --- single bytes -----------------------------------------------------------

TEST(Cp932, AsciiBytesMapToThemselves) {
  for (int byte = 0x00; byte <= 0x7F; ++byte) {
    EXPECT_EQ(Decode({static_cast<unsigned char>(byte)}), std::u16string(1, static_cast<char16_t>(byte)))
        << "byte " << byte;
  }
}

TEST(Cp932, BackslashByteStaysBackslashNotYen) { EXPECT_EQ(Decode({0x5C}), u"\u005C"); }

TEST(Cp932, Byte80GivesU0080) { EXPECT_EQ(Decode({0x80}), u"\u0080"); }

TEST(Cp932, ByteA0GivesPrivateUseF8F0) { EXPECT_EQ(Decode({0xA0}), u"\uF8F0"); }

TEST(Cp932, BytesA1ToDFGiveHalfWidthKatakana) {
  EXPECT_EQ(Decode({0xA1}), u"\uFF61");
  EXPECT_EQ(Decode({0xB1}), u"\uFF71");
  EXPECT_EQ(Decode({0xDF}), u"\uFF9F");
  for (int byte = 0xA1; byte <= 0xDF; ++byte) {
    EXPECT_EQ(Decode({static_cast<unsigned char>(byte)}),
              std::u16string(1, static_cast<char16_t>(0xFF61 + (byte - 0xA1))))
        << "byte " << byte;
  }
}

TEST(Cp932, BytesFDFEFFGivePrivateUseF8F1ToF8F3) {
  EXPECT_EQ(Decode({0xFD}), u"\uF8F1");
  EXPECT_EQ(Decode({0xFE}), u"\uF8F2");
  EXPECT_EQ(Decode({0xFF}), u"\uF8F3");
}

TEST(Cp932, LeadBytesAre81To9FAndE0ToFC) {
  for (int byte = 0; byte <= 0xFF; ++byte) {
    const std::u16string result = Decode({static_cast<unsigned char>(byte), 0x40});
    EXPECT_EQ(result.size(), IsLeadByte(byte) ? 1u : 2u) << "byte " << byte;
  }
}

// --- double bytes -----------------------------------------------------------

TEST(Cp932, Pair82A0GivesHiraganaA) { EXPECT_EQ(Decode({0x82, 0xA0}), u"\u3042"); }

TEST(Cp932, Pair815FGivesFullWidthReverseSolidus) { EXPECT_EQ(Decode({0x81, 0x5F}), u"\uFF3C"); }

TEST(Cp932, Pair8740GivesCircledDigitOne) { EXPECT_EQ(Decode({0x87, 0x40}), u"\u2460"); }

TEST(Cp932, PairF040GivesFirstPrivateUseCharacter) { EXPECT_EQ(Decode({0xF0, 0x40}), u"\uE000"); }

TEST(Cp932, UserDefinedAreaF040ToF9FCMapsToE000ToE757InOrder) {
  char16_t expected = 0xE000;
  for (int lead = 0xF0; lead <= 0xF9; ++lead) {
    for (int trail = 0x40; trail <= 0xFC; ++trail) {
      if (trail == 0x7F) continue;
      EXPECT_EQ(Decode({static_cast<unsigned char>(lead), static_cast<unsigned char>(trail)}),
                std::u16string(1, expected))
          << "pair " << lead << " " << trail;
      ++expected;
    }
  }
  EXPECT_EQ(expected, 0xE758);
}

TEST(Cp932, WindowsFlavouredPairsGiveWindowsCharacters) {
  EXPECT_EQ(Decode({0x81, 0x5C}), u"\u2015");  // horizontal bar
  EXPECT_EQ(Decode({0x81, 0x60}), u"\uFF5E");  // full-width tilde
  EXPECT_EQ(Decode({0x81, 0x61}), u"\u2225");  // parallel to
  EXPECT_EQ(Decode({0x81, 0x7C}), u"\uFF0D");  // full-width hyphen-minus
  EXPECT_EQ(Decode({0x81, 0x91}), u"\uFFE0");  // full-width cent sign
  EXPECT_EQ(Decode({0x81, 0x92}), u"\uFFE1");  // full-width pound sign
  EXPECT_EQ(Decode({0x81, 0xCA}), u"\uFFE2");  // full-width not sign
}

TEST(Cp932, SampleOfPairsDecodeToKnownCharacters) {
  struct Sample {
    unsigned char lead;
    unsigned char trail;
    char16_t expected;
  };
  const Sample samples[] = {
      {0x81, 0x40, 0x3000}, {0x83, 0x9F, 0x0391}, {0x84, 0x40, 0x0410}, {0x84, 0x70, 0x0430}, {0x87, 0x54, 0x2160},
      {0x87, 0x82, 0x2116}, {0x87, 0x90, 0x2252}, {0x88, 0x9F, 0x4E9C}, {0x88, 0xEA, 0x4E00}, {0x93, 0xFA, 0x65E5},
      {0x96, 0x7B, 0x672C}, {0x98, 0x72, 0x8155}, {0x98, 0x9F, 0x5F0C}, {0xEA, 0xA4, 0x7199}, {0xED, 0x40, 0x7E8A},
      {0xEE, 0xFC, 0xFF02}, {0xFA, 0x40, 0x2170}, {0xFA, 0x54, 0xFFE2}, {0xFA, 0x5B, 0x2235}, {0xFA, 0x5C, 0x7E8A},
      {0xFC, 0x4B, 0x9ED1},
  };
  for (const Sample& sample : samples) {
    EXPECT_EQ(Decode({sample.lead, sample.trail}), std::u16string(1, sample.expected))
        << "pair " << int{sample.lead} << " " << int{sample.trail};
  }
}

TEST(Cp932, KatakanaAppNameDecodes) {
  // "\u30E1\u30FC\u30EB" (katakana "meeru") in Shift JIS.
  EXPECT_EQ(Decode({0x83, 0x81, 0x81, 0x5B, 0x83, 0x8B}), u"\u30E1\u30FC\u30EB");
  EXPECT_EQ(DecodeTerminated({0x83, 0x81, 0x81, 0x5B, 0x83, 0x8B}), std::u16string(u"\u30E1\u30FC\u30EB\0", 4));
}

TEST(Cp932, MixedSingleAndDoubleBytesDecodeInOrder) {
  EXPECT_EQ(Decode({'A', 0xB1, 0x82, 0xA0, 0x5C, 0x80}), u"A\uFF71\u3042\u005C\u0080");
}

// --- replacements -------------------------------------------------------------

TEST(Cp932, LeadByteWithInvalidTrailGivesOneMiddleDotAndConsumesBoth) {
  EXPECT_EQ(Decode({0x81, 0x20}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({0x81, 0x7F}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({0x81, 0x3F}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({0x81, 0xFD}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({0x81, 0xFF}), std::u16string(1, kMiddleDot));
  // The trail byte is consumed even when it would be a character by itself.
  EXPECT_EQ(Decode({0x81, 0x20, 'A'}), std::u16string(u"\u30FBA"));
  EXPECT_EQ(Decode({0x9F, 0x21, 'B'}), std::u16string(u"\u30FBB"));
}

TEST(Cp932, LeadByteWithUnassignedTrailGivesMiddleDot) {
  EXPECT_EQ(Decode({0x81, 0xAD}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({0x85, 0x40}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({0xEB, 0x40}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({0xEF, 0xA0}), std::u16string(1, kMiddleDot));
}

TEST(Cp932, EveryLeadByteConsumesAnyNonZeroTrail) {
  for (int lead = 0; lead <= 0xFF; ++lead) {
    if (!IsLeadByte(lead)) continue;
    for (int trail = 1; trail <= 0xFF; ++trail) {
      const std::u16string result = Decode({static_cast<unsigned char>(lead), static_cast<unsigned char>(trail)});
      ASSERT_EQ(result.size(), 1u) << "pair " << lead << " " << trail;
      EXPECT_NE(result[0], u'\0');
    }
  }
}

TEST(Cp932, LeadByteAsLastByteGivesMiddleDot) {
  EXPECT_EQ(Decode({0x81}), std::u16string(1, kMiddleDot));
  EXPECT_EQ(Decode({'A', 0x82}), std::u16string(u"A\u30FB"));
}

TEST(Cp932, LeadByteBeforeTerminatorGivesMiddleDotThenTerminator) {
  EXPECT_EQ(DecodeTerminated({0x81}), std::u16string(u"\u30FB\0", 2));
  EXPECT_EQ(DecodeTerminated({'A', 0xF0}), std::u16string(u"A\u30FB\0", 3));
}

TEST(Cp932, LeadByteBeforeZeroByteLeavesTheZeroAsACharacter) {
  EXPECT_EQ(Decode({0x81, 0x00}), std::u16string(u"\u30FB\0", 2));
  EXPECT_EQ(Decode({0x81, 0x00, 'A'}), std::u16string(u"\u30FB\0A", 3));
}

// --- the buffer contract ----------------------------------------------------

TEST(Cp932, SizeQueryReturnsUnitsNeededWithoutABuffer) {
  const char text[] = "A\x82\xA0\xB1";
  EXPECT_EQ(MultiByteToWide(text, 4, nullptr, 0), 3);
  EXPECT_EQ(MultiByteToWide(text, -1, nullptr, 0), 4);
}

TEST(Cp932, SizeQueryWritesNothing) {
  const char text[] = "AB";
  char16_t buffer[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(MultiByteToWide(text, -1, buffer, 0), 3);
  EXPECT_EQ(buffer[0], u'x');
}

TEST(Cp932, MinusOneLengthIncludesTheTerminator) {
  const char text[] = "\x83\x81\x81\x5B\x83\x8B";
  char16_t buffer[8] = {};
  ASSERT_EQ(MultiByteToWide(text, -1, buffer, 8), 4);
  EXPECT_EQ(std::u16string(buffer, 4), std::u16string(u"\u30E1\u30FC\u30EB\0", 4));
}

TEST(Cp932, ExplicitLengthStopsThereAndAddsNoTerminator) {
  const char text[] = "ABC";
  char16_t buffer[4] = {u'x', u'x', u'x', u'x'};
  ASSERT_EQ(MultiByteToWide(text, 2, buffer, 4), 2);
  EXPECT_EQ(buffer[0], u'A');
  EXPECT_EQ(buffer[1], u'B');
  EXPECT_EQ(buffer[2], u'x');
}

TEST(Cp932, ExplicitLengthConvertsEmbeddedZeroBytes) {
  const char text[] = {'A', '\0', 'B'};
  char16_t buffer[4] = {};
  ASSERT_EQ(MultiByteToWide(text, 3, buffer, 4), 3);
  EXPECT_EQ(std::u16string(buffer, 3), std::u16string(u"A\0B", 3));
}

TEST(Cp932, ExactlySizedBufferSucceeds) {
  const char text[] = "\x82\xA0\x82\xA2";
  char16_t buffer[2] = {};
  ASSERT_EQ(MultiByteToWide(text, 4, buffer, 2), 2);
  EXPECT_EQ(std::u16string(buffer, 2), u"\u3042\u3044");
}

TEST(Cp932, TooSmallBufferReturnsZero) {
  const char text[] = "\x82\xA0\x82\xA2";
  char16_t buffer[4] = {};
  EXPECT_EQ(MultiByteToWide(text, 4, buffer, 1), 0);
  EXPECT_EQ(MultiByteToWide(text, -1, buffer, 2), 0);  // the terminator does not fit
}

TEST(Cp932, NullSourceReturnsZero) {
  char16_t buffer[4] = {};
  EXPECT_EQ(MultiByteToWide(nullptr, -1, buffer, 4), 0);
  EXPECT_EQ(MultiByteToWide(nullptr, 3, nullptr, 0), 0);
}

TEST(Cp932, ZeroLengthReturnsZero) {
  char16_t buffer[4] = {};
  EXPECT_EQ(MultiByteToWide("abc", 0, buffer, 4), 0);
  EXPECT_EQ(MultiByteToWide("abc", 0, nullptr, 0), 0);
}

TEST(Cp932, LengthBelowMinusOneReturnsZero) {
  char16_t buffer[4] = {};
  EXPECT_EQ(MultiByteToWide("abc", -2, buffer, 4), 0);
  EXPECT_EQ(MultiByteToWide("abc", -2, nullptr, 0), 0);
}

TEST(Cp932, NegativeCapacityOrMissingBufferReturnsZero) {
  char16_t buffer[4] = {};
  EXPECT_EQ(MultiByteToWide("abc", -1, buffer, -1), 0);
  EXPECT_EQ(MultiByteToWide("abc", -1, nullptr, 4), 0);
}

TEST(Cp932, EmptyTerminatedStringGivesJustTheTerminator) {
  char16_t buffer[2] = {u'x', u'x'};
  ASSERT_EQ(MultiByteToWide("", -1, buffer, 2), 1);
  EXPECT_EQ(buffer[0], u'\0');
}

}  // namespace
