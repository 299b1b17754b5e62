// What a process handle holds; shared by the process operations and the process list.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "platform/ProcessHandles.h"

namespace zrk::platform {

struct ProcessObject : HandleObject {
  ProcessObject(uint32_t pid, uint32_t access, int memFd, bool withDebug)
      : pid(pid), access(access), memFd(memFd), withDebug(withDebug) {}
  ~ProcessObject() override;

  const uint32_t pid;
  const uint32_t access;
  const int memFd;  // /proc/PID/mem when memory may be read, else -1
  const bool withDebug;

  // The executable's path, read once when first asked; empty when it can't be read.
  const std::string& executable();

 private:
  std::once_flag exeOnce_;
  std::string exe_;
};

// The full path of the executable of `pid` (one readlink), or empty.
std::string executableOf(uint32_t pid);

}  // namespace zrk::platform
