// System calls behind the fault seam; without rules the seam costs one atomic load.
#include "platform/files/SysCalls.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <vector>

namespace zrk::platform {
namespace faults {
namespace {

std::mutex gMutex;
std::vector<Rule> gRules;
std::atomic<bool> gAny{false};

}  // namespace

void add(Rule rule) {
  std::lock_guard lock(gMutex);
  gRules.push_back(std::move(rule));
  gAny = true;
}

void clear() {
  std::lock_guard lock(gMutex);
  gRules.clear();
  gAny = false;
}

void diskFull(const std::string& p, int skip) {
  add({Call::Write, p, ENOSPC, skip});
}
void writeRefused(const std::string& p, int skip) {
  add({Call::OpenWrite, p, EACCES, skip});
}
void vanishes(const std::string& p, int skip) {
  add({Call::OpenRead, p, ENOENT, skip});
}
void readOnlyFolder(const std::string& p) {
  for (Call c : {Call::OpenWrite, Call::MakeFolder, Call::Remove, Call::Rename})
    add({c, p, EROFS});
}

// The error to simulate for this call, or 0.
int check(Call call, const char* path) {
  if (!gAny.load(std::memory_order_relaxed) || !path) return 0;
  std::lock_guard lock(gMutex);
  for (Rule& r : gRules) {
    if (r.call != call || std::string_view(path).find(r.pathPart) == std::string_view::npos)
      continue;
    if (r.skip > 0) {
      --r.skip;
      continue;
    }
    if (r.times == 0) continue;
    if (r.times > 0) --r.times;
    return r.error;
  }
  return 0;
}

}  // namespace faults

namespace sys {
namespace {
int failWith(int e) {
  if (e == faults::kKilledHere) ::raise(SIGKILL);
  errno = e;
  return -1;
}
}  // namespace

int open(const char* path, int flags, mode_t mode) {
  bool writing = (flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0;
  if (int e = faults::check(writing ? faults::Call::OpenWrite : faults::Call::OpenRead, path)) {
    return failWith(e);
  }
  return ::open(path, flags, mode);
}

ssize_t write(int fd, const void* buf, size_t n, const char* path) {
  if (int e = faults::check(faults::Call::Write, path)) return failWith(e);
  return ::write(fd, buf, n);
}

ssize_t pwrite(int fd, const void* buf, size_t n, off_t offset, const char* path) {
  if (int e = faults::check(faults::Call::Write, path)) return failWith(e);
  return ::pwrite(fd, buf, n, offset);
}

int writeAll(int fd, std::string_view bytes, off_t at, const char* path) {
  for (size_t done = 0; done < bytes.size();) {
    const char* from = bytes.data() + done;
    size_t n = bytes.size() - done;
    ssize_t w =
        at == kAtPosition ? write(fd, from, n, path) : pwrite(fd, from, n, at + off_t(done), path);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return w < 0 ? errno : EIO;
    done += size_t(w);
  }
  return 0;
}

ssize_t readAll(int fd, char* into, size_t n, off_t at) {
  size_t done = 0;
  while (done < n) {
    ssize_t r = at == kAtPosition ? ::read(fd, into + done, n - done)
                                  : ::pread(fd, into + done, n - done, at + off_t(done));
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return -1;
    if (r == 0) break;
    done += size_t(r);
  }
  return ssize_t(done);
}

int mkdir(const char* path, mode_t mode) {
  if (int e = faults::check(faults::Call::MakeFolder, path)) return failWith(e);
  return ::mkdir(path, mode);
}

int unlink(const char* path) {
  if (int e = faults::check(faults::Call::Remove, path)) return failWith(e);
  return ::unlink(path);
}

int rmdir(const char* path) {
  if (int e = faults::check(faults::Call::Remove, path)) return failWith(e);
  return ::rmdir(path);
}

int openat(int dirFd, const char* name, int flags, mode_t mode, const char* path) {
  if (int e = faults::check(faults::Call::OpenWrite, path)) return failWith(e);
  return ::openat(dirFd, name, flags, mode);
}

int renameat(int dirFd, const char* from, const char* to, const char* path) {
  if (int e = faults::check(faults::Call::Rename, path)) return failWith(e);
  return ::renameat(dirFd, from, dirFd, to);
}

int linkat(int fd, int dirFd, const char* name, const char* path) {
  if (int e = faults::check(faults::Call::Rename, path)) return failWith(e);
  std::string self = "/proc/self/fd/" + std::to_string(fd);
  return ::linkat(AT_FDCWD, self.c_str(), dirFd, name, AT_SYMLINK_FOLLOW);
}

}  // namespace sys
}  // namespace zrk::platform
