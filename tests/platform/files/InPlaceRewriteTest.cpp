// In-place rewrites of files that must keep their inode (hard-linked files, folders that take
// no new file): the old content is copied to the recovery folder first, so that a failure or a
// kill at any step leaves it whole or recoverable.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <set>

#include <zrkKVL/Failure.h>
#include "platform/files/ExtractionFolder.h"
#include "platform/files/FileIO.h"
#include "platform/files/SafeFile.h"
#include "platform/files/SysCalls.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::entriesOf;
using test::failureOf;
using test::readBytes;
using test::statOf;
using test::T;
using test::TempDir;
using test::writeBytes;

// The recovery folder of a test of its own, for the in-place rewrites.
class InPlace : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const char* was = std::getenv("XDG_STATE_HOME")) before = was;
    ::setenv("XDG_STATE_HOME", state.path().c_str(), 1);
    writeBytes(dir / "f", old);
    ASSERT_EQ(::link((dir / "f").c_str(), (dir / "link").c_str()), 0);
  }
  void TearDown() override {
    if (before.empty()) {
      ::unsetenv("XDG_STATE_HOME");
    } else {
      ::setenv("XDG_STATE_HOME", before.c_str(), 1);
    }
  }
  std::vector<std::string> copies() const {
    std::vector<std::string> all;
    std::string folder = state / "zrkkvl/recovery";
    if (!test::exists(folder)) return all;
    for (const auto& e : std::filesystem::directory_iterator(folder))
      all.push_back(readBytes(e.path()));
    return all;
  }
  TempDir state, dir;
  std::string before;
  const std::string old = std::string(64 * 1024, 'o');
};

// A failure at any step of an in-place rewrite puts the old content back and leaves no copy;
// the hard link stays.
TEST_F(InPlace, AFailedRewriteKeepsTheOldContentAndTheLinks) {
  faults::Scope scope;
  struct Case {
    faults::Call call;
    int error;
    int32_t number;
  } cases[] = {
      {faults::Call::Write, ENOSPC, err::DiskFull},
      {faults::Call::Write, EIO, err::DeviceIOError},
      {faults::Call::OpenWrite, EACCES, err::PermissionDenied},
  };
  for (const Case& c : cases) {
    faults::add({c.call, dir / "f", c.error});
    EXPECT_EQ(failureOf([&] { writeFileWhole(dir / "f", std::string(200 * 1024, 'n')); }),
              c.number);
    faults::clear();
    EXPECT_TRUE(readBytes(dir / "f") == old) << c.number;
    EXPECT_EQ(statOf(dir / "f").st_ino, statOf(dir / "link").st_ino);
    EXPECT_TRUE(copies().empty()) << c.number;
  }
  writeFileWhole(dir / "f", "new");
  EXPECT_EQ(readBytes(dir / "link"), "new");
  EXPECT_TRUE(copies().empty());
}

// A folder that takes no new file still lets a writable file in it be rewritten, in place.
TEST_F(InPlace, AFolderThatTakesNoNewFileIsRewrittenInPlace) {
  if (::geteuid() == 0) GTEST_SKIP() << "root writes every folder";
  writeBytes(dir / "g", "old g");
  ::chmod(dir.path().c_str(), 0555);
  writeFileWhole(dir / "g", "new g");
  EXPECT_EQ(failureOf([&] { writeFileWhole(dir / "h", "new h"); }), err::PermissionDenied);
  ::chmod(dir.path().c_str(), 0755);
  EXPECT_EQ(readBytes(dir / "g"), "new g");
  EXPECT_EQ(entriesOf(dir.path()), (std::set<std::string>{"f", "g", "link"}));
  EXPECT_TRUE(copies().empty());
}

// A recovery folder that cannot be made refuses the rewrite before the file changes.
// A recovery folder that is a link, or cannot be made, is passed over for the next place.
TEST_F(InPlace, ARecoveryFolderNotOfTheCallersOwnIsPassedOver) {
  TempDir elsewhere, home;
  test::makeDir(state / "zrkkvl");
  ASSERT_EQ(::symlink(elsewhere.path().c_str(), (state / "zrkkvl/recovery").c_str()), 0);
  std::string homeWas = std::getenv("HOME") ? std::getenv("HOME") : "";
  ::setenv("HOME", home.path().c_str(), 1);
  EXPECT_EQ(recoveryFolder(), home / ".local/state/zrkkvl/recovery");
  writeFileWhole(dir / "f", "new");
  EXPECT_EQ(readBytes(dir / "link"), "new");
  EXPECT_TRUE(entriesOf(elsewhere.path()).empty());
  EXPECT_TRUE(entriesOf(home / ".local/state/zrkkvl/recovery").empty());
  ::setenv("HOME", homeWas.c_str(), 1);
}

// A writer killed at any moment of an in-place rewrite leaves the file old or new, whole, or
// torn with its old content whole in the recovery folder.
TEST_F(InPlace, AKilledRewriteLeavesTheOldContentRecoverable) {
  const std::string a(3 << 20, 'a'), b(2 << 20, 'b');
  writeFileWhole(dir / "f", a);
  std::mt19937 random(11);
  int torn = 0;
  // Every content the file had when a round ended: a torn one is copied whole by the next
  // round's writer before it rewrites the file, and that copy stays if the writer is killed.
  std::set<std::string> contents{a, b};
  for (int round = 0; round < 30; ++round) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int i = 0;; ++i)
        writeFileWhole(dir / "f", i % 2 ? a : b);
    }
    ::usleep(useconds_t(1000 + random() % 40000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    std::string now = readBytes(dir / "link");
    contents.insert(now);
    if (now != a && now != b) {
      ++torn;
      std::vector<std::string> kept = copies();
      EXPECT_TRUE(std::count(kept.begin(), kept.end(), a) + std::count(kept.begin(), kept.end(), b))
          << "round " << round << ": a torn file and no whole copy of its old content";
    }
    EXPECT_EQ(statOf(dir / "f").st_ino, statOf(dir / "link").st_ino);
  }
  // A copy is one of those contents, or the start of one (its writer killed while copying).
  for (const std::string& copy : copies()) {
    EXPECT_TRUE(std::any_of(contents.begin(), contents.end(), [&](const std::string& c) {
      return c.starts_with(copy);
    })) << copy.size();
  }
  RecordProperty("torn", torn);
}

// Each writer killed at each of its calls behind the seam: the file holds its old content or
// its new, whole, and the old content of a file rewritten in place is never lost.
TEST_F(InPlace, AWriterKilledAtAnyOfItsCallsLeavesOneWholeVersion) {
  const std::string fresh = std::string(100 * 1024, 'n');
  struct Case {
    const char* writer;
    std::string path;
    std::function<void()> write;
  } cases[] = {
      {"new file", dir / "new", [&] { writeFileWhole(dir / "new", fresh); }},
      {"replaced file", dir / "g", [&] { writeFileWhole(dir / "g", fresh); }},
      {"hard-linked file", dir / "f", [&] { writeFileWhole(dir / "f", fresh); }},
      {"append", dir / "g",
       [&] {
         OutputFile out(T(dir / "g"), OutputFile::Mode::Append);
         out.writeBytes(fresh);
         out.close();
       }},
      {"extraction", dir / "g",
       [&] {
         ExtractionFolder out(T(dir.path()));
         out.writeFile(u"g", fresh);
         out.writeFile(u"new", fresh);
       }},
  };
  using faults::Call;
  int killed = 0;
  for (const Case& c : cases) {
    for (Call call : {Call::OpenWrite, Call::Write, Call::Rename}) {
      for (int skip : {0, 1}) {
        writeBytes(dir / "g", old);
        ::unlink((dir / "new").c_str());
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
          faults::add({call, c.path, faults::kKilledHere, skip, 1});
          c.write();
          ::_exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        killed += WIFSIGNALED(status);
        std::string now = test::exists(c.path) ? readBytes(c.path) : "absent";
        bool whole = now == old || now == fresh || now == old + fresh ||
                     (now == "absent" && c.path == dir / "new");
        EXPECT_TRUE(whole) << c.writer << " call " << int(call) << " skip " << skip << ": "
                           << now.size() << " bytes";
        EXPECT_TRUE(readBytes(dir / "link") == old || readBytes(dir / "link") == fresh) << c.writer;
        writeBytes(dir / "f", old);
      }
    }
  }
  EXPECT_GE(killed, 10) << "the seam's kills reach the writers' calls";
}

}  // namespace
}  // namespace zrk::platform
