// Whole-file replacement through an unnamed temporary file, in-place rewrites with a recovery
// copy, appends, regular-file opens, and the owner, mode and read-only rules they share.
#include "platform/SafeFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/ProfileCache.h"
#include "platform/SysCalls.h"

namespace zrk::platform {
namespace {

constexpr int kMaxLinks = 40;  // as the kernel's own limit on links in one lookup

thread_local WriteFailures tWriteFailures;

// Failure for a write that could not be done, the way the runtime words it.
Failure writeFailure(int e) {
  if (e == ENOENT || e == ENOTDIR) return Failure(err::PathNotFound);
  if (e == EISDIR || e == ENXIO) return Failure(err::PathFileAccessError);
  return failureFromErrno(e);
}

[[noreturn]] void fail(int e) {
  ++tWriteFailures.count;
  tWriteFailures.lastError = e;
  throw writeFailure(e);
}

// A name no user or member can count on: random, and made or linked exclusively, so that a
// name standing there already is tried again with another.
std::string randomTemporaryName() {
  uint64_t bits = 0;
  if (::getrandom(&bits, sizeof bits, 0) != ssize_t(sizeof bits)) {
    bits = uint64_t(::getpid()) * 0x9E3779B97F4A7C15ull ^ uint64_t(::clock());
  }
  char name[40];
  std::snprintf(name, sizeof name, ".zrk-tmp-%016llx", static_cast<unsigned long long>(bits));
  return name;
}

constexpr int kNameTries = 100;

// Whether this caller may change the file: never a read-only one, root included.
bool writable(int dirFd, const std::string& name, const struct stat& st) {
  if (isReadOnlyMode(st.st_mode)) return false;
  return ::faccessat(dirFd, name.c_str(), W_OK, AT_EACCESS) == 0;
}

// Reads up to `n` bytes at `at`; fewer only at the end of the file.
size_t readAt(int fd, char* into, size_t n, off_t at) {
  size_t done = 0;
  while (done < n) {
    ssize_t r = ::pread(fd, into + done, n - done, at + off_t(done));
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) fail(errno);
    if (r == 0) break;
    done += size_t(r);
  }
  return done;
}

void writeAt(int fd, const char* from, size_t n, off_t at) {
  for (size_t done = 0; done < n;) {
    ssize_t w = ::pwrite(fd, from + done, n - done, at + off_t(done));
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) fail(w < 0 ? errno : EIO);
    done += size_t(w);
  }
}

// Copies the whole content of `from` to `to` (both from their first byte), and gives its length.
off_t copyContent(int from, int to) {
  std::unique_ptr<char[]> buf(new char[1 << 16]);
  off_t at = 0;
  for (;;) {
    size_t n = readAt(from, buf.get(), 1 << 16, at);
    if (n == 0) return at;
    writeAt(to, buf.get(), n, at);
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

// The first recovery folder this user can make and own, opened; -1 when there is none.
int openFirstRecoveryFolder() {
  for (const std::string& candidate : recoveryFolderCandidates()) {
    int fd = openRecoveryFolder(candidate);
    if (fd >= 0) return fd;
  }
  return -1;
}

// The old content of a file rewritten in place, kept in the recovery folder until the new one
// is whole: copied and synced on construction, removed by remove(), and left there when the
// object goes without it.
class RecoveryCopy {
 public:
  RecoveryCopy(int oldFd, const std::string& fileName) {
    dirFd_ = openFirstRecoveryFolder();
    if (dirFd_ < 0) fail(EACCES);
    std::string base = fileName.substr(0, 200);
    for (int tries = 0; fd_ < 0 && tries < kNameTries; ++tries) {
      name_ = base + randomTemporaryName();
      fd_ =
          ::openat(dirFd_, name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
      if (fd_ < 0 && errno != EEXIST) break;
    }
    if (fd_ < 0) {
      int e = errno;
      ::close(dirFd_);
      fail(e);
    }
    try {
      length_ = copyContent(oldFd, fd_);
      if (::fsync(fd_) != 0 || (::fsync(dirFd_) != 0 && errno != EINVAL)) fail(errno);
    } catch (...) {
      remove();
      throw;
    }
  }
  ~RecoveryCopy() {
    if (fd_ >= 0) ::close(fd_);
    if (dirFd_ >= 0) ::close(dirFd_);
  }
  RecoveryCopy(const RecoveryCopy&) = delete;
  RecoveryCopy& operator=(const RecoveryCopy&) = delete;

  // Puts the old content back into `fd`; false when that failed too (the copy then stays).
  bool restoreInto(int fd) {
    try {
      copyContent(fd_, fd);
      return ::ftruncate(fd, length_) == 0 && ::fsync(fd) == 0;
    } catch (const Failure&) {
      return false;
    }
  }

  void remove() { ::unlinkat(dirFd_, name_.c_str(), 0); }

 private:
  int dirFd_ = -1;
  int fd_ = -1;
  std::string name_;
  off_t length_ = 0;
};

}  // namespace

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
  if (::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    errno = S_ISDIR(st.st_mode) ? EISDIR : ENXIO;
    return -1;
  }
  int fd = sys::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY, mode);
  if (fd < 0) return -1;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    int e = S_ISDIR(st.st_mode) ? EISDIR : ENXIO;
    ::close(fd);
    errno = e;
    return -1;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

std::string recoveryFolder() {
  for (const std::string& candidate : recoveryFolderCandidates()) {
    int fd = openRecoveryFolder(candidate);
    if (fd >= 0) {
      ::close(fd);
      return candidate;
    }
  }
  return {};
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
  if (fd_ < 0) fail(errno == ENOTDIR ? ENOENT : errno);
}

FolderHandle::~FolderHandle() {
  ::close(fd_);
}

void FolderHandle::sync() const {
  if (::fsync(fd_) != 0 && errno != EINVAL) fail(errno);
}

FileReplacement::FileReplacement(const std::string& path, Links links) {
  std::string target = links == Links::Follow ? followFinalLink(path) : path;
  ownFolder_.emplace(folderOfPath(target));
  dirFd_ = ownFolder_->fd();
  name_ = lastComponent(target);
  shownPath_ = target;
  open();
}

FileReplacement::FileReplacement(int folderFd, const std::string& name,
                                 const std::string& shownPath)
    : dirFd_(folderFd), name_(name), shownPath_(shownPath) {
  open();
}

FileReplacement::~FileReplacement() {
  discard();
}

void FileReplacement::open() {
  if (name_.empty() || name_ == "." || name_ == "..") fail(EISDIR);
  old_ = statAt(dirFd_, name_);
  if (old_ && S_ISLNK(old_->st_mode)) old_.reset();  // a link here is replaced, not followed
  if (old_) {
    if (S_ISDIR(old_->st_mode)) fail(EISDIR);
    if (!S_ISREG(old_->st_mode)) fail(ENXIO);  // a FIFO, socket or device is no file to write
    if (!writable(dirFd_, name_, *old_)) fail(EACCES);
    inPlace_ = old_->st_nlink > 1;
  }
  if (!inPlace_) openTemporary();
}

void FileReplacement::openTemporary() {
  // An unnamed file is out of everyone's reach, so a new one is made with the mode any
  // program's new file gets (0666 less the umask, or what a default ACL says) and keeps it.
  fd_ = sys::openat(dirFd_, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, old_ ? 0600 : 0666,
                    shownPath_.c_str());
  if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
    fd_ = openNamedTemporary();
  }
  if (fd_ < 0) {
    int e = errno;
    // A folder that takes no new name may still let an existing file be rewritten.
    if (old_ && e == EACCES && ::faccessat(dirFd_, ".", W_OK, AT_EACCESS) != 0) {
      inPlace_ = true;
      return;
    }
    fail(e);
  }
  if (old_ && (old_->st_uid != ::geteuid() || old_->st_gid != ::getegid()) &&
      ::fchown(fd_, old_->st_uid, old_->st_gid) != 0) {
    // The owner cannot be kept through a new file: rewrite the old one instead.
    dropTemporary();
    inPlace_ = true;
  }
}

// Where the file system has no unnamed files: a random name, made exclusively.
int FileReplacement::openNamedTemporary() {
  for (int tries = 0; tries < kNameTries; ++tries) {
    std::string name = randomTemporaryName();
    int fd = sys::openat(dirFd_, name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC,
                         0600, shownPath_.c_str());
    if (fd >= 0) {
      tmpName_ = std::move(name);
      return fd;
    }
    if (errno != EEXIST) return -1;
  }
  return -1;
}

void FileReplacement::writeAll(int fd, std::string_view bytes, off_t at) {
  size_t off = 0;
  while (off < bytes.size()) {
    ssize_t w = at < 0 ? sys::write(fd, bytes.data() + off, bytes.size() - off, shownPath_.c_str())
                       : sys::pwrite(fd, bytes.data() + off, bytes.size() - off, at + off_t(off),
                                     shownPath_.c_str());
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) fail(w < 0 ? errno : EIO);
    off += size_t(w);
  }
}

void FileReplacement::write(std::string_view bytes) {
  if (state_ != State::Open) fail(EIO);
  if (inPlace_) {
    pending_.append(bytes);
    return;
  }
  try {
    writeAll(fd_, bytes, -1);
  } catch (...) {
    discard();
    throw;
  }
}

void FileReplacement::commit() {
  finish(false);
}

void FileReplacement::commitSynced() {
  finish(true);
}

void FileReplacement::finish(bool synced) {
  if (state_ == State::Committed) return;
  if (state_ == State::Dropped) fail(EIO);
  try {
    if (inPlace_) {
      commitInPlace();
    } else if (synced) {
      takeFinalMode();
      putIntoPlace();
    } else {
      commitReplacement();
    }
  } catch (...) {
    discard();
    throw;
  }
  state_ = State::Committed;
  if (old_) forgetCachedProfile(*old_);
}

// The links to the file and its owner stay. Its old content is copied to the recovery folder
// first, so that a kill or a failure at any later step leaves it recoverable; after a failure
// it is put back.
void FileReplacement::commitInPlace() {
  int fd = sys::openat(dirFd_, name_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0,
                       shownPath_.c_str());
  if (fd < 0) fail(errno);
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    fail(ENXIO);  // something else was swapped in since the file was looked at
  }
  try {
    RecoveryCopy copy(fd, name_);
    try {
      rewriteInPlace(fd);
    } catch (...) {
      if (copy.restoreInto(fd)) copy.remove();
      throw;
    }
    copy.remove();
  } catch (...) {
    ::close(fd);
    throw;
  }
  if (::close(fd) != 0 && errno != EINTR) fail(errno);
}

// Room for the whole new content is taken first, so a full disk refuses before any old byte
// is overwritten.
void FileReplacement::rewriteInPlace(int fd) {
  if (!pending_.empty() && ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, off_t(pending_.size())) != 0 &&
      errno != EOPNOTSUPP) {
    fail(errno);
  }
  writeAll(fd, pending_, 0);
  if (::ftruncate(fd, off_t(pending_.size())) != 0 || ::fsync(fd) != 0) fail(errno);
}

void FileReplacement::takeFinalMode() {
  if (inPlace_ || modeTaken_) return;
  modeTaken_ = true;
  if (!old_ && tmpName_.empty()) return;  // a new unnamed file was made with its mode
  mode_t mode = old_ ? (old_->st_mode & 07777) : (0666 & ~currentUmask());
  if (::fchmod(fd_, mode) != 0) fail(errno);
}

void FileReplacement::commitReplacement() {
  takeFinalMode();
  if (::fsync(fd_) != 0) fail(errno);
  putIntoPlace();
  if (::fsync(dirFd_) != 0 && errno != EINVAL) fail(errno);
}

// A new file takes its name with one link; where that name has come to stand meanwhile, or the
// file had an old content, the new content is renamed over it.
void FileReplacement::putIntoPlace() {
  if (!old_ && tmpName_.empty() && linkUnderName()) {
    closeContent();
    return;
  }
  if (tmpName_.empty()) linkTemporary();
  if (sys::renameat(dirFd_, tmpName_.c_str(), name_.c_str(), shownPath_.c_str()) != 0) {
    fail(errno);
  }
  tmpName_.clear();
  closeContent();
}

// Whether the unnamed file now stands under its own name; false when another file came there.
bool FileReplacement::linkUnderName() {
  if (sys::linkat(fd_, dirFd_, name_.c_str(), shownPath_.c_str()) == 0) return true;
  if (errno != EEXIST) fail(errno);
  return false;
}

void FileReplacement::closeContent() {
  ::close(fd_);
  fd_ = -1;
}

// Gives the unnamed file a random name for its rename; a name taken already is passed over.
void FileReplacement::linkTemporary() {
  for (int tries = 0; tries < kNameTries; ++tries) {
    std::string tmp = randomTemporaryName();
    if (sys::linkat(fd_, dirFd_, tmp.c_str(), nullptr) == 0) {
      tmpName_ = std::move(tmp);
      return;
    }
    if (errno != EEXIST) fail(errno);
  }
  fail(EEXIST);
}

void FileReplacement::dropTemporary() {
  if (!tmpName_.empty()) ::unlinkat(dirFd_, tmpName_.c_str(), 0);
  tmpName_.clear();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

void FileReplacement::discard() {
  dropTemporary();
  if (state_ == State::Open) state_ = State::Dropped;
}

void writeFileWhole(const std::string& path, std::string_view bytes) {
  FileReplacement file(path, FileReplacement::Links::Follow);
  file.write(bytes);
  file.commit();
}

bool replaceFileAtomically(const std::string& path, std::string_view bytes) {
  try {
    writeFileWhole(path, bytes);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

int openForAppend(const std::string& path) {
  std::string target = followFinalLink(path);
  struct stat st;
  if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode) && isReadOnlyMode(st.st_mode)) {
    fail(EACCES);
  }
  int fd = openRegularFile(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666, st);
  if (fd < 0) fail(errno);
  forgetCachedProfile(st);
  return fd;
}

}  // namespace zrk::platform
