// Peak memory of one call, in a fresh process of the benchmark binary.
#include "PeakMemory.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "BenchSupport.h"

extern char** environ;

namespace zrk::bench {
namespace {

// A field of /proc/self/status in bytes ("VmRSS:   1234 kB").
int64_t statusBytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field + ":", 0) == 0) return std::stoll(line.substr(field.size() + 1)) * 1024;
  }
  return -1;
}

}  // namespace

PeakMemory measurePeakInChild(const std::string& op, const std::string& path) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return {};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  std::string self = "/proc/self/exe";
  char* argv[] = {self.data(), const_cast<char*>(kPeakMemoryFlag), const_cast<char*>(op.c_str()),
                  const_cast<char*>(path.c_str()), nullptr};
  pid_t pid = -1;
  int spawned = ::posix_spawn(&pid, self.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  std::string out;
  char buffer[256];
  ssize_t n;
  while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0)
    out.append(buffer, size_t(n));
  ::close(fds[0]);
  int status = 0;
  if (spawned != 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    return {};
  }
  PeakMemory peak;
  std::istringstream(out) >> peak.growthBytes >> peak.resultBytes;
  return peak;
}

int runPeakMemoryChild(int argc, char** argv) {
  if (argc != 4) return 2;
  const std::string op = argv[2];
  const Text file = fromUtf8(argv[3]);
  clsKVN& kvn = library();
  int64_t before = statusBytes("VmRSS");
  {
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
  }
  Text result;
  if (op == "HexRead") {
    result = kvn.HexRead(file);
  } else if (op == "BinRead") {
    result = kvn.BinRead(file);
  } else {
    return 2;
  }
  int64_t peak = statusBytes("VmHWM");
  if (before < 0 || peak < 0 || result.empty()) return 1;
  std::printf("%lld %lld\n", static_cast<long long>(peak - before),
              static_cast<long long>(result.size() * sizeof(char16_t)));
  return 0;
}

}  // namespace zrk::bench
