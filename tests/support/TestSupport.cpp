// Test helpers over POSIX.
#include "support/TestSupport.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "core/mdlKVN.h"
#include "platform/ini/ProfileCache.h"
#include "platform/system/LibraryFolder.h"
#include "platform/text/CodePage.h"

namespace zrk::test {
namespace {

// The recovery folder of in-place rewrites lies in a throwaway folder for the whole test run
// (and for the tools the tests start), never in the home of whoever runs the tests.
struct ThrowawayStateFolder {
  ThrowawayStateFolder() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "zrkkvl-state-XXXXXX").string();
    if (::mkdtemp(tmpl.data())) {
      path = tmpl;
      ::setenv("XDG_STATE_HOME", path.c_str(), 1);
    }
  }
  ~ThrowawayStateFolder() {
    std::error_code ec;
    if (!path.empty() && ::getpid() == owner) std::filesystem::remove_all(path, ec);
  }
  std::string path;
  pid_t owner = ::getpid();
} gStateFolder;

}  // namespace

TempDir::TempDir() : TempDir(std::filesystem::temp_directory_path().string()) {}

TempDir::TempDir(const std::string& parent) {
  for (const std::string& in : {parent, std::filesystem::temp_directory_path().string()}) {
    std::string tmpl = in + "/zrkkvl-test-XXXXXX";
    if (::mkdtemp(tmpl.data())) {
      path_ = tmpl;
      return;
    }
  }
  std::abort();
}

TempDir::~TempDir() {
  removeTree(path_);
}

Text TempDir::text(const std::string& name) const {
  return fromUtf8(name.empty() ? path_ : path_ + "/" + name);
}

void removeTree(const std::string& path) {
  // Read-only items made by a test must not stop the clean-up; what a link points to is no
  // part of the tree.
  std::error_code ec;
  for (auto& e : std::filesystem::recursive_directory_iterator(path, ec)) {
    if (!e.is_symlink(ec)) {
      std::filesystem::permissions(e.path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ec);
    }
  }
  std::filesystem::remove_all(path, ec);
}

struct stat statOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st;
}

std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

std::set<std::string> entriesOf(const std::string& dir) {
  std::set<std::string> out;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    out.insert(e.path().filename().string());
  return out;
}

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

void makeDir(const std::string& path) {
  std::filesystem::create_directories(path);
}

void makeUnopenableFile(const std::string& path) {
  int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (fd < 0 || path.size() >= sizeof addr.sun_path) std::abort();
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) std::abort();
  ::close(fd);
}

void waitTillStampsLieBehind(const std::string& path) {
  auto ns = [](const struct timespec& t) { return int64_t(t.tv_sec) * 1000000000 + t.tv_nsec; };
  for (int tries = 0; tries < 5000; ++tries) {
    struct stat st;
    struct timespec now;
    if (::stat(path.c_str(), &st) != 0) std::abort();
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    // The step the cache allows each stamp, and a few milliseconds more.
    int64_t margin =
        std::max(platform::stampStep(st.st_mtim), platform::stampStep(st.st_ctim)) + 2000000;
    if (std::max(ns(st.st_mtim), ns(st.st_ctim)) + margin < ns(now)) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::abort();
}

Text bytes(std::string_view b) {
  return platform::fromAnsi(b);
}
std::string ansi(const Text& t) {
  return platform::toAnsi(t);
}

std::string builtFile(const char* name, const char* compiled) {
  const char* set = std::getenv(name);
  return set && *set ? set : compiled;
}

namespace {

// Whether every folder above `path` lets other accounts through and the file lets them run it.
bool othersReach(const std::filesystem::path& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !(st.st_mode & S_IXOTH)) return false;
  for (auto p = path.parent_path(); !p.empty(); p = p.parent_path()) {
    if (::stat(p.c_str(), &st) != 0 || !(st.st_mode & S_IXOTH)) return false;
    if (p == p.root_path()) break;
  }
  return true;
}

// Copies kept for the whole run, in one folder that goes with the process.
struct SharedCopies {
  std::mutex mutex;
  std::unique_ptr<TempDir> dir;
  std::map<std::string, std::string> copies;
};

}  // namespace

std::string reachableByAll(const std::string& path) {
  if (othersReach(path)) return path;
  static SharedCopies shared;
  std::lock_guard lock(shared.mutex);
  auto& copy = shared.copies[path];
  if (copy.empty()) {
    if (!shared.dir) {
      shared.dir = std::make_unique<TempDir>();
      std::filesystem::permissions(shared.dir->path(), std::filesystem::perms(0755));
    }
    copy = *shared.dir / std::to_string(shared.copies.size()) + "-" +
           std::filesystem::path(path).filename().string();
    std::filesystem::copy_file(path, copy);
  }
  return copy;
}

void LibraryTest::SetUp() {
  mdlKVN::state() = mdlKVN::State{};  // every test starts the thread afresh
  makeDir(root / "dlls/Main Functions DLL");
  platform::overrideLibraryFolder(root.text("dlls/Main Functions DLL"));
  dialogs = std::make_shared<platform::ScriptedDialogs>();
  platform::setDialogBackend(dialogs);
  kvn = std::make_unique<clsKVN>();
}

void LibraryTest::TearDown() {
  kvn.reset();
  mdlKVN::ReleaseLibrary();
  platform::overrideLibraryFolder(std::nullopt);
  platform::setDialogBackend(nullptr);
}

}  // namespace zrk::test
