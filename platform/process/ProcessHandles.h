// The process-wide table of 32-bit handles: processes, tokens and snapshots opened by the
// platform layer. The one piece of state that all threads share, so it is guarded by a mutex.
#pragma once

#include <cstdint>
#include <memory>

namespace zrk::platform {

using HANDLE = uint32_t;

// What a handle stands for; each kind derives from this.
struct HandleObject {
  virtual ~HandleObject() = default;
};

class HandleTable {
 public:
  static HandleTable& instance();

  // A new handle for `object`: never 0 and never the current-process pseudo handle.
  HANDLE add(std::shared_ptr<HandleObject> object);
  // The object behind `h`, or null when `h` is not open.
  std::shared_ptr<HandleObject> find(HANDLE h) const;
  template <class T>
  std::shared_ptr<T> get(HANDLE h) const {
    return std::dynamic_pointer_cast<T>(find(h));
  }
  // Drops the handle; false if it was not open. The object goes with its last user.
  bool close(HANDLE h);
  // How many handles are open.
  size_t size() const;
};

}  // namespace zrk::platform
