// The tool's archive commands against tar on the same files, one process per call: `zrkkvl
// archive extract` against `tar xzf` and one syncfs, `zrkkvl archive make` against `tar czf` and
// one syncfs, on 1,000 files of 10 KiB and on 10 files of 1 MiB. Every call writes into a folder
// of its own, and no folder is removed before the process ends: a file system that has just
// freed inodes passes them over for a while, which would time the removal, not the call.
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "BenchSupport.h"

extern char** environ;

namespace zrk::bench {
namespace {

struct Shape {
  const char* label;
  int files;
  size_t size;
};
constexpr Shape kShapes[] = {{"1000x10KiB", 1000, 10 << 10}, {"10x1MiB", 10, kMiB}};

// Runs `args` (the program looked up in PATH unless it holds a slash) in the folder `cwd`, its
// output dropped; whether it exited with 0.
bool run(const std::vector<std::string>& args, const std::string& cwd) {
  std::vector<char*> argv;
  for (const std::string& a : args)
    argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  pid_t pid = -1;
  int spawned = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  return spawned == 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

// Makes what one file system holds durable, as `sync -f FOLDER` does.
bool syncFileSystemOf(const std::string& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  bool synced = fd >= 0 && ::syncfs(fd) == 0;
  if (fd >= 0) ::close(fd);
  return synced;
}

// Printable, barely compressible text of its own for each seed: no file repeats another, so
// tar's one stream gains nothing from the files before that separate streams could not.
std::string printableText(size_t size, uint32_t seed) {
  std::string bytes = pseudoRandomBytes(size, seed);
  for (char& c : bytes)
    c = char(' ' + (static_cast<unsigned char>(c) % 94));
  return bytes;
}

// The files of a shape, their names, and the same files packed once by each tool: SHAPE.zar
// and SHAPE.tgz.
struct Input {
  std::string folder;
  std::vector<std::string> names;
};

const Input& input(const Shape& shape) {
  static std::map<std::string, Input> made;
  auto [it, fresh] = made.try_emplace(shape.label);
  if (!fresh) return it->second;
  Input& in = it->second;
  in.folder = scratchDir() + "/tool-" + shape.label;
  ::mkdir(in.folder.c_str(), 0755);
  for (int i = 0; i < shape.files; ++i) {
    in.names.push_back("f" + std::to_string(i) + ".txt");
    writeScratch("tool-" + std::string(shape.label) + "/" + in.names.back(),
                 printableText(shape.size, uint32_t(i)));
  }
  std::vector<std::string> make{ZRK_TOOL_PATH, "archive", "make",
                                scratchDir() + "/" + shape.label + ".zar"};
  std::vector<std::string> tar{"tar", "czf", scratchDir() + "/" + shape.label + ".tgz"};
  make.insert(make.end(), in.names.begin(), in.names.end());
  tar.insert(tar.end(), in.names.begin(), in.names.end());
  if (!run(make, in.folder) || !run(tar, in.folder)) std::abort();
  return in;
}

// A new, empty folder for one call.
std::string freshFolder(const std::string& kind) {
  static int made = 0;
  std::string folder = scratchDir() + "/" + kind + "-" + std::to_string(made++);
  if (::mkdir(folder.c_str(), 0755) != 0) std::abort();
  return folder;
}

// One call per round of the command that `command` gives for a new folder to write into, then
// one syncfs when `sync`.
template <class Command>
void timeCalls(benchmark::State& state, const Shape& shape, Command command, bool sync) {
  const Input& in = input(shape);
  for (auto _ : state) {
    state.PauseTiming();
    std::string folder = freshFolder("call");
    std::vector<std::string> args = command(folder);
    state.ResumeTiming();
    if (!run(args, in.folder) || (sync && !syncFileSystemOf(folder))) {
      state.SkipWithError("the call failed");
      break;
    }
  }
  setBytes(state, int64_t(shape.files) * int64_t(shape.size));
}

std::vector<std::string> withNames(std::vector<std::string> head, const Input& in) {
  head.insert(head.end(), in.names.begin(), in.names.end());
  return head;
}

void registerShape(const Shape& s) {
  const std::string packed = std::string("/") + s.label;
  auto add = [&](const std::string& name, auto command, bool sync) {
    benchmark::RegisterBenchmark(
        (name + "/" + s.label).c_str(),
        [&s, command, sync](benchmark::State& st) { timeCalls(st, s, command, sync); })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  };
  add(
      "Op/ArchiveExtractTool",
      [packed](const std::string& out) {
        return std::vector<std::string>{ZRK_TOOL_PATH, "archive", "extract",
                                        scratchDir() + packed + ".zar", out};
      },
      false);
  add(
      "Floor/ArchiveExtractTool",
      [packed](const std::string& out) {
        return std::vector<std::string>{"tar", "xzf", scratchDir() + packed + ".tgz", "-C", out};
      },
      true);
  add(
      "Op/ArchiveMakeTool",
      [&s](const std::string& out) {
        return withNames({ZRK_TOOL_PATH, "archive", "make", out + "/a.zar"}, input(s));
      },
      false);
  add(
      "Floor/ArchiveMakeTool",
      [&s](const std::string& out) {
        return withNames({"tar", "czf", out + "/a.tgz"}, input(s));
      },
      true);
}

const bool kRegistered = [] {
  for (const Shape& s : kShapes)
    registerShape(s);
  return true;
}();

}  // namespace
}  // namespace zrk::bench
