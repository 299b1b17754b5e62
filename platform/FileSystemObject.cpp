// File-system object over POSIX calls, through the path resolver.
#include "platform/FileSystemObject.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include <zrkKVL/Failure.h>
#include "platform/Paths.h"
#include "platform/SysCalls.h"

namespace zrk::platform {
namespace {

bool statPath(const std::string& p, struct stat& st) {
  return ::stat(p.c_str(), &st) == 0;
}

bool isReadOnly(const struct stat& st) {
  return (st.st_mode & S_IWUSR) == 0;
}

[[noreturn]] void failErrno() {
  throw failureFromErrno(errno);
}

std::vector<std::string> entriesOf(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = ::opendir(dir.c_str());
  if (!d) failErrno();
  while (dirent* e = ::readdir(d)) {
    std::string n = e->d_name;
    if (n != "." && n != "..") names.push_back(std::move(n));
  }
  ::closedir(d);
  std::sort(names.begin(), names.end());
  return names;
}

// Read-only content refuses a deletion without force, as the platform object does; the check
// runs over the whole tree first so that nothing is removed on a refusal.
void checkDeletable(const std::string& dir) {
  for (const auto& n : entriesOf(dir)) {
    std::string p = dir + "/" + n;
    struct stat st;
    if (::lstat(p.c_str(), &st) != 0) failErrno();
    if (S_ISDIR(st.st_mode)) {
      checkDeletable(p);
    } else if (isReadOnly(st)) {
      throw Failure(err::PermissionDenied);
    }
  }
}

void removeTree(const std::string& dir) {
  for (const auto& n : entriesOf(dir)) {
    std::string p = dir + "/" + n;
    struct stat st;
    if (::lstat(p.c_str(), &st) != 0) failErrno();
    if (S_ISDIR(st.st_mode)) {
      removeTree(p);
    } else if (sys::unlink(p.c_str()) != 0) {
      failErrno();
    }
  }
  if (sys::rmdir(dir.c_str()) != 0) failErrno();
}

void copyFile(const std::string& from, const std::string& to) {
  int in = sys::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) failErrno();
  int out = sys::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (out < 0) {
    int e = errno;
    ::close(in);
    throw failureFromErrno(e);
  }
  char buf[65536];
  ssize_t n;
  int e = 0;
  while ((n = ::read(in, buf, sizeof buf)) > 0) {
    for (ssize_t off = 0; off < n;) {
      ssize_t w = sys::write(out, buf + off, size_t(n - off), to.c_str());
      if (w < 0) {
        e = errno;
        break;
      }
      off += w;
    }
    if (e) break;
  }
  if (n < 0) e = errno;
  ::close(in);
  if (::close(out) != 0 && !e) e = errno;
  if (e) throw failureFromErrno(e);
}

void copyTree(const std::string& from, const std::string& to) {
  struct stat st;
  if (!statPath(to, st)) {
    if (sys::mkdir(to.c_str(), 0755) != 0) failErrno();
  } else if (!S_ISDIR(st.st_mode)) {
    throw Failure(err::FileAlreadyExists);
  }
  for (const auto& n : entriesOf(from)) {
    std::string src = from + "/" + n, dst = to + "/" + n;
    if (!statPath(src, st)) failErrno();
    if (S_ISDIR(st.st_mode)) {
      copyTree(src, dst);
    } else {
      copyFile(src, dst);
    }
  }
}

}  // namespace

bool FileSystemObject::FileExists(TextView path) const {
  struct stat st;
  return !path.empty() && statPath(nativePath(path), st) && !S_ISDIR(st.st_mode);
}

bool FileSystemObject::FolderExists(TextView path) const {
  struct stat st;
  return !path.empty() && statPath(nativePath(path), st) && S_ISDIR(st.st_mode);
}

void FileSystemObject::CreateFolder(TextView path) const {
  if (path.empty()) throw Failure(err::BadFileNameOrNumber);
  std::string p = nativePath(path);
  if (sys::mkdir(p.c_str(), 0755) != 0) {
    throw Failure(errno == ENOENT ? err::PathNotFound : failureFromErrno(errno).number());
  }
}

void FileSystemObject::DeleteFolder(TextView path, bool force) const {
  std::string p = nativePath(path);
  struct stat st;
  if (path.empty() || !statPath(p, st) || !S_ISDIR(st.st_mode)) throw Failure(err::PathNotFound);
  if (!force) checkDeletable(p);
  removeTree(p);
}

void FileSystemObject::CopyFolder(TextView source, TextView destination, bool overwrite) const {
  std::string src = nativePath(source);
  struct stat st;
  if (source.empty() || !statPath(src, st) || !S_ISDIR(st.st_mode))
    throw Failure(err::PathNotFound);
  std::string dst = nativePath(destination);
  if (!overwrite && statPath(dst, st)) throw Failure(err::FileAlreadyExists);
  copyTree(src, dst);
}

void FileSystemObject::DeleteFile(TextView path, bool force) const {
  std::string p = nativePath(path);
  struct stat st;
  if (path.empty() || !statPath(p, st) || S_ISDIR(st.st_mode)) throw Failure(err::FileNotFound);
  if (!force && isReadOnly(st)) throw Failure(err::PermissionDenied);
  if (sys::unlink(p.c_str()) != 0) failErrno();
}

FileInfo FileSystemObject::GetFile(TextView path) const {
  std::string p = nativePath(path);
  struct stat st;
  if (path.empty() || !statPath(p, st) || S_ISDIR(st.st_mode)) throw Failure(err::FileNotFound);
  return FileInfo{int64_t(st.st_size), parentOf(path), fileNameOf(path), isReadOnly(st)};
}

FolderInfo FileSystemObject::GetFolder(TextView path) const {
  std::string p = nativePath(path);
  struct stat st;
  if (path.empty() || !statPath(p, st) || !S_ISDIR(st.st_mode)) throw Failure(err::PathNotFound);
  FolderInfo info{Text(path), {}};
  for (const auto& n : entriesOf(p)) {
    if (statPath(p + "/" + n, st) && !S_ISDIR(st.st_mode)) info.FileNames.push_back(fromUtf8(n));
  }
  return info;
}

Text FileSystemObject::GetFileVersion(TextView path) const {
  // A shared object carries its version in its name (libX.so.1.4.1); other files have none.
  Text name = fileNameOf(path);
  size_t so = name.rfind(u".so.");
  if (so == Text::npos) return Text();
  Text v = name.substr(so + 4);
  for (char16_t c : v) {
    if (!(c == u'.' || (c >= u'0' && c <= u'9'))) return Text();
  }
  return v;
}

void FileSystemObject::CreateTextFile(TextView path, bool overwrite) const {
  if (path.empty()) throw Failure(err::BadFileNameOrNumber);
  std::string p = nativePath(path);
  int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (overwrite ? 0 : O_EXCL);
  int fd = sys::open(p.c_str(), flags, 0644);
  if (fd < 0) {
    throw Failure(errno == ENOENT ? err::PathNotFound : failureFromErrno(errno).number());
  }
  ::close(fd);
}

}  // namespace zrk::platform
