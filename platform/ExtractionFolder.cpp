// Member files written relative to one open folder, with a case-insensitive index of its names.
#include "platform/ExtractionFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Paths.h"
#include "platform/SysCalls.h"

namespace zrk::platform {

ExtractionFolder::ExtractionFolder(TextView folder) : folder_(folder) {}

ExtractionFolder::~ExtractionFolder() {
  try {
    finish();
  } catch (...) {
    // Nothing to report to from here; what could not be put in place keeps its old content.
  }
}

void ExtractionFolder::open() {
  native_ = nativePath(folder_);
  handle_.emplace(native_);
  int fd = ::openat(handle_->fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (DIR* d = fd >= 0 ? ::fdopendir(fd) : nullptr) {
    while (dirent* e = ::readdir(d))
      index_.emplace(lowerCase(fromUtf8(e->d_name)), e->d_name);
    ::closedir(d);
  } else if (fd >= 0) {
    ::close(fd);
  }
}

std::string ExtractionFolder::entryFor(TextView name) {
  std::string written = toUtf8(name);
  struct stat st;
  if (::fstatat(handle_->fd(), written.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return written;
  auto it = index_.find(lowerCase(name));
  return it == index_.end() ? written : it->second;
}

void ExtractionFolder::writeFile(TextView name, std::string_view bytes) {
  if (!handle_) open();
  std::string entry = entryFor(name);
  FileReplacement file(*handle_, entry, native_ + "/" + entry);
  file.write(bytes);
  std::string temporary = file.stage();
  index_.emplace(lowerCase(name), entry);
  if (temporary.empty()) return;
  // A later file of the same name took the temporary name of one still waiting.
  auto [at, fresh] = waitingByEntry_.try_emplace(entry, waiting_.size());
  if (fresh) {
    waiting_.push_back({Text(name), entry, std::move(temporary)});
  } else {
    waiting_[at->second] = {Text(name), entry, std::move(temporary)};
  }
}

// Makes the waiting files durable: each by itself when they are few, else the whole file
// system at once, which costs one sync however many there are. Gives 0 or the errno.
int ExtractionFolder::syncWaiting() const {
  if (waiting_.size() > kSyncOneByOne) return ::syncfs(handle_->fd()) == 0 ? 0 : errno;
  for (const Waiting& w : waiting_) {
    int fd = ::openat(handle_->fd(), w.temporary.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return errno;
    int rc = ::fsync(fd);
    int e = errno;
    ::close(fd);
    if (rc != 0) return e;
  }
  return 0;
}

std::vector<std::pair<Text, Failure>> ExtractionFolder::finish() {
  std::vector<std::pair<Text, Failure>> failed;
  if (waiting_.empty()) return failed;
  if (int e = syncWaiting()) {
    // Without the sync no file is put in place: each keeps its old content.
    for (const Waiting& w : waiting_) {
      ::unlinkat(handle_->fd(), w.temporary.c_str(), 0);
      failed.emplace_back(w.name, failureFromErrno(e));
    }
    waiting_.clear();
    waitingByEntry_.clear();
    return failed;
  }
  for (const Waiting& w : waiting_) {
    std::string shown = native_ + "/" + w.entry;
    if (sys::renameat(handle_->fd(), w.temporary.c_str(), w.entry.c_str(), shown.c_str()) != 0) {
      failed.emplace_back(w.name, failureFromErrno(errno));
      ::unlinkat(handle_->fd(), w.temporary.c_str(), 0);
    }
  }
  waiting_.clear();
  waitingByEntry_.clear();
  try {
    handle_->sync();
  } catch (const Failure& f) {
    failed.emplace_back(Text(), f);
  }
  return failed;
}

}  // namespace zrk::platform
