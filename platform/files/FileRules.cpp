// The file rules the writers share: failed writes counted and thrown, the hook that hears of
// written files, the temporaries' random names, final links followed, regular-file opens, opens
// for appending, and the folder helpers.
#include "platform/files/FileRules.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <fstream>

#include <zrkKVL/Failure.h>
#include "platform/files/SafeFile.h"
#include "platform/files/SysCalls.h"

namespace zrk::platform {
namespace {

std::atomic<FileWrittenHook> gFileWrittenHook{nullptr};

constexpr int kMaxLinks = 40;  // as the kernel's own limit on links in one lookup

thread_local WriteFailures tWriteFailures;

// Failure for a write that could not be done, the way the runtime words it.
Failure writeFailure(int e) {
  if (e == ENOENT || e == ENOTDIR) return Failure(err::PathNotFound);
  if (e == EISDIR || e == ENXIO) return Failure(err::PathFileAccessError);
  return failureFromErrno(e);
}

// The errno that refuses a file of this kind where a regular file is wanted.
int notRegularError(const struct stat& st) {
  return S_ISDIR(st.st_mode) ? EISDIR : ENXIO;
}

}  // namespace

void failWrite(int e) {
  ++tWriteFailures.count;
  tWriteFailures.lastError = e;
  throw writeFailure(e);
}

void noteFileWritten(const struct stat& written) {
  if (FileWrittenHook hook = gFileWrittenHook.load(std::memory_order_acquire)) hook(written);
}

std::string randomTemporaryName() {
  uint64_t bits = 0;
  if (::getrandom(&bits, sizeof bits, 0) != ssize_t(sizeof bits)) {
    bits = uint64_t(::getpid()) * 0x9E3779B97F4A7C15ull ^ uint64_t(::clock());
  }
  char name[40];
  std::snprintf(name, sizeof name, ".zrk-tmp-%016llx", static_cast<unsigned long long>(bits));
  return name;
}

bool makeFolders(const std::string& path, mode_t mode) {
  if (path.empty() || ::mkdir(path.c_str(), mode) == 0 || errno == EEXIST) return true;
  if (errno != ENOENT) return false;
  size_t k = path.rfind('/');
  if (k == std::string::npos || k == 0 || !makeFolders(path.substr(0, k), mode)) return false;
  return ::mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
}

std::optional<struct stat> statAt(int dirFd, const std::string& name) {
  struct stat st;
  if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return st;
}

int openRegularFile(const std::string& path, int flags, mode_t mode, struct stat& st) {
  // What is not a regular file is never opened: opening a device may act on it (a watchdog arms,
  // a tape rewinds), and a FIFO would wait for its other end.
  if (::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    errno = notRegularError(st);
    return -1;
  }
  int fd = sys::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY, mode);
  if (fd < 0) return -1;
  // Something else may have been swapped in since the stat.
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    int e = notRegularError(st);
    ::close(fd);
    errno = e;
    return -1;
  }
  // Only the status flags change: the open's own flags without O_NONBLOCK.
  ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  return fd;
}

void setFileWrittenHook(FileWrittenHook hook) {
  gFileWrittenHook.store(hook, std::memory_order_release);
}

WriteFailures writeFailuresOnThisThread() {
  return tWriteFailures;
}

std::string followFinalLink(const std::string& path) {
  std::string p = path;
  for (int i = 0; i < kMaxLinks; ++i) {
    struct stat st;
    if (::lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return p;
    std::string target(size_t(st.st_size > 0 ? st.st_size : PATH_MAX), '\0');
    ssize_t n = ::readlink(p.c_str(), target.data(), target.size());
    if (n < 0) return p;
    target.resize(size_t(n));
    if (target.empty() || target[0] == '/') {
      p = target;
    } else {
      size_t k = p.rfind('/');
      p = k == std::string::npos ? target : p.substr(0, k + 1) + target;
    }
  }
  return p;
}

std::string folderOfPath(const std::string& path) {
  size_t k = path.rfind('/');
  if (k == std::string::npos) return ".";
  if (k == 0) return "/";
  return path.substr(0, k);
}

std::string lastComponent(const std::string& path) {
  size_t k = path.rfind('/');
  return k == std::string::npos ? path : path.substr(k + 1);
}

mode_t currentUmask() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) == 0) return mode_t(std::stoul(line.substr(6), nullptr, 8));
  }
  return 022;
}

FolderHandle::FolderHandle(const std::string& folder)
    : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (fd_ < 0) failWrite(errno == ENOTDIR ? ENOENT : errno);
}

FolderHandle::~FolderHandle() {
  ::close(fd_);
}

void FolderHandle::sync() const {
  if (::fsync(fd_) != 0 && errno != EINVAL) failWrite(errno);
}

int openForAppend(const std::string& path) {
  std::string target = followFinalLink(path);
  struct stat st;
  if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode) && isReadOnlyMode(st.st_mode)) {
    failWrite(EACCES);
  }
  int fd = openRegularFile(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666, st);
  if (fd < 0) failWrite(errno);
  noteFileWritten(st);
  return fd;
}

}  // namespace zrk::platform
