// The process table read from /proc: ids from the directory, names as far as the caller may read
// them, and the snapshot as a list taken at one moment. Every account sees every process here;
// only the executable's link is kept to those who may read the process's memory.
#include "platform/process/ProcessList.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "platform/process/Process.h"
#include "platform/process/ProcessObject.h"

namespace zrk::platform {
namespace {

constexpr HANDLE kInvalidHandle = 0xFFFFFFFF;
// The one module handle a process shows: its executable.
constexpr uint32_t kExecutableModule = 0x400000;

struct Entry {
  uint32_t pid;
  std::string name;
};

struct SnapshotObject : HandleObject {
  std::vector<Entry> entries;
  std::mutex mutex;
  size_t next = 0;
};

std::mutex gSeamMutex;
std::function<int32_t(uint32_t*, uint32_t, uint32_t&)> gEnumProcesses;

// The ids of /proc, in the directory's order.
std::vector<uint32_t> processIds() {
  std::vector<uint32_t> ids;
  DIR* dir = ::opendir("/proc");
  if (!dir) return ids;
  while (dirent* e = ::readdir(dir)) {
    const char* s = e->d_name;
    if (*s < '1' || *s > '9') continue;
    uint64_t id = 0;
    for (; *s >= '0' && *s <= '9' && id <= UINT32_MAX; ++s)
      id = id * 10 + uint64_t(*s - '0');
    if (*s == '\0' && id <= UINT32_MAX) ids.push_back(uint32_t(id));
  }
  ::closedir(dir);
  return ids;
}

// Up to `limit` bytes of a /proc file of `pid`, or empty.
std::string procFile(uint32_t pid, const char* leaf, size_t limit) {
  std::string path = "/proc/" + std::to_string(pid) + "/" + leaf;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  std::string bytes(limit, '\0');
  ssize_t n = ::read(fd, bytes.data(), limit);
  ::close(fd);
  bytes.resize(size_t(std::max<ssize_t>(n, 0)));
  return bytes;
}

// The short name the kernel keeps for a process (the executable's file name cut to 15 bytes,
// unless the process renamed itself).
std::string commandName(uint32_t pid) {
  std::string name = procFile(pid, "comm", 64);
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

std::string fileNameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// What a process is called where its executable's link is hidden from us: the program it was
// started as (the first argument of its command line, when its file name begins with the short
// name, so that a process that rewrote its command line is not taken at its word), else the
// short name. Empty for a kernel thread or a process that has ended: they have no command line.
std::string startedAs(uint32_t pid) {
  std::string argv0 = procFile(pid, "cmdline", PATH_MAX);
  argv0.resize(std::min(argv0.size(), argv0.find('\0')));
  if (argv0.empty()) return {};
  std::string comm = commandName(pid);
  return fileNameOf(argv0).starts_with(comm) ? argv0 : comm;
}

// A snapshot entry's name: the executable's file name, else that of the program it was started
// as, else the kernel's short name (a kernel thread's).
std::string snapshotName(uint32_t pid) {
  std::string exe = executableOf(pid);
  if (!exe.empty()) return fileNameOf(exe);
  std::string started = startedAs(pid);
  return started.empty() ? commandName(pid) : fileNameOf(started);
}

// A process's first module name: its executable's full path where we may read it, else what it
// was started as; empty for a process without a program (a kernel thread).
std::string moduleName(ProcessObject& p) {
  if (!p.executable().empty()) return p.executable();
  std::string started = startedAs(p.pid);
  return p.alive() ? started : std::string();  // else the id may already be another process's
}

int32_t deliver(HANDLE snapshot, PROCESSENTRY32& entry, bool first) {
  auto s = HandleTable::instance().get<SnapshotObject>(snapshot);
  if (!s || entry.dwSize != sizeof(PROCESSENTRY32)) return 0;
  std::lock_guard lock(s->mutex);
  if (first) s->next = 0;
  if (s->next >= s->entries.size()) return 0;
  const Entry& e = s->entries[s->next++];
  uint32_t size = entry.dwSize;
  entry = PROCESSENTRY32{};
  entry.dwSize = size;
  entry.th32ProcessID = e.pid;
  size_t n = std::min(e.name.size(), MAX_PATH - 1);
  std::memcpy(entry.szExeFile, e.name.data(), n);
  entry.szExeFile[n] = '\0';
  return 1;
}

int32_t realEnumProcesses(uint32_t* ids, uint32_t cb, uint32_t& needed) {
  std::vector<uint32_t> all = processIds();
  size_t n = std::min<size_t>(all.size(), cb / 4);
  std::copy_n(all.begin(), n, ids);
  needed = uint32_t(n * 4);
  return 1;
}

}  // namespace

int32_t EnumProcesses(uint32_t* ids, uint32_t cb, uint32_t& needed) {
  std::function<int32_t(uint32_t*, uint32_t, uint32_t&)> fn;
  {
    std::lock_guard lock(gSeamMutex);
    fn = gEnumProcesses;
  }
  return fn ? fn(ids, cb, needed) : realEnumProcesses(ids, cb, needed);
}

void setEnumProcesses(std::function<int32_t(uint32_t*, uint32_t, uint32_t&)> fn) {
  std::lock_guard lock(gSeamMutex);
  gEnumProcesses = std::move(fn);
}

int32_t EnumProcessModules(HANDLE process, uint32_t* modules, uint32_t cb, uint32_t& needed) {
  auto p = HandleTable::instance().get<ProcessObject>(process);
  if (!p || !(p->access & PROCESS_QUERY_INFORMATION) || moduleName(*p).empty()) return 0;
  needed = 4;
  if (cb >= 4) modules[0] = kExecutableModule;
  return 1;
}

uint32_t GetModuleFileNameExA(HANDLE process, uint32_t module, char* buffer, uint32_t size) {
  auto p = HandleTable::instance().get<ProcessObject>(process);
  if (!p || (module != kExecutableModule && module != 0) || size == 0) return 0;
  std::string name = moduleName(*p);
  if (name.empty()) return 0;
  size_t n = std::min<size_t>(name.size(), size - 1);  // a longer path is cut to fit the NUL
  std::memcpy(buffer, name.data(), n);
  buffer[n] = '\0';
  return uint32_t(n);
}

HANDLE CreateToolhelp32Snapshot(uint32_t flags, uint32_t) {
  if (!(flags & TH32CS_SNAPPROCESS)) return kInvalidHandle;
  auto s = std::make_shared<SnapshotObject>();
  for (uint32_t pid : processIds()) {
    std::string name = snapshotName(pid);
    if (!name.empty()) s->entries.push_back({pid, std::move(name)});  // empty: it has ended
  }
  return HandleTable::instance().add(std::move(s));
}

int32_t Process32First(HANDLE snapshot, PROCESSENTRY32& entry) {
  return deliver(snapshot, entry, true);
}

int32_t Process32Next(HANDLE snapshot, PROCESSENTRY32& entry) {
  return deliver(snapshot, entry, false);
}

}  // namespace zrk::platform
