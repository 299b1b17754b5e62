// The rules every writer of the library follows: a final symbolic link is written through, a
// rewritten file keeps its owner, group and mode, a new one is made 0666 less the umask, a file
// without any write bit is refused to every caller, and a whole-file write replaces the old
// content in one step, so that a crash or a full disk leaves the old content or the new, whole.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

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

// The new content of one file, built beside it and put in its place by commit(). Until then,
// and when the object goes without a commit, the file keeps its old content. A failure is a
// Failure with the runtime's number: 76 missing folder, 75 a folder, 70 read-only.
class FileReplacement {
 public:
  enum class Links {
    Follow,   // a final symbolic link is written through to its target
    Replace,  // a final symbolic link is replaced by a regular file, nothing followed
  };
  FileReplacement(const std::string& path, Links links);
  // The file `name` of an open folder; a symbolic link there is replaced. `shownPath` names
  // the file for the fault seam.
  FileReplacement(const FolderHandle& folder, const std::string& name,
                  const std::string& shownPath);
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  void write(std::string_view bytes);
  // Puts the new content in place, durably; after a failure here the old content stays.
  void commit();
  // For many files at once: leaves the new content under its temporary name, neither synced
  // nor in place, and gives that name; the caller syncs once and renames each. A file that is
  // rewritten in place is committed here and gives "".
  std::string stage();

 private:
  void open();
  void openTemporary();
  void writeAll(int fd, std::string_view bytes, off_t at);
  void commitInPlace();
  void takeFinalMode();
  void commitByRename();
  void linkTemporary();
  void dropTemporary();
  void discard();

  std::optional<FolderHandle> ownFolder_;
  int dirFd_;
  std::string name_;       // in the folder
  std::string shownPath_;  // for the fault seam
  std::optional<struct stat> old_;
  bool inPlace_ = false;  // a hard-linked or special file, or one whose owner cannot be kept
  int fd_ = -1;           // the unnamed temporary file
  std::string tmpName_;   // its name where the file system has no unnamed files
  std::string pending_;   // the content of an in-place rewrite
  enum class State { Open, Committed, Dropped } state_ = State::Open;
};

// Writes `bytes` as the whole new content of the file (a final link followed).
void writeFileWhole(const std::string& nativePath, std::string_view bytes);

// The same, giving false (and leaving the file untouched) when it cannot be done.
bool replaceFileAtomically(const std::string& nativePath, std::string_view bytes);

// Opens a file for appending (a link followed, the file made when missing), refusing a
// read-only one; failures as for a replacement.
int openForAppend(const std::string& nativePath);

}  // namespace zrk::platform
