// Folder trees removed, copied and moved through folder descriptors: every name is looked up one
// component at a time below an open folder and no link is followed, so a link swapped in for a
// folder at any moment is removed or copied as a link and never entered, and a tree deeper than
// the longest path the system takes is walked like any other.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/files/FileIO.h"

namespace zrk::platform {

// What tells one folder from every other: its device and inode.
struct NodeId {
  dev_t dev = 0;
  ino_t ino = 0;
  static NodeId of(const struct stat& st) { return {st.st_dev, st.st_ino}; }
  bool operator==(const NodeId&) const = default;
};

// A place in a folder tree, held by descriptors. down() enters a child folder without following
// a link; up() goes back to the parent and checks that it is the folder the walk came from. The
// upper levels keep their descriptors, deeper ones are opened again through "..", so a walk
// holds a bounded number of descriptors however deep it goes.
class FolderCursor {
 public:
  static constexpr size_t kHeldLevels = 64;

  // Starts at an open folder, taking its descriptor.
  explicit FolderCursor(FileHandle top);
  int fd() const;
  size_t depth() const { return ids_.size() - 1; }
  // Enters the child folder `name`; gives 0, or the errno when it is no folder now (ELOOP or
  // ENOTDIR for a link or a file in its place, ENOENT when it went).
  int down(const std::string& name);
  // Back to the parent; Failure 75 when the folder was moved elsewhere meanwhile.
  void up();
  // What fstat said of the current folder when it was entered.
  const struct stat& stat() const { return stats_.back(); }

 private:
  std::vector<FileHandle> held_;  // the descriptors of the first kHeldLevels levels
  FileHandle deep_;               // the current folder's, when it lies deeper
  std::vector<NodeId> ids_;       // each level's folder, from the top
  std::vector<struct stat> stats_;
};

// Removes the folder at `path` with all it holds; a link at the path, or anywhere inside, is
// removed as a link. Without `force` a read-only item refuses the whole removal (70) and so
// does, with or without force, a folder this caller cannot empty; the tree is checked first,
// so a refusal removes nothing. A missing folder is 76; a file system mounted inside the tree
// refuses the removal (75), its content untouched.
void removeFolderTree(const std::string& path, bool force);

// Copies the folder at `from` to `to` with all it holds, making `to` when missing and merging
// into it when it exists (files of the same name replaced, a read-only one refusing with 70).
// Files are written whole and synced by the library's file rules; owner and group are kept
// where this caller may set them (root always), modes always; links are copied as links.
// FIFOs, sockets and devices are left out: they hold no content and are not copied. A copy
// into the folder itself or into a folder inside it is refused (5) before anything changes.
// Folders it makes stay 0700 until their content is in, so a copy killed half way shows
// nothing to others; each file in it is whole, save that in a folder that was there already a
// file whose source others may see less of than a new file shows is made empty, with the
// source's owner and mode, before its content goes in.
void copyFolderTree(const std::string& from, const std::string& to);

// Moves the folder at `from` to `to`: one rename when `to` does not exist on the same file
// system, a copy and a removal of the source otherwise (a merge into an existing folder, or
// another file system). `to` naming the same folder in other letter case renames it to the
// letters written. A move into the folder itself or a folder inside it is refused (5).
void moveFolderTree(const std::string& from, const std::string& to);

}  // namespace zrk::platform
