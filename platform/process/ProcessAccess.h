// Who may read another process's memory, and a process held by a pidfd rather than by its id,
// so that a process id taken over by a new process is never mistaken for the old one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zrk::platform {

// A pidfd for process `pid`, or -1 with errno set: ESRCH when no process has that id, EINVAL
// when the id is a thread's and not a process's.
int openProcessFd(uint32_t pid);
// Whether the process behind `pidFd` has not ended yet.
bool processAlive(int pidFd);

// Whether the kernel lets us read the memory of `pid` (same user or CAP_SYS_PTRACE, within
// Yama's ptrace_scope). A process without memory of its own (a kernel thread) counts as
// readable: there is nothing to read, and nothing is refused.
bool mayReadMemory(uint32_t pid);

// Yama's ptrace_scope (0 to 3), or nothing where Yama is not in the kernel.
std::optional<int> ptraceScope();
// What the caller lacks to read another user's process, as a user reads it: "needs root or
// CAP_SYS_PTRACE; ptrace_scope is 1".
std::string accessRefusal(std::optional<int> scope);
// Why the memory of `pid` cannot be read: no such process, a thread's id, the missing right;
// empty when nothing stands in the way.
std::string whyUnreadable(uint32_t pid);

}  // namespace zrk::platform
