// What a process handle holds; shared by the process operations and the process list.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "platform/process/ProcessHandles.h"

namespace zrk::platform {

struct ProcessObject : HandleObject {
  ProcessObject(uint32_t pid, uint32_t access, int pidFd, bool withDebug)
      : pid(pid), access(access), pidFd(pidFd), withDebug(withDebug) {}
  ~ProcessObject() override;

  const uint32_t pid;
  const uint32_t access;
  const int pidFd;  // the process itself: it tells when the process has ended
  const bool withDebug;

  // Whether the process has not ended. What was read through `pid` counts only if it is still
  // alive afterwards: then the id was still its own.
  bool alive() const;
  // The executable's path, read once when first asked; empty when it can't be read.
  const std::string& executable();
  // The process's memory file, opened when first asked, or -1 where we may not open it (it
  // needs the file's owner or root, beside the right to read). It holds the memory the process
  // had then, so a read through it never reaches another process; one system call a read.
  int memoryFile();

 private:
  std::once_flag memOnce_;
  int memFd_ = -1;
  std::once_flag exeOnce_;
  std::string exe_;
};

// The full path of the executable of `pid` (one readlink), or empty. An executable deleted or
// replaced since the start gives its path without the " (deleted)" the system adds.
std::string executableOf(uint32_t pid);
// The same from `link`, the target of /proc/PID/exe read already.
std::string executableFromLink(uint32_t pid, std::string link);

}  // namespace zrk::platform
