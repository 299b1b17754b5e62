// The process table: the id list, the first module of a process, and the snapshot walk.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
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

// While one lives, the calls of EnumProcesses on its thread are served from one reading of
// /proc, made at the first of them: a caller that asks again with more room gets the same
// picture, and the directory is read once.
class ProcessTableReading {
 public:
  ProcessTableReading();
  ~ProcessTableReading();
  ProcessTableReading(const ProcessTableReading&) = delete;
  ProcessTableReading& operator=(const ProcessTableReading&) = delete;
  // The ids of /proc, in the directory's order, as read at the first call.
  const std::vector<uint32_t>& ids();

 private:
  ProcessTableReading* outer_;
  std::optional<std::vector<uint32_t>> ids_;
};

// A process and the name of its first module: the executable's full path where the caller may
// read it (the system shows it to those who may read the process's memory), else the program as
// the process was started (the first argument of its command line, when its file name begins
// with the kernel's short name), else that short name; cut to MAX_PATH - 1 bytes. Names are the
// system's bytes.
struct NamedProcess {
  uint32_t pid;
  std::string name;
};
// Each process of `ids` that has a program, in that order, with its first module's name; a
// process without one (a kernel thread) or that has ended is left out. Read through /proc
// opened once, without opening the processes: one readlink a process whose executable the
// caller may read or that has none, the command line and short name besides for the others.
std::vector<NamedProcess> firstModuleNames(const std::vector<uint32_t>& ids);

// A picture of the process table at this moment, every account's processes, each named by the
// file name of its first module's name (a kernel thread by its short name);
// 0xFFFFFFFF (invalid) for other kinds.
HANDLE CreateToolhelp32Snapshot(uint32_t flags, uint32_t pid);
// The first and the next entry of a snapshot; `entry.dwSize` must be 296. Non-zero while an
// entry was delivered, 0 at the end.
int32_t Process32First(HANDLE snapshot, PROCESSENTRY32& entry);
int32_t Process32Next(HANDLE snapshot, PROCESSENTRY32& entry);

// Test seam: replaces EnumProcesses (an empty function restores the real one).
void setEnumProcesses(std::function<int32_t(uint32_t*, uint32_t, uint32_t&)> fn);

}  // namespace zrk::platform
