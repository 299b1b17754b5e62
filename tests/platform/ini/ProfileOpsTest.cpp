// The INI engine: reading rules, buffer limits, in-place edits.
#include "platform/ini/ProfileOps.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::MemoryFolder;
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
      // New lines end as the file's lines end.
      {"[S]\na=1\n", u"S", u"b", u"2", "[S]\na=1\nb=2\n"},
      {"[S]\na=1", u"S", u"b", u"2", "[S]\na=1\nb=2\n"},
      {"[S]\na=1\n", u"N", u"b", u"2", "[S]\na=1\n[N]\nb=2\n"},
      {"; c\n[S]\r\na=1\r\n", u"N", u"b", u"2", "; c\n[S]\r\na=1\r\n[N]\nb=2\n"},
      {"[S]\r\na=1\n", u"S", u"b", u"2", "[S]\r\na=1\nb=2\r\n"},
      {"[S]\ra=1\r", u"S", u"b", u"2", "[S]\ra=1\rb=2\r\n"},
      // Names are found as the reader finds them: without blanks round them, in any case.
      {"[S]\r\na=1\r\n", u" s ", u" A ", u"2", "[S]\r\na=2\r\n"},
      {"[S]\r\n", u"S", u"\tb ", u"2", "[S]\r\nb=2\r\n"},
      {"", u" N ", u" b", u"2", "[N]\r\nb=2\r\n"},
      {"[S]\r\na=1\r\n", u" S\t", u" a ", nullptr, "[S]\r\n"},
  };
  for (const auto& c : cases) {
    write(c.before);
    Text s = c.section, k = c.key ? c.key : u"", v = c.value ? c.value : u"";
    EXPECT_TRUE(
        WritePrivateProfileStringA(&s, c.key ? &k : nullptr, c.value ? &v : nullptr, file()));
    EXPECT_EQ(content(), c.after) << c.before;
  }
}

// A name or value that would add a line, or that the reader would not find again, is refused:
// the write gives false and the file stays as it was.
TEST_F(ProfileOps, WritesThatCouldNotBeReadBackAreRefused) {
  const std::string before = "[S]\r\na=1\r\n";
  struct Case {
    const char* what;
    Text section, key, value;
  } cases[] = {
      {"value with CR LF and a section", u"S", u"a", u"x\r\n[Admin]\r\npassword=p"},
      {"value with LF", u"S", u"a", u"x\ny=z"},
      {"value with CR", u"S", u"a", u"x\ry=z"},
      {"key with LF", u"S", u"a\nb", u"1"},
      {"section with CR LF", u"S]\r\n[T", u"a", u"1"},
      {"section with ]", u"S]x", u"a", u"1"},
      {"key with =", u"S", u"a=b", u"1"},
      {"empty key", u"S", u" ", u"1"},
      {"key read as a comment", u"S", u";a", u"1"},
      {"key read as a section", u"S", u"[T]", u"1"},
  };
  for (const auto& c : cases) {
    write(before);
    EXPECT_FALSE(set(c.section, c.key, c.value)) << c.what;
    EXPECT_EQ(content(), before) << c.what;
  }
  Text s = u"S]", k = u"a=b";
  EXPECT_FALSE(WritePrivateProfileStringA(&s, nullptr, nullptr, file()));
  EXPECT_EQ(content(), before);
}

// Whatever a write takes, it reads back, and a second write changes the line it made.
TEST_F(ProfileOps, EveryWriteReadsBack) {
  struct Case {
    Text section, key, value;
  } cases[] = {
      {u" Main ", u" spaced key ", u"v1"},
      {u"main", u"SPACED KEY", u"v2"},
      {u"Ä", u"k", u"v3"},
      {u"ä", u"É", u"v4"},
      {u"S", u"k", u""},
  };
  for (const auto& c : cases) {
    ASSERT_TRUE(set(c.section, c.key, c.value));
    EXPECT_EQ(get(c.section, c.key, 255, u"default"), c.value.empty() ? u"" : c.value);
  }
  EXPECT_EQ(content(), "[Main]\r\nspaced key=v2\r\n[\xc4]\r\nk=v3\r\n\xc9=v4\r\n[S]\r\nk=\r\n");
}

TEST_F(ProfileOps, AnEditThroughALinkChangesTheTargetAndKeepsTheLink) {
  test::makeDir(dir / "real");
  test::writeBytes(dir / "real/t.ini", "[S]\r\na=1\r\n");
  ASSERT_EQ(::symlink("real/t.ini", (dir / "a.ini").c_str()), 0);
  ASSERT_EQ(::link((dir / "real/t.ini").c_str(), (dir / "hard.ini").c_str()), 0);
  EXPECT_TRUE(set(u"S", u"a", u"2"));
  struct stat st;
  ASSERT_EQ(::lstat((dir / "a.ini").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(test::readBytes(dir / "real/t.ini"), "[S]\r\na=2\r\n");
  EXPECT_EQ(test::readBytes(dir / "hard.ini"), "[S]\r\na=2\r\n") << "the hard link stays";
  EXPECT_EQ(get(u"S", u"a"), u"2");
}

// Read-only is refused for every caller, root included.
TEST_F(ProfileOps, AReadOnlyFileIsNotChanged) {
  write("[S]\r\na=1\r\n");
  ::chmod((dir / "a.ini").c_str(), 0444);
  EXPECT_FALSE(set(u"S", u"a", u"2"));
  Text s = u"S";
  EXPECT_FALSE(WritePrivateProfileStringA(&s, nullptr, nullptr, file()));
  EXPECT_EQ(content(), "[S]\r\na=1\r\n");
}

TEST_F(ProfileOps, MissingFileIsMadeAndAMissingFolderRefused) {
  EXPECT_TRUE(set(u"S", u"k", u"\u20ac"));
  EXPECT_EQ(content(), "[S]\r\nk=\x80\r\n");
  Text nowhere = T(dir / "none/b.ini"), s = u"S", k = u"k", v = u"v";
  EXPECT_FALSE(WritePrivateProfileStringA(&s, &k, &v, nowhere));
  EXPECT_FALSE(test::exists(dir / "none"));
}

// A batch of edits leaves the bytes the same edits leave when written one by one: keys set, made,
// deleted and sections deleted, on files of every line end, with a byte-order mark, and missing.
TEST_F(ProfileOps, ABatchGivesTheBytesOfItsEditsOneByOne) {
  struct Edit {
    const char16_t* section;
    const char16_t* key;    // null: delete the section
    const char16_t* value;  // null: delete the key
  };
  const std::vector<Edit> profile = {
      {u"P", u"path", u"C:\\hl.exe"}, {u"P", u"upload", u" "}, {u"P", u"game", u"hl"},
      {u"P", u"host", u"h"},          {u"P", u"nll", u"-1"},   {u"P", u"port", u"27015"},
  };
  auto with = [&](std::vector<Edit> more) {
    std::vector<Edit> all = profile;
    all.insert(all.end(), more.begin(), more.end());
    return all;
  };
  struct Case {
    const char* what;
    const char* before;  // null: no file
    std::vector<Edit> edits;
  } cases[] = {
      {"no file", nullptr, profile},
      {"empty file", "", profile},
      {"other profiles", "[A]\r\npath=a\r\n[B]\r\npath=b\r\n", profile},
      {"keys changed", "[A]\r\nx=1\r\n[P]\r\nport=1\r\nextra=e\r\npath=old\r\n[B]\r\n", profile},
      {"keys in another order, other case",
       "[p]\r\nHOST=x\r\n; c\r\n\r\nGame=y\r\n[A]\r\npath=a\r\n", profile},
      {"section last, no final line end", "[A]\r\npath=a\r\n[P]\r\npath=p", profile},
      {"LF lines", "[A]\npath=a\n[P]\nhost=x\n", profile},
      {"CR lines", "[P]\rhost=x\r", profile},
      {"mixed line ends", "; c\n[A]\r\npath=a\r\n", profile},
      {"byte-order mark", "\xEF\xBB\xBF[A]\r\npath=a\r\n", profile},
      {"byte-order mark alone", "\xEF\xBB\xBF", profile},
      {"byte-order mark before the section", "\xEF\xBB\xBF[P]\r\nport=1\r\n", profile},
      {"deletes", "[A]\r\npath=a\r\n[P]\r\nx=1\r\n",
       with({{u"P", u"x", nullptr}, {u"A", nullptr, nullptr}, {u"Q", nullptr, nullptr}})},
      {"a key written twice and a section made again", "[P]\r\npath=old\r\n",
       with({{u"P", nullptr, nullptr}, {u"P", u"path", u"again"}, {u"P", u"path", u"last"}})},
      {"the section twice, blanks before its head, named in other cases",
       "[A]\r\n  [P]\r\nport=1\r\n[p]\r\nport=2\r\n",
       {{u"P", u"port", u"3"},
        {u"p", u"new", u"n"},
        {u" P ", u"port", nullptr},
        {u"P", u"new", u"m"}}},
      {"a head without line end gets keys, then another section between",
       "[A]\r\nx=1\r\n[P]",
       {{u"P", u"path", u"p"}, {u"P", u"host", u"h"}, {u"A", u"x", u"2"}, {u"P", u"x", u"3"}}},
      {"a section deleted, made again, deleted, made again",
       "[P]\r\npath=a\r\n[B]\r\npath=b\r\n[P]\r\nhost=h\r\n",
       {{u"P", u"path", u"x"},
        {u"P", nullptr, nullptr},
        {u"P", u"host", u"y"},
        {u"P", nullptr, nullptr},
        {u"P", u"path", u"z"}}},
      {"nothing to change",
       "[A]\r\npath=a\r\n",
       {{u"A", u"none", nullptr}, {u"B", nullptr, nullptr}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<Text> texts;
    texts.reserve(c.edits.size() * 3);
    std::vector<ProfileEdit> batch;
    auto held = [&](const char16_t* t) -> const Text* {
      return t ? &texts.emplace_back(t) : nullptr;
    };
    for (const Edit& e : c.edits)
      batch.push_back({held(e.section), held(e.key), held(e.value)});
    auto reset = [&] {
      std::filesystem::remove(dir / "a.ini");
      if (c.before) write(c.before);
    };
    reset();
    for (const ProfileEdit& e : batch)
      ASSERT_TRUE(WritePrivateProfileStringA(e.section, e.key, e.value, file()));
    const bool made = test::exists(dir / "a.ini");
    const std::string oneByOne = made ? content() : "";
    reset();
    ASSERT_TRUE(writeProfileEdits(batch, file()));
    ASSERT_EQ(test::exists(dir / "a.ini"), made);
    EXPECT_EQ(made ? content() : "", oneByOne);
  }
}

// A batch with one edit that cannot be made changes nothing, however many edits come before it;
// a missing file is not made.
TEST_F(ProfileOps, ABatchWithARefusedEditChangesNothing) {
  Text s = u"S", k = u"k", v = u"v", bad = u"x\r\n[Admin]", badSection = u"S]";
  const std::vector<ProfileEdit> cases[] = {
      {{&s, &k, &v}, {&s, &k, &bad}},
      {{&s, &k, &v}, {&badSection, &k, &v}},
      {{&s, &k, &v}, {nullptr, &k, &v}},
      {{&s, &k, &bad}, {&s, &k, &v}},
  };
  for (const char* before : {static_cast<const char*>(nullptr), "[S]\r\nk=1\r\n"}) {
    for (const auto& edits : cases) {
      std::filesystem::remove(dir / "a.ini");
      if (before) write(before);
      EXPECT_FALSE(writeProfileEdits(edits, file()));
      if (before) {
        EXPECT_EQ(content(), before);
      } else {
        EXPECT_FALSE(test::exists(dir / "a.ini"));
      }
    }
  }
}

}  // namespace
}  // namespace zrk::platform

namespace zrk::platform {
namespace {

using test::T;

// Four processes and four threads edit different keys of one file at once: every edit stays.
TEST(ProfileOpsConcurrency, NoEditIsLost) {
  constexpr int kWorkers = 4, kEdits = 500;
  MemoryFolder dir;
  const Text file = T(dir / "shared.ini");
  auto edit = [&](const std::string& who) {
    for (int i = 0; i < kEdits; ++i) {
      Text section = u"S", key = T(who + "_" + std::to_string(i)), value = T(std::to_string(i));
      if (!WritePrivateProfileStringA(&section, &key, &value, file)) return false;
    }
    return true;
  };
  std::vector<pid_t> children;
  for (int p = 0; p < kWorkers; ++p) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(edit("p" + std::to_string(p)) ? 0 : 1);
    children.push_back(child);
  }
  std::vector<std::thread> threads;
  std::atomic<int> failed{0};
  for (int t = 0; t < kWorkers; ++t)
    threads.emplace_back([&, t] { failed += !edit("t" + std::to_string(t)); });
  for (auto& t : threads)
    t.join();
  for (pid_t child : children) {
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  EXPECT_EQ(failed, 0);
  std::string content = test::readBytes(dir / "shared.ini");
  int missing = 0;
  for (const char* who : {"p", "t"}) {
    for (int w = 0; w < kWorkers; ++w) {
      for (int i = 0; i < kEdits; ++i) {
        std::string line = "\r\n" + std::string(who) + std::to_string(w) + "_" + std::to_string(i) +
                           "=" + std::to_string(i) + "\r\n";
        missing += content.find(line) == std::string::npos;
      }
    }
  }
  EXPECT_EQ(missing, 0);
}

}  // namespace
}  // namespace zrk::platform
