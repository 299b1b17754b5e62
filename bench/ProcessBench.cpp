// Reading a child's memory against one process_vm_readv, and the process list against a bare
// walk of /proc (and, for information, against ps).
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "BenchSupport.h"

extern char** environ;

namespace zrk::bench {
namespace {

constexpr uintptr_t kGamePage = 0x31000000;     // below 4 GiB: addresses cross as 32 bits
constexpr uintptr_t kFarPage = 0x210000000000;  // where ordinary programs lie: above 4 GiB
constexpr size_t kStringOffset = 0x100;

void* mapAt(uintptr_t address) {
  void* p = ::mmap(reinterpret_cast<void*>(address), 4096, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (p != reinterpret_cast<void*>(address)) std::abort();
  return p;
}

// A forked child holding a page below and one above 4 GiB, each with a number and a string in
// it; it waits until its standard input closes. Forked, it needs no program of its own.
class ChildGame {
 public:
  ChildGame() {
    void* p = mapAt(kGamePage);
    std::memcpy(p, "\x78\x56\x34\x12", 4);
    std::memset(static_cast<char*>(p) + kStringOffset, 'g', 200);
    void* far = mapAt(kFarPage);
    std::memcpy(far, "\x78\x56\x34\x12", 4);
    int fds[2];
    if (::pipe(fds) != 0) std::abort();
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(fds[1]);
      char c;
      while (::read(fds[0], &c, 1) > 0) {
      }
      ::_exit(0);
    }
    ::close(fds[0]);
    stdin_ = fds[1];
    ::munmap(p, 4096);  // only the child keeps them
    ::munmap(far, 4096);
  }
  ~ChildGame() {
    ::close(stdin_);
    ::waitpid(pid_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int stdin_ = -1;
};

ChildGame& child() {
  static ChildGame game;
  return game;
}

void Op_ReadLong(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  int32_t handle = kvn.AttachToGame(child().pid());
  if (handle == 0 || kvn.ReadLong(handle, int32_t(kGamePage)) != 0x12345678) {
    state.SkipWithError("cannot read the child");
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.ReadLong(handle, int32_t(kGamePage)));
}
BENCHMARK(Op_ReadLong)->Name("Op/ReadLong")->UseRealTime();

void Op_ReadLong64(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  int32_t handle = kvn.AttachToGame(child().pid());
  if (handle == 0 || kvn.ReadLong64(handle, int64_t(kFarPage)) != 0x12345678) {
    state.SkipWithError("cannot read the child");
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.ReadLong64(handle, int64_t(kFarPage)));
}
BENCHMARK(Op_ReadLong64)->Name("Op/ReadLong64")->UseRealTime();

void Op_ReadStr(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  int32_t handle = kvn.AttachToGame(child().pid());
  if (handle == 0 || kvn.ReadStr(handle, int32_t(kGamePage + kStringOffset)) != Text(200, u'g')) {
    state.SkipWithError("cannot read the child");
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.ReadStr(handle, int32_t(kGamePage + kStringOffset)));
}
BENCHMARK(Op_ReadStr)->Name("Op/ReadStr")->UseRealTime();

// One process_vm_readv of the same bytes.
void readFloor(benchmark::State& state, uintptr_t address, size_t size) {
  char buffer[256];
  for (auto _ : state) {
    iovec local{buffer, size}, remote{reinterpret_cast<void*>(address), size};
    benchmark::DoNotOptimize(::process_vm_readv(child().pid(), &local, 1, &remote, 1, 0));
    benchmark::ClobberMemory();
  }
}
void Floor_ReadLong(benchmark::State& state) {
  readFloor(state, kGamePage, 4);
}
BENCHMARK(Floor_ReadLong)->Name("Floor/ReadLong")->UseRealTime();
void Floor_ReadLong64(benchmark::State& state) {
  readFloor(state, kFarPage, 4);
}
BENCHMARK(Floor_ReadLong64)->Name("Floor/ReadLong64")->UseRealTime();
void Floor_ReadStr(benchmark::State& state) {
  readFloor(state, kGamePage + kStringOffset, 255);
}
BENCHMARK(Floor_ReadStr)->Name("Floor/ReadStr")->UseRealTime();

void Op_GetRunningProcesses(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Variant list = kvn.GetRunningProcesses();
  if (!list.isArray() || list.array().items.empty()) state.SkipWithError("no process listed");
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.GetRunningProcesses());
}
BENCHMARK(Op_GetRunningProcesses)
    ->Name("Op/GetRunningProcesses")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// What an admin would type: ps started directly (no shell) listing every process with its
// command line, its whole output read through a pipe.
bool runPs(size_t& total) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  char* argv[] = {const_cast<char*>("ps"), const_cast<char*>("-e"), const_cast<char*>("-o"),
                  const_cast<char*>("pid,args"), nullptr};
  pid_t pid = -1;
  int spawned = ::posix_spawnp(&pid, "ps", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  char buffer[65536];
  ssize_t n;
  total = 0;
  while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0)
    total += size_t(n);
  ::close(fds[0]);
  int status = 0;
  return spawned == 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

// What an admin would type, for information: the whole of ps against the library's list.
void Op_Ps(benchmark::State& state) {
  for (auto _ : state) {
    size_t total = 0;
    if (!runPs(total)) {
      state.SkipWithError("cannot run ps");
      break;
    }
    benchmark::DoNotOptimize(total);
  }
}
BENCHMARK(Op_Ps)->Name("Op/ps")->UseRealTime()->Unit(benchmark::kMillisecond);

// The least any list of named processes takes: the entries of /proc read with getdents64, and
// one readlink of "PID/exe" for each process among them.
void Floor_GetRunningProcesses(benchmark::State& state) {
  char entries[32768], target[PATH_MAX];
  for (auto _ : state) {
    int proc = ::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (proc < 0) {
      state.SkipWithError("cannot open /proc");
      break;
    }
    size_t named = 0;
    for (long n; (n = ::syscall(SYS_getdents64, proc, entries, sizeof entries)) > 0;) {
      for (long at = 0; at < n;) {
        auto* e = reinterpret_cast<dirent64*>(entries + at);
        at += e->d_reclen;
        if (e->d_name[0] < '1' || e->d_name[0] > '9') continue;
        std::string exe = std::string(e->d_name) + "/exe";
        named += ::readlinkat(proc, exe.c_str(), target, sizeof target) > 0;
      }
    }
    ::close(proc);
    benchmark::DoNotOptimize(named);
  }
}
BENCHMARK(Floor_GetRunningProcesses)
    ->Name("Floor/GetRunningProcesses")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
