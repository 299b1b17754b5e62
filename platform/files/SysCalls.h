// The file layer's system calls, with a seam that injects faults (disk full, write refused, a
// file that vanishes, a read-only folder) for tests.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace zrk::platform {

namespace sys {
int open(const char* path, int flags, mode_t mode = 0644);
ssize_t write(int fd, const void* buf, size_t n, const char* path);
ssize_t pwrite(int fd, const void* buf, size_t n, off_t offset, const char* path);
int mkdir(const char* path, mode_t mode);
int unlink(const char* path);
int rmdir(const char* path);
// The *at forms name the file for the seam by `path`.
int openat(int dirFd, const char* name, int flags, mode_t mode, const char* path);
int renameat(int dirFd, const char* from, const char* to, const char* path);
// Gives the open file `fd` (an unnamed one included) the name `name` in the folder `dirFd`.
int linkat(int fd, int dirFd, const char* name, const char* path);

// Writes all of `bytes` at offset `at`, or at the descriptor's position for kAtPosition, again
// after a short write or a signal. Gives 0, or the error of the write that failed (EIO for one
// that wrote nothing). A null `path` keeps the writes out of the seam's reach.
inline constexpr off_t kAtPosition = -1;
int writeAll(int fd, std::string_view bytes, off_t at, const char* path);
// Reads `n` bytes into `into` at offset `at`, or at the descriptor's position for kAtPosition,
// again after a short read or a signal; fewer only at the end of the file. Gives the count read,
// or -1 with errno set.
ssize_t readAll(int fd, char* into, size_t n, off_t at);
}  // namespace sys

// Faults for the calls above (a link that puts a file in place counts as its rename). Each rule
// fails the calls of its kind whose path holds `pathPart` with `error`, after letting `skip` of
// them through, at most `times` times (-1: always).
namespace faults {
enum class Call { OpenRead, OpenWrite, Write, MakeFolder, Remove, Rename };
struct Rule {
  Call call;
  std::string pathPart;
  int error;
  int skip = 0;
  int times = -1;
};
void add(Rule rule);
// As a rule's `error`: the process is killed (SIGKILL) at that call, before it is made.
inline constexpr int kKilledHere = -9;
void clear();

// The usual faults, by name.
void diskFull(const std::string& pathPart, int skip = 0);      // writes fail with ENOSPC
void writeRefused(const std::string& pathPart, int skip = 0);  // opens for writing: EACCES
void vanishes(const std::string& pathPart, int skip = 0);      // opens for reading: ENOENT
void readOnlyFolder(const std::string& pathPart);              // anything that changes it: EROFS

// Clears every rule when it goes.
struct Scope {
  ~Scope() { clear(); }
};
}  // namespace faults

}  // namespace zrk::platform
