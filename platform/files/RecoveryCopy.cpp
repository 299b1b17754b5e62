// The recovery copy: the old content of a file rewritten in place, kept in this user's
// recovery folder until the new content is whole.
#include "platform/files/RecoveryCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/files/FileRules.h"
#include "platform/files/SafeFile.h"
#include "platform/files/SysCalls.h"

namespace zrk::platform {
namespace {

// Reads up to `n` bytes at `at`; fewer only at the end of the file.
size_t readAt(int fd, char* into, size_t n, off_t at) {
  ssize_t r = sys::readAll(fd, into, n, at);
  if (r < 0) failWrite(errno);
  return size_t(r);
}

// Copies the whole content of `from` to `to` (both from their first byte), and gives its length.
off_t copyContent(int from, int to) {
  std::unique_ptr<char[]> buf(new char[1 << 16]);
  off_t at = 0;
  for (;;) {
    size_t n = readAt(from, buf.get(), 1 << 16, at);
    if (n == 0) return at;
    // The recovery copy and its way back stay out of the fault seam's reach.
    if (int e = sys::writeAll(to, std::string_view(buf.get(), n), at, nullptr)) failWrite(e);
    at += off_t(n);
  }
}

// The recovery folder opened, made when missing: a folder of this user's own (a link or
// another's folder there is refused), or -1.
int openRecoveryFolder(const std::string& path) {
  if (!makeFolders(path, 0700)) return -1;
  int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  struct stat st;
  if (fd >= 0 && (::fstat(fd, &st) != 0 || st.st_uid != ::geteuid())) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// The places a recovery folder may lie, in the order they are tried.
std::vector<std::string> recoveryFolderCandidates() {
  std::vector<std::string> all;
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state && state[0] == '/') all.push_back(std::string(state) + "/zrkkvl/recovery");
  const char* home = std::getenv("HOME");
  if (home && home[0] == '/') all.push_back(std::string(home) + "/.local/state/zrkkvl/recovery");
  all.push_back("/var/tmp/zrkkvl-recovery-" + std::to_string(::geteuid()));
  return all;
}

// The first recovery folder this user can make and own, opened, its path in `path`; -1 when
// there is none.
int openFirstRecoveryFolder(std::string& path) {
  for (std::string& candidate : recoveryFolderCandidates()) {
    int fd = openRecoveryFolder(candidate);
    if (fd >= 0) {
      path = std::move(candidate);
      return fd;
    }
  }
  return -1;
}

}  // namespace

RecoveryCopy::RecoveryCopy(int oldFd, const std::string& fileName) {
  std::string folder;
  dirFd_ = openFirstRecoveryFolder(folder);
  if (dirFd_ < 0) failWrite(EACCES);
  std::string base = fileName.substr(0, 200);
  for (int tries = 0; fd_ < 0 && tries < kNameTries; ++tries) {
    name_ = base + randomTemporaryName();
    fd_ = ::openat(dirFd_, name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd_ < 0 && errno != EEXIST) break;
  }
  if (fd_ < 0) {
    int e = errno;
    ::close(dirFd_);
    failWrite(e);
  }
  try {
    length_ = copyContent(oldFd, fd_);
    if (::fsync(fd_) != 0 || (::fsync(dirFd_) != 0 && errno != EINVAL)) failWrite(errno);
  } catch (...) {
    remove();
    throw;
  }
}

RecoveryCopy::~RecoveryCopy() {
  if (fd_ >= 0) ::close(fd_);
  if (dirFd_ >= 0) ::close(dirFd_);
}

bool RecoveryCopy::restoreInto(int fd) {
  try {
    copyContent(fd_, fd);
    return ::ftruncate(fd, length_) == 0 && ::fsync(fd) == 0;
  } catch (const Failure&) {
    return false;
  }
}

void RecoveryCopy::remove() {
  ::unlinkat(dirFd_, name_.c_str(), 0);
}

std::string recoveryFolder() {
  std::string folder;
  int fd = openFirstRecoveryFolder(folder);
  if (fd >= 0) ::close(fd);
  return folder;
}

}  // namespace zrk::platform
