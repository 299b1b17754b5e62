// Text helpers: replacement, splitting, case, UTF-8.
#include <gtest/gtest.h>

#include <zrkKVL/Text.h>

namespace zrk {
namespace {

TEST(Text, ReplaceAllAndSplit) {
  EXPECT_EQ(replaceAll(u"a=b=c", u"a=b=", u""), u"c");
  EXPECT_EQ(replaceAll(u"xxx", u"xx", u"y"), u"yx");
  EXPECT_EQ(replaceAll(u"abc", u"", u"y"), u"abc");
  EXPECT_TRUE(split(u"", u",").empty());
  EXPECT_EQ(split(u"a,,b,", u","), (std::vector<Text>{u"a", u"", u"b", u""}));
}

TEST(Text, CaseFoldAndUtf8RoundTrip) {
  EXPECT_TRUE(equalsNoCase(u"Plugins", u"pLUGINS"));
  EXPECT_TRUE(equalsNoCase(u"\u00e9t\u00e9", u"\u00c9T\u00c9"));
  EXPECT_FALSE(equalsNoCase(u"a", u"ab"));
  Text s = u"Gr\u00fc\u00dfe \u20ac \U0001F600";
  EXPECT_EQ(fromUtf8(toUtf8(s)), s);
  EXPECT_EQ(toUtf8(u"\u00e9"), "\xc3\xa9");
}

}  // namespace
}  // namespace zrk
