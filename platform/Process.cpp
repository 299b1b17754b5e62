// Process and token operations over /proc, process_vm_readv and a token of our own.
#include "platform/Process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "platform/ProcessObject.h"

namespace zrk::platform {
namespace {

constexpr HANDLE kCurrentProcess = 0xFFFFFFFF;
constexpr LUID kDebugLuid{20, 0};
// Rights that touch the process's memory; asking for any of them runs the system's check.
constexpr uint32_t kMemoryRights = 0x08 | PROCESS_VM_READ | 0x20;

std::atomic<bool> gDebugPrivilege{false};
std::atomic<TokenFault> gTokenFault{TokenFault::None};
std::atomic<bool> gMemoryFileOnly{false};

struct TokenObject : HandleObject {
  explicit TokenObject(uint32_t access) : access(access) {}
  const uint32_t access;
};

std::string procPath(uint32_t pid, const char* leaf) {
  return "/proc/" + std::to_string(pid) + "/" + leaf;
}

size_t pageSize() {
  static const size_t size = size_t(::sysconf(_SC_PAGESIZE));
  return size;
}

// One process_vm_readv with the remote range cut at page boundaries: the system stops at the
// first piece it cannot read and reports the whole pieces before it. -1 if nothing was read.
ssize_t readByPages(pid_t pid, uint64_t address, void* buffer, size_t size) {
  std::vector<iovec> remote;
  for (uint64_t at = address, end = address + size; at < end;) {
    uint64_t next = std::min<uint64_t>(end, (at / pageSize() + 1) * pageSize());
    remote.push_back({reinterpret_cast<void*>(at), size_t(next - at)});
    at = next;
  }
  iovec local{buffer, size};
  return ::process_vm_readv(pid, &local, 1, remote.data(), remote.size(), 0);
}

// The same through the process's memory file, which the system reads page by page.
size_t readThroughFile(int fd, uint64_t address, void* buffer, size_t size) {
  if (fd < 0 || address > uint64_t(LLONG_MAX)) return 0;
  ssize_t n = ::pread(fd, buffer, size, off_t(address));
  return n > 0 ? size_t(n) : 0;
}

}  // namespace

ProcessObject::~ProcessObject() {
  if (memFd >= 0) ::close(memFd);
}

const std::string& ProcessObject::executable() {
  std::call_once(exeOnce_, [&] { exe_ = executableOf(pid); });
  return exe_;
}

std::string executableOf(uint32_t pid) {
  char buf[PATH_MAX];
  ssize_t n = ::readlink(procPath(pid, "exe").c_str(), buf, sizeof buf);
  return n > 0 ? std::string(buf, size_t(n)) : std::string();
}

HANDLE GetCurrentProcess() {
  return kCurrentProcess;
}

int32_t OpenProcessToken(HANDLE process, uint32_t access, HANDLE& token) {
  bool own = process == kCurrentProcess || processIdOf(process) == uint32_t(::getpid());
  if (!own || gTokenFault == TokenFault::OpenToken) return 0;
  token = HandleTable::instance().add(std::make_shared<TokenObject>(access));
  return 1;
}

int32_t LookupPrivilegeValueA(TextView systemName, TextView name, LUID& luid) {
  if (!systemName.empty() || gTokenFault == TokenFault::LookupPrivilege) return 0;
  if (!equalsNoCase(name, u"SeDebugPrivilege")) return 0;
  luid = kDebugLuid;
  return 1;
}

int32_t AdjustTokenPrivileges(HANDLE token, int32_t disableAll, const TOKEN_PRIVILEGES& state,
                              uint32_t, TOKEN_PRIVILEGES* previous, uint32_t* returnLength) {
  auto t = HandleTable::instance().get<TokenObject>(token);
  if (!t || !(t->access & TOKEN_ADJUST_PRIVILEGES)) return 0;
  bool was = gDebugPrivilege;
  if (disableAll) {
    gDebugPrivilege = false;
  } else if (state.PrivilegeCount >= 1 && state.Luid.LowPart == kDebugLuid.LowPart &&
             state.Luid.HighPart == kDebugLuid.HighPart) {
    gDebugPrivilege = (state.Attributes & SE_PRIVILEGE_ENABLED) != 0;
  }
  if (previous) *previous = {1, kDebugLuid, was ? SE_PRIVILEGE_ENABLED : 0};
  if (returnLength) *returnLength = sizeof(TOKEN_PRIVILEGES);
  return 1;
}

bool debugPrivilegeEnabled() {
  return gDebugPrivilege;
}

HANDLE OpenProcess(uint32_t access, int32_t, uint32_t pid) {
  if (pid == 0 || pid > uint32_t(INT_MAX)) return 0;
  int fd = -1;
  if (access & kMemoryRights) {
    // Opening the memory file runs the same check as a memory read.
    fd = ::open(procPath(pid, "mem").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
  } else {
    struct stat st;
    if (::stat(procPath(pid, "").c_str(), &st) != 0) return 0;
  }
  auto object = std::make_shared<ProcessObject>(pid, access, fd, gDebugPrivilege.load());
  return HandleTable::instance().add(std::move(object));
}

bool openedWithDebugPrivilege(HANDLE h) {
  auto p = HandleTable::instance().get<ProcessObject>(h);
  return p && p->withDebug;
}

uint32_t processIdOf(HANDLE h) {
  auto p = HandleTable::instance().get<ProcessObject>(h);
  return p ? p->pid : 0;
}

int32_t CloseHandle(HANDLE h) {
  return HandleTable::instance().close(h) ? 1 : 0;
}

int32_t ReadProcessMemory(HANDLE process, uint64_t address, void* buffer, size_t size,
                          size_t* bytesRead) {
  if (bytesRead) *bytesRead = 0;
  auto p = HandleTable::instance().get<ProcessObject>(process);
  if (!p || !(p->access & PROCESS_VM_READ) || size == 0) return 0;
  size_t got;
  errno = ENOSYS;
  ssize_t n = gMemoryFileOnly ? -1 : readByPages(pid_t(p->pid), address, buffer, size);
  if (n >= 0) {
    got = size_t(n);
  } else if (errno == EFAULT) {
    got = 0;  // the first byte is not mapped
  } else {
    got = readThroughFile(p->memFd, address, buffer, size);
  }
  if (bytesRead) *bytesRead = got;
  return got == size ? 1 : 0;
}

void setTokenFault(TokenFault fault) {
  gTokenFault = fault;
}

void setMemoryFileOnly(bool on) {
  gMemoryFileOnly = on;
}

}  // namespace zrk::platform
