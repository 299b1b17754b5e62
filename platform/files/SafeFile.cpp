// Whole-file replacement through an unnamed temporary file, or an in-place rewrite with a
// recovery copy where no new file can keep the old one's links, owner or folder.
#include "platform/files/SafeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <zrkKVL/Failure.h>
#include "platform/files/FileRules.h"
#include "platform/files/RecoveryCopy.h"
#include "platform/files/SysCalls.h"

namespace zrk::platform {
namespace {

// Whether this caller may change the file: never a read-only one, root included.
bool writable(int dirFd, const std::string& name, const struct stat& st) {
  if (isReadOnlyMode(st.st_mode)) return false;
  return ::faccessat(dirFd, name.c_str(), W_OK, AT_EACCESS) == 0;
}

}  // namespace

FileReplacement::FileReplacement(const std::string& path, Links links) {
  std::string target = links == Links::Follow ? followFinalLink(path) : path;
  ownFolder_.emplace(folderOfPath(target));
  dirFd_ = ownFolder_->fd();
  name_ = lastComponent(target);
  shownPath_ = target;
  old_ = statAt(dirFd_, name_);
  open();
}

FileReplacement::FileReplacement(int folderFd, const std::string& name,
                                 const std::string& shownPath)
    : FileReplacement(folderFd, name, shownPath, statAt(folderFd, name)) {}

FileReplacement::FileReplacement(int folderFd, const std::string& name,
                                 const std::string& shownPath,
                                 const std::optional<struct stat>& there)
    : dirFd_(folderFd), name_(name), shownPath_(shownPath), old_(there) {
  open();
}

FileReplacement::~FileReplacement() {
  discard();
}

void FileReplacement::open() {
  if (name_.empty() || name_ == "." || name_ == "..") failWrite(EISDIR);
  if (old_ && S_ISLNK(old_->st_mode)) old_.reset();  // a link here is replaced, not followed
  if (old_) {
    if (S_ISDIR(old_->st_mode)) failWrite(EISDIR);
    if (!S_ISREG(old_->st_mode)) failWrite(ENXIO);  // a FIFO, socket or device is no file to write
    if (!writable(dirFd_, name_, *old_)) failWrite(EACCES);
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
    failWrite(e);
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

void FileReplacement::write(std::string_view bytes) {
  if (state_ != State::Open) failWrite(EIO);
  if (inPlace_) {
    pending_.append(bytes);
    return;
  }
  try {
    if (int e = sys::writeAll(fd_, bytes, sys::kAtPosition, shownPath_.c_str())) failWrite(e);
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
  if (state_ == State::Dropped) failWrite(EIO);
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
  if (old_) noteFileWritten(*old_);
}

// The links to the file and its owner stay. Its old content is copied to the recovery folder
// first, so that a kill or a failure at any later step leaves it recoverable; after a failure
// it is put back.
void FileReplacement::commitInPlace() {
  int fd = sys::openat(dirFd_, name_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0,
                       shownPath_.c_str());
  if (fd < 0) failWrite(errno);
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    failWrite(ENXIO);  // something else was swapped in since the file was looked at
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
  if (::close(fd) != 0 && errno != EINTR) failWrite(errno);
}

// Room for the whole new content is taken first, so a full disk refuses before any old byte
// is overwritten.
void FileReplacement::rewriteInPlace(int fd) {
  if (!pending_.empty() && ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, off_t(pending_.size())) != 0 &&
      errno != EOPNOTSUPP) {
    failWrite(errno);
  }
  if (int e = sys::writeAll(fd, pending_, 0, shownPath_.c_str())) failWrite(e);
  if (::ftruncate(fd, off_t(pending_.size())) != 0 || ::fsync(fd) != 0) failWrite(errno);
}

void FileReplacement::takeFinalMode() {
  if (inPlace_ || modeTaken_) return;
  modeTaken_ = true;
  if (!old_ && tmpName_.empty()) return;  // a new unnamed file was made with its mode
  mode_t mode = old_ ? (old_->st_mode & 07777) : (0666 & ~currentUmask());
  if (::fchmod(fd_, mode) != 0) failWrite(errno);
}

void FileReplacement::commitReplacement() {
  takeFinalMode();
  if (::fsync(fd_) != 0) failWrite(errno);
  putIntoPlace();
  if (::fsync(dirFd_) != 0 && errno != EINVAL) failWrite(errno);
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
    failWrite(errno);
  }
  tmpName_.clear();
  closeContent();
}

// Whether the unnamed file now stands under its own name; false when another file came there.
bool FileReplacement::linkUnderName() {
  if (sys::linkat(fd_, dirFd_, name_.c_str(), shownPath_.c_str()) == 0) return true;
  if (errno != EEXIST) failWrite(errno);
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
    if (errno != EEXIST) failWrite(errno);
  }
  failWrite(EEXIST);
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

}  // namespace zrk::platform
