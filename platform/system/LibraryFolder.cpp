// The library's folder: a chosen root first, then where the loaded file lies, then the user's own.
#include "platform/system/LibraryFolder.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <string>

#include "platform/files/Paths.h"
#include "platform/files/SafeFile.h"

namespace zrk::platform {
namespace {

std::mutex gMutex;
std::optional<Text> gOverride;
std::optional<Text> gHostRoot;

// The file this code was loaded from: the shared library, or the program itself when the code is
// linked into it. The loader names the program after argv[0], so the program is found through
// /proc/self/exe instead.
std::string loadedFile() {
  Dl_info info{};
  link_map* map = nullptr;
  if (::dladdr1(reinterpret_cast<void*>(&loadedFile), &info, reinterpret_cast<void**>(&map),
                RTLD_DL_LINKMAP) == 0) {
    return std::string();
  }
  char real[PATH_MAX];
  if (map && map->l_name && map->l_name[0]) {
    return ::realpath(map->l_name, real) ? real : map->l_name;
  }
  // The kernel gives the program's path with every link already resolved.
  ssize_t n = ::readlink("/proc/self/exe", real, sizeof real);
  return n > 0 && size_t(n) < sizeof real ? std::string(real, size_t(n)) : "/proc/self/exe";
}

Text loadedFolder() {
  std::string file = loadedFile();
  return file.empty() ? Text() : parentOf(fromUtf8(file));
}

std::optional<Text> environmentRoot() {
  const char* root = ::getenv("ZRKKVL_ROOT");
  if (!root || !*root) return std::nullopt;
  return fromUtf8(root);
}

std::string homeFolder() {
  if (const char* home = ::getenv("HOME"); home && *home) return home;
  struct passwd pw {
  }, *found = nullptr;
  char buf[4096];
  if (::getpwuid_r(::getuid(), &pw, buf, sizeof buf, &found) == 0 && found && pw.pw_dir) {
    return pw.pw_dir;
  }
  return std::string();
}

// The folder that holds the per-user root. A relative XDG_DATA_HOME is not valid and is ignored.
std::string dataHome() {
  const char* data = ::getenv("XDG_DATA_HOME");
  if (data && data[0] == '/') return data;
  std::string home = homeFolder();
  return (home == "/" ? "" : home) + "/.local/share";
}

}  // namespace

Text perUserRoot() {
  return fromUtf8(dataHome() + "/zrkkvl");
}

namespace {

// The per-user root's library folder, made with mode 0700 on first use. An account without a
// home would have it made in "/": it is not made, and the first write there fails as any write
// to a missing folder does.
Text perUserLibraryFolder() {
  std::string data = dataHome();
  std::string folder = data + "/zrkkvl" + toUtf8(kLibrarySubPath);
  if (data != "/.local/share") makeFolders(folder, 0700);
  return fromUtf8(folder);
}

}  // namespace

Text libraryFolder() {
  if (auto chosen = chosenLibraryFolder()) return *chosen;
  return ownLibraryFolder();
}

std::optional<Text> chosenLibraryFolder() {
  {
    std::lock_guard lock(gMutex);
    if (gOverride) return *gOverride;
  }
  if (auto root = environmentRoot()) return *root + Text(kLibrarySubPath);
  std::lock_guard lock(gMutex);
  if (gHostRoot) return *gHostRoot + Text(kLibrarySubPath);
  return std::nullopt;
}

Text ownLibraryFolder() {
  Text loaded = loadedFolder();
  if (loaded.ends_with(kLibrarySubPath)) return loaded;
  return perUserLibraryFolder();
}

void overrideLibraryFolder(std::optional<Text> folder) {
  std::lock_guard lock(gMutex);
  gOverride = std::move(folder);
}

void setHostRoot(std::optional<Text> root) {
  std::lock_guard lock(gMutex);
  if (root && root->empty()) root.reset();
  gHostRoot = std::move(root);
}

}  // namespace zrk::platform
