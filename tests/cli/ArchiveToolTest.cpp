// The tool's archive commands on real files: round trips, no silent replacing, scripted answers.
#include <filesystem>

#include "ToolRun.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

// Files left behind in `dir` whose names start with `prefix`.
int countStartingWith(const std::string& dir, const std::string& prefix) {
  int n = 0;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    n += e.path().filename().string().rfind(prefix, 0) == 0;
  return n;
}

TEST(ArchiveTool, MakeThenExtractGivesTheFilesBack) {
  TempDir dir;
  writeBytes(dir / "a.txt", "hello\r\n");
  writeBytes(dir / "b.bin", std::string("\0\x10\xFF", 3));
  makeDir(dir / "out");
  ASSERT_EQ(runTool({"archive", "make", dir / "x.zrk", dir / "a.txt", dir / "b.bin"}).code, 0);
  ToolRun r = runTool({"archive", "extract", dir / "x.zrk", dir / "out"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(readBytes(dir / "out/a.txt"), "hello\r\n") << "one line end, not two";
  EXPECT_EQ(readBytes(dir / "out/b.bin"), std::string("\0\x10\xFF\r\n", 5));
  EXPECT_EQ(countStartingWith(dir / "out", ".zrkkvl"), 0) << "no scratch folder stays";
}

TEST(ArchiveTool, ExistingFilesStayWithoutForce) {
  TempDir dir;
  writeBytes(dir / "a.txt", "a");
  writeBytes(dir / "b.txt", "b");
  ASSERT_EQ(runTool({"archive", "make", dir / "x.zrk", dir / "a.txt", dir / "b.txt"}).code, 0);
  writeBytes(dir / "a.txt", "changed since");
  ::unlink((dir / "b.txt").c_str());

  ToolRun kept = runTool({"archive", "extract", dir / "x.zrk"});
  EXPECT_EQ(kept.code, 1);
  EXPECT_EQ(readBytes(dir / "a.txt"), "changed since");
  EXPECT_EQ(readBytes(dir / "b.txt"), "b\r\n") << "a member that is not there is written";
  EXPECT_NE(kept.err.find(dir / "a.txt" + "' exists"), std::string::npos) << kept.err;
  EXPECT_EQ(kept.err.find("b.txt"), std::string::npos) << kept.err;

  ToolRun forced = runTool({"archive", "extract", "--force", dir / "x.zrk"});
  EXPECT_EQ(forced.code, 0) << forced.err;
  EXPECT_EQ(readBytes(dir / "a.txt"), "a\r\n");
  EXPECT_EQ(countStartingWith(dir.path(), ".zrkkvl"), 0);
}

// A member that comes twice meets an existing file twice: without --force the file stays both
// times; with it the later member stands.
TEST(ArchiveTool, AMemberThatComesTwiceKeepsAnExistingFileWithoutForce) {
  TempDir dir;
  writeBytes(dir / "elements", "5|a.txtone\n5|A.TXTtwo\n");
  ASSERT_EQ(
      runTool({"call", "MakeArchive", "lines:" + dir / "elements", "path:" + dir / "t.zrk"}).code,
      0);
  struct Case {
    std::vector<std::string> options;
    std::string content;
    const char* message;
  } cases[] = {{{}, "mine", "' exists"}, {{"--force"}, "two\r\n", "comes twice"}};
  for (const Case& c : cases) {
    makeDir(dir / "out");
    writeBytes(dir / "out/a.txt", "mine");
    std::vector<std::string> args{"archive", "extract"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    args.insert(args.end(), {dir / "t.zrk", dir / "out"});
    ToolRun r = runTool(args);
    EXPECT_EQ(r.code, 1) << c.content;
    EXPECT_EQ(readBytes(dir / "out/a.txt"), c.content);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    std::filesystem::remove_all(dir / "out");
  }
}

TEST(ArchiveTool, DamagedRecordsFollowTheAnswerGiven) {
  TempDir dir;
  writeBytes(dir / "elements", "1|aA\nno bar here\n");
  ASSERT_EQ(
      runTool({"call", "MakeArchive", "lines:" + dir / "elements", "path:" + dir / "d.zrk"}).code,
      0);
  struct Case {
    const char* option;
    int code;
    bool damagedWritten;
  } cases[] = {{"--no", 1, false}, {"--yes", 0, true}};
  for (const Case& c : cases) {
    std::string out = dir / std::string(c.option + 2);
    makeDir(out);
    ToolRun r = runTool({"archive", "extract", c.option, dir / "d.zrk", out});
    EXPECT_EQ(r.code, c.code) << c.option << r.err;
    EXPECT_EQ(readBytes(out + "/a"), "A\r\n") << c.option;
    EXPECT_EQ(exists(out + "/d_File1.txt"), c.damagedWritten) << c.option;
  }
  EXPECT_EQ(runTool({"archive", "extract", "--yes", "--no", dir / "d.zrk", dir.path()}).code, 2);
}

}  // namespace
}  // namespace zrk::test
