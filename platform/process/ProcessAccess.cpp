// Process access through pidfds and the kernel's own check behind process_vm_readv.
#include "platform/process/ProcessAccess.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace zrk::platform {
namespace {

constexpr int kCapSysPtrace = 19;

// Whether our own effective capabilities hold CAP_SYS_PTRACE.
bool holdsPtraceCapability() {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("CapEff:", 0) == 0) {
      return (std::strtoull(line.c_str() + 7, nullptr, 16) >> kCapSysPtrace) & 1;
    }
  }
  return false;
}

}  // namespace

int openProcessFd(uint32_t pid) {
  if (pid == 0 || pid > uint32_t(INT_MAX)) {
    errno = ESRCH;
    return -1;
  }
  return int(::syscall(SYS_pidfd_open, pid_t(pid), 0u));
}

bool processAlive(int pidFd) {
  // A pidfd turns readable once its process has exited.
  pollfd p{pidFd, POLLIN, 0};
  int ready;
  do {
    ready = ::poll(&p, 1, 0);
  } while (ready < 0 && errno == EINTR);
  return ready == 0;
}

bool mayReadMemory(uint32_t pid) {
  // The kernel checks the right to read before it looks at the address, and address 0 is never
  // mapped: EFAULT means allowed, EPERM refused, ESRCH no memory to read (or no process).
  char byte;
  iovec local{&byte, 1}, remote{nullptr, 1};
  if (::process_vm_readv(pid_t(pid), &local, 1, &remote, 1, 0) >= 0) return true;
  return errno == EFAULT || errno == ESRCH;
}

std::optional<int> ptraceScope() {
  std::ifstream in("/proc/sys/kernel/yama/ptrace_scope");
  int scope;
  if (!(in >> scope)) return std::nullopt;
  return scope;
}

std::string accessRefusal(std::optional<int> scope) {
  if (scope == 3) return "ptrace_scope is 3: no process may read another's memory";
  std::string text = "needs root or CAP_SYS_PTRACE";
  if (scope) text += "; ptrace_scope is " + std::to_string(*scope);
  return text;
}

std::string whyUnreadable(uint32_t pid) {
  int fd = openProcessFd(pid);
  if (fd < 0) {
    if (errno == ESRCH) return "no such process";
    if (errno == EINVAL) return "it is a thread, not a process";
    return std::strerror(errno);
  }
  ::close(fd);
  if (mayReadMemory(pid)) return {};
  std::optional<int> scope = ptraceScope();
  if (scope != 3 && holdsPtraceCapability()) {
    return "refused although CAP_SYS_PTRACE is held: the process is protected";
  }
  return accessRefusal(scope);
}

}  // namespace zrk::platform
