// The proc commands of the tool against the stand-in game.
#include <sys/wait.h>

#include <cstdio>

#include "FakeGame.h"

namespace zrk::test {
namespace {

struct ToolRun {
  int status;
  std::string out;
};

ToolRun tool(const std::string& args) {
  std::string command = std::string(ZRK_TOOL_FILE) + " " + args + " 2>/dev/null";
  FILE* p = ::popen(command.c_str(), "r");
  std::string out;
  char buf[256];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;)
    out.append(buf, n);
  int status = ::pclose(p);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

TEST(ProcCommands, FindAndReadTheGame) {
  FakeGame game;
  FakeGame ended;
  std::string pid = std::to_string(game.pid()), endedPid = std::to_string(ended.pid());
  ended.stop();
  struct Case {
    std::string args;
    int status;
    std::string out;
  } cases[] = {
      {"proc find '" + game.path() + "'", 0, pid + "\n"},
      {"proc find '" + game.fileName() + "'", 1, ""},
      {"proc running " + pid, 0, "yes\n"},
      {"proc running " + endedPid, 1, "no\n"},
      {"proc read-long " + pid + " 0x30000210", 0, "513\n"},
      {"proc read-long " + pid + " 0xC0000000", 0, "305419896\n"},
      {"proc read-long " + pid + " -1073741824", 0, "305419896\n"},
      {"proc read-str " + pid + " 0x30000220", 0, "Hello, game\n"},
      {"proc read-str " + endedPid + " 0x30000220", 1, ""},
      {"proc read-str " + pid + " 0x1000000000", 2, ""},  // not a 32-bit address
  };
  for (const Case& c : cases) {
    ToolRun r = tool(c.args);
    EXPECT_EQ(r.status, c.status) << c.args;
    EXPECT_EQ(r.out, c.out) << c.args;
  }
  ToolRun list = tool("proc list");
  EXPECT_EQ(list.status, 0);
  EXPECT_NE(list.out.find(game.path() + "\n"), std::string::npos);
}

}  // namespace
}  // namespace zrk::test
