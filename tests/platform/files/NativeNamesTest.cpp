// The one conversion of names to the system: names that are not UTF-8 round-trip without loss,
// no two names become one text, and a name the system cannot be given exactly is failure 52
// before anything is opened.
#include <dirent.h>

#include <filesystem>
#include <map>
#include <random>
#include <set>

#include <zrkKVL/Failure.h>
#include "platform/files/BinaryFile.h"
#include "platform/files/FileIO.h"
#include "platform/files/FileSystemObject.h"
#include "platform/files/Paths.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::failureOf;
using test::TempDir;

TEST(NativeNames, AnyBytesRoundTripThroughText) {
  std::mt19937 random(7);
  for (int round = 0; round < 20000; ++round) {
    std::string bytes(random() % 12, '\0');
    for (char& b : bytes)
      b = char(random() % 2 ? 0x80 + random() % 0x80 : random() % 0x100);
    Text text = fromUtf8(bytes);
    ASSERT_EQ(toUtf8(text), bytes) << round;
    if (bytes.find('\0') == std::string::npos) {
      ASSERT_EQ(nativeName(text), bytes) << round;
    }
  }
}

// Each stray byte becomes its own reserved character; well-formed UTF-8 stays as it reads.
TEST(NativeNames, StrayBytesMapToReservedCharacters) {
  struct Case {
    const char* what;
    std::string bytes;
    Text text;
  } cases[] = {
      {"plain", "a.txt", u"a.txt"},
      {"UTF-8", "caf\xc3\xa9", u"caf\u00e9"},
      {"four bytes", "\xf0\x9f\x98\x80", u"\U0001F600"},
      {"lone byte", "\xff", u"\xdcff"},
      {"continuation alone", "a\x80z", u"a\xdc80z"},
      {"cut short", "\xe2\x82", u"\xdce2\xdc82"},
      {"overlong slash", "\xc0\xaf", u"\xdcc0\xdcaf"},
      {"encoded surrogate", "\xed\xa0\x80", u"\xdced\xdca0\xdc80"},
      {"beyond U+10FFFF", "\xf4\x90\x80\x80", u"\xdcf4\xdc90\xdc80\xdc80"},
      {"Latin-1 byte", "caf\xe9", u"caf\xdce9"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(fromUtf8(c.bytes), c.text) << c.what;
    EXPECT_EQ(nativeName(c.text), c.bytes) << c.what;
  }
}

// Files whose names are not UTF-8, listed by the system and opened again by their text: every
// one is found, as itself, and no two share a text.
TEST(NativeNames, NamesFromTheFolderOpenTheirOwnFile) {
  TempDir d;
  const std::vector<std::string> names = {"caf\xc3\xa9", "caf\xe9", "caf\xe9\xe9", "\xff",
                                          "\xfe",        "\xc3",    "\xed\xa0\x80"};
  for (const std::string& n : names)
    test::writeBytes(d / n, "content of " + n);
  std::map<Text, std::string> seen;
  DIR* dir = ::opendir(d.path().c_str());
  ASSERT_NE(dir, nullptr);
  while (dirent* e = ::readdir(dir)) {
    std::string n = e->d_name;
    if (n == "." || n == "..") continue;
    Text text = textOfNativeName(n);
    EXPECT_TRUE(seen.emplace(text, n).second) << "two names give one text";
    EXPECT_EQ(readAllBytes(d.text() + u"/" + text), "content of " + n);
    EXPECT_TRUE(FileSystemObject().FileExists(d.text() + u"/" + text));
  }
  ::closedir(dir);
  EXPECT_EQ(seen.size(), names.size());
}

// A NUL would end the name at the system call, and a text that is not what its own bytes read
// back as would name another text's file: both are failure 52, and nothing is made or opened.
TEST(NativeNames, NamesTheSystemCannotTakeAreBadNames) {
  TempDir d;
  test::writeBytes(d / "victim", "old");
  test::writeBytes(d / "caf\xc3\xa9", "old");
  const Text base = d.text() + u"/";
  const Text bad[] = {
      base + Text(u"victim\0.txt", 11),
      base + Text(u"victim\0", 7),
      Text(u"\0", 1) + base + u"victim",
      base + u"\xd800",           // a lone high surrogate
      base + u"x\xdc00",          // a lone low surrogate outside the stray bytes
      base + u"caf\xdcc3\xdca9",  // stray-byte characters that spell UTF-8
  };
  for (const Text& name : bad) {
    SCOPED_TRACE(toUtf8(name));
    EXPECT_EQ(failureOf([&] { nativeName(name); }), err::BadFileNameOrNumber);
    EXPECT_EQ(failureOf([&] { readAllBytes(name); }), err::BadFileNameOrNumber);
    EXPECT_EQ(failureOf([&] { FileImage image(name); }), err::BadFileNameOrNumber);
    EXPECT_EQ(failureOf([&] { BinaryFile file(name); }), err::BadFileNameOrNumber);
    EXPECT_EQ(failureOf([&] {
                OutputFile out(name, OutputFile::Mode::Output);
                out.writeBytes("new");
                out.close();
              }),
              err::BadFileNameOrNumber);
    EXPECT_EQ(failureOf([&] { OutputFile out(name, OutputFile::Mode::Append); }),
              err::BadFileNameOrNumber);
    EXPECT_EQ(failureOf([&] { FileSystemObject().FileExists(name); }), err::BadFileNameOrNumber);
    EXPECT_EQ(failureOf([&] { FileSystemObject().CreateFolder(name); }), err::BadFileNameOrNumber);
  }
  EXPECT_EQ(test::readBytes(d / "victim"), "old");
  EXPECT_EQ(test::readBytes(d / "caf\xc3\xa9"), "old");
  std::set<std::string> entries;
  for (const auto& e : std::filesystem::directory_iterator(d.path()))
    entries.insert(e.path().filename().string());
  EXPECT_EQ(entries, (std::set<std::string>{"caf\xc3\xa9", "victim"}));
}

}  // namespace
}  // namespace zrk::platform
