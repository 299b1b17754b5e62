// Member files written relative to one open folder, with a case-insensitive index of its names.
#include "platform/ExtractionFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/Paths.h"

namespace zrk::platform {

ExtractionFolder::ExtractionFolder(TextView folder) : folder_(folder) {}

std::string ExtractionFolder::entryFor(TextView name) {
  std::string written = toUtf8(name);
  struct stat st;
  if (::fstatat(handle_->fd(), written.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return written;
  if (!index_) {
    index_.emplace();
    int fd = ::openat(handle_->fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (DIR* d = fd >= 0 ? ::fdopendir(fd) : nullptr) {
      while (dirent* e = ::readdir(d))
        index_->emplace(lowerCase(fromUtf8(e->d_name)), e->d_name);
      ::closedir(d);
    } else if (fd >= 0) {
      ::close(fd);
    }
  }
  auto it = index_->find(lowerCase(name));
  return it == index_->end() ? written : it->second;
}

void ExtractionFolder::writeFile(TextView name, std::string_view bytes) {
  if (!handle_) {
    native_ = nativePath(folder_);
    handle_.emplace(native_);
  }
  std::string entry = entryFor(name);
  FileReplacement file(*handle_, entry, native_ + "/" + entry);
  file.write(bytes);
  file.commit();
  if (index_) index_->emplace(lowerCase(name), entry);
}

}  // namespace zrk::platform
