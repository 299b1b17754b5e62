// Whole-file replacement through an unnamed temporary file, appends, and the owner, mode and
// read-only rules they share.
#include "platform/SafeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fstream>
#include <functional>

#include <zrkKVL/Failure.h>
#include "platform/ProfileCache.h"
#include "platform/SysCalls.h"

namespace zrk::platform {
namespace {

constexpr int kMaxLinks = 40;  // as the kernel's own limit on links in one lookup

// Failure for a write that could not be done, the way the runtime words it.
Failure writeFailure(int e) {
  if (e == ENOENT || e == ENOTDIR) return Failure(err::PathNotFound);
  if (e == EISDIR) return Failure(err::PathFileAccessError);
  return failureFromErrno(e);
}

[[noreturn]] void fail(int e) {
  throw writeFailure(e);
}

// The name under which the new content of `name` waits for its rename: one per file, so that
// the next write of the file removes what a writer killed in between left there. A long name
// gets a short hash instead, so that a name at the file system's limit still works.
std::string temporaryNameFor(const std::string& name) {
  if (name.size() <= 200) return ".~zrk." + name;
  char hashed[32];
  std::snprintf(hashed, sizeof hashed, ".~zrk.%016zx", std::hash<std::string>{}(name));
  return hashed;
}

std::optional<struct stat> statAt(int dirFd, const std::string& name) {
  struct stat st;
  if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return st;
}

// Whether this caller may change the file: never a read-only one, root included.
bool writable(int dirFd, const std::string& name, const struct stat& st) {
  if (isReadOnlyMode(st.st_mode)) return false;
  return ::faccessat(dirFd, name.c_str(), W_OK, AT_EACCESS) == 0;
}

}  // namespace

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

FileReplacement::FileReplacement(const FolderHandle& folder, const std::string& name,
                                 const std::string& shownPath)
    : dirFd_(folder.fd()), name_(name), shownPath_(shownPath) {
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
    if (!writable(dirFd_, name_, *old_)) fail(EACCES);
    inPlace_ = !S_ISREG(old_->st_mode) || old_->st_nlink > 1;
  }
  if (!inPlace_) openTemporary();
}

void FileReplacement::openTemporary() {
  const char* shown = shownPath_.c_str();
  // An unnamed file is out of everyone's reach, so a new one is made with the mode any
  // program's new file gets (0666 less the umask, or what a default ACL says) and keeps it.
  fd_ = sys::openat(dirFd_, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, old_ ? 0600 : 0666, shown);
  if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
    // No unnamed files here: the file's temporary name, a stale one removed first.
    tmpName_ = temporaryNameFor(name_);
    ::unlinkat(dirFd_, tmpName_.c_str(), 0);
    fd_ =
        sys::openat(dirFd_, tmpName_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600, shown);
    if (fd_ < 0) tmpName_.clear();
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
  if (state_ == State::Committed) return;
  if (state_ == State::Dropped) fail(EIO);
  try {
    inPlace_ ? commitInPlace() : commitByRename();
  } catch (...) {
    discard();
    throw;
  }
  state_ = State::Committed;
  if (old_) forgetCachedProfile(*old_);
}

// Room for the whole new content is taken first, so a full disk refuses before any old byte
// is overwritten; the links to the file and its owner stay.
void FileReplacement::commitInPlace() {
  bool regular = S_ISREG(old_->st_mode);
  int fd = sys::openat(dirFd_, name_.c_str(),
                       O_WRONLY | O_CLOEXEC | O_NOFOLLOW | (regular ? 0 : O_TRUNC), 0,
                       shownPath_.c_str());
  if (fd < 0) fail(errno);
  try {
    if (regular && !pending_.empty() &&
        ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, off_t(pending_.size())) != 0 &&
        errno != EOPNOTSUPP) {
      fail(errno);
    }
    writeAll(fd, pending_, regular ? 0 : -1);
    if (regular && (::ftruncate(fd, off_t(pending_.size())) != 0 || ::fsync(fd) != 0)) fail(errno);
  } catch (...) {
    ::close(fd);
    throw;
  }
  if (::close(fd) != 0 && errno != EINTR) fail(errno);
}

void FileReplacement::takeFinalMode() {
  if (!old_ && tmpName_.empty()) return;  // a new unnamed file was made with its mode
  mode_t mode = old_ ? (old_->st_mode & 07777) : (0666 & ~currentUmask());
  if (::fchmod(fd_, mode) != 0) fail(errno);
}

void FileReplacement::commitByRename() {
  takeFinalMode();
  if (::fsync(fd_) != 0) fail(errno);
  for (int tries = 0;; ++tries) {
    if (tmpName_.empty()) linkTemporary();
    if (sys::renameat(dirFd_, tmpName_.c_str(), name_.c_str(), shownPath_.c_str()) == 0) break;
    // Another writer of the same file took the temporary name away: link ours again.
    if (errno != ENOENT || tries == 100) fail(errno);
    tmpName_.clear();
  }
  tmpName_.clear();
  ::close(fd_);
  fd_ = -1;
  if (::fsync(dirFd_) != 0 && errno != EINVAL) fail(errno);
}

// Gives the unnamed file its temporary name. A name standing there already is a killed
// writer's leftover, or another writer's of the same file: it is removed.
void FileReplacement::linkTemporary() {
  std::string self = "/proc/self/fd/" + std::to_string(fd_);
  std::string tmp = temporaryNameFor(name_);
  for (int tries = 0; tries < 100; ++tries) {
    if (::linkat(AT_FDCWD, self.c_str(), dirFd_, tmp.c_str(), AT_SYMLINK_FOLLOW) == 0) {
      tmpName_ = tmp;
      return;
    }
    if (errno != EEXIST) fail(errno);
    ::unlinkat(dirFd_, tmp.c_str(), 0);
  }
  fail(EEXIST);
}

std::string FileReplacement::stage() {
  if (inPlace_) {
    commit();
    return {};
  }
  if (old_) forgetCachedProfile(*old_);
  if (state_ != State::Open) fail(EIO);
  try {
    takeFinalMode();
    if (tmpName_.empty()) linkTemporary();
  } catch (...) {
    discard();
    throw;
  }
  std::string staged = std::move(tmpName_);
  tmpName_.clear();
  ::close(fd_);
  fd_ = -1;
  state_ = State::Committed;
  return staged;
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
  if (::stat(target.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) fail(EISDIR);
    if (isReadOnlyMode(st.st_mode)) fail(EACCES);
  }
  int fd = sys::open(target.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (fd < 0) fail(errno);
  if (::fstat(fd, &st) == 0) forgetCachedProfile(st);
  return fd;
}

}  // namespace zrk::platform
