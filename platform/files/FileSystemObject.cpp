// File-system object over POSIX calls, through the path resolver; folder trees go through the
// folder walks.
#include "platform/files/FileSystemObject.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include <zrkKVL/Failure.h>
#include "platform/files/FolderTree.h"
#include "platform/files/Paths.h"
#include "platform/files/SafeFile.h"
#include "platform/files/SysCalls.h"

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

TextView withoutTrailingSeparators(TextView path) {
  while (path.size() > 1 && isSeparator(path.back()))
    path.remove_suffix(1);
  return path;
}

// Whether two paths name one entry (links not followed).
bool sameEntry(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  return ::lstat(a.c_str(), &sa) == 0 && ::lstat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
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
  if (path.empty()) throw Failure(err::PathNotFound);
  removeFolderTree(nativePath(path), force);
}

void FileSystemObject::CopyFolder(TextView source, TextView destination, bool overwrite) const {
  if (source.empty()) throw Failure(err::PathNotFound);
  std::string dst = nativePath(destination);
  struct stat st;
  if (!overwrite && ::lstat(dst.c_str(), &st) == 0) throw Failure(err::FileAlreadyExists);
  copyFolderTree(nativePath(source), dst);
}

void FileSystemObject::MoveFolder(TextView source, TextView destination) const {
  if (source.empty() || destination.empty()) throw Failure(err::PathNotFound);
  TextView to = withoutTrailingSeparators(destination);
  std::string src = nativePath(source);
  std::string dst = nativePath(to);
  // The destination resolves to the source itself under other letters: the folder is renamed
  // to the letters written.
  Text written = fileNameOf(to);
  if (lastComponent(dst) != toUtf8(written) && sameEntry(src, dst)) {
    dst = folderOfPath(dst) + "/" + toUtf8(written);
  }
  moveFolderTree(src, dst);
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
