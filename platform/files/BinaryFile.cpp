// Binary opens over POSIX descriptors, through the path resolver.
#include "platform/files/BinaryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <zrkKVL/Failure.h>
#include "platform/files/Paths.h"
#include "platform/files/SafeFile.h"
#include "platform/files/SysCalls.h"

namespace zrk::platform {
namespace {

int openBinary(const std::string& p) {
  struct stat st;
  bool exists = ::stat(p.c_str(), &st) == 0;
  // A read-only file is opened for reading, whoever the caller is.
  bool readOnly = exists && S_ISREG(st.st_mode) && isReadOnlyMode(st.st_mode);
  int fd = readOnly ? -1 : openRegularFile(p, O_RDWR | O_CREAT | O_CLOEXEC, 0666, st);
  if (fd < 0 && (readOnly || errno == EACCES || errno == EROFS || errno == EPERM)) {
    fd = openRegularFile(p, O_RDONLY | O_CLOEXEC, 0, st);
  }
  if (fd < 0) {
    if (errno == EISDIR || errno == ENXIO) throw Failure(err::PathFileAccessError);
    throw errno == ENOENT ? Failure(err::PathNotFound) : failureFromErrno(errno);
  }
  return fd;
}

std::string checkedPath(TextView path) {
  if (path.empty()) throw Failure(err::BadFileNameOrNumber);
  return nativePath(path);
}

}  // namespace

BinaryFile::BinaryFile(TextView path) : path_(checkedPath(path)), handle_(openBinary(path_)) {}

void BinaryFile::readAt(int64_t position, std::string& into) {
  if (position < 1) throw failureFromErrno(EINVAL);  // as a read before the file's start
  // Bytes past the end of the file stay as they were.
  if (sys::readAll(handle_.fd(), into.data(), into.size(), off_t(position - 1)) < 0)
    throw failureFromErrno(errno);
}

void BinaryFile::writeAt(int64_t position, std::string_view bytes) {
  if (position < 1) throw failureFromErrno(EINVAL);  // as a write before the file's start
  // A file opened for reading only refuses the write as a read-only file does.
  if (int e = sys::writeAll(handle_.fd(), bytes, off_t(position - 1), path_.c_str())) {
    throw failureFromErrno(e == EBADF ? EACCES : e);
  }
}

}  // namespace zrk::platform
