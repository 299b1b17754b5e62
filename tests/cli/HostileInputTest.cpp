// Crafted input against the tool: a packed file whose header claims 1.3 billion characters costs
// the memory of its 12 bytes, and a damaged one leaves the plain file as it was.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "support/HardeningSupport.h"

extern char** environ;

namespace zrk::test {
namespace {

using namespace std::string_literals;

struct ToolRun {
  int exitCode = -1;
  long peakKiB = 0;  // the largest resident size the tool reached
};

// Runs the tool with its input at end of file and its output discarded.
ToolRun runTool(const std::vector<std::string>& args) {
  const std::string tool = builtFile("ZRK_TOOL_FILE", ZRK_TOOL_FILE);
  std::vector<char*> argv{const_cast<char*>(tool.c_str())};
  for (const auto& a : args)
    argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  for (int fd : {0, 1, 2})
    posix_spawn_file_actions_addopen(&files, fd, "/dev/null", fd ? O_WRONLY : O_RDONLY, 0);
  pid_t pid = -1;
  ToolRun run;
  if (posix_spawn(&pid, tool.c_str(), &files, nullptr, argv.data(), environ) == 0) {
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.peakKiB = usage.ru_maxrss;
  }
  posix_spawn_file_actions_destroy(&files);
  return run;
}

using HostileInput = LibraryTest;

TEST_F(HostileInput, PackedFilesCostTheirSizeAndKeepThePlainFile) {
  struct Case {
    const char* name;
    std::string packed;
  } cases[] = {
      {"size of 1.3 billion, no body", "\x3f\x80\x5e\x80\0\0\0\0BINI"s},
      {"size of 99,999,999, body cut", "\x09\x09\x09\x09\x09\x09\x09\x09BINIeJxLTErm"s},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    writeBytes(root / "p.ini", "[kept]\r\n");
    writeBytes(root / "p.bini", c.packed);
    ToolRun run = runTool({"--root", root.path(), "bini", "unpack", root / "p.bini"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_LT(run.peakKiB, 256 * 1024);  // the claimed size would take gigabytes
    EXPECT_EQ(readBytes(root / "p.ini"), "[kept]\r\n");
    EXPECT_EQ(entriesOf(root.path()),
              (std::set<std::string>{"ErrorLog.txt", "dlls", "p.bini", "p.ini"}));
  }
}

}  // namespace
}  // namespace zrk::test
