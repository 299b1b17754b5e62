// The rules every writer of the library follows: a final symbolic link is written through, a
// rewritten file keeps its owner, group and mode, a new one is made 0666 less the umask, a file
// without any write bit is refused to every caller, only regular files are read or written as
// files, and a whole-file write replaces the old content in one step, so that a crash or a full
// disk leaves the old content or the new, whole (or, for a file rewritten in place, the old
// content in the recovery folder).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zrk::platform {

// Read-only as the platform means it: no write permission bit for anyone.
inline bool isReadOnlyMode(mode_t mode) {
  return (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

// The path with a symbolic link in its last component followed to what it names (a relative
// target counts from the link's folder); a path that is no link stays as it is.
std::string followFinalLink(const std::string& path);

// The folder part of a native path ("." when it has none) and its last component.
std::string folderOfPath(const std::string& path);
std::string lastComponent(const std::string& path);

// What fstatat says of `name` in the open folder `dirFd`, a link not followed; nothing when
// there is no such entry.
std::optional<struct stat> statAt(int dirFd, const std::string& name);

// Makes `path` and the folders above it that are missing, each with `mode`; false when one
// cannot be made.
bool makeFolders(const std::string& path, mode_t mode);

// The process's umask, read without changing it.
mode_t currentUmask();

// A folder opened for the *at calls; failure 76 when it is missing.
class FolderHandle {
 public:
  explicit FolderHandle(const std::string& folder);
  ~FolderHandle();
  FolderHandle(const FolderHandle&) = delete;
  FolderHandle& operator=(const FolderHandle&) = delete;
  int fd() const { return fd_; }
  // Makes what the folder holds durable (a rename into it, a removal from it).
  void sync() const;

 private:
  int fd_;
};

// Opens `path` (links followed) with `flags` for a file's bytes, without blocking and without
// opening anything that is not a regular file: a FIFO, socket, device or folder is refused by what
// stat says of the path before the open, and by what fstat says of the open file (something may
// have been swapped in between); the descriptor then blocks as usual. -1 with errno EISDIR for a
// folder, ENXIO for another kind of file, else the open's own; `st` holds what fstat says.
int openRegularFile(const std::string& path, int flags, mode_t mode, struct stat& st);

// Where the old content of a file rewritten in place waits until the new is whole: the first
// of $XDG_STATE_HOME/zrkkvl/recovery, ~/.local/state/zrkkvl/recovery and
// /var/tmp/zrkkvl-recovery-UID that this user can make (mode 0700) and owns; "" when none.
std::string recoveryFolder();

// The new content of one file, built beside it and put in its place by commit(). Until then,
// and when the object goes without a commit, the file keeps its old content. A failure is a
// Failure with the runtime's number: 76 missing folder, 75 a folder or a file that is not a
// regular one, 70 read-only.
//
// The new content is an unnamed file (O_TMPFILE), or, where the file system has none, a file
// made exclusively under a random name. A new file is linked under its name; one that replaces
// another is given a random name only for the moment of its rename. No name a user or an archive
// member holds is ever the library's, removed or in the way. Where no rename can keep the file what
// it is (more than one hard link, an owner the caller cannot give a new file, a folder that takes
// no new name), the file is rewritten in place, and its old content is first copied to
// recoveryFolder() and synced, and removed once the new content is whole and synced (or put back
// after a failure).
class FileReplacement {
 public:
  enum class Links {
    Follow,   // a final symbolic link is written through to its target
    Replace,  // a final symbolic link is replaced by a regular file, nothing followed
  };
  FileReplacement(const std::string& path, Links links);
  // The file `name` of the folder open as `folderFd`, which stays open while the object lives;
  // a symbolic link there is replaced. `shownPath` names the file for the fault seam.
  FileReplacement(int folderFd, const std::string& name, const std::string& shownPath);
  // As above, with `there` what statAt() has just said of the name, so that it is not asked again.
  FileReplacement(int folderFd, const std::string& name, const std::string& shownPath,
                  const std::optional<struct stat>& there);
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  void write(std::string_view bytes);
  // Puts the new content in place, durably; after a failure here the old content stays.
  void commit();

  // For many files of one folder at once. Whether commit() rewrites the old file in place.
  bool inPlace() const { return inPlace_; }
  // The new content's descriptor, for a caller that makes many files durable in one step.
  int contentFd() const { return fd_; }
  // Gives the new content its final mode; a caller that syncs many files itself does this
  // before its sync, so that the mode is durable with the content.
  void takeFinalMode();
  // Puts the new content in place by its link or rename, without syncing the file or the folder:
  // for a caller that has made the content durable itself and syncs the folder after. A file that
  // is rewritten in place is committed in full.
  void commitSynced();

 private:
  void open();
  void openTemporary();
  int openNamedTemporary();
  // Puts the content in place: commit() and commitSynced() differ only in the syncs around it.
  void finish(bool synced);
  void commitInPlace();
  void rewriteInPlace(int fd);
  void commitReplacement();
  void putIntoPlace();
  bool linkUnderName();
  void closeContent();
  void linkTemporary();
  void dropTemporary();
  void discard();

  std::optional<FolderHandle> ownFolder_;
  int dirFd_;
  std::string name_;       // in the folder
  std::string shownPath_;  // for the fault seam
  std::optional<struct stat> old_;
  bool inPlace_ = false;  // a hard-linked file, or one whose owner or folder allow no new file
  int fd_ = -1;           // the new content, unnamed or under tmpName_
  std::string tmpName_;   // its random name, while it has one
  std::string pending_;   // the content of an in-place rewrite
  bool modeTaken_ = false;
  enum class State { Open, Committed, Dropped } state_ = State::Open;
};

// Writes `bytes` as the whole new content of the file (a final link followed).
void writeFileWhole(const std::string& nativePath, std::string_view bytes);

// The same, giving false (and leaving the file untouched) when it cannot be done.
bool replaceFileAtomically(const std::string& nativePath, std::string_view bytes);

// Opens a file for appending (a link followed, the file made when missing), refusing a
// read-only one and one that is not a regular file; failures as for a replacement.
int openForAppend(const std::string& nativePath);

// The writes of this thread that failed so far, and the system's error of the last of them:
// a caller whose operation gives no sign of a failed write (an INI write gives false, and the
// public operation drops it) compares the count before and after.
struct WriteFailures {
  uint64_t count = 0;
  int lastError = 0;
};
WriteFailures writeFailuresOnThisThread();

// Whatever keeps a copy of files' content (the INI cache) hears, through this one hook, of each
// file a writer has just replaced or opened for appending, by the stat the file had before; the
// writers themselves know nothing of what listens. Set once per process; null for none.
using FileWrittenHook = void (*)(const struct stat& written);
void setFileWrittenHook(FileWrittenHook hook);

}  // namespace zrk::platform
