// Opening libraries through the dynamic loader, and the test seam that names another file.
#include "platform/loader/SharedLibrary.h"

#include <dlfcn.h>

namespace zrk::platform {
namespace {

std::mutex gOverrideMutex;
std::map<std::string, std::string> gOverrides;  // by usual file
std::atomic<uint64_t> gOverrideCount{0};

}  // namespace

void* LibrarySymbols::find(const char* name) const {
  return ::dlsym(handle_, name);
}

// Bound at once and kept to itself: a missing function shows when the library is opened, and
// its symbols never stand in for another library's.
void* openLibrary(const std::string& file) {
  return ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
}

void overrideLibraryFile(const std::string& usual, std::string file) {
  std::lock_guard lock(gOverrideMutex);
  if (file.empty()) {
    gOverrides.erase(usual);
  } else {
    gOverrides[usual] = std::move(file);
  }
  gOverrideCount.fetch_add(1, std::memory_order_acq_rel);
}

std::string libraryFile(const std::string& usual) {
  std::lock_guard lock(gOverrideMutex);
  auto it = gOverrides.find(usual);
  return it == gOverrides.end() ? usual : it->second;
}

uint64_t libraryOverrides() {
  return gOverrideCount.load(std::memory_order_acquire);
}

}  // namespace zrk::platform
