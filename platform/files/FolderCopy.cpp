// Copying a folder tree: folders made private until their content is in, files written whole
// by the file rules, links made again, owners and modes kept where this caller may.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>

#include <zrkKVL/Failure.h>
#include "platform/files/FolderWalk.h"
#include "platform/files/SafeFile.h"

namespace zrk::platform::tree {
namespace {

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

}  // namespace

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

}  // namespace zrk::platform::tree
