// The folder lock: nested on one thread, exclusive between threads and processes, released by
// a holder that dies, and one lock for the two names of a packed pair.
#include "platform/files/FolderLock.h"

#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::makeDir;
using test::TempDir;

// Whether another open of the folder could take the lock now, without waiting.
bool lockIsFree(const std::string& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
  ::close(fd);
  return free;
}

TEST(FolderLock, NestsOnOneThreadAndGoesWithTheOutermost) {
  TempDir dir;
  {
    FolderLock outer(dir.path());
    EXPECT_TRUE(FolderLock::heldByThisThread(dir.path()));
    EXPECT_FALSE(lockIsFree(dir.path()));
    {
      FolderLock inner(dir.path());  // would wait for ever if it did not nest
      FolderLock again(dir.path() + "/.");
      EXPECT_FALSE(lockIsFree(dir.path()));
    }
    EXPECT_TRUE(FolderLock::heldByThisThread(dir.path()));
    EXPECT_FALSE(lockIsFree(dir.path()));
  }
  EXPECT_FALSE(FolderLock::heldByThisThread(dir.path()));
  EXPECT_TRUE(lockIsFree(dir.path()));
}

TEST(FolderLock, AnotherThreadWaits) {
  TempDir dir;
  std::atomic<bool> taken{false};
  std::thread other;
  {
    FolderLock lock(dir.path());
    other = std::thread([&] {
      FolderLock theirs(dir.path());
      taken = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(taken) << "the other thread took a held lock";
  }
  other.join();
  EXPECT_TRUE(taken);
}

TEST(FolderLock, AnotherProcessWaitsAndADeadHolderReleases) {
  TempDir dir;
  int pipeFds[2];
  ASSERT_EQ(::pipe(pipeFds), 0);
  pid_t child;
  {
    FolderLock lock(dir.path());
    child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      FolderLock theirs(dir.path());
      char c = 'x';
      (void)!::write(pipeFds[1], &c, 1);
      ::pause();  // holds the lock until killed
      ::_exit(0);
    }
    ::close(pipeFds[1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    char c;
    int flags = ::fcntl(pipeFds[0], F_GETFL);
    ::fcntl(pipeFds[0], F_SETFL, flags | O_NONBLOCK);
    EXPECT_EQ(::read(pipeFds[0], &c, 1), -1) << "the other process took a held lock";
    ::fcntl(pipeFds[0], F_SETFL, flags);
  }
  char c = 0;
  EXPECT_EQ(::read(pipeFds[0], &c, 1), 1);  // the child has it now
  EXPECT_FALSE(lockIsFree(dir.path()));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::close(pipeFds[0]);
  EXPECT_TRUE(lockIsFree(dir.path()));
}

// The plain and the packed name lie in one folder and share its lock; a final link leads to the
// folder of the file it names, where that file's other writers take theirs.
TEST(FolderLock, TheLockOfAFile) {
  TempDir dir;
  makeDir(dir / "real");
  ASSERT_EQ(::symlink((dir / "real/p.ini").c_str(), (dir / "p.ini").c_str()), 0);
  EXPECT_EQ(lockFolderOf(dir / "x.ini"), lockFolderOf(dir / "x.bini"));
  EXPECT_EQ(lockFolderOf(dir / "x.ini"), dir.path());
  EXPECT_EQ(lockFolderOf(dir / "p.ini"), dir / "real");
  EXPECT_EQ(lockFolderOf("x.ini"), ".");
}

// A folder that cannot be opened takes no lock and does not block.
TEST(FolderLock, MissingFolderTakesNoLock) {
  TempDir dir;
  FolderLock lock(dir / "missing");
  EXPECT_FALSE(FolderLock::heldByThisThread(dir / "missing"));
  EXPECT_TRUE(lockIsFree(dir.path()));
}

}  // namespace
}  // namespace zrk::platform
