// Free file numbers and the open modes over POSIX descriptors.
#include "platform/files/FileIO.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <cstring>
#include <mutex>

#include <zrkKVL/Failure.h>
#include "platform/files/HugePages.h"
#include "platform/files/Paths.h"
#include "platform/files/SysCalls.h"
#include "platform/text/CodePage.h"

namespace zrk::platform {
namespace {

constexpr int kMaxFileNumber = 511;
std::mutex gNumbersMutex;
std::bitset<kMaxFileNumber + 1> gNumbersInUse;

// Failure for a read open that did not succeed, the way the runtime words it.
Failure openFailure(int e) {
  if (e == ENOENT) return Failure(err::FileNotFound);
  if (e == EISDIR || e == ENXIO) return Failure(err::PathFileAccessError);
  return failureFromErrno(e);
}

// Reads into `dst` until its `room` is full or the file ends; gives the count read.
size_t readUpTo(int fd, char* dst, size_t room) {
  ssize_t n = sys::readAll(fd, dst, room, sys::kAtPosition);
  if (n < 0) throw failureFromErrno(errno);
  return size_t(n);
}

size_t pageSize() {
  static const size_t size = size_t(::sysconf(_SC_PAGESIZE));
  return size;
}

size_t roundUpToPage(size_t n) {
  return (n + pageSize() - 1) / pageSize() * pageSize();
}

std::string checkedNativePath(TextView path) {
  if (path.empty()) throw Failure(err::BadFileNameOrNumber);
  return nativePath(path);
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
  return readNativeBytes(checkedNativePath(path));
}

FileHandle openForReading(const std::string& p, struct stat& st) {
  int fd = openRegularFile(p, O_RDONLY | O_CLOEXEC, 0, st);
  if (fd < 0) throw openFailure(errno);
  return FileHandle(fd);
}

FileBytes readToEnd(int fd, size_t stated) {
  // One byte more than stated, so the end of the file shows without a second buffer.
  size_t room = stated + 1;
  FileBytes b{std::make_unique_for_overwrite<char[]>(room), 0};
  for (;;) {
    b.size += readUpTo(fd, b.data.get() + b.size, room - b.size);
    if (b.size < room) return b;
    // The file grew, or states no size: twice the room, and read on.
    auto bigger = std::make_unique_for_overwrite<char[]>(room * 2);
    std::memcpy(bigger.get(), b.data.get(), b.size);
    b.data = std::move(bigger);
    room *= 2;
  }
}

std::string readNativeBytes(const std::string& path) {
  struct stat st;
  FileHandle h = openForReading(path, st);
  return std::string(readToEnd(h.fd(), statedSize(st)).view());
}

FileImage::FileImage(TextView path) {
  struct stat st;
  FileHandle h = openForReading(checkedNativePath(path), st);
  size_t stated = statedSize(st);
  // Room for one byte more than stated, so the end of the file shows without a second buffer.
  mapped_ = roundUpToPage(stated + 1);
  void* p = ::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) throw Failure(err::OutOfMemory);
  base_ = static_cast<char*>(p);
  adviseHugePages(base_, mapped_);
  try {
    for (;;) {
      size_ += readUpTo(h.fd(), base_ + size_, mapped_ - size_);
      if (size_ < mapped_) break;
      // The file grew, or states no size: twice the room, and read on.
      p = ::mremap(base_, mapped_, mapped_ * 2, MREMAP_MAYMOVE);
      if (p == MAP_FAILED) throw Failure(err::OutOfMemory);
      base_ = static_cast<char*>(p);
      mapped_ *= 2;
    }
  } catch (...) {
    ::munmap(base_, mapped_);
    throw;
  }
}

FileImage::~FileImage() {
  if (base_) ::munmap(base_ + released_, mapped_ - released_);
}

void FileImage::release(size_t offset) {
  size_t upTo = std::min(offset, size_) / pageSize() * pageSize();
  if (upTo <= released_) return;
  ::munmap(base_ + released_, upTo - released_);
  released_ = upTo;
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

OutputFile::OutputFile(TextView path, Mode mode) : path_(checkedNativePath(path)) {
  if (mode == Mode::Append) {
    handle_ = FileHandle(openForAppend(path_));
    struct stat st;
    if (::fstat(handle_.fd(), &st) != 0) throw failureFromErrno(errno);
    appendStart_ = st.st_size;
  } else {
    replacement_.emplace(path_, FileReplacement::Links::Follow);
  }
}

OutputFile::~OutputFile() {
  if (replacement_) return;  // an output open that was not closed puts nothing in place
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
  if (bytes.size() >= 65536) {  // a large piece goes out as it stands, without a copy
    flush();
    writeOut(bytes);
    return;
  }
  pending_.append(bytes);
  if (pending_.size() >= 65536) flush();
}

void OutputFile::flush() {
  std::string bytes = std::move(pending_);
  pending_.clear();
  writeOut(bytes);
}

void OutputFile::writeOut(std::string_view bytes) {
  if (broken_) throw Failure(err::DeviceIOError);
  try {
    if (replacement_) {
      replacement_->write(bytes);
      return;
    }
    if (int e = sys::writeAll(handle_.fd(), bytes, sys::kAtPosition, path_.c_str())) {
      throw failureFromErrno(e);
    }
  } catch (const Failure&) {
    broken_ = true;
    cutAppendBack();
    throw;
  }
}

// An append that failed leaves the file at the length it had when the append began, not with
// part of a line behind it.
void OutputFile::cutAppendBack() {
  if (replacement_ || handle_.fd() < 0) return;
  while (::ftruncate(handle_.fd(), appendStart_) != 0 && errno == EINTR) {
  }
}

void OutputFile::close() {
  if (broken_) return;
  if (replacement_) {
    flush();
    try {
      replacement_->commit();
    } catch (const Failure&) {
      broken_ = true;
      throw;
    }
    replacement_.reset();
    return;
  }
  if (handle_.fd() < 0) return;
  flush();
  handle_.close();
}

}  // namespace zrk::platform
