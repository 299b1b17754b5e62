// Spawns the tool with files for its three standard streams.
#include "ToolRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TestSupport.h"

extern char** environ;

namespace zrk::test {
namespace {

ToolRun spawn(std::vector<std::string> argv, const std::string& input) {
  TempDir io;
  writeBytes(io / "in", input);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, (io / "in").c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, (io / "out").c_str(), O_WRONLY | O_CREAT, 0644);
  posix_spawn_file_actions_addopen(&files, 2, (io / "err").c_str(), O_WRONLY | O_CREAT, 0644);
  std::vector<char*> raw;
  for (auto& a : argv)
    raw.push_back(a.data());
  raw.push_back(nullptr);
  pid_t pid = 0;
  ToolRun r;
  if (posix_spawnp(&pid, raw[0], &files, nullptr, raw.data(), environ) == 0) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  posix_spawn_file_actions_destroy(&files);
  r.out = readBytes(io / "out");
  r.err = readBytes(io / "err");
  return r;
}

}  // namespace

ToolRun runTool(const std::vector<std::string>& args, const std::string& input) {
  std::vector<std::string> argv{ZRK_TOOL_FILE};
  argv.insert(argv.end(), args.begin(), args.end());
  return spawn(argv, input);
}

ToolRun runProgram(const std::vector<std::string>& argv, const std::string& input) {
  return spawn(argv, input);
}

ToolRun runProgramAsNobody(const std::vector<std::string>& argv) {
  std::vector<std::string> all{"/usr/sbin/runuser", "-u", "nobody", "--"};
  all.insert(all.end(), argv.begin(), argv.end());
  return spawn(all, "");
}

bool hasProgram(const std::string& name) {
  return runProgram({"sh", "-c", "command -v \"$0\" >/dev/null", name}).code == 0;
}

bool canRunAsNobody() {
  return ::geteuid() == 0 && ::access("/usr/sbin/runuser", X_OK) == 0;
}

ToolRun runToolAsNobody(const std::vector<std::string>& args) {
  std::vector<std::string> argv{"/usr/sbin/runuser", "-u", "nobody", "--",
                                reachableByAll(ZRK_TOOL_FILE)};
  argv.insert(argv.end(), args.begin(), args.end());
  return spawn(argv, "");
}

}  // namespace zrk::test
