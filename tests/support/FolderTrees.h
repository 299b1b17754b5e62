// Trees for the folder-walk tests: a process that keeps swapping a folder with a link to
// elsewhere, trees deeper than the longest path the system takes, and a listing of a tree with
// the owner, mode and content of each entry.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/TestSupport.h"

namespace zrk::test {

// A process of its own that exchanges each pair of entries with renameat2(RENAME_EXCHANGE) as
// fast as it can, until the object goes. It counts the exchanges that took place.
class Swapper {
 public:
  explicit Swapper(std::vector<std::pair<std::string, std::string>> pairs) {
    void* shared = ::mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) std::abort();
    swaps_ = new (shared) std::atomic<long>(0);
    pid_ = ::fork();
    if (pid_ < 0) std::abort();
    if (pid_ == 0) {
      for (;;) {
        for (const auto& [a, b] : pairs) {
          if (::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0) {
            swaps_->fetch_add(1, std::memory_order_relaxed);
          }
        }
      }
    }
  }
  ~Swapper() {
    stop();
    ::munmap(swaps_, sizeof(std::atomic<long>));
  }
  Swapper(const Swapper&) = delete;
  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }
  long swaps() const { return swaps_->load(); }

 private:
  pid_t pid_ = 0;
  std::atomic<long>* swaps_ = nullptr;
};

// A soft limit on open descriptors for the object's life.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t soft) {
    ::getrlimit(RLIMIT_NOFILE, &old_);
    struct rlimit l = old_;
    l.rlim_cur = soft;
    ::setrlimit(RLIMIT_NOFILE, &l);
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &old_); }

 private:
  struct rlimit old_;
};

// The name of each level of a deep tree, and the file every 100th level and the bottom hold.
inline const std::string kLevel = "level";
inline const std::string kDeepFile = "f.txt";

// Makes `levels` nested folders below `top` (which exists), through descriptors only, so that
// the whole path is longer than any path the system takes.
inline void makeDeepTree(const std::string& top, int levels) {
  int fd = ::open(top.c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < levels; ++i) {
    if (fd < 0 || ::mkdirat(fd, kLevel.c_str(), 0755) != 0) std::abort();
    int next = ::openat(fd, kLevel.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
    if (fd < 0) std::abort();
    if (i % 100 == 99 || i == levels - 1) {
      int f = ::openat(fd, kDeepFile.c_str(), O_CREAT | O_WRONLY, 0640);
      std::string content = "level " + std::to_string(i);
      if (f < 0 || ::write(f, content.data(), content.size()) != ssize_t(content.size()))
        std::abort();
      ::close(f);
    }
  }
  ::close(fd);
}

// The number of nested levels below `top`, walked through descriptors; `filesWhole` tells
// whether every level that should hold a file holds it with its content.
inline int deepTreeLevels(const std::string& top, bool& filesWhole) {
  filesWhole = true;
  int fd = ::open(top.c_str(), O_RDONLY | O_DIRECTORY);
  int levels = 0;
  for (;;) {
    int next = ::openat(fd, kLevel.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    ::close(fd);
    if (next < 0) break;
    fd = next;
    struct stat st;
    bool hasFile = ::fstatat(fd, kDeepFile.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
    if (levels % 100 == 99 || hasFile) {
      int f = ::openat(fd, kDeepFile.c_str(), O_RDONLY);
      char buf[64];
      ssize_t n = f < 0 ? -1 : ::read(f, buf, sizeof buf);
      if (f >= 0) ::close(f);
      filesWhole =
          filesWhole && n > 0 && std::string(buf, size_t(n)) == "level " + std::to_string(levels);
    }
    ++levels;
  }
  return levels;
}

// What a tree holds, entry by entry (paths relative to its top): the kind, mode, owner and
// group, and a file's content or a link's target.
struct TreeEntry {
  char kind;  // 'd' folder, 'f' file, 'l' link, 'p' FIFO, '?' other
  mode_t mode;
  uid_t uid;
  gid_t gid;
  std::string data;
  bool operator==(const TreeEntry&) const = default;
};
inline void PrintTo(const TreeEntry& e, std::ostream* os) {
  char line[64];
  std::snprintf(line, sizeof line, "%c %04o %u:%u ", e.kind, unsigned(e.mode), unsigned(e.uid),
                unsigned(e.gid));
  *os << line << e.data.substr(0, 40);
}
using TreeListing = std::map<std::string, TreeEntry>;

inline TreeListing listTree(const std::string& top) {
  TreeListing out;
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator(top, ec);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    std::string p = it->path().string();
    struct stat st;
    if (::lstat(p.c_str(), &st) != 0) continue;
    TreeEntry e{'?', mode_t(st.st_mode & 07777), st.st_uid, st.st_gid, ""};
    if (S_ISDIR(st.st_mode)) e.kind = 'd';
    if (S_ISFIFO(st.st_mode)) e.kind = 'p';
    if (S_ISREG(st.st_mode)) e.kind = 'f', e.data = readBytes(p);
    if (S_ISLNK(st.st_mode)) {
      e.kind = 'l';
      e.mode = 0;
      e.data = std::filesystem::read_symlink(p, ec).string();
    }
    out[p.substr(top.size())] = e;
  }
  return out;
}

inline std::string describe(const TreeListing& t) {
  std::ostringstream s;
  for (const auto& [path, e] : t) {
    s << path << " ";
    PrintTo(e, &s);
    s << "\n";
  }
  return s.str();
}

}  // namespace zrk::test
