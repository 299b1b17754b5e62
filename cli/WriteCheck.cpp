// File stamps and the reasons a write could not happen.
#include "cli/WriteCheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "cli/Command.h"
#include "platform/files/Paths.h"
#include "platform/files/SafeFile.h"

namespace zrk::cli {

FileStamp stampOf(TextView path) {
  FileStamp stamp;
  struct stat st {};
  if (::stat(platform::nativePath(path).c_str(), &st) != 0) return stamp;
  stamp.exists = true;
  stamp.device = st.st_dev;
  stamp.inode = st.st_ino;
  stamp.size = static_cast<unsigned long long>(st.st_size);
  stamp.modifiedNs = st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;
  return stamp;
}

std::string whyNotWritable(TextView path) {
  // The writers write through a link at the end of the path, so the target is what counts.
  std::string file = platform::followFinalLink(platform::nativePath(path));
  std::string folder = platform::folderOfPath(file);
  struct stat st {};
  if (::stat(folder.c_str(), &st) != 0) return "folder does not exist";
  if (!S_ISDIR(st.st_mode)) return "parent is not a folder";
  if (::stat(file.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return "is a folder";
    if (platform::isReadOnlyMode(st.st_mode)) return "file is read-only";
    if (::access(file.c_str(), W_OK) != 0) return "permission denied";
  }
  if (::access(folder.c_str(), W_OK) != 0) return "folder is not writable";
  if (int e = platform::writeFailuresOnThisThread().lastError) return std::strerror(e);
  return "not written";
}

void failWrite(const char* command, TextView path) {
  throw ToolError{std::string(command) + ": cannot write " + quotePath(path) + ": " +
                  whyNotWritable(path)};
}

}  // namespace zrk::cli
