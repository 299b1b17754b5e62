// Whole-string conversions against a plain character-by-character reference: every byte, every
// character, at every position within the vector blocks, and random mixed texts, with each
// version of the loops the processor can run.
#include <gtest/gtest.h>

#include <random>

#include "platform/text/CodePage.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

// Windows-1252's characters for 0x80-0x9F, the five unassigned bytes as C1 controls.
constexpr char16_t kPage[32] = {
    u'\u20AC', u'\u0081', u'\u201A', u'\u0192', u'\u201E', u'\u2026', u'\u2020', u'\u2021',
    u'\u02C6', u'\u2030', u'\u0160', u'\u2039', u'\u0152', u'\u008D', u'\u017D', u'\u008F',
    u'\u0090', u'\u2018', u'\u2019', u'\u201C', u'\u201D', u'\u2022', u'\u2013', u'\u2014',
    u'\u02DC', u'\u2122', u'\u0161', u'\u203A', u'\u0153', u'\u009D', u'\u017E', u'\u0178'};

char16_t referenceChar(unsigned char b) {
  return (b >= 0x80 && b < 0xA0) ? kPage[b - 0x80] : char16_t(b);
}

unsigned char referenceByte(char16_t c) {
  for (int i = 0; i < 32; ++i) {
    if (kPage[i] == c) return static_cast<unsigned char>(0x80 + i);
  }
  return (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) ? static_cast<unsigned char>(c) : '?';
}

Text referenceWiden(const std::string& bytes) {
  Text out;
  for (char b : bytes)
    out += referenceChar(static_cast<unsigned char>(b));
  return out;
}

std::string referenceNarrow(const Text& text) {
  std::string out;
  for (char16_t c : text)
    out += static_cast<char>(referenceByte(c));
  return out;
}

// Every offset within the 32- and 64-wide blocks, at every vector level.
TEST(CodePageConversion, EveryByteAtEveryOffset) {
  std::string all;
  for (int b = 0; b < 256; ++b)
    all += static_cast<char>(b);
  test::atEveryVectorLevel([&] {
    for (size_t lead = 0; lead <= 65; ++lead) {
      std::string bytes = std::string(lead, 'x') + all + std::string(lead, '\x85');
      Text text = fromAnsi(bytes);
      ASSERT_EQ(text, referenceWiden(bytes)) << lead;
      ASSERT_EQ(toAnsi(text), bytes) << lead;
    }
  });
}

TEST(CodePageConversion, EveryCharacterAtEveryOffset) {
  Text all;
  for (unsigned c = 0; c <= 0xFFFF; ++c)
    all += char16_t(c);
  const std::string expected = referenceNarrow(all);
  for (size_t c = 0; c <= 0xFFFF; ++c)
    ASSERT_EQ(toAnsiByte(char16_t(c)), static_cast<unsigned char>(expected[c])) << c;
  for (unsigned b = 0; b < 256; ++b)
    EXPECT_EQ(fromAnsiByte(static_cast<unsigned char>(b)),
              referenceChar(static_cast<unsigned char>(b)));
  test::atEveryVectorLevel([&] {
    for (size_t lead = 0; lead <= 65; ++lead)
      ASSERT_EQ(toAnsi(Text(lead, u'\u20AC') + all), std::string(lead, '\x80') + expected) << lead;
  });
}

// Random texts that mix plain, high and outside characters in every density, of lengths around
// the block sizes.
TEST(CodePageConversion, RandomTextsMatchTheReference) {
  const char16_t pool[] = {u'a',      u'\0',     u'\x7F',   u'\x80',   u'\x81',
                           u'\x9F',   u'\xA0',   u'\xFF',   u'\u0100', u'\u20AC',
                           u'\u0178', u'\u2122', u'\uFFFF', u'\u4E00'};
  test::atEveryVectorLevel([&] {
    std::mt19937 rng(1252);
    for (int round = 0; round < 2000; ++round) {
      size_t length = rng() % 150;
      unsigned density = rng() % 5;  // 0: plain only, up to 4: mostly special
      Text text;
      std::string bytes;
      for (size_t i = 0; i < length; ++i) {
        bool special = rng() % 4 < density;
        text += special ? pool[rng() % std::size(pool)] : char16_t(rng() % 0x80);
        bytes += static_cast<char>(special ? rng() : rng() % 0x80);
      }
      ASSERT_EQ(toAnsi(text), referenceNarrow(text)) << round;
      ASSERT_EQ(fromAnsi(bytes), referenceWiden(bytes)) << round;
    }
  });
}

}  // namespace
}  // namespace zrk::platform
