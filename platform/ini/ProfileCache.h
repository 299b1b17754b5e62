// The INI files a thread read last, kept with the lookup tables built over them, so that
// repeated lookups on an unchanged file cost one stat. Each thread has its own cache; nothing
// is shared and nothing is locked.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/files/FileIO.h"
#include "platform/files/Paths.h"

namespace zrk::platform {

// What identifies one state of a file's content. An in-place write changes the modification
// time (in ns) and usually the size, a replace-by-rename the inode, and a write that puts the
// old modification time back still changes the inode-change time.
//
// What the key cannot see is a write by someone else that keeps the size and gets the same
// stamps as the state before it: a write within one step of the file system's clock, or of its
// stamps where they are coarser than that clock. That can only happen to a file changed no
// earlier than the moment it was read, so content whose stamps were not yet behind the clock
// when the read began is not trusted: the next lookup reads it again. Our own writes drop the
// entry outright.
struct ProfileKey {
  dev_t dev;
  ino_t ino;
  off_t size;
  int64_t mtimeNs;
  int64_t ctimeNs;

  static ProfileKey of(const struct stat& st);
  bool operator==(const ProfileKey&) const = default;
};

// One file's bytes and the reader's tables over them. The tables hold views into the bytes and
// are filled by the reader on demand; the cache only keeps them.
struct CachedProfile {
  ProfileKey key{};
  FileBytes data;
  bool trusted = false;  // of a local file system, read when its stamps lay behind its clock
  bool reused = false;   // a lookup found it kept: it serves more than one

  std::string_view bytes() const { return data.view(); }

  // Section names folded for comparison -> where the first section of that name has its body.
  std::optional<std::unordered_map<std::string, size_t>> sections;
  // Body of a section -> its key names folded -> the first such key's value, blanks trimmed.
  std::unordered_map<size_t, std::unordered_map<std::string, std::string_view>> keys;
};

// What a load gives: a kept entry, valid until the next call on the cache, or content that
// is not kept, which this handle owns and frees when it goes.
class LoadedProfile {
 public:
  LoadedProfile() = default;
  explicit LoadedProfile(CachedProfile* kept) : profile_(kept) {}
  explicit LoadedProfile(std::unique_ptr<CachedProfile> own)
      : owned_(std::move(own)), profile_(owned_.get()) {}
  explicit operator bool() const { return profile_ != nullptr; }
  CachedProfile& operator*() const { return *profile_; }
  CachedProfile* operator->() const { return profile_; }

 private:
  std::unique_ptr<CachedProfile> owned_;
  CachedProfile* profile_ = nullptr;
};

// The step of the clock that gave a stamp, judged from the stamp alone, in ns. A stamp is a
// multiple of its file system's granularity (a power of ten of nanoseconds), so that is no
// coarser than the unit of the stamp's last nonzero digit; ten such units leave a margin. A
// stamp without nanoseconds may come from FAT's two-second clock.
int64_t stampStep(const struct timespec& stamp);

class ProfileCache {
 public:
  static constexpr size_t kEntries = 4;
  // A thread keeps no more than this of files' bytes. The lookup tables over them take up to
  // some 20 times their bytes, when every line is a short key of its own (a hashed entry of
  // about 90 bytes for a line of 5), so the bytes and the tables stay within some 45 MiB.
  static constexpr size_t kMaxBytes = 2u << 20;

  // This thread's cache.
  static ProfileCache& forThread();

  // The file's content: the cached one while its key matches the file's stat, read anew
  // otherwise. Empty when the file is missing, a folder or cannot be read.
  LoadedProfile load(const ResolvedPath& file);
  // Drops what is kept of the file with this device and inode: it was just written.
  void forget(dev_t dev, ino_t ino);
  void clear();
  size_t entryCount() const { return entries_.size(); }

 private:
  std::unique_ptr<CachedProfile> read(const std::string& nativePath);
  void keep(std::unique_ptr<CachedProfile> entry);

  std::vector<std::unique_ptr<CachedProfile>> entries_;  // the last used first
};

}  // namespace zrk::platform
