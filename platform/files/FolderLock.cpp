// The folder lock: one flock per folder and thread, counted for nesting.
#include "platform/files/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <utility>

#include "platform/files/Paths.h"
#include "platform/files/SafeFile.h"

namespace zrk::platform {
namespace {

struct Holding {
  int fd;     // the descriptor the lock sits on; closing it releases the lock
  int depth;  // nested objects of this thread
  pid_t pid;  // the process that took it: a forked child shares it, but does not hold it alone
};

using FolderId = std::pair<dev_t, ino_t>;

// The locks this thread holds. A lock belongs to its open file description, so a second
// thread's own open of the folder waits for it like another process's would.
std::map<FolderId, Holding>& holdings() {
  thread_local std::map<FolderId, Holding> held;
  return held;
}

int openFolder(const std::string& folder) {
  return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

}  // namespace

FolderLock::FolderLock(const std::string& folder) {
  int fd = openFolder(folder);
  struct stat st;
  if (fd < 0) return;
  if (::fstat(fd, &st) != 0) {
    ::close(fd);
    return;
  }
  dev_ = st.st_dev;
  ino_ = st.st_ino;
  auto& held = holdings();
  auto it = held.find({dev_, ino_});
  if (it != held.end() && it->second.pid != ::getpid()) {
    // Inherited through fork: the parent's lock, which the child takes for itself.
    ::close(it->second.fd);
    held.erase(it);
    it = held.end();
  }
  if (it != held.end()) {
    ::close(fd);
    ++it->second.depth;
    held_ = true;
    return;
  }
  while (::flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR) {  // a file system without locks: nothing to hold
      ::close(fd);
      return;
    }
  }
  held.emplace(FolderId{dev_, ino_}, Holding{fd, 1, ::getpid()});
  held_ = true;
}

FolderLock::~FolderLock() {
  if (!held_) return;
  auto& held = holdings();
  auto it = held.find({dev_, ino_});
  if (it == held.end() || it->second.pid != ::getpid() || --it->second.depth > 0) return;
  ::close(it->second.fd);
  held.erase(it);
}

bool FolderLock::heldByThisThread(const std::string& folder) {
  struct stat st;
  if (::stat(folder.c_str(), &st) != 0) return false;
  auto it = holdings().find({st.st_dev, st.st_ino});
  return it != holdings().end() && it->second.pid == ::getpid();
}

std::string lockFolderOf(const std::string& nativePath) {
  return folderOfPath(followFinalLink(nativePath));
}

FolderLock lockOfFile(TextView path) {
  return FolderLock(lockFolderOf(nativePath(path)));
}

}  // namespace zrk::platform
