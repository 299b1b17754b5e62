// Libraries opened at their first need: each user keeps a table of the functions it calls,
// filled once for the process from the library file. A library loaded once stays loaded.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace zrk::platform {

// The functions of one opened library, looked up by name.
class LibrarySymbols {
 public:
  explicit LibrarySymbols(void* handle) : handle_(handle) {}

  // Sets `f` to the function `name`; false when the library has none of that name.
  template <class F>
  bool bind(F& f, const char* name) const {
    f = reinterpret_cast<F>(find(name));
    return f != nullptr;
  }

 private:
  void* find(const char* name) const;
  void* handle_;
};

// Opens `file` (a name the loader searches for, or a path); null when it cannot be opened.
void* openLibrary(const std::string& file);

// Test seam: the file to open instead of `usual` at the next first need of a library usually
// opened as `usual`; an empty `file` restores the usual one.
void overrideLibraryFile(const std::string& usual, std::string file);
// The file to open for a library usually opened as `usual`.
std::string libraryFile(const std::string& usual);
// Counts the overrides made, so that a table in use notices one.
uint64_t libraryOverrides();

// The table `Api` of one library's functions, filled at the first get() by `bind`, which may
// also start the library; null when the library cannot be opened, lacks a function, or `bind`
// gives false. After the first get(), a call costs two atomic loads.
template <class Api>
class OnDemandLibrary {
 public:
  using Bind = bool (*)(const LibrarySymbols&, Api&);
  OnDemandLibrary(const char* usual, Bind bind) : usual_(usual), bind_(bind) {}

  const Api* get() {
    uint64_t overrides = libraryOverrides();
    const Api* api = current_.load(std::memory_order_acquire);
    if (api && overrides == seen_.load(std::memory_order_acquire)) return api;
    return load(overrides);
  }

 private:
  const Api* load(uint64_t overrides) {
    std::lock_guard lock(mutex_);
    std::string file = libraryFile(usual_);
    auto it = loaded_.find(file);
    if (it == loaded_.end()) it = loaded_.emplace(file, open(file)).first;
    const Api* api = it->second ? &*it->second : nullptr;
    seen_.store(overrides, std::memory_order_release);
    current_.store(api, std::memory_order_release);
    return api;
  }

  std::optional<Api> open(const std::string& file) const {
    void* handle = openLibrary(file);
    if (!handle) return std::nullopt;
    Api api{};
    if (!bind_(LibrarySymbols(handle), api)) return std::nullopt;
    return api;
  }

  const std::string usual_;
  const Bind bind_;
  std::mutex mutex_;
  std::map<std::string, std::optional<Api>> loaded_;  // by file; entries never move
  std::atomic<const Api*> current_{nullptr};
  std::atomic<uint64_t> seen_{0};
};

}  // namespace zrk::platform
