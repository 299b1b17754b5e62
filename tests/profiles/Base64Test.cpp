// Base64 text of byte-holding strings, the lenient decoder's quirks, and the hex helper.
#include <random>
#include <string>

#include "platform/CodePage.h"
#include "profiles/Base64.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

TEST(Base64, EncodesWithPadding) {
  struct Case {
    std::string in;
    const char16_t* out;
  } cases[] = {{"", u""},
               {"a", u"YQ=="},
               {"ab", u"YWI="},
               {"abc", u"YWJj"},
               {"abcd", u"YWJjZA=="},
               {std::string(1, '\0'), u"AA=="},
               {"\xFF\xFF\xFF", u"////"},
               {"\xFB\xEF", u"++8="}};
  for (const Case& c : cases)
    EXPECT_EQ(Base64Encode(bytes(c.in)), c.out) << c.in;
}

TEST(Base64, DecodesWithPadding) {
  struct Case {
    const char16_t* in;
    std::string out;
  } cases[] = {{u"", ""},
               {u"YWJj", "abc"},
               {u"YWI=", "ab"},
               {u"YQ==", "a"},
               {u"AA==", std::string(1, '\0')},
               {u"YWJjx", "abc"},  // L mod 4 = 1: the last one is dropped
               {u"YWJ=x", "a"},    // only the last two characters decide
               {u"YWJ=YWJj",
                "ab@"
                "abc"}};  // an inner "=" counts as 64
  for (const Case& c : cases)
    EXPECT_EQ(ansi(Base64Decode(c.in)), c.out) << ansi(c.in);
}

// A character outside the alphabet as c1, c2 or c3 counts as 64 and sets one bit.
TEST(Base64, OutsideCharactersCountAs64) {
  EXPECT_EQ(ansi(Base64Decode(u"A*AA")), std::string("\x04\x00\x00", 3));
  EXPECT_EQ(ansi(Base64Decode(u"AA*A")), std::string("\x00\x10\x00", 3));
  EXPECT_EQ(ansi(Base64Decode(u"AAA*")), std::string("\x00\x00\x40", 3));
  EXPECT_EQ(ansi(Base64Decode(u"//\r\n")), std::string("\xFF\xF0\x40", 3));
}

TEST(Base64, FailuresFollowTheArithmetic) {
  struct Case {
    const char16_t* in;
    int32_t number;
  } cases[] = {{u"Y", err::SubscriptOutOfRange},
               {u"YW", err::SubscriptOutOfRange},
               {u"YWJ", err::SubscriptOutOfRange},
               {u"YWJjYW", err::SubscriptOutOfRange},
               {u"YWJjYWJ", err::SubscriptOutOfRange},
               {u"YWJj\r\n", err::SubscriptOutOfRange},
               {u"*WJj", err::Overflow},
               {u"====", err::Overflow},
               {u"YWJj=WJj", err::Overflow},
               {u"YWJ\u20ACYWJj", 0}};
  for (const Case& c : cases)
    EXPECT_EQ(failureOf([&] { Base64Decode(c.in); }), c.number) << ansi(c.in);
}

TEST(Base64, EveryByteStringRoundTrips) {
  std::mt19937 rng(7);
  std::string all;
  for (int i = 0; i < 256; ++i)
    all += char(i);
  std::vector<std::string> inputs{all, std::string(1, '\xFF'), std::string(2, '\0'), all + "x"};
  for (size_t len = 0; len < 40; ++len) {
    std::string s(len, '\0');
    for (char& c : s)
      c = char(rng());
    inputs.push_back(s);
  }
  for (const std::string& in : inputs) {
    Text encoded = Base64Encode(bytes(in));
    EXPECT_EQ(encoded.size(), (in.size() + 2) / 3 * 4);
    EXPECT_EQ(ansi(Base64Decode(encoded)), in);
  }
}

TEST(TwoDigitHex, Forms) {
  struct Case {
    int32_t value;
    const char16_t* hex;
  } cases[] = {{0, u"00"},
               {10, u"0A"},
               {255, u"FF"},
               {256, u"100"},
               {15, u"0F"},
               {-1, u"FFFFFFFF"},
               {INT32_MIN, u"80000000"},
               {0x12345, u"12345"}};
  for (const Case& c : cases)
    EXPECT_EQ(TwoDigitHex(c.value), c.hex) << c.value;
}

}  // namespace
}  // namespace zrk::test
