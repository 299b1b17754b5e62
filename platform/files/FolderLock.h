// The one lock of the library's read-modify-write transactions: an exclusive lock on a folder,
// held across processes and threads, and taken again freely by the thread that holds it.
#pragma once

#include <sys/types.h>

#include <string>

#include <zrkKVL/Text.h>

namespace zrk::platform {

// An exclusive advisory lock (flock) on a folder, held for the object's life. Every process,
// and every other thread of this one, that takes the lock of the same folder waits until it is
// released, so the read-modify-replace of a file in it (an INI edit, a pack, a whole profile
// save) is one step for all of them. The thread that holds the lock may take it again: nested
// objects share it, and it goes with the outermost. A holder that dies releases it with its
// descriptors. Where the folder cannot be opened for reading no lock is taken: the write that
// follows then fails on its own or runs unguarded.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  // Whether this thread holds the lock of `folder` now.
  static bool heldByThisThread(const std::string& folder);

 private:
  bool held_ = false;
  dev_t dev_ = 0;
  ino_t ino_ = 0;
};

// The folder whose lock guards the file `nativePath`: the folder the file lies in, a symbolic
// link in the last component followed, so that the plain and the packed file of one pair, and
// every writer that names either, meet at one lock.
std::string lockFolderOf(const std::string& nativePath);

// The lock that guards the file a caller names (either name of a plain and packed pair): the
// lock of lockFolderOf(its native path).
FolderLock lockOfFile(TextView path);

}  // namespace zrk::platform
