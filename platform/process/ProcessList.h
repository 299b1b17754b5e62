// The process table: the id list, the first module of a process, and the snapshot walk.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/process/ProcessHandles.h"

namespace zrk::platform {

inline constexpr uint32_t TH32CS_SNAPPROCESS = 2;
inline constexpr size_t MAX_PATH = 260;

// The process entry in its ANSI form; names are the system's bytes (UTF-8 here).
struct PROCESSENTRY32 {
  uint32_t dwSize = 0;
  uint32_t cntUsage = 0;
  uint32_t th32ProcessID = 0;
  uint32_t th32DefaultHeapID = 0;
  uint32_t th32ModuleID = 0;
  uint32_t cntThreads = 0;
  uint32_t th32ParentProcessID = 0;
  int32_t pcPriClassBase = 0;
  uint32_t dwFlags = 0;
  char szExeFile[MAX_PATH] = {};
};
static_assert(sizeof(PROCESSENTRY32) == 296);

// Fills `ids` with up to cb / 4 process ids and sets `needed` to the bytes filled. Non-zero on
// success.
int32_t EnumProcesses(uint32_t* ids, uint32_t cb, uint32_t& needed);
// The module handles of a process opened with the query right, the executable's first; at most
// cb / 4 of them. `needed` gets the bytes all of them take. Non-zero on success; 0 for a process
// without a program (a kernel thread, or one that has ended).
int32_t EnumProcessModules(HANDLE process, uint32_t* modules, uint32_t cb, uint32_t& needed);
// The name of a module's file in `buffer` (bytes, NUL-ended when there is room), at most `size`
// bytes with the NUL: the executable's full path where the caller may read it (the system shows
// it to those who may read the process's memory), else the program as the process was started
// (the first argument of its command line, when its file name begins with the kernel's short
// name), else that short name. Gives the bytes written without the NUL, 0 on failure.
uint32_t GetModuleFileNameExA(HANDLE process, uint32_t module, char* buffer, uint32_t size);

// A picture of the process table at this moment, every account's processes, each named by the
// file name of what GetModuleFileNameExA gives (a kernel thread by its short name);
// 0xFFFFFFFF (invalid) for other kinds.
HANDLE CreateToolhelp32Snapshot(uint32_t flags, uint32_t pid);
// The first and the next entry of a snapshot; `entry.dwSize` must be 296. Non-zero while an
// entry was delivered, 0 at the end.
int32_t Process32First(HANDLE snapshot, PROCESSENTRY32& entry);
int32_t Process32Next(HANDLE snapshot, PROCESSENTRY32& entry);

// Test seam: replaces EnumProcesses (an empty function restores the real one).
void setEnumProcesses(std::function<int32_t(uint32_t*, uint32_t, uint32_t&)> fn);

}  // namespace zrk::platform
