// The library's folder from the dynamic loader's record of this very file.
#include "platform/LibraryFolder.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <mutex>
#include <string>

#include "platform/Paths.h"

namespace zrk::platform {
namespace {

std::mutex gOverrideMutex;
std::optional<Text> gOverride;

Text loadedFolder() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(&loadedFolder), &info) == 0 || !info.dli_fname)
    return Text();
  std::string file = info.dli_fname;
  char real[PATH_MAX];
  if (::realpath(file.c_str(), real)) file = real;
  Text folder = parentOf(fromUtf8(file));
  return folder;
}

}  // namespace

Text libraryFolder() {
  {
    std::lock_guard lock(gOverrideMutex);
    if (gOverride) return *gOverride;
  }
  return loadedFolder();
}

void overrideLibraryFolder(std::optional<Text> folder) {
  std::lock_guard lock(gOverrideMutex);
  gOverride = std::move(folder);
}

}  // namespace zrk::platform
