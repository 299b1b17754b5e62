// The INI engine: reading rules, buffer limits, in-place edits.
#include "platform/ProfileOps.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::T;

class ProfileOps : public ::testing::Test {
 protected:
  Text file() const { return T(dir / "a.ini"); }
  void write(const std::string& bytes) { test::writeBytes(dir / "a.ini", bytes); }
  std::string content() const { return test::readBytes(dir / "a.ini"); }
  Text get(const Text& s, const Text& k, int32_t size = 255, TextView def = u"") {
    Text buf(size_t(size), u'\0');
    int32_t n = GetPrivateProfileStringA(&s, &k, def, buf, size, file());
    return buf.substr(0, size_t(n));
  }
  bool set(const Text& s, const Text& k, const Text& v) {
    return WritePrivateProfileStringA(&s, &k, &v, file());
  }
  test::TempDir dir;
};

TEST_F(ProfileOps, ReadingRules) {
  write(
      "top=before\r\n[ Main ]\r\n  Key  =  spaced value  \r\n;c=comment\r\nq=\"quoted\"\r\n"
      "s='single'\r\nhalf=\"open\r\n[broken\r\nfirst=1\nfirst=2\rdup=a\r\n[main]\r\ndup=b\r\n"
      "[Other]\r\ndup=c\r\nhigh=\x80\r\n");
  struct Case {
    const char16_t* section;
    const char16_t* key;
    const char16_t* value;
  } cases[] = {
      {u"Main", u"key", u"spaced value"},
      {u"MAIN", u"KEY", u"spaced value"},
      {u"Main", u";c", u""},
      {u"Main", u"q", u"quoted"},
      {u"Main", u"s", u"single"},
      {u"Main", u"half", u"\"open"},
      {u"Main", u"first", u"1"},
      {u"Main", u"dup", u"a"},
      {u"Other", u"dup", u"c"},
      {u"Other", u"high", u"\u20ac"},
      {u"Main", u"top", u""},
      {u"None", u"key", u""},
      {u"Main", u"", u""},
      {u"", u"key", u""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(get(c.section, c.key), c.value) << toUtf8(c.section) << "/" << toUtf8(c.key);
  }
  EXPECT_EQ(get(u"None", u"k", 255, u"def  "), u"def") << "the default loses trailing blanks";
}

TEST_F(ProfileOps, ValueIsCutToSizeMinusOne) {
  write("[S]\r\nk=" + std::string(300, 'v') + "\r\n");
  EXPECT_EQ(get(u"S", u"k", 255), Text(254, u'v'));
  EXPECT_EQ(get(u"S", u"k", 4), u"vvv");
}

TEST_F(ProfileOps, SectionListIsCutWithTwoNuls) {
  write("[ab]\r\n[cd]\r\n");
  struct Case {
    int32_t size;
    int32_t result;
    Text start;
  } cases[] = {
      {20, 6, Text(u"ab\0cd\0\0", 7)}, {8, 6, Text(u"ab\0cd\0\0", 7)},
      {7, 5, Text(u"ab\0cd\0\0", 7)},  // fits exactly: still cut
      {6, 4, Text(u"ab\0c\0\0", 6)},   // only fits without it: cut
      {5, 3, Text(u"ab\0\0\0", 5)},
  };
  for (const auto& c : cases) {
    Text buf(size_t(c.size) + 1, u'#');
    EXPECT_EQ(GetPrivateProfileStringA(nullptr, nullptr, u"", buf, c.size, file()), c.result)
        << c.size;
    EXPECT_EQ(buf.substr(0, c.start.size()), c.start) << c.size;
  }
  Text buf(10, u'#');
  EXPECT_EQ(GetPrivateProfileStringA(nullptr, nullptr, u"", buf, 10, T(dir / "none.ini")), 0);
}

TEST_F(ProfileOps, SectionLines) {
  write("[S]\r\n k = v \r\n; note\r\n\r\nbare line\r\n[T]\r\nx=y\r\n");
  Text buf(100, u'#');
  int32_t n = GetPrivateProfileSectionA(u"s", buf, 100, file());
  EXPECT_EQ(buf.substr(0, size_t(n) + 1), Text(u"k=v\0bare line\0\0", 15));
  EXPECT_EQ(GetPrivateProfileSectionA(u"none", buf, 100, file()), 0);
}

TEST_F(ProfileOps, EditsKeepEveryOtherByte) {
  struct Case {
    const char* before;
    const char16_t* section;
    const char16_t* key;    // null: delete the section
    const char16_t* value;  // null: delete the key
    const char* after;
  } cases[] = {
      {"; head\r\n[S]\r\na = 1\r\n\r\n[T]\r\n", u"s", u"A", u"2",
       "; head\r\n[S]\r\na=2\r\n\r\n[T]\r\n"},
      {"[S]\r\na=1\r\n; c\r\n\r\n[T]\r\n", u"S", u"b", u"2",
       "[S]\r\na=1\r\nb=2\r\n; c\r\n\r\n[T]\r\n"},
      {"[S]\r\n[T]\r\n", u"S", u"b", u"2", "[S]\r\nb=2\r\n[T]\r\n"},
      {"[S]\r\na=1", u"S", u"b", u"2", "[S]\r\na=1\r\nb=2\r\n"},
      {"[S]\r\na=1", u"N", u"b", u"2", "[S]\r\na=1\r\n[N]\r\nb=2\r\n"},
      {"", u"N", u"b", u"2", "[N]\r\nb=2\r\n"},
      {"[S]\na=1\nb=2\n", u"S", u"a", nullptr, "[S]\nb=2\n"},
      {"x\r\n[S]\r\na=1\r\n[T]\r\nb=2\r\n", u"S", nullptr, nullptr, "x\r\n[T]\r\nb=2\r\n"},
      {"[S]\r\na=1\r\n", u"N", nullptr, nullptr, "[S]\r\na=1\r\n"},
      {"[S]\r\na=1\r\n", u"S", u"zz", nullptr, "[S]\r\na=1\r\n"},
  };
  for (const auto& c : cases) {
    write(c.before);
    Text s = c.section, k = c.key ? c.key : u"", v = c.value ? c.value : u"";
    EXPECT_TRUE(
        WritePrivateProfileStringA(&s, c.key ? &k : nullptr, c.value ? &v : nullptr, file()));
    EXPECT_EQ(content(), c.after) << c.before;
  }
}

TEST_F(ProfileOps, MissingFileIsMadeAndAMissingFolderRefused) {
  EXPECT_TRUE(set(u"S", u"k", u"\u20ac"));
  EXPECT_EQ(content(), "[S]\r\nk=\x80\r\n");
  Text nowhere = T(dir / "none/b.ini"), s = u"S", k = u"k", v = u"v";
  EXPECT_FALSE(WritePrivateProfileStringA(&s, &k, &v, nowhere));
  EXPECT_FALSE(test::exists(dir / "none"));
}

}  // namespace
}  // namespace zrk::platform
