// Base64 text of byte-holding strings, the lenient decoder's quirks, and the hex helper.
#include <random>
#include <string>

#include "platform/text/CodePage.h"
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

// The codec's steps written out plainly, one character at a time, as the reference for the
// table-driven codec.
Text referenceEncode(const std::string& in) {
  static const char* abc = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (in.empty()) return Text();
  std::string padded = in + std::string((3 - in.size() % 3) % 3, '\0');
  Text out;
  for (size_t i = 0; i < padded.size(); i += 3) {
    unsigned a = (unsigned char)padded[i], b = (unsigned char)padded[i + 1],
             c = (unsigned char)padded[i + 2];
    for (unsigned v : {a >> 2, ((a & 3) << 4) | (b >> 4), ((b & 15) << 2) | (c >> 6), c & 63})
      out += char16_t(abc[v]);
  }
  for (size_t p = padded.size() - in.size(); p > 0; --p)
    out[out.size() - p] = u'=';
  return out;
}

// The decoded bytes, or the failure number.
struct Decoded {
  std::string bytes;
  int32_t failure = 0;
  bool operator==(const Decoded&) const = default;
};

Decoded referenceDecode(const Text& text) {
  static const std::string abc = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const size_t n = text.size();
  if (n == 0) return {};
  if (n < 4) return {"", err::SubscriptOutOfRange};
  auto d = [&](size_t i) -> unsigned {
    if (i >= n) return 1000;  // past the end: reported below, before it is used
    size_t at = text[i] < 0x80 ? abc.find(char(text[i])) : std::string::npos;
    return at == std::string::npos ? 64u : unsigned(at);
  };
  std::string out;
  for (size_t i = 0; i + 2 <= n; i += 4) {
    if (i + 4 > n) return {"", err::SubscriptOutOfRange};
    unsigned b0 = d(i) * 4 | (d(i + 1) >> 4);
    if (b0 > 255) return {"", err::Overflow};
    out += char(b0);
    out += char(((d(i + 1) & 15) * 16) | (d(i + 2) >> 2));
    out += char(((d(i + 2) & 3) * 64) | d(i + 3));
  }
  if (text[n - 2] == u'=') {
    out.resize(out.size() - 2);
  } else if (text[n - 1] == u'=') {
    out.resize(out.size() - 1);
  }
  return {out, 0};
}

Decoded decoded(const Text& text) {
  Decoded r;
  r.failure = failureOf([&] { r.bytes = ansi(Base64Decode(text)); });
  if (r.failure != 0) r.bytes.clear();
  return r;
}

// Random texts of the alphabet with characters outside it, "=" anywhere, and lengths of every
// remainder, against the plain decoder; random bytes against the plain encoder. Both forms, with
// each version of the loops the processor can run.
void matchesThePlainCodec() {
  std::mt19937 rng(64);
  const char16_t odd[] = {u'=',    u'=',    u'\r',     u'\n',     u' ',      u'*', u'\0',
                          u'\x80', u'\xFF', u'\u20AC', u'\u0100', u'\uFFFF', u'-', u'_'};
  for (int round = 0; round < 3000; ++round) {
    // Short ones, some across the vector blocks, and a few across the pieces of 3072 bytes.
    size_t length = round % 100 == 0 ? 3000 + rng() % 7000
                    : rng() % 3 == 0 ? rng() % 400
                                     : rng() % 24;
    std::string raw(length, '\0');
    for (char& c : raw)
      c = char(rng());
    ASSERT_EQ(Base64Encode(bytes(raw)), referenceEncode(raw)) << round;
    ASSERT_EQ(base64EncodeBytes(raw), ansi(referenceEncode(raw))) << round;

    Text text = referenceEncode(raw);
    unsigned spoil = rng() % 4;  // 0: clean, else that many characters changed
    for (unsigned k = 0; k < spoil && !text.empty(); ++k)
      text[rng() % text.size()] = odd[rng() % std::size(odd)];
    if (rng() % 4 == 0) text.resize(rng() % (text.size() + 1));
    Decoded expected = referenceDecode(text);
    ASSERT_EQ(decoded(text), expected) << round << " " << ansi(text);
    // On bytes, every character above 0xFF stands as "?", outside the alphabet as it is.
    std::string narrow = ansi(text);
    Decoded onBytes;
    onBytes.failure = failureOf([&] { onBytes.bytes = base64DecodeBytes(narrow); });
    if (onBytes.failure != 0) onBytes.bytes.clear();
    ASSERT_EQ(onBytes, expected) << round;
  }
}

TEST(Base64, MatchesThePlainCodec) {
  atEveryVectorLevel(matchesThePlainCodec);
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
