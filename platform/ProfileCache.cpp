// Per-thread cache of INI files read whole, keyed by what stat says of them.
#include "platform/ProfileCache.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/FileIO.h"
#include "platform/SysCalls.h"

namespace zrk::platform {
namespace {

// The cache of this thread while it lives; a write noticed before it is made or after it is
// gone (a thread's last log line) has nothing to drop.
thread_local ProfileCache* tLiveCache = nullptr;

int64_t nanoseconds(const struct timespec& t) {
  return int64_t(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// The clock the file system stamps files with: a later change of a file gets a stamp no
// earlier than what this clock says now.
int64_t fileClockNow() {
  struct timespec now;
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return nanoseconds(now);
}

// Whether a stamp lies before `now` by more than the file system's step, judged from the stamp
// itself: a file system that keeps whole seconds (two on FAT) gives no nanoseconds, one that
// keeps microseconds or milliseconds gives whole thousands of them.
bool stampedBefore(const struct timespec& stamp, int64_t now) {
  int64_t step = stamp.tv_nsec == 0 ? 2000000000 : stamp.tv_nsec % 1000 == 0 ? 1000000 : 0;
  return nanoseconds(stamp) + step < now;
}

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

// Reads to the end into `entry`, starting with room for `expected` bytes and one more, so
// that a file of the size stat gave is read without copying.
bool readAll(int fd, size_t expected, CachedProfile& entry) {
  size_t capacity = expected + 1;
  entry.data = std::make_unique_for_overwrite<char[]>(capacity);
  entry.size = 0;
  for (;;) {
    if (entry.size == capacity) {
      capacity = capacity * 2 + 65536;
      auto grown = std::make_unique_for_overwrite<char[]>(capacity);
      std::memcpy(grown.get(), entry.data.get(), entry.size);
      entry.data = std::move(grown);
    }
    ssize_t n = ::read(fd, entry.data.get() + entry.size, capacity - entry.size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    entry.size += size_t(n);
  }
}

}  // namespace

std::vector<size_t> findSectionHeads(std::string_view bytes) {
  std::vector<size_t> heads;
  const char* data = bytes.data();
  const char* stop = data + bytes.size();
  for (const char* at = data;
       (at = static_cast<const char*>(std::memchr(at, '[', size_t(stop - at)))); ++at) {
    const char* begin = at;
    while (begin > data && isBlank(begin[-1]))
      --begin;
    if (begin == data || begin[-1] == '\r' || begin[-1] == '\n') heads.push_back(size_t(at - data));
  }
  return heads;
}

ProfileKey ProfileKey::of(const struct stat& st) {
  return ProfileKey{st.st_dev, st.st_ino, st.st_size, nanoseconds(st.st_mtim),
                    nanoseconds(st.st_ctim)};
}

ProfileCache& ProfileCache::forThread() {
  struct Owned {
    Owned() { tLiveCache = &cache; }
    ~Owned() { tLiveCache = nullptr; }
    ProfileCache cache;
  };
  thread_local Owned owned;
  return owned.cache;
}

CachedProfile* ProfileCache::load(const ResolvedPath& file) {
  uncached_.reset();
  if (!file.found || file.isFolder()) return nullptr;
  ProfileKey key = ProfileKey::of(file.st);
  auto hit =
      std::find_if(entries_.begin(), entries_.end(), [&](const auto& e) { return e->key == key; });
  if (hit != entries_.end()) {  // only content that can be trusted is kept
    std::rotate(entries_.begin(), hit, hit + 1);
    ++entries_.front()->uses;
    return entries_.front().get();
  }
  std::unique_ptr<CachedProfile> entry = read(file.native);
  if (!entry) return nullptr;
  entry->uses = 1;
  if (!entry->trusted || entry->size > kMaxBytes) {
    uncached_ = std::move(entry);
    return uncached_.get();
  }
  keep(std::move(entry));
  return entries_.front().get();
}

std::unique_ptr<CachedProfile> ProfileCache::read(const std::string& nativePath) {
  int64_t started = fileClockNow();
  FileHandle file(sys::open(nativePath.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st;
  if (file.fd() < 0 || ::fstat(file.fd(), &st) != 0 || S_ISDIR(st.st_mode)) return nullptr;
  auto entry = std::make_unique<CachedProfile>();
  if (!readAll(file.fd(), st.st_size > 0 ? size_t(st.st_size) : 0, *entry)) return nullptr;
  entry->heads = findSectionHeads(entry->bytes());
  entry->key = ProfileKey::of(st);
  // Only a regular file whose stamps lie before the read can be told apart from every later
  // state of itself; anything else is read again on the next lookup.
  entry->trusted = S_ISREG(st.st_mode) && stampedBefore(st.st_mtim, started) &&
                   stampedBefore(st.st_ctim, started) && entry->size == size_t(st.st_size);
  return entry;
}

void ProfileCache::keep(std::unique_ptr<CachedProfile> entry) {
  forget(entry->key.dev, entry->key.ino);  // an older state of the same file
  entries_.insert(entries_.begin(), std::move(entry));
  size_t total = 0, kept = 0;
  while (kept < entries_.size() && kept < kEntries && total + entries_[kept]->size <= kMaxBytes) {
    total += entries_[kept]->size;
    ++kept;
  }
  entries_.resize(std::max<size_t>(kept, 1));
}

void ProfileCache::forget(dev_t dev, ino_t ino) {
  std::erase_if(entries_, [&](const auto& e) { return e->key.dev == dev && e->key.ino == ino; });
  if (uncached_ && uncached_->key.dev == dev && uncached_->key.ino == ino) uncached_.reset();
}

void ProfileCache::clear() {
  entries_.clear();
  uncached_.reset();
}

void forgetCachedProfile(const struct stat& written) {
  if (tLiveCache) tLiveCache->forget(written.st_dev, written.st_ino);
}

}  // namespace zrk::platform
