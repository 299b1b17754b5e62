// The proc commands of the tool against the stand-in game, also as an unprivileged user.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/process/ProcessAccess.h"
#include "platform/process/ProcessMaps.h"
#include "support/FakeGame.h"

namespace zrk::test {
namespace {

constexpr uid_t kNobody = 65534;

struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

// Runs the tool with `args`, after `prefix` (a command that changes who runs it).
ToolRun tool(const std::string& args, const std::string& prefix = "") {
  TempDir scratch;
  std::string errFile = scratch / "stderr";
  std::string command = prefix + " " +
                        (prefix.empty() ? ZRK_TOOL_FILE : reachableByAll(ZRK_TOOL_FILE)) + " " +
                        args + " 2>'" + errFile + "'";
  FILE* p = ::popen(command.c_str(), "r");
  std::string out;
  char buf[256];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;)
    out.append(buf, n);
  int status = ::pclose(p);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out, readBytes(errFile)};
}

// The system's own map of `pid`, each line without device and inode.
std::string systemMap(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/maps");
  std::string result;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string range, perms, offset, device, inode, path;
    fields >> range >> perms >> offset >> device >> inode;
    std::getline(fields >> std::ws, path);
    result += range + " " + perms + " " + offset + (path.empty() ? "" : " " + path) + "\n";
  }
  return result;
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
    std::string err;
  } cases[] = {
      {"proc find '" + game.path() + "'", 0, pid + "\n", ""},
      {"proc find '" + game.fileName() + "'", 1, "", ""},
      {"proc running " + pid, 0, "yes\n", ""},
      {"proc running " + endedPid, 1, "no\n", ""},
      {"proc read-long " + pid + " 0x30000210", 0, "513\n", ""},
      {"proc read-long " + pid + " 0xC0000000", 0, "305419896\n", ""},
      {"proc read-long " + pid + " 3221225472", 0, "305419896\n", ""},
      {"proc read-long " + pid + " 0x200000000000", 0, "-559038737\n", ""},
      {"proc read-long " + pid + " 35184372088832", 0, "-559038737\n", ""},
      {"proc read-str " + pid + " 0x30000220", 0, "Hello, game\n", ""},
      {"proc read-str " + pid + " 0xfffffff8", 0, "crosses 4 GiB\n", ""},
      {"proc read-str " + pid + " 0x200000000008", 0, "far above 4 GiB\n", ""},
      // Nothing mapped there, or not all the bytes a number needs: a failure, not a 0.
      {"proc read-str " + pid + " 0x1000000000", 1, "",
       "zrkkvl: proc read-str: cannot read memory at 0x1000000000 in process " + pid + "\n"},
      {"proc read-long " + pid + " 0x1000000000", 1, "",
       "zrkkvl: proc read-long: cannot read memory at 0x1000000000 in process " + pid + "\n"},
      {"proc read-long " + pid + " 0x30000ffe", 1, "", ""},  // 2 bytes before the hole
      {"proc read-long " + pid + " 0x200000000ffc", 0, "1818845556\n", ""},  // "tail", the last 4
      {"proc read-str " + pid + " 0x30000ff6", 0, "0123456789\n", ""},       // up to the hole
      {"proc read-str " + endedPid + " 0x30000220", 1, "",
       "zrkkvl: cannot read process " + endedPid + ": no such process\n"},
      {"proc read-long " + pid + " -1073741824", 2, "", ""},  // addresses have no sign
      {"proc read-long " + pid + " 0x10000000000000000", 2, "", ""},
      {"proc base " + pid + " " + game.fileName() + "x", 1, "", ""},
  };
  for (const Case& c : cases) {
    ToolRun r = tool(c.args);
    EXPECT_EQ(r.status, c.status) << c.args;
    EXPECT_EQ(r.out, c.out) << c.args;
    if (!c.err.empty()) {
      EXPECT_EQ(r.err, c.err) << c.args;
    }
  }
  ToolRun list = tool("proc list");
  EXPECT_EQ(list.status, 0);
  EXPECT_NE(list.out.find(game.path() + "\n"), std::string::npos);
}

TEST(ProcCommands, MapsAsTheSystemWritesThemAndTheBaseFromThem) {
  FakeGame game;
  std::string pid = std::to_string(game.pid());
  ToolRun maps = tool("proc maps " + pid);
  EXPECT_EQ(maps.status, 0);
  EXPECT_EQ(maps.out, systemMap(game.pid()));
  EXPECT_NE(maps.out.find("200000000000-200000001000 rw-p 00000000\n"), std::string::npos);

  ToolRun base = tool("proc base " + pid + " " + game.fileName());
  ASSERT_EQ(base.status, 0);
  // The first line of the game's own file in its map begins at the base.
  size_t line = maps.out.find(" " + game.path() + "\n");
  ASSERT_NE(line, std::string::npos);
  std::string firstStart = maps.out.substr(maps.out.rfind('\n', line) + 1);
  firstStart = firstStart.substr(0, firstStart.find('-'));
  EXPECT_EQ(base.out, "0x" + firstStart + "\n");
  ToolRun magic = tool("proc read-long " + pid + " " + base.out.substr(0, base.out.size() - 1));
  EXPECT_EQ(magic.out, "1179403647\n");  // "\x7F" "ELF"

  ToolRun symbol = tool("proc symbol " + pid + " " + game.fileName() + " gameTitle");
  ASSERT_EQ(symbol.status, 0);
  ToolRun title = tool("proc read-str " + pid + " " + symbol.out.substr(0, symbol.out.size() - 1));
  EXPECT_EQ(title.out, "Stand-in Arena\n");
  ToolRun none = tool("proc symbol " + pid + " " + game.fileName() + " noSuchThing");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "zrkkvl: no symbol noSuchThing in module " + game.fileName() +
                          " of process " + pid + "\n");
}

// A user without rights, and the same user holding CAP_SYS_PTRACE alone.
const std::string kAsNobody = "setpriv --reuid=65534 --regid=65534 --clear-groups --";
const std::string kAsNobodyWithPtrace =
    "setpriv --reuid=65534 --regid=65534 --clear-groups --inh-caps=+sys_ptrace "
    "--ambient-caps=+sys_ptrace --";

TEST(ProcCommands, WhoMayReadAGame) {
  if (::geteuid() != 0 || ::access("/usr/bin/setpriv", X_OK) != 0) {
    GTEST_SKIP() << "needs root and setpriv to act as another user";
  }
  // Yama at 2 leaves the same user out, at 3 everyone.
  const int scope = platform::ptraceScope().value_or(0);
  if (scope == 3) GTEST_SKIP() << "ptrace_scope 3: no process may read another";
  const bool sameUserReads = scope < 2;
  FakeGame ours;                                        // run by root
  FakeGame theirs(FakeGame::Options{.user = kNobody});  // run by nobody
  std::string address = " 0x30000210";
  const std::string refusal = platform::accessRefusal(platform::ptraceScope());
  ASSERT_EQ(refusal.rfind("needs root or CAP_SYS_PTRACE", 0), 0u);
  struct Case {
    std::string who;
    pid_t pid;
    int status;
    std::string out;
  } cases[] = {
      {kAsNobody, theirs.pid(), sameUserReads ? 0 : 1, sameUserReads ? "513\n" : ""},  // same user
      {kAsNobody, ours.pid(), 1, ""},  // another user, no right
      {kAsNobodyWithPtrace, ours.pid(), 0, "513\n"},
      {"", theirs.pid(), 0, "513\n"},  // root
  };
  for (const Case& c : cases) {
    ToolRun r = tool("proc read-long " + std::to_string(c.pid) + address, c.who);
    EXPECT_EQ(r.status, c.status) << c.who << " " << c.pid;
    EXPECT_EQ(r.out, c.out) << c.who << " " << c.pid;
    if (c.status == 1) {
      EXPECT_EQ(r.err,
                "zrkkvl: cannot read process " + std::to_string(c.pid) + ": " + refusal + "\n");
    }
    ToolRun maps = tool("proc maps " + std::to_string(c.pid), c.who);
    EXPECT_EQ(maps.status, c.status) << c.who << " " << c.pid;
    EXPECT_EQ(maps.out.empty(), c.status != 0) << c.who << " " << c.pid;
  }
}

// The lines of a tool's output.
std::vector<std::string> linesOf(const std::string& out) {
  std::vector<std::string> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

bool holds(const std::vector<std::string>& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// Every account sees every process: whether it runs, its id by path, and its name in the list,
// which is its executable's path where the caller may read that, else the program as started, or
// the kernel's short name where the process rewrote its command line. Memory stays the kernel's.
TEST(ProcCommands, EveryAccountSeesEveryProcess) {
  if (::geteuid() != 0 || ::access("/usr/bin/setpriv", X_OK) != 0) {
    GTEST_SKIP() << "needs root and setpriv to act as another user";
  }
  FakeGame ours;                                                 // run by root
  FakeGame twin(FakeGame::Options{.sameAs = &ours});             // a second instance of it
  FakeGame theirs(FakeGame::Options{.user = kNobody});           // run by nobody
  FakeGame renamed(FakeGame::Options{.argv0 = "worker: idle"});  // root, command line rewritten
  const std::string comm = renamed.fileName().substr(0, 15);
  std::vector<std::string> bothOfOurs{std::to_string(ours.pid()), std::to_string(twin.pid())};
  std::sort(bothOfOurs.begin(), bothOfOurs.end());
  struct Case {
    std::string who;
    std::string seesOurs;     // the name of root's game in the list
    std::string seesRenamed;  // the name of the renamed one
  } cases[] = {
      {"", ours.path(), renamed.path()},
      {kAsNobody, ours.path(), comm},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.who.empty() ? "as root" : "as nobody");
    for (pid_t pid : {ours.pid(), theirs.pid(), renamed.pid(), pid_t(1)}) {
      ToolRun r = tool("proc running " + std::to_string(pid), c.who);
      EXPECT_EQ(r.out, "yes\n") << pid;
    }
    ToolRun found = tool("proc find '" + ours.path() + "'", c.who);
    EXPECT_EQ(found.status, 0);
    std::vector<std::string> ids = linesOf(found.out);
    std::sort(ids.begin(), ids.end());  // in the order of /proc
    EXPECT_EQ(ids, bothOfOurs);
    EXPECT_EQ(tool("proc find '" + theirs.path() + "'", c.who).out,
              std::to_string(theirs.pid()) + "\n");
    ToolRun list = tool("proc list", c.who);
    EXPECT_EQ(list.status, 0);
    std::vector<std::string> names = linesOf(list.out);
    EXPECT_TRUE(holds(names, c.seesOurs)) << list.out;
    EXPECT_TRUE(holds(names, theirs.path())) << list.out;
    EXPECT_TRUE(holds(names, c.seesRenamed)) << list.out;
    EXPECT_FALSE(holds(names, "worker: idle")) << list.out;
  }
  // Seeing a process is not reading it.
  ToolRun read = tool("proc read-long " + std::to_string(ours.pid()) + " 0x30000210", kAsNobody);
  EXPECT_EQ(read.status, 1);
  EXPECT_EQ(read.out, "");
}

}  // namespace
}  // namespace zrk::test
