// Process and token operations over pidfds, the memory file, process_vm_readv and a token of
// our own.
#include "platform/process/Process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/process/ProcessAccess.h"
#include "platform/process/ProcessObject.h"

namespace zrk::platform {
namespace {

constexpr HANDLE kCurrentProcess = 0xFFFFFFFF;
constexpr LUID kDebugLuid{20, 0};
// Rights that touch the process's memory; asking for any of them runs the system's check.
constexpr uint32_t kMemoryRights = 0x08 | PROCESS_VM_READ | 0x20;

std::atomic<bool> gDebugPrivilege{false};
std::atomic<TokenFault> gTokenFault{TokenFault::None};
std::atomic<bool> gMemoryFile{true};

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

// One process_vm_readv of up to kPieces pieces, the remote range cut at page boundaries: the
// system stops at the first piece it cannot read and reports the whole pieces before it.
// Gives the bytes read; `complete` tells whether the range was read to its end.
constexpr size_t kPieces = 16;
size_t readPieces(pid_t pid, uint64_t address, uint64_t end, char* buffer, bool& complete) {
  iovec remote[kPieces];
  size_t count = 0;
  uint64_t at = address;
  while (at < end && count < kPieces) {
    uint64_t next = std::min<uint64_t>(end, (at / pageSize() + 1) * pageSize());
    remote[count++] = {reinterpret_cast<void*>(at), size_t(next - at)};
    at = next;
  }
  iovec local{buffer, size_t(at - address)};
  ssize_t n = ::process_vm_readv(pid, &local, 1, remote, count, 0);
  size_t got = n > 0 ? size_t(n) : 0;
  complete = got == local.iov_len;
  return got;
}

// Reads up to `size` bytes from `address` onwards, stopping at the first byte that can't be read.
size_t readByPages(pid_t pid, uint64_t address, char* buffer, size_t size) {
  uint64_t end = address + std::min<uint64_t>(size, UINT64_MAX - address);
  size_t total = 0;
  for (bool complete = true; complete && address + total < end;) {
    total += readPieces(pid, address + total, end, buffer + total, complete);
  }
  return total;
}

// The same through the process's memory file, which stops at the first page it cannot read.
size_t readThroughFile(int fd, uint64_t address, char* buffer, size_t size) {
  if (address > uint64_t(LLONG_MAX)) return 0;
  ssize_t n = ::pread(fd, buffer, size, off_t(address));
  return n > 0 ? size_t(n) : 0;
}

// Through process_vm_readv, kept only if the process is still alive afterwards: then the id
// was still its own during the read.
size_t readById(const ProcessObject& p, uint64_t address, char* buffer, size_t size) {
  size_t got = readByPages(pid_t(p.pid), address, buffer, size);
  if (got && !p.alive()) {
    std::memset(buffer, 0, got);  // another process's bytes, once the id was given again
    got = 0;
  }
  return got;
}

// The target of a /proc link, or empty.
std::string linkTarget(const std::string& link) {
  char buf[PATH_MAX];
  ssize_t n = ::readlink(link.c_str(), buf, sizeof buf);
  return n > 0 ? std::string(buf, size_t(n)) : std::string();
}

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

ProcessObject::~ProcessObject() {
  ::close(pidFd);
  if (memFd_ >= 0) ::close(memFd_);
}

int ProcessObject::memoryFile() {
  std::call_once(memOnce_, [&] {
    if (!gMemoryFile) return;
    memFd_ = ::open(procPath(pid, "mem").c_str(), O_RDONLY | O_CLOEXEC);
    if (memFd_ >= 0 && !alive()) {  // the file may be of the id's next process
      ::close(memFd_);
      memFd_ = -1;
    }
  });
  return memFd_;
}

bool ProcessObject::alive() const {
  return processAlive(pidFd);
}

const std::string& ProcessObject::executable() {
  std::call_once(exeOnce_, [&] {
    exe_ = executableOf(pid);
    if (!alive()) exe_.clear();  // the id may already be another process's
  });
  return exe_;
}

std::string executableOf(uint32_t pid) {
  return executableFromLink(pid, linkTarget(procPath(pid, "exe")));
}

std::string executableFromLink(uint32_t pid, std::string exe) {
  static constexpr std::string_view kDeleted = " (deleted)";
  if (!exe.ends_with(kDeleted)) return exe;
  // The mark is the system's unless a file of that very name is the executable.
  struct stat named, running;
  bool isNamed = ::stat(exe.c_str(), &named) == 0 &&
                 ::stat(procPath(pid, "exe").c_str(), &running) == 0 && sameFile(named, running);
  if (!isNamed) exe.resize(exe.size() - kDeleted.size());
  return exe;
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
  int fd = openProcessFd(pid);  // refuses thread ids and ids of no process
  if (fd < 0) return 0;
  if ((access & kMemoryRights) && !mayReadMemory(pid)) {
    ::close(fd);
    return 0;
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
  char* bytes = static_cast<char*>(buffer);
  int file = p->memoryFile();
  size_t got = file >= 0 ? readThroughFile(file, address, bytes, size) : 0;
  // Short of the memory file, or past its end: the file belongs to the memory the process had
  // when it was opened, which an exec replaces.
  if (got < size) got = readById(*p, address, bytes, size);
  if (bytesRead) *bytesRead = got;
  return got == size ? 1 : 0;
}

void setTokenFault(TokenFault fault) {
  gTokenFault = fault;
}

void setMemoryFileUse(bool on) {
  gMemoryFile = on;
}

}  // namespace zrk::platform
