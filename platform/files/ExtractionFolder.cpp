// Member files written relative to one open folder, with a case-insensitive index of its names.
#include "platform/files/ExtractionFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/files/Paths.h"

namespace zrk::platform {

ExtractionFolder::ExtractionFolder(TextView folder) : folder_(folder) {}

ExtractionFolder::~ExtractionFolder() {
  try {
    flush();
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
      index_.emplace(lowerCase(textOfNativeName(e->d_name)), e->d_name);
    ::closedir(d);
  } else if (fd >= 0) {
    ::close(fd);
  }
}

std::string ExtractionFolder::entryFor(TextView name) {
  std::string written = nativeName(name);
  struct stat st;
  if (::fstatat(handle_->fd(), written.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return written;
  auto it = index_.find(lowerCase(name));
  return it == index_.end() ? written : it->second;
}

bool ExtractionFolder::holds(TextView name) {
  if (!handle_) open();
  struct stat st;
  return ::fstatat(handle_->fd(), entryFor(name).c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

// A file of the same name that still waits is replaced by the later one: it is dropped unseen.
void ExtractionFolder::dropWaiting(const std::string& entry) {
  auto it = std::find_if(waiting_.begin(), waiting_.end(),
                         [&](const Waiting& w) { return w.entry == entry; });
  if (it != waiting_.end()) waiting_.erase(it);
}

void ExtractionFolder::writeFile(TextView name, std::string_view bytes) {
  if (!handle_) open();
  std::string entry = entryFor(name);
  dropWaiting(entry);
  auto file = std::make_unique<FileReplacement>(handle_->fd(), entry, native_ + "/" + entry);
  file->write(bytes);
  index_.emplace(lowerCase(name), entry);
  if (file->inPlace()) {
    file->commit();  // a file rewritten in place takes its own sync
    return;
  }
  waiting_.push_back({Text(name), entry, std::move(file)});
  waitingBytes_ += bytes.size();
  if (waiting_.size() >= kBatchFiles || waitingBytes_ >= kBatchBytes) {
    auto failed = flush();
    failed_.insert(failed_.end(), failed.begin(), failed.end());
  }
}

// Makes the waiting files durable: each by itself when they are few, else the whole file
// system at once, which costs one sync however many there are. Gives 0 or the errno.
int ExtractionFolder::syncWaiting(const std::vector<Waiting>& batch) const {
  try {
    for (const Waiting& w : batch)
      w.file->takeFinalMode();
  } catch (const Failure&) {
    return writeFailuresOnThisThread().lastError;
  }
  if (batch.size() > kSyncOneByOne) return ::syncfs(handle_->fd()) == 0 ? 0 : errno;
  for (const Waiting& w : batch) {
    if (::fsync(w.file->contentFd()) != 0) return errno;
  }
  return 0;
}

std::vector<std::pair<Text, Failure>> ExtractionFolder::flush() {
  std::vector<std::pair<Text, Failure>> failed = std::move(failed_);
  failed_.clear();
  if (waiting_.empty()) return failed;
  std::vector<Waiting> batch = std::move(waiting_);
  waiting_.clear();
  waitingBytes_ = 0;
  if (int e = syncWaiting(batch)) {
    // Without the sync no file is put in place: each keeps its old content.
    for (const Waiting& w : batch)
      failed.emplace_back(w.name, failureFromErrno(e));
    return failed;
  }
  for (const Waiting& w : batch) {
    try {
      w.file->commitSynced();
    } catch (const Failure& f) {
      failed.emplace_back(w.name, f);
    }
  }
  try {
    handle_->sync();
  } catch (const Failure& f) {
    failed.emplace_back(Text(), f);
  }
  return failed;
}

}  // namespace zrk::platform
