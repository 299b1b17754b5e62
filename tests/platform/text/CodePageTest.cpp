// The code page: all 256 bytes round-trip, the page's extra characters, '?' outside it.
#include <gtest/gtest.h>

#include "platform/text/CodePage.h"

namespace zrk::platform {
namespace {

TEST(CodePage, EveryByteRoundTrips) {
  std::string all;
  for (int b = 0; b < 256; ++b)
    all += static_cast<char>(b);
  Text text = fromAnsi(all);
  ASSERT_EQ(text.size(), 256u);
  EXPECT_EQ(toAnsi(text), all);
}

TEST(CodePage, CharactersOfThePage) {
  struct Case {
    unsigned char byte;
    char16_t ch;
  } cases[] = {{0x80, u'\u20AC'}, {0x81, u'\u0081'}, {0x8D, u'\u008D'}, {0x8F, u'\u008F'},
               {0x90, u'\u0090'}, {0x9D, u'\u009D'}, {0x9F, u'\u0178'}, {0x99, u'\u2122'},
               {0xA0, u'\u00A0'}, {0xFF, u'\u00FF'}, {0x00, u'\0'}};
  for (const auto& c : cases) {
    EXPECT_EQ(fromAnsiByte(c.byte), c.ch) << int(c.byte);
    EXPECT_EQ(toAnsiByte(c.ch), c.byte) << int(c.byte);
  }
  EXPECT_EQ(toAnsi(u"\u4e00\u0100\U0001F600"), "????");
}

}  // namespace
}  // namespace zrk::platform
