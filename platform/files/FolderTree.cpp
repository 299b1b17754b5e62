// The walk of folder trees one name at a time below open folders, the places it starts from,
// and the move of a tree, by one rename or by a copy and a removal.
#include "platform/files/FolderTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>

#include <zrkKVL/Failure.h>
#include "platform/files/FolderWalk.h"
#include "platform/files/SafeFile.h"

namespace zrk::platform {
namespace tree {
namespace {

// The names a folder holds, last name first, so that taking them from the back goes in order.
std::vector<std::string> namesIn(int dirFd) {
  int fd = ::openat(dirFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* d = fd < 0 ? nullptr : ::fdopendir(fd);
  if (!d) {
    int e = errno;
    if (fd >= 0) ::close(fd);
    fail(e);
  }
  std::vector<std::string> names;
  errno = 0;
  while (dirent* e = ::readdir(d)) {
    std::string_view n = e->d_name;
    if (n != "." && n != "..") names.emplace_back(n);
  }
  int e = errno;
  ::closedir(d);
  if (e != 0) fail(e);
  std::sort(names.begin(), names.end(), std::greater<>());
  return names;
}

}  // namespace

// A missing folder is "path not found", as the platform object says it.
Failure folderFailure(int e) {
  if (e == ENOENT || e == ENOTDIR) return Failure(err::PathNotFound);
  return failureFromErrno(e);
}

void fail(int e) {
  throw folderFailure(e);
}

// A folder entry, opened without following a link; -1 with errno otherwise (ELOOP for a link).
int openFolderAt(int dirFd, const std::string& name) {
  return ::openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

Place placeOf(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/')
    p.pop_back();
  Place place{FileHandle(), lastComponent(p), p};
  if (place.name.empty() || place.name == "." || place.name == "..") {
    throw Failure(err::BadFileNameOrNumber);
  }
  std::string folder = folderOfPath(p);
  place.folder = FileHandle(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (place.folder.fd() < 0) fail(errno);
  return place;
}

// Whether the folder `id` is the folder `dirFd` or one above it, found through ".." so that
// no path and no link can hide it.
bool isAtOrAbove(int dirFd, NodeId id) {
  FileHandle at(::openat(dirFd, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat st;
  if (at.fd() < 0 || ::fstat(at.fd(), &st) != 0) fail(errno);
  for (;;) {
    if (NodeId::of(st) == id) return true;
    FileHandle up(::openat(at.fd(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat upSt;
    if (up.fd() < 0 || ::fstat(up.fd(), &upSt) != 0) fail(errno);
    if (NodeId::of(upSt) == NodeId::of(st)) return false;  // the top of the file system
    at = std::move(up);
    st = upSt;
  }
}

// What lstat says of the folder at a place: a folder, or a link to one (76 otherwise).
struct stat folderEntry(const Place& place) {
  std::optional<struct stat> st = statAt(place.folder.fd(), place.name);
  if (!st) fail(errno);
  struct stat target;
  bool folder =
      S_ISDIR(st->st_mode) ||
      (S_ISLNK(st->st_mode) && ::fstatat(place.folder.fd(), place.name.c_str(), &target, 0) == 0 &&
       S_ISDIR(target.st_mode));
  if (!folder) throw Failure(err::PathNotFound);
  return *st;
}

// Walks the tree below the cursor's folder depth first, each folder's entries in name order.
// A folder is entered only through the cursor, so a link in its place is never followed: the
// name is looked at again and reaches the visitor as what it is now.
void walkTree(FolderCursor& at, TreeVisitor& visitor) {
  struct Level {
    std::vector<std::string> todo;
    std::string name;  // of this folder in its parent
  };
  std::vector<Level> levels;
  levels.push_back({namesIn(at.fd()), ""});
  int looks = 0;
  auto lookAgain = [&](std::string name) {
    if (++looks > kMaxLooks) throw Failure(err::PathFileAccessError);
    levels.back().todo.push_back(std::move(name));
  };
  for (;;) {
    if (levels.back().todo.empty()) {
      if (visitor.untilEmpty()) {
        levels.back().todo = namesIn(at.fd());
        if (!levels.back().todo.empty()) {
          if (++looks > kMaxLooks) throw Failure(err::PathFileAccessError);
          continue;
        }
      }
      visitor.leaving(at);
      if (levels.size() == 1) return;
      std::string name = std::move(levels.back().name);
      levels.pop_back();
      at.up();
      if (visitor.left(at.fd(), name) == TreeVisitor::Next::LookAgain) lookAgain(name);
      continue;
    }
    std::string name = std::move(levels.back().todo.back());
    levels.back().todo.pop_back();
    std::optional<struct stat> st = statAt(at.fd(), name);
    if (!st) {
      if (errno == ENOENT) continue;  // gone meanwhile
      fail(errno);
    }
    if (!S_ISDIR(st->st_mode)) {
      if (visitor.entry(at.fd(), name, *st) == TreeVisitor::Next::LookAgain) lookAgain(name);
      continue;
    }
    int e = at.down(name);
    if (e == ENOENT) continue;
    if (e == ELOOP || e == ENOTDIR) {
      lookAgain(name);
      continue;
    }
    if (e != 0) fail(e);
    visitor.entered(at, name);
    levels.push_back({namesIn(at.fd()), name});
  }
}

}  // namespace tree

using tree::copyAt;
using tree::fail;
using tree::folderEntry;
using tree::isAtOrAbove;
using tree::openFolderAt;
using tree::Place;
using tree::placeOf;
using tree::removeAt;

namespace {

void syncFolder(int fd) {
  if (::fsync(fd) != 0 && errno != EINVAL) fail(errno);
}

// Renames an entry, durably; false with errno when it was not renamed. A file system that
// cannot refuse to replace (EINVAL) gets a plain rename to a name found free a moment ago.
bool renameEntry(const Place& from, const Place& to, bool noReplace) {
  int a = from.folder.fd(), b = to.folder.fd();
  const char *f = from.name.c_str(), *t = to.name.c_str();
  int r = ::renameat2(a, f, b, t, noReplace ? RENAME_NOREPLACE : 0);
  if (r != 0 && errno == EINVAL && noReplace) r = ::renameat(a, f, b, t);
  if (r != 0) return false;
  syncFolder(b);
  syncFolder(a);
  return true;
}

}  // namespace

FolderCursor::FolderCursor(FileHandle top) {
  struct stat st;
  if (::fstat(top.fd(), &st) != 0) fail(errno);
  ids_.push_back(NodeId::of(st));
  stats_.push_back(st);
  held_.push_back(std::move(top));
}

int FolderCursor::fd() const {
  return depth() < kHeldLevels ? held_[depth()].fd() : deep_.fd();
}

int FolderCursor::down(const std::string& name) {
  FileHandle child(openFolderAt(fd(), name));
  struct stat st;
  if (child.fd() < 0 || ::fstat(child.fd(), &st) != 0) return errno;
  ids_.push_back(NodeId::of(st));
  stats_.push_back(st);
  if (depth() < kHeldLevels) {
    held_.push_back(std::move(child));
  } else {
    deep_ = std::move(child);
  }
  return 0;
}

void FolderCursor::up() {
  size_t d = depth();
  if (d < kHeldLevels) {
    held_.pop_back();
  } else if (d - 1 < kHeldLevels) {
    deep_ = FileHandle();
  } else {
    FileHandle parent(::openat(deep_.fd(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat st;
    if (parent.fd() < 0 || ::fstat(parent.fd(), &st) != 0) fail(errno);
    // The folder was moved away meanwhile: its parent now is no folder of this walk.
    if (NodeId::of(st) != ids_[d - 1]) throw Failure(err::PathFileAccessError);
    deep_ = std::move(parent);
  }
  ids_.pop_back();
  stats_.pop_back();
}

void removeFolderTree(const std::string& path, bool force) {
  removeAt(placeOf(path), force);
}

void copyFolderTree(const std::string& from, const std::string& to) {
  copyAt(placeOf(from), placeOf(to));
}

void moveFolderTree(const std::string& from, const std::string& to) {
  Place src = placeOf(from);
  Place dst = placeOf(to);
  struct stat st = folderEntry(src);
  if (S_ISDIR(st.st_mode) && isAtOrAbove(dst.folder.fd(), NodeId::of(st))) {
    throw Failure(err::InvalidCall);
  }
  std::optional<struct stat> there = statAt(dst.folder.fd(), dst.name);
  bool sameEntry = there && NodeId::of(*there) == NodeId::of(st);
  if (!there || sameEntry) {
    // One rename: to a free name, or to the letters written where the file system takes
    // both spellings for one name. Nothing is copied, so nothing can be half done.
    if (renameEntry(src, dst, !sameEntry)) return;
    if (errno != EXDEV && errno != EEXIST) fail(errno);
  }
  copyAt(src, dst);
  removeAt(src, false);
}

}  // namespace zrk::platform
