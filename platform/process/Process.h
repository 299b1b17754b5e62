// Process and token operations: opening another process, reading its memory, and the token of
// our own process with its debug privilege.
#pragma once

#include <cstddef>
#include <cstdint>

#include <zrkKVL/Text.h>
#include "platform/process/ProcessHandles.h"

namespace zrk::platform {

// Access rights of a process handle.
inline constexpr uint32_t PROCESS_VM_READ = 0x10;
inline constexpr uint32_t PROCESS_QUERY_INFORMATION = 0x400;
inline constexpr uint32_t PROCESS_ALL_ACCESS = 0x1F0FFF;
// Access rights of a token.
inline constexpr uint32_t TOKEN_QUERY = 0x08;
inline constexpr uint32_t TOKEN_ADJUST_PRIVILEGES = 0x20;
// Privilege attributes.
inline constexpr uint32_t SE_PRIVILEGE_ENABLED = 2;

struct LUID {
  uint32_t LowPart = 0;
  int32_t HighPart = 0;
};

// A privilege record with room for one entry.
struct TOKEN_PRIVILEGES {
  uint32_t PrivilegeCount = 0;
  LUID Luid;
  uint32_t Attributes = 0;
};
static_assert(sizeof(TOKEN_PRIVILEGES) == 16);

// The pseudo handle of our own process; it needs no closing.
HANDLE GetCurrentProcess();

// The token of `process` (only our own) with `access`; non-zero on success.
int32_t OpenProcessToken(HANDLE process, uint32_t access, HANDLE& token);
// The identifier of a privilege by name (any case) on the system `systemName` ("" is this one);
// non-zero on success.
int32_t LookupPrivilegeValueA(TextView systemName, TextView name, LUID& luid);
// Applies the record's attributes to the token; needs TOKEN_ADJUST_PRIVILEGES. `previous` and
// `returnLength` may be null. Non-zero on success.
int32_t AdjustTokenPrivileges(HANDLE token, int32_t disableAll, const TOKEN_PRIVILEGES& state,
                              uint32_t bufferLength, TOKEN_PRIVILEGES* previous,
                              uint32_t* returnLength);
// Whether the debug privilege of our token is on now.
bool debugPrivilegeEnabled();

// Opens process `pid` with `access`, or gives 0; a thread's id opens nothing. The handle holds
// the process itself: once it has ended, nothing more is read through the handle, also when a
// new process has taken its id. An open that asks to read memory is refused where the system
// would refuse us the process's memory.
HANDLE OpenProcess(uint32_t access, int32_t inheritHandle, uint32_t pid);
// Whether the debug privilege was on when the process handle `h` was opened.
bool openedWithDebugPrivilege(HANDLE h);
// The process id behind a process handle, 0 for none.
uint32_t processIdOf(HANDLE h);

// Releases any handle of the table; non-zero if it was open.
int32_t CloseHandle(HANDLE h);

// Copies up to `size` bytes from `address` in the process into `buffer`: the bytes up to the
// first that cannot be read. `bytesRead` (may be null) gets their count. Non-zero if all were
// read. The handle needs PROCESS_VM_READ.
int32_t ReadProcessMemory(HANDLE process, uint64_t address, void* buffer, size_t size,
                          size_t* bytesRead);

// Test seam: reads leave the memory file aside and go through process_vm_readv, as for a
// caller that holds CAP_SYS_PTRACE but may not open another user's files.
void setMemoryFileUse(bool on);
// Test seams: make the token steps fail as they would on a locked-down machine.
enum class TokenFault { None, OpenToken, LookupPrivilege };
void setTokenFault(TokenFault fault);

}  // namespace zrk::platform
