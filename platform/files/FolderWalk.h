// What the removal, copy and move of folder trees share: the places they start from, the walk
// of a tree through a FolderCursor, and the failures they give.
#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/files/FolderTree.h"

namespace zrk::platform::tree {

// How often one name that keeps changing under a walk is looked at again before the walk
// gives up: another process swapping entries can delay a walk, never keep it going.
inline constexpr int kMaxLooks = 10000;

// Throws the failure for the system's error `e`; a missing folder is "path not found", as the
// platform object says it.
[[noreturn]] void fail(int e);

// A folder entry, opened without following a link; -1 with errno otherwise (ELOOP for a link).
int openFolderAt(int dirFd, const std::string& name);

// A path's folder, open, and its last component.
struct Place {
  FileHandle folder;
  std::string name;
  std::string shown;  // the path, for the fault seam
};

// The folder of `path`, open, and its last component; 52 for a last component that names no
// entry ("", "." or "..").
Place placeOf(const std::string& path);

// Whether the folder `id` is the folder `dirFd` or one above it, found through ".." so that
// no path and no link can hide it.
bool isAtOrAbove(int dirFd, NodeId id);

// What lstat says of the folder at a place: a folder, or a link to one (76 otherwise).
struct stat folderEntry(const Place& place);

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
void walkTree(FolderCursor& at, TreeVisitor& visitor);

// Removes the folder at a place with all it holds (removeFolderTree).
void removeAt(const Place& place, bool force);

// Copies the folder at `from`, or the link to one there, to `to` (copyFolderTree).
void copyAt(const Place& from, const Place& to);

}  // namespace zrk::platform::tree
