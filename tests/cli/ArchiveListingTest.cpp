// archive list and archive test on real archives, whole and damaged: what they print, their
// exit codes, and that they leave every folder as it was.
#include <filesystem>
#include <set>

#include "ToolRun.h"
#include "compress/StringCompression.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

// One record: the element length it states, then the stream of the element.
std::string record(const std::string& element, size_t statedLength) {
  return std::to_string(statedLength) + "\x10" + compression::compressBytes(element);
}

// An archive file of the records, each with its length-list entry.
std::string archiveOf(const std::vector<std::string>& records) {
  std::string list, body;
  for (const std::string& r : records) {
    std::string length = std::to_string(r.size());
    list += std::to_string(length.size()) + length;
    body += r;
  }
  return "ZRKArch\x10" + list + "\x10" + body + "\r\n";
}

std::string good(const std::string& name, const std::string& content) {
  std::string element = std::to_string(name.size()) + "|" + name + content;
  return record(element, element.size());
}

// Every entry below `dir`, for telling that nothing was written.
std::set<std::string> entriesBelow(const std::string& dir) {
  std::set<std::string> all;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir))
    all.insert(e.path().string());
  return all;
}

TEST(ArchiveListing, ListAndTestWithoutWritingAnything) {
  TempDir dir;
  makeDir(dir / "root");
  std::string broken = good("b.txt", "world");
  broken[broken.size() - 6] ^= 0x55;  // inside the stream, behind the name: zlib stops there
  std::string element = "9|long name" + std::string(100, 'x');
  struct Case {
    const char* what;
    std::string archive;
    std::string listed;
    int testCode;
    std::string testErr;
  } cases[] = {
      {"whole",
       archiveOf(
           {good("a.txt", "hello"), good("e.txt", ""), good("b.bin", std::string("\0\xFF", 2))}),
       "5 a.txt\n0 e.txt\n2 b.bin\n", 0, ""},
      {"a broken stream", archiveOf({good("a.txt", "hello"), broken, good("c.txt", "!")}),
       "5 a.txt\ndamaged record 2: b.txt (17 bytes)\n1 c.txt\n", 1, "record 2 is damaged\n"},
      {"no bar", archiveOf({record("hello", 5), good("a.txt", "hello")}),
       "damaged record 1 (5 bytes)\n5 a.txt\n", 1, "record 1 is damaged\n"},
      {"a bar too late", archiveOf({record("12345678901|x", 13)}), "damaged record 1 (13 bytes)\n",
       1, "record 1 is damaged\n"},
      {"a stated length longer than the stream gives",
       archiveOf({record(element, element.size() + 1)}),
       "damaged record 1: long name (100 bytes)\n", 1, "record 1 is damaged\n"},
      {"a name longer than the element", archiveOf({record("99|a.txt", 8)}),
       "damaged record 1 (8 bytes)\n", 1, "record 1 is damaged\n"},
      {"no records", "ZRKArch\x10\x10\r\n", "", 0, ""},
  };
  for (const Case& c : cases) {
    writeBytes(dir / "x.zar", c.archive);
    auto before = entriesBelow(dir.path());
    ToolRun list = runTool({"--root", dir / "root", "archive", "list", dir / "x.zar"});
    EXPECT_EQ(list.code, 0) << c.what << ": " << list.err;
    EXPECT_EQ(list.out, c.listed) << c.what;
    ToolRun test = runTool({"--root", dir / "root", "archive", "test", dir / "x.zar"}, "y\n");
    EXPECT_EQ(test.code, c.testCode) << c.what;
    EXPECT_EQ(test.out, "") << c.what;
    std::string prefix = "zrkkvl: archive test: '" + dir / "x.zar" + "': ";
    EXPECT_EQ(test.err, c.testErr.empty() ? "" : prefix + c.testErr) << c.what;
    EXPECT_EQ(entriesBelow(dir.path()), before) << c.what << ": nothing written, no log either";
  }
}

// Files that cannot be walked to their end: one line naming where, exit 1, nothing written.
TEST(ArchiveListing, FilesThatCannotBeWalkedFail) {
  TempDir dir;
  std::string second = good("b.txt", "world");
  std::string whole = archiveOf({good("a.txt", "hello"), second});
  // The file ends in the second record's length digits: no separator to cut at.
  std::string cut = whole.substr(0, whole.size() - 2 - second.size() + 1);
  struct Case {
    const char* what;
    std::string bytes;
    std::string listed;
    std::string errHas;
  } cases[] = {
      {"cut in the second record", cut, "5 a.txt\n", "record 2 cannot be cut from the file"},
      {"a text file", "just text\n", "", "no archive (no length list)"},
      {"an empty file", "", "", "no archive (no length list)"},
  };
  for (const Case& c : cases) {
    writeBytes(dir / "x.zar", c.bytes);
    for (const char* command : {"list", "test"}) {
      ToolRun r = runTool({"archive", command, dir / "x.zar"});
      EXPECT_EQ(r.code, 1) << c.what << " " << command;
      EXPECT_EQ(r.out, command == std::string("list") ? c.listed : "") << c.what;
      EXPECT_NE(r.err.find("zrkkvl: archive " + std::string(command) + ": '" + dir / "x.zar" +
                           "': " + c.errHas),
                std::string::npos)
          << c.what << ": " << r.err;
    }
  }
  ToolRun missing = runTool({"archive", "list", dir / "missing.zar"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.err.find("no file"), std::string::npos) << missing.err;
  EXPECT_EQ(entriesBelow(dir.path()), std::set<std::string>{dir / "x.zar"});
}

// What archive make writes, archive list reads back.
TEST(ArchiveListing, ListsWhatMakeWrote) {
  TempDir dir;
  writeBytes(dir / "a.txt", "hello\r\n");
  writeBytes(dir / "name with blanks.txt", std::string(3000, 'z'));
  ASSERT_EQ(
      runTool({"archive", "make", dir / "x.zar", dir / "a.txt", dir / "name with blanks.txt"}).code,
      0);
  ToolRun r = runTool({"archive", "list", dir / "x.zar"});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "5 a.txt\n3000 name with blanks.txt\n");
  EXPECT_EQ(runTool({"archive", "test", dir / "x.zar"}).code, 0);
}

}  // namespace
}  // namespace zrk::test
