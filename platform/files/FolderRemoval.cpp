// Removing a folder tree: checked whole first, then emptied one name at a time.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <zrkKVL/Failure.h>
#include "platform/files/FolderWalk.h"
#include "platform/files/SafeFile.h"

namespace zrk::platform::tree {
namespace {

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

}  // namespace

void removeAt(const Place& place, bool force) {
  int parent = place.folder.fd();
  for (int looks = 0; looks < kMaxLooks; ++looks) {
    if (S_ISLNK(folderEntry(place).st_mode)) {
      // A link to a folder goes as a link: the folder it names is no part of this one.
      if (::unlinkat(parent, place.name.c_str(), 0) == 0 || errno == ENOENT) return;
      if (errno == EISDIR) continue;
      fail(errno);
    }
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

}  // namespace zrk::platform::tree
