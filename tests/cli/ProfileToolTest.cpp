// The bini and profile commands of the tool, run as a user runs them.
#include <string>

#include "ToolRun.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

using namespace std::string_literals;

TEST(ProfileTool, BiniPackTestUnpack) {
  TempDir dir;
  writeBytes(dir / "p.ini", "abc");
  ToolRun pack = runTool({"bini", "pack", dir / "p.ini"});
  EXPECT_EQ(pack.code, 0) << pack.err;
  EXPECT_EQ(pack.out, dir / "p.bini" + "\n");
  EXPECT_EQ(readBytes(dir / "p.bini"), "\x05\0\0\0\0\0\0\0BINIeJxLTErm5QIABL8BPg=="s);
  EXPECT_FALSE(exists(dir / "p.ini"));
  ToolRun test = runTool({"bini", "test", dir / "p.bini"});
  EXPECT_EQ(test.code, 0);
  EXPECT_EQ(test.out, "yes\n");
  EXPECT_EQ(runTool({"bini", "unpack", dir / "p.bini"}).code, 0);
  EXPECT_EQ(readBytes(dir / "p.ini"), "abc\r\n");
  test = runTool({"bini", "test", dir / "p.ini"});
  EXPECT_EQ(test.code, 1);
  EXPECT_EQ(test.out, "no\n");
  ToolRun again = runTool({"bini", "unpack", dir / "p.ini"});
  EXPECT_EQ(again.code, 1);
  EXPECT_EQ(again.out, "");
  EXPECT_NE(again.err.find(dir / "p.ini"), std::string::npos) << again.err;
}

TEST(ProfileTool, ValidateAndSave) {
  TempDir dir;
  makeDir(dir / "profiles");
  std::string file = dir / "profiles.bini";
  ToolRun bad = runTool(
      {"profile", "validate", file, "--name", "a-b", "--path", "p", "--game", "g", "--stats", "s"});
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(bad.out.rfind("Profile name MUST be alphanumeric!\r\n", 0), 0u) << bad.out;
  ToolRun good = runTool({"profile", "validate", file, "--name", " Srv ", "--path", "p", "--game",
                          "g", "--stats", "s"});
  EXPECT_EQ(good.code, 0) << good.err;
  EXPECT_EQ(good.out, "valid\n");

  ToolRun save = runTool({"profile", "save", file, dir.path(), "--name", "Srv", "--path", "/g",
                          "--game", "hl", "--url", "http://a", "--url=http://b", "--acs", "1"});
  EXPECT_EQ(save.code, 0) << save.err;
  EXPECT_NE(save.out.find("[Srv]\npath=/g\nupload=http://a|http://b\n"), std::string::npos)
      << save.out;
  EXPECT_TRUE(exists(dir / "profiles/Srv/settings"));
  EXPECT_EQ(runTool({"bini", "test", file}).code, 0);
}

TEST(ProfileTool, FormOptionsAreChecked) {
  TempDir dir;
  std::string file = dir / "p.bini";
  struct Case {
    std::vector<std::string> args;
    const char* message;
  } cases[] = {
      {{"profile", "validate", file, "--bogus", "1"}, "unknown option '--bogus'"},
      {{"profile", "validate", file, "--name"}, "option '--name' needs a value"},
      {{"profile", "validate", file, "extra", "--name", "a"}, "unexpected argument 'extra'"},
      {{"profile", "save", file, dir.path(), "--acs", "3"}, "--acs takes 0, 1 or 2"},
      {{"profile", "save", file}, "missing operand"},
  };
  for (const Case& c : cases) {
    ToolRun r = runTool(c.args);
    EXPECT_EQ(r.code, 2) << c.message;
    EXPECT_EQ(r.out, "") << c.message;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
  EXPECT_FALSE(exists(file)) << "a refused command line writes nothing";
}

}  // namespace
}  // namespace zrk::test
