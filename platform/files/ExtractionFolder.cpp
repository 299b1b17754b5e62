// Member files written relative to one open folder, with a case-insensitive index of its names.
#include "platform/files/ExtractionFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
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
  batchFiles_ = batchFiles();
  int fd = ::openat(handle_->fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (DIR* d = fd >= 0 ? ::fdopendir(fd) : nullptr) {
    while (dirent* e = ::readdir(d))
      index_.try_emplace(lowerCase(textOfNativeName(e->d_name)), Entry{e->d_name});
    ::closedir(d);
  } else if (fd >= 0) {
    ::close(fd);
  }
}

// The files a batch may hold: most of the process's descriptors are left to the host.
size_t ExtractionFolder::batchFiles() const {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
    return kBatchFiles;
  return std::clamp<size_t>(size_t(limit.rlim_cur) / kDescriptorShare, 1, kBatchFiles);
}

// Only a name that another case of it stands beside in the index is looked up on disk.
std::string ExtractionFolder::entryFor(TextView name, const Text& lower) {
  std::string written = nativeName(name);
  auto it = index_.find(lower);
  if (it == index_.end() || it->second.name == written) return written;
  return statAt(handle_->fd(), written) ? written : it->second.name;
}

bool ExtractionFolder::wrote(TextView name) const {
  auto it = index_.find(lowerCase(name));
  return it != index_.end() && it->second.written;
}

// A file of the same name that still waits is replaced by the later one: it is dropped unseen.
void ExtractionFolder::dropWaiting(const std::string& entry) {
  auto it = std::find_if(waiting_.begin(), waiting_.end(),
                         [&](const Waiting& w) { return w.entry == entry; });
  if (it != waiting_.end()) waiting_.erase(it);
}

// One look at the name serves both the choice to keep what stands there and the replacement.
bool ExtractionFolder::writeFile(TextView name, std::string_view bytes, Existing existing) {
  if (!handle_) open();
  Text lower = lowerCase(name);
  std::string entry = entryFor(name, lower);
  std::optional<struct stat> there = statAt(handle_->fd(), entry);
  if (there && existing == Existing::Keep) return false;
  dropWaiting(entry);
  auto file = std::make_unique<FileReplacement>(handle_->fd(), entry, native_ + "/" + entry, there);
  file->write(bytes);
  index_.insert_or_assign(std::move(lower), Entry{entry, true});
  if (file->inPlace()) {
    file->commit();  // a file rewritten in place takes its own sync
    return true;
  }
  waiting_.push_back({Text(name), entry, std::move(file)});
  waitingBytes_ += bytes.size();
  if (waiting_.size() >= batchFiles_ || waitingBytes_ >= kBatchBytes) putWaiting();
  return true;
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
  putWaiting();
  if (unsynced_) {
    unsynced_ = false;
    try {
      handle_->sync();
    } catch (const Failure& f) {
      failed_.emplace_back(Text(), f);
    }
  }
  return std::exchange(failed_, {});
}

// The contents are durable before any of them takes a name, so a crash leaves each file old or
// new, whole; the names last from the folder's sync on.
void ExtractionFolder::putWaiting() {
  if (waiting_.empty()) return;
  std::vector<Waiting> batch = std::move(waiting_);
  waiting_.clear();
  waitingBytes_ = 0;
  if (int e = syncWaiting(batch)) {
    // Without the sync no file is put in place: each keeps its old content.
    for (const Waiting& w : batch)
      failed_.emplace_back(w.name, failureFromErrno(e));
    return;
  }
  for (const Waiting& w : batch) {
    try {
      w.file->commitSynced();
    } catch (const Failure& f) {
      failed_.emplace_back(w.name, f);
    }
  }
  unsynced_ = true;
}

}  // namespace zrk::platform
