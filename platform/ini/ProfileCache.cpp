// Per-thread cache of INI files read whole, keyed by what stat says of them.
#include "platform/ini/ProfileCache.h"

#include <linux/magic.h>
#include <sys/vfs.h>
#include <time.h>

#include <algorithm>

#include <zrkKVL/Failure.h>
#include "platform/files/FileIO.h"
#include "platform/files/SafeFile.h"

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

// Whether a stamp lies before `now` by more than the step of the clock that gave it.
bool stampedBefore(const struct timespec& stamp, int64_t now) {
  return nanoseconds(stamp) + stampStep(stamp) < now;
}

// Whether stat on this file system asks the disk's own state. A network or FUSE file system
// may answer from an attribute cache, and its stamps come from another machine's clock, so an
// unchanged stat there does not show that no one else has written the file since.
bool isLocal(const struct statfs& fs) {
  constexpr uint32_t kNtfs3Magic = 0x7366746e;  // "ntfs"
  switch (uint32_t(fs.f_type)) {
    case EXT4_SUPER_MAGIC:  // also ext2 and ext3
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case RAMFS_MAGIC:
    case OVERLAYFS_SUPER_MAGIC:
    case NILFS_SUPER_MAGIC:
    case REISERFS_SUPER_MAGIC:
    case MSDOS_SUPER_MAGIC:
    case EXFAT_SUPER_MAGIC:
    case kNtfs3Magic:
    case UDF_SUPER_MAGIC:
    case ISOFS_SUPER_MAGIC:
    case SQUASHFS_MAGIC:
    case EROFS_SUPER_MAGIC_V1:
      return true;
    default:
      return false;
  }
}

}  // namespace

int64_t stampStep(const struct timespec& stamp) {
  if (stamp.tv_nsec == 0) return 2000000000;
  int64_t step = 10;
  for (long n = stamp.tv_nsec; n % 10 == 0; n /= 10)
    step *= 10;
  return step;
}

ProfileKey ProfileKey::of(const struct stat& st) {
  return ProfileKey{st.st_dev, st.st_ino, st.st_size, nanoseconds(st.st_mtim),
                    nanoseconds(st.st_ctim)};
}

// Drops the calling thread's cached content of a file that the library has just written.
static void forgetCachedProfile(const struct stat& written) {
  if (tLiveCache) tLiveCache->forget(written.st_dev, written.st_ino);
}

ProfileCache& ProfileCache::forThread() {
  struct Owned {
    Owned() {
      // Until a thread keeps a file, no write has anything to drop.
      static const bool hooked = (setFileWrittenHook(forgetCachedProfile), true);
      (void)hooked;
      tLiveCache = &cache;
    }
    ~Owned() { tLiveCache = nullptr; }
    ProfileCache cache;
  };
  thread_local Owned owned;
  return owned.cache;
}

LoadedProfile ProfileCache::load(const ResolvedPath& file) {
  if (!file.found || file.isFolder()) return {};
  ProfileKey key = ProfileKey::of(file.st);
  auto hit =
      std::find_if(entries_.begin(), entries_.end(), [&](const auto& e) { return e->key == key; });
  if (hit != entries_.end()) {  // only content that can be trusted is kept
    std::rotate(entries_.begin(), hit, hit + 1);
    entries_.front()->reused = true;
    return LoadedProfile(entries_.front().get());
  }
  std::unique_ptr<CachedProfile> entry = read(file.native);
  if (!entry) return {};
  if (!entry->trusted || entry->data.size > kMaxBytes) return LoadedProfile(std::move(entry));
  keep(std::move(entry));
  return LoadedProfile(entries_.front().get());
}

std::unique_ptr<CachedProfile> ProfileCache::read(const std::string& nativePath) {
  int64_t started = fileClockNow();
  auto entry = std::make_unique<CachedProfile>();
  struct stat st;
  struct statfs fs;
  bool local = false;
  try {
    FileHandle file = openForReading(nativePath, st);
    local = ::fstatfs(file.fd(), &fs) == 0 && isLocal(fs);
    entry->data = readToEnd(file.fd(), statedSize(st));
  } catch (const Failure&) {
    return nullptr;
  }
  entry->key = ProfileKey::of(st);
  // Only a regular file of a local file system whose stamps lie before the read can be told
  // apart from every later state of itself; anything else is read again on the next lookup.
  entry->trusted = local && S_ISREG(st.st_mode) && stampedBefore(st.st_mtim, started) &&
                   stampedBefore(st.st_ctim, started) && entry->data.size == size_t(st.st_size);
  return entry;
}

void ProfileCache::keep(std::unique_ptr<CachedProfile> entry) {
  forget(entry->key.dev, entry->key.ino);  // an older state of the same file
  entries_.insert(entries_.begin(), std::move(entry));
  size_t total = 0, kept = 0;
  while (kept < entries_.size() && kept < kEntries &&
         total + entries_[kept]->data.size <= kMaxBytes) {
    total += entries_[kept]->data.size;
    ++kept;
  }
  entries_.resize(kept);
}

void ProfileCache::forget(dev_t dev, ino_t ino) {
  std::erase_if(entries_, [&](const auto& e) { return e->key.dev == dev && e->key.ino == ino; });
}

void ProfileCache::clear() {
  entries_.clear();
}

}  // namespace zrk::platform
