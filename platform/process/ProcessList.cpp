// The process table read from /proc: ids from the directory, names as far as the caller may read
// them, and the snapshot as a list taken at one moment. Every account sees every process here;
// only the executable's link is kept to those who may read the process's memory.
#include "platform/process/ProcessList.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
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

// The reading of /proc that serves this thread's calls of EnumProcesses, while one lives.
thread_local ProcessTableReading* tReading = nullptr;

// /proc, open for the *at calls of one walk over its processes; -1 where it cannot be opened,
// and then every read through it fails.
class ProcFolder {
 public:
  ProcFolder() : fd_(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~ProcFolder() {
    if (fd_ >= 0) ::close(fd_);
  }
  ProcFolder(const ProcFolder&) = delete;
  ProcFolder& operator=(const ProcFolder&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

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

std::string entryOf(uint32_t pid, const char* leaf) {
  return std::to_string(pid) + "/" + leaf;
}

// Up to `limit` bytes of the file `leaf` of `pid` in the open /proc, or empty.
std::string procFile(int proc, uint32_t pid, const char* leaf, size_t limit) {
  int fd = ::openat(proc, entryOf(pid, leaf).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  std::string bytes(limit, '\0');
  ssize_t n = ::read(fd, bytes.data(), limit);
  ::close(fd);
  bytes.resize(size_t(std::max<ssize_t>(n, 0)));
  return bytes;
}

// The short name the kernel keeps for a process (the executable's file name cut to 15 bytes,
// unless the process renamed itself).
std::string commandName(int proc, uint32_t pid) {
  std::string name = procFile(proc, pid, "comm", 64);
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

// The last component of a path: lastComponent of the files service, which lies above this one
// and so may not be used here; too small to move to the ground types.
std::string fileNameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// What a process is called where its executable's link is hidden from us: the program it was
// started as (the first argument of its command line, when its file name begins with the short
// name, so that a process that rewrote its command line is not taken at its word), else the
// short name. Empty for a kernel thread or a process that has ended: they have no command line.
std::string startedAs(int proc, uint32_t pid) {
  std::string argv0 = procFile(proc, pid, "cmdline", PATH_MAX);
  argv0.resize(std::min(argv0.size(), argv0.find('\0')));
  if (argv0.empty()) return {};
  std::string comm = commandName(proc, pid);
  return fileNameOf(argv0).starts_with(comm) ? argv0 : comm;
}

// A process's first module name: its executable's full path where we may read the link (one
// readlink), else what it was started as. Empty for a process without a program (a kernel
// thread) or one that has ended: the system has no link for them, so nothing more is read.
std::string moduleName(int proc, uint32_t pid) {
  char target[PATH_MAX];
  ssize_t n = ::readlinkat(proc, entryOf(pid, "exe").c_str(), target, sizeof target);
  if (n > 0) return executableFromLink(pid, std::string(target, size_t(n)));
  return errno == ENOENT ? std::string() : startedAs(proc, pid);
}

// A snapshot entry's name: the file name of the first module, else the kernel's short name (a
// kernel thread's); empty for a process that has ended.
std::string snapshotName(int proc, uint32_t pid) {
  std::string module = moduleName(proc, pid);
  return module.empty() ? commandName(proc, pid) : fileNameOf(module);
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
  std::vector<uint32_t> fresh;
  const std::vector<uint32_t>& all = tReading ? tReading->ids() : (fresh = processIds());
  size_t n = std::min<size_t>(all.size(), cb / 4);
  std::copy_n(all.begin(), n, ids);
  needed = uint32_t(n * 4);
  return 1;
}

}  // namespace

ProcessTableReading::ProcessTableReading() : outer_(tReading) {
  tReading = this;
}

ProcessTableReading::~ProcessTableReading() {
  tReading = outer_;
}

const std::vector<uint32_t>& ProcessTableReading::ids() {
  if (!ids_) ids_ = processIds();
  return *ids_;
}

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

std::vector<NamedProcess> firstModuleNames(const std::vector<uint32_t>& ids) {
  std::vector<NamedProcess> named;
  ProcFolder proc;
  for (uint32_t pid : ids) {
    std::string name = moduleName(proc.fd(), pid);
    if (name.empty()) continue;
    name.resize(std::min(name.size(), MAX_PATH - 1));  // a longer path is cut as a buffer holds it
    named.push_back({pid, std::move(name)});
  }
  return named;
}

HANDLE CreateToolhelp32Snapshot(uint32_t flags, uint32_t) {
  if (!(flags & TH32CS_SNAPPROCESS)) return kInvalidHandle;
  auto s = std::make_shared<SnapshotObject>();
  ProcFolder proc;
  for (uint32_t pid : processIds()) {
    std::string name = snapshotName(proc.fd(), pid);
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
