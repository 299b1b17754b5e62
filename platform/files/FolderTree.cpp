// Removing, copying and moving folder trees one name at a time below open folders.
#include "platform/files/FolderTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>
#include <string_view>

#include <zrkKVL/Failure.h>
#include "platform/files/SafeFile.h"

namespace zrk::platform {
namespace {

// How often one name that keeps changing under a walk is looked at again before the walk
// gives up: another process swapping entries can delay a walk, never keep it going.
constexpr int kMaxLooks = 10000;

// A missing folder is "path not found", as the platform object says it.
Failure folderFailure(int e) {
  if (e == ENOENT || e == ENOTDIR) return Failure(err::PathNotFound);
  return failureFromErrno(e);
}

[[noreturn]] void fail(int e) {
  throw folderFailure(e);
}

// A folder entry, opened without following a link; -1 with errno otherwise (ELOOP for a link).
int openFolderAt(int dirFd, const std::string& name) {
  return ::openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

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

// A path's folder, open, and its last component.
struct Place {
  FileHandle folder;
  std::string name;
  std::string shown;  // the path, for the fault seam
};

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

// Gives `name` the source's owner and group where this caller may (root always; others keep
// at least the group where they belong to it), then the mode, which a change of owner may
// have cut; a file of another owner that this caller may not change keeps its mode. A link
// has no mode of its own.
void keepOwnerAndMode(int dirFd, const std::string& name, const struct stat& source, mode_t mode) {
  const char* n = name.c_str();
  if (::fchownat(dirFd, n, source.st_uid, source.st_gid, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != EPERM) fail(errno);
    if (::fchownat(dirFd, n, uid_t(-1), source.st_gid, AT_SYMLINK_NOFOLLOW) != 0 &&
        errno != EPERM) {
      fail(errno);
    }
  }
  if (S_ISLNK(source.st_mode)) return;
  if (::fchmodat(dirFd, n, mode & 07777, AT_SYMLINK_NOFOLLOW) != 0 && errno != EPERM) fail(errno);
}

// The same for a folder held open.
void keepOwnerAndMode(int fd, const struct stat& source) {
  if (::fchown(fd, source.st_uid, source.st_gid) != 0) {
    if (errno != EPERM) fail(errno);
    if (::fchown(fd, uid_t(-1), source.st_gid) != 0 && errno != EPERM) fail(errno);
  }
  if (::fchmod(fd, source.st_mode & 07777) != 0) fail(errno);
}

// What a walk does at each entry of a tree.
class TreeVisitor {
 public:
  enum class Next { Go, LookAgain };  // LookAgain: the name changed under the walk
  virtual ~TreeVisitor() = default;
  // An entry that is no folder, as lstat saw it a moment ago.
  virtual Next entry(int dirFd, const std::string& name, const struct stat& st) = 0;
  // A folder just entered: the cursor stands in it.
  virtual void entered(const FolderCursor&, const std::string&) {}
  // A folder walked to its end, before the cursor leaves it (the top folder too).
  virtual void leaving(const FolderCursor&) {}
  // Back in the parent of the folder `name` just walked.
  virtual Next left(int, const std::string&) { return Next::Go; }
  // Whether a folder walked to its end is read again until it is found empty.
  virtual bool untilEmpty() const { return false; }
};

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

// Whether this caller may take entries out of the open folder.
bool canEmpty(int fd) {
  return ::faccessat(fd, ".", W_OK | X_OK, AT_EACCESS) == 0;
}

// A removal stays on the tree's own file system: a file system mounted inside it is no part of
// the tree, and could not be taken out of it anyway.
void stayOnFileSystem(const FolderCursor& at, dev_t top) {
  if (at.stat().st_dev != top) throw Failure(err::PathFileAccessError);
}

// Refuses a removal before anything goes: a read-only item without force, a folder this
// caller cannot empty in any case, a file system mounted inside the tree.
class RemovalCheck : public TreeVisitor {
 public:
  RemovalCheck(const FolderCursor& top, bool force) : force_(force), dev_(top.stat().st_dev) {
    check(top);
  }
  void check(const FolderCursor& at) const {
    stayOnFileSystem(at, dev_);
    if ((!force_ && isReadOnlyMode(at.stat().st_mode)) || !canEmpty(at.fd())) {
      throw Failure(err::PermissionDenied);
    }
  }
  void entered(const FolderCursor& at, const std::string&) override { check(at); }
  Next entry(int, const std::string&, const struct stat& st) override {
    if (!force_ && !S_ISLNK(st.st_mode) && isReadOnlyMode(st.st_mode)) {
      throw Failure(err::PermissionDenied);
    }
    return Next::Go;
  }

 private:
  bool force_;
  dev_t dev_;
};

// Removes every entry; a name that became a folder, or stopped being one, is looked at again.
class Removal : public TreeVisitor {
 public:
  explicit Removal(const FolderCursor& top) : dev_(top.stat().st_dev) {}
  void entered(const FolderCursor& at, const std::string&) override { stayOnFileSystem(at, dev_); }
  Next entry(int dirFd, const std::string& name, const struct stat&) override {
    if (::unlinkat(dirFd, name.c_str(), 0) == 0 || errno == ENOENT) return Next::Go;
    if (errno == EISDIR) return Next::LookAgain;
    fail(errno);
  }
  Next left(int dirFd, const std::string& name) override { return removeFolder(dirFd, name); }
  bool untilEmpty() const override { return true; }

  static Next removeFolder(int dirFd, const std::string& name) {
    if (::unlinkat(dirFd, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return Next::Go;
    if (errno == ENOTDIR || errno == ENOTEMPTY || errno == EEXIST) return Next::LookAgain;
    fail(errno);
  }

 private:
  dev_t dev_;
};

void removeAt(const Place& place, bool force) {
  int parent = place.folder.fd();
  for (int looks = 0; looks < kMaxLooks; ++looks) {
    std::optional<struct stat> st = statAt(parent, place.name);
    if (!st) fail(errno);
    if (S_ISLNK(st->st_mode)) {
      // A link to a folder goes as a link: the folder it names is no part of this one.
      struct stat target;
      if (::fstatat(parent, place.name.c_str(), &target, 0) != 0 || !S_ISDIR(target.st_mode)) {
        throw Failure(err::PathNotFound);
      }
      if (::unlinkat(parent, place.name.c_str(), 0) == 0 || errno == ENOENT) return;
      if (errno == EISDIR) continue;
      fail(errno);
    }
    if (!S_ISDIR(st->st_mode)) throw Failure(err::PathNotFound);
    if (!canEmpty(parent)) throw Failure(err::PermissionDenied);
    FileHandle top(openFolderAt(parent, place.name));
    if (top.fd() < 0) {
      if (errno == ELOOP || errno == ENOTDIR) continue;
      fail(errno);
    }
    FolderCursor at(std::move(top));
    RemovalCheck check(at, force);
    walkTree(at, check);
    Removal removal(at);
    walkTree(at, removal);
    if (Removal::removeFolder(parent, place.name) == TreeVisitor::Next::Go) return;
  }
  throw Failure(err::PathFileAccessError);
}

// A link made again in `toDir` with the same target, replacing a file or link of that name.
// Gives false when the source is no link any more.
bool copyLink(int fromDir, const std::string& name, const struct stat& st, int toDir,
              const std::string& toName) {
  std::string target(size_t(st.st_size > 0 ? st.st_size : PATH_MAX) + 1, '\0');
  ssize_t n = ::readlinkat(fromDir, name.c_str(), target.data(), target.size());
  if (n < 0 && errno == EINVAL) return false;
  if (n < 0) fail(errno);
  if (size_t(n) >= target.size()) return false;  // it changed since lstat
  target.resize(size_t(n));
  for (int looks = 0; looks < kMaxLooks; ++looks) {
    if (::symlinkat(target.c_str(), toDir, toName.c_str()) == 0) {
      keepOwnerAndMode(toDir, toName, st, 0);
      return true;
    }
    if (errno != EEXIST) fail(errno);
    std::optional<struct stat> old = statAt(toDir, toName);
    if (old && S_ISDIR(old->st_mode)) throw Failure(err::FileAlreadyExists);
    if (::unlinkat(toDir, toName.c_str(), 0) != 0 && errno != ENOENT) fail(errno);
  }
  throw Failure(err::PathFileAccessError);
}

// Copies into the folder a cursor holds.
class Copy : public TreeVisitor {
 public:
  Copy(FolderCursor& to, bool madeTop, std::string shownTop)
      : to_(to), made_{madeTop}, shown_(std::move(shownTop)) {}

  void entered(const FolderCursor&, const std::string& name) override {
    made_.push_back(enterFolder(name));
    shown_ += "/" + name;
  }

  // A folder made here takes the source's owner and mode only now: until its last file is in,
  // no one else can look into it.
  void leaving(const FolderCursor& from) override {
    if (made_.back()) keepOwnerAndMode(to_.fd(), from.stat());
    made_.pop_back();
    if (to_.depth() == 0) return;
    to_.up();
    shown_.resize(shown_.rfind('/'));
  }

  Next entry(int dirFd, const std::string& name, const struct stat& st) override {
    if (S_ISLNK(st.st_mode))
      return copyLink(dirFd, name, st, to_.fd(), name) ? Next::Go : Next::LookAgain;
    if (S_ISREG(st.st_mode)) return copyFile(dirFd, name);
    return Next::Go;  // a FIFO, socket or device holds no content to copy
  }

 private:
  // Makes the folder `name` (0700 until its copy is done) or enters the one there; a file or a
  // link in its place refuses the copy (58), nothing written through it.
  bool enterFolder(const std::string& name) {
    bool made = ::mkdirat(to_.fd(), name.c_str(), 0700) == 0;
    if (!made && errno != EEXIST) fail(errno);
    int e = to_.down(name);
    if (e == ELOOP || e == ENOTDIR) throw Failure(err::FileAlreadyExists);
    if (e != 0) fail(e);
    return made;
  }

  Next copyFile(int dirFd, const std::string& name) {
    FileHandle in(::openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (in.fd() < 0) {
      if (errno == ENOENT) return Next::Go;
      if (errno == ELOOP || errno == ENXIO) return Next::LookAgain;
      fail(errno);
    }
    struct stat st;
    if (::fstat(in.fd(), &st) != 0) fail(errno);
    if (!S_ISREG(st.st_mode)) return Next::LookAgain;
    std::string shown = shown_ + "/" + name;
    prepareTarget(name, st);
    {
      // The file rules write the content whole and synced; a target that exists keeps its
      // owner and mode through them. They work in the folder the cursor holds, so no path is
      // walked.
      FileReplacement out(to_.fd(), name, shown);
      std::string buf(1 << 16, '\0');
      for (;;) {
        ssize_t n = ::read(in.fd(), buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(errno);
        if (n == 0) break;
        out.write(std::string_view(buf.data(), size_t(n)));
      }
      out.commit();
    }
    keepOwnerAndMode(to_.fd(), name, st, st.st_mode);
    return Next::Go;
  }

  // A file of that name takes the source's owner and mode (writable by its owner until the
  // content is in) before its content is replaced. A new file is made by the file rules and
  // takes them after; in a folder this copy made no one else can see it meanwhile, but in one
  // that was there, where a new file would show more than the source lets others see, the
  // target is first made empty with the source's owner and mode. A folder, a special file or
  // a read-only file in its place refuses the copy.
  void prepareTarget(const std::string& name, const struct stat& source) {
    int dir = to_.fd();
    for (int looks = 0; looks < kMaxLooks; ++looks) {
      std::optional<struct stat> old = statAt(dir, name);
      if (old && S_ISLNK(old->st_mode)) {
        if (::unlinkat(dir, name.c_str(), 0) != 0 && errno != ENOENT) fail(errno);
        continue;
      }
      if (old && !S_ISREG(old->st_mode)) throw Failure(err::PathFileAccessError);
      if (old && isReadOnlyMode(old->st_mode)) throw Failure(err::PermissionDenied);
      if (!old) {
        if (made_.back() || !(newFileMode_ & ~source.st_mode & 0066)) return;
        int fd =
            ::openat(dir, name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0) fail(errno);
        ::close(fd);
      }
      keepOwnerAndMode(dir, name, source, source.st_mode | S_IWUSR);
      return;
    }
    throw Failure(err::PathFileAccessError);
  }

  FolderCursor& to_;
  std::vector<bool> made_;  // for each level, whether this copy made the folder
  std::string shown_;
  mode_t newFileMode_ = 0666 & ~currentUmask();
};

// Copies an open source folder into the place `to`.
void copyInto(FolderCursor& from, const Place& to) {
  int parent = to.folder.fd();
  if (isAtOrAbove(parent, NodeId::of(from.stat()))) throw Failure(err::InvalidCall);
  bool made = ::mkdirat(parent, to.name.c_str(), 0700) == 0;
  if (!made && errno != EEXIST) fail(errno);
  FileHandle top(openFolderAt(parent, to.name));
  if (top.fd() < 0) {
    if (errno == ELOOP || errno == ENOTDIR) throw Failure(err::FileAlreadyExists);
    fail(errno);
  }
  FolderCursor at(std::move(top));
  if (NodeId::of(at.stat()) == NodeId::of(from.stat())) throw Failure(err::InvalidCall);
  Copy copy(at, made, to.shown);
  walkTree(from, copy);
  // Each file was synced as it was written; the folders and links are made durable at once,
  // before a move removes the source.
  if (::syncfs(at.fd()) != 0) fail(errno);
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

// The folder at a place, opened; a link there is given as nullopt with its lstat in `st`.
std::optional<FolderCursor> openSource(const Place& place, struct stat& st) {
  for (int looks = 0; looks < kMaxLooks; ++looks) {
    st = folderEntry(place);
    if (S_ISLNK(st.st_mode)) return std::nullopt;
    FileHandle top(openFolderAt(place.folder.fd(), place.name));
    if (top.fd() >= 0) return FolderCursor(std::move(top));
    if (errno != ELOOP && errno != ENOTDIR) fail(errno);
  }
  throw Failure(err::PathFileAccessError);
}

void copyAt(const Place& from, const Place& to) {
  struct stat st;
  std::optional<FolderCursor> source = openSource(from, st);
  if (!source) {
    // A link given as the folder is copied as the link, as inside a tree.
    if (!copyLink(from.folder.fd(), from.name, st, to.folder.fd(), to.name)) {
      throw Failure(err::PathFileAccessError);
    }
    return;
  }
  copyInto(*source, to);
}

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
