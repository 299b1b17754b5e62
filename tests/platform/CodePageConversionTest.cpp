// Whole-string conversions against a plain character-by-character reference: every byte, every
// character, at every position within the sixteen-wide blocks, and random mixed texts.
#include <gtest/gtest.h>

#include <random>

#include "platform/CodePage.h"

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

TEST(CodePageConversion, EveryByteAtEveryOffset) {
  std::string all;
  for (int b = 0; b < 256; ++b)
    all += static_cast<char>(b);
  for (size_t lead = 0; lead <= 17; ++lead) {
    std::string bytes = std::string(lead, 'x') + all + std::string(lead, '\x85');
    Text text = fromAnsi(bytes);
    EXPECT_EQ(text, referenceWiden(bytes)) << lead;
    EXPECT_EQ(toAnsi(text), bytes) << lead;
  }
}

TEST(CodePageConversion, EveryCharacterAtEveryOffset) {
  Text all;
  for (unsigned c = 0; c <= 0xFFFF; ++c)
    all += char16_t(c);
  for (size_t lead = 0; lead <= 17; ++lead) {
    Text text = Text(lead, u'\u20AC') + all;
    std::string expected = referenceNarrow(text);
    ASSERT_EQ(toAnsi(text), expected) << lead;
    for (size_t i = 0; i < text.size(); ++i)
      ASSERT_EQ(toAnsiByte(text[i]), static_cast<unsigned char>(expected[i])) << i;
  }
  for (unsigned b = 0; b < 256; ++b)
    EXPECT_EQ(fromAnsiByte(static_cast<unsigned char>(b)),
              referenceChar(static_cast<unsigned char>(b)));
}

// Random texts that mix plain, high and outside characters in every density, of lengths around
// the block size.
TEST(CodePageConversion, RandomTextsMatchTheReference) {
  std::mt19937 rng(1252);
  const char16_t pool[] = {u'a',      u'\0',     u'\x7F',   u'\x80',   u'\x81',
                           u'\x9F',   u'\xA0',   u'\xFF',   u'\u0100', u'\u20AC',
                           u'\u0178', u'\u2122', u'\uFFFF', u'\u4E00'};
  for (int round = 0; round < 2000; ++round) {
    size_t length = rng() % 70;
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
}

}  // namespace
}  // namespace zrk::platform
