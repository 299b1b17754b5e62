// File-system object over POSIX calls, through the path resolver.
#include "platform/FileSystemObject.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>

#include <zrkKVL/Failure.h>
#include "platform/FileIO.h"
#include "platform/Paths.h"
#include "platform/SafeFile.h"
#include "platform/SysCalls.h"

namespace zrk::platform {
namespace {

bool statPath(const std::string& p, struct stat& st) {
  return ::stat(p.c_str(), &st) == 0;
}

bool isReadOnly(const struct stat& st) {
  return isReadOnlyMode(st.st_mode);
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

// Whether this caller can remove what the folder holds.
bool canEmpty(const std::string& dir) {
  return ::access(dir.c_str(), W_OK | X_OK) == 0;
}

// Read-only content (a file or folder without any write bit) refuses a deletion without force,
// as the platform object does, and so does a folder this caller cannot empty. The check runs
// over the whole tree first so that nothing is removed on a refusal. Links are not followed.
void checkDeletable(const std::string& dir, bool force) {
  struct stat st;
  if (::lstat(dir.c_str(), &st) != 0) failErrno();
  if ((!force && isReadOnly(st)) || !canEmpty(dir)) throw Failure(err::PermissionDenied);
  for (const auto& n : entriesOf(dir)) {
    std::string p = dir + "/" + n;
    if (::lstat(p.c_str(), &st) != 0) failErrno();
    if (S_ISDIR(st.st_mode)) {
      checkDeletable(p, force);
    } else if (!force && !S_ISLNK(st.st_mode) && isReadOnly(st)) {
      throw Failure(err::PermissionDenied);
    }
  }
}

// Removes the tree; a link inside it is removed as a link, never followed.
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

// Copies a file's bytes by the writers' rules: a file of that name is replaced whole, a link
// standing there is replaced too, never written through.
void copyFile(const std::string& from, const std::string& to) {
  FileHandle in(sys::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (in.fd() < 0) failErrno();
  FileReplacement out(to, FileReplacement::Links::Replace);
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(in.fd(), buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) failErrno();
    if (n == 0) break;
    out.write(std::string_view(buf, size_t(n)));
  }
  out.commit();
}

// A link is copied as a link: what it points to is not copied, so a link to a folder above or
// a loop of links costs nothing.
void copyLink(const std::string& from, const std::string& to) {
  std::string target(PATH_MAX, '\0');
  ssize_t n = ::readlink(from.c_str(), target.data(), target.size());
  if (n < 0) failErrno();
  target.resize(size_t(n));
  struct stat st;
  if (::lstat(to.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) throw Failure(err::FileAlreadyExists);
    if (sys::unlink(to.c_str()) != 0) failErrno();
  }
  if (::symlink(target.c_str(), to.c_str()) != 0) failErrno();
}

void copyTree(const std::string& from, const std::string& to) {
  struct stat st;
  if (::lstat(to.c_str(), &st) != 0) {
    if (sys::mkdir(to.c_str(), 0777) != 0) failErrno();
  } else if (!S_ISDIR(st.st_mode)) {
    throw Failure(err::FileAlreadyExists);
  }
  for (const auto& n : entriesOf(from)) {
    std::string src = from + "/" + n, dst = to + "/" + n;
    if (::lstat(src.c_str(), &st) != 0) failErrno();
    if (S_ISDIR(st.st_mode)) {
      copyTree(src, dst);
    } else if (S_ISLNK(st.st_mode)) {
      copyLink(src, dst);
    } else {
      copyFile(src, dst);
    }
  }
}

}  // namespace

bool FileSystemObject::FileExists(TextView path) const {
  return !path.empty() && FileExists(ResolvedPath::of(path));
}

bool FileSystemObject::FileExists(const ResolvedPath& path) const {
  return path.found && !path.isFolder();
}

bool FileSystemObject::FolderExists(TextView path) const {
  struct stat st;
  return !path.empty() && statPath(nativePath(path), st) && S_ISDIR(st.st_mode);
}

void FileSystemObject::CreateFolder(TextView path) const {
  if (path.empty()) throw Failure(err::BadFileNameOrNumber);
  std::string p = nativePath(path);
  if (sys::mkdir(p.c_str(), 0777) != 0) {
    throw Failure(errno == ENOENT ? err::PathNotFound : failureFromErrno(errno).number());
  }
}

void FileSystemObject::DeleteFolder(TextView path, bool force) const {
  std::string p = nativePath(path);
  struct stat st;
  if (path.empty() || !statPath(p, st) || !S_ISDIR(st.st_mode)) throw Failure(err::PathNotFound);
  while (p.size() > 1 && p.back() == '/')
    p.pop_back();
  if (::lstat(p.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    // A link to a folder goes as a link: the folder it names is no part of this one.
    if (sys::unlink(p.c_str()) != 0) failErrno();
    return;
  }
  if (!canEmpty(folderOfPath(p))) throw Failure(err::PermissionDenied);
  checkDeletable(p, force);
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
  struct stat st;
  if (::stat(p.c_str(), &st) == 0 && !S_ISDIR(st.st_mode) && isReadOnly(st)) {
    throw Failure(err::PermissionDenied);
  }
  int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (overwrite ? 0 : O_EXCL);
  int fd = sys::open(p.c_str(), flags, 0666);
  if (fd < 0) {
    throw Failure(errno == ENOENT ? err::PathNotFound : failureFromErrno(errno).number());
  }
  ::close(fd);
}

}  // namespace zrk::platform
