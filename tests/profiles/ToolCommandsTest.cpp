// The bini and profile commands of the tool, run as a user runs them.
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "tests/profiles/ProfileTestSupport.h"

namespace zrk::test {
namespace {

using namespace std::string_literals;

struct ToolRun {
  int code;
  std::string out;
};

ToolRun tool(const std::string& args) {
  std::string command = std::string("'") + ZRK_TOOL_FILE + "' " + args + " 2>&1";
  ToolRun r{0, ""};
  FILE* p = ::popen(command.c_str(), "r");
  char buf[4096];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;)
    r.out.append(buf, n);
  int status = ::pclose(p);
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

TEST(ToolCommands, BiniPackTestUnpack) {
  TempDir dir;
  writeBytes(dir / "p.ini", "abc");
  ToolRun pack = tool("bini pack '" + dir / "p.ini" + "'");
  EXPECT_EQ(pack.code, 0) << pack.out;
  EXPECT_EQ(readBytes(dir / "p.bini"), "\x05\0\0\0\0\0\0\0BINIeJxLTErm5QIABL8BPg=="s);
  EXPECT_FALSE(exists(dir / "p.ini"));
  EXPECT_EQ(tool("bini test '" + dir / "p.bini" + "'").code, 0);
  EXPECT_EQ(tool("bini unpack '" + dir / "p.bini" + "'").code, 0);
  EXPECT_EQ(readBytes(dir / "p.ini"), "abc\r\n");
  EXPECT_EQ(tool("bini test '" + dir / "p.ini" + "'").code, 1);
}

TEST(ToolCommands, ProfileValidateAndSave) {
  TempDir dir;
  makeDir(dir / "profiles");
  std::string file = "'" + dir / "profiles.bini" + "'";
  ToolRun bad = tool("profile validate " + file + " --name 'a-b' --path p --game g --stats s");
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(bad.out.rfind("Profile name MUST be alphanumeric!\r\n", 0), 0u) << bad.out;
  ToolRun good = tool("profile validate " + file + " --name ' Srv ' --path p --game g --stats s");
  EXPECT_EQ(good.code, 0) << good.out;

  ToolRun save = tool("profile save " + file + " '" + dir.path() +
                      "' --name Srv --path /g --game hl --url http://a --url http://b --acs 1");
  EXPECT_EQ(save.code, 0) << save.out;
  EXPECT_NE(save.out.find("[Srv]\npath=/g\nupload=http://a|http://b\n"), std::string::npos)
      << save.out;
  EXPECT_TRUE(exists(dir / "profiles/Srv/settings"));
  EXPECT_EQ(tool("bini test " + file).code, 0);
}

}  // namespace
}  // namespace zrk::test
