// Free file numbers and the open modes over POSIX descriptors.
#include "platform/FileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <mutex>

#include <zrkKVL/Failure.h>
#include "platform/CodePage.h"
#include "platform/Paths.h"
#include "platform/SysCalls.h"

namespace zrk::platform {
namespace {

constexpr int kMaxFileNumber = 511;
std::mutex gNumbersMutex;
std::bitset<kMaxFileNumber + 1> gNumbersInUse;

// Failure for an open that did not succeed, the way the runtime words it.
Failure openFailure(int e, bool forWriting) {
  if (e == ENOENT) return Failure(forWriting ? err::PathNotFound : err::FileNotFound);
  if (e == EISDIR) return Failure(err::PathFileAccessError);
  return failureFromErrno(e);
}

int openPath(TextView path, int flags, bool forWriting) {
  if (path.empty()) throw Failure(err::BadFileNameOrNumber);
  std::string p = nativePath(path);
  struct stat st;
  if (::stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) throw Failure(err::PathFileAccessError);
  int fd = sys::open(p.c_str(), flags | O_CLOEXEC, 0644);
  if (fd < 0) throw openFailure(errno, forWriting);
  return fd;
}

}  // namespace

FileNumber::FileNumber() {
  std::lock_guard lock(gNumbersMutex);
  for (int n = 1; n <= kMaxFileNumber; ++n) {
    if (!gNumbersInUse[n]) {
      gNumbersInUse[n] = true;
      n_ = n;
      return;
    }
  }
  throw Failure(err::TooManyFiles);
}

FileNumber::~FileNumber() {
  std::lock_guard lock(gNumbersMutex);
  gNumbersInUse[n_] = false;
}

FileHandle::~FileHandle() {
  if (fd_ >= 0) ::close(fd_);
}

FileHandle& FileHandle::operator=(FileHandle&& o) noexcept {
  if (this != &o) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = o.fd_;
    o.fd_ = -1;
  }
  return *this;
}

void FileHandle::close() {
  if (fd_ < 0) return;
  int rc = ::close(fd_);
  fd_ = -1;
  if (rc != 0 && errno != EINTR) throw failureFromErrno(errno);
}

std::string readAllBytes(TextView path) {
  FileHandle h(openPath(path, O_RDONLY, false));
  struct stat st;
  size_t expected = (::fstat(h.fd(), &st) == 0 && st.st_size > 0) ? size_t(st.st_size) : 0;
  std::string bytes(expected + 1, '\0');  // one more, to see a file that grew
  size_t have = 0;
  for (;;) {
    if (have == bytes.size()) bytes.resize(bytes.size() * 2 + 65536);
    ssize_t n = ::read(h.fd(), bytes.data() + have, bytes.size() - have);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw failureFromErrno(errno);
    }
    if (n == 0) break;
    have += size_t(n);
  }
  bytes.resize(have);
  return bytes;
}

TextInputFile::TextInputFile(TextView path) : bytes_(readAllBytes(path)) {}

std::string_view TextInputFile::readLineBytes() {
  if (atEnd()) throw Failure(err::InputPastEndOfFile);
  size_t end = bytes_.find('\r', pos_);
  if (end == std::string::npos) end = bytes_.size();
  std::string_view line(bytes_.data() + pos_, end - pos_);
  pos_ = end;
  if (pos_ < bytes_.size()) {
    ++pos_;  // the CR
    if (pos_ < bytes_.size() && bytes_[pos_] == '\n') ++pos_;
  }
  return line;
}

Text TextInputFile::readLine() {
  return fromAnsi(readLineBytes());
}

OutputFile::OutputFile(TextView path, Mode mode)
    : path_(nativePath(path)),
      handle_(
          openPath(path, O_WRONLY | O_CREAT | (mode == Mode::Append ? O_APPEND : O_TRUNC), true)) {}

OutputFile::~OutputFile() {
  try {
    close();
  } catch (...) {
    // A destructor after a failure only releases; the failure already on its way wins.
  }
}

void OutputFile::printLine(TextView line) {
  writeText(line);
  pending_ += "\r\n";
  if (pending_.size() >= 65536) flush();
}

void OutputFile::writeText(TextView text) {
  pending_ += toAnsi(text);
  if (pending_.size() >= 65536) flush();
}

void OutputFile::writeBytes(std::string_view bytes) {
  pending_.append(bytes);
  if (pending_.size() >= 65536) flush();
}

void OutputFile::flush() {
  size_t off = 0;
  while (off < pending_.size()) {
    ssize_t w =
        sys::write(handle_.fd(), pending_.data() + off, pending_.size() - off, path_.c_str());
    if (w < 0) {
      if (errno == EINTR) continue;
      int e = errno;
      pending_.clear();
      throw failureFromErrno(e);
    }
    off += size_t(w);
  }
  pending_.clear();
}

void OutputFile::close() {
  if (handle_.fd() < 0) return;
  flush();
  handle_.close();
}

void writeFileWhole(const std::string& path, std::string_view bytes, mode_t mode) {
  std::string tmp = path + ".~tmpXXXXXX";
  int fd = sys::mkostemp(tmp, O_CLOEXEC);
  if (fd < 0) throw errno == ENOENT ? Failure(err::PathNotFound) : failureFromErrno(errno);
  FileHandle h(fd);
  int error = 0;
  for (size_t off = 0; !error && off < bytes.size();) {
    ssize_t w = sys::write(fd, bytes.data() + off, bytes.size() - off, tmp.c_str());
    if (w < 0 && errno == EINTR) continue;
    if (w < 0)
      error = errno;
    else if (w == 0)
      error = EIO;
    else
      off += size_t(w);
  }
  if (!error && (::fchmod(fd, mode) != 0 || ::fsync(fd) != 0)) error = errno;
  try {
    h.close();
  } catch (const Failure&) {
    ::unlink(tmp.c_str());
    throw;
  }
  if (!error && sys::rename(tmp.c_str(), path.c_str()) != 0) error = errno;
  if (error) {
    ::unlink(tmp.c_str());
    throw failureFromErrno(error);
  }
}

bool replaceFileAtomically(const std::string& path, std::string_view bytes) {
  struct stat st;
  bool existed = ::stat(path.c_str(), &st) == 0;
  if (existed && (S_ISDIR(st.st_mode) || ::access(path.c_str(), W_OK) != 0)) return false;
  try {
    writeFileWhole(path, bytes, existed ? (st.st_mode & 07777) : 0644);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

}  // namespace zrk::platform
