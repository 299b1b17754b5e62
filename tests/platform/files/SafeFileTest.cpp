// The writers' file rules on a real file system: links, owners, modes, read-only files, a full
// disk, kills during a write, long names. Run as root and as an unprivileged user.
#include "platform/files/SafeFile.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <set>

#include <zrkKVL/Failure.h>
#include "platform/files/BinaryFile.h"
#include "platform/files/ExtractionFolder.h"
#include "platform/files/FileIO.h"
#include "platform/files/SysCalls.h"
#include "platform/ini/ProfileOps.h"
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

// Every writer of whole files, over a native path.
struct Writer {
  const char* name;
  std::function<void(const std::string&, const std::string&)> write;
};

const std::vector<Writer>& wholeFileWriters() {
  static const std::vector<Writer> all = {
      {"writeFileWhole", [](const std::string& p, const std::string& b) { writeFileWhole(p, b); }},
      {"output open",
       [](const std::string& p, const std::string& b) {
         OutputFile out(T(p), OutputFile::Mode::Output);
         out.writeBytes(b);
         out.close();
       }},
  };
  return all;
}

TEST(FileRules, AFinalLinkIsWrittenThroughAndStaysALink) {
  for (const Writer& w : wholeFileWriters()) {
    TempDir d;
    test::makeDir(d / "elsewhere");
    writeBytes(d / "elsewhere/target", "old");
    ASSERT_EQ(::symlink("elsewhere/target", (d / "link").c_str()), 0);
    ASSERT_EQ(::symlink("link", (d / "link2").c_str()), 0);  // a link to a link
    w.write(d / "link2", "new");
    EXPECT_EQ(readBytes(d / "elsewhere/target"), "new") << w.name;
    EXPECT_TRUE(S_ISLNK(statOf(d / "link").st_mode)) << w.name;
    EXPECT_TRUE(S_ISLNK(statOf(d / "link2").st_mode)) << w.name;
    EXPECT_EQ(entriesOf(d.path()), (std::set<std::string>{"elsewhere", "link", "link2"}));
    EXPECT_EQ(entriesOf(d / "elsewhere"), std::set<std::string>{"target"}) << w.name;
  }
}

TEST(FileRules, ARewriteKeepsModeOwnerAndHardLinks) {
  for (const Writer& w : wholeFileWriters()) {
    TempDir d;
    writeBytes(d / "f", "old");
    ::chmod((d / "f").c_str(), 0640);
    ASSERT_EQ(::link((d / "f").c_str(), (d / "hard").c_str()), 0);
    struct stat before = statOf(d / "f");
    w.write(d / "f", "new content");
    struct stat after = statOf(d / "f");
    EXPECT_EQ(after.st_mode & 07777, 0640u) << w.name;
    EXPECT_EQ(after.st_uid, before.st_uid) << w.name;
    EXPECT_EQ(after.st_ino, before.st_ino) << w.name << ": the hard link is not split";
    EXPECT_EQ(readBytes(d / "hard"), "new content") << w.name;
    EXPECT_EQ(entriesOf(d.path()), (std::set<std::string>{"f", "hard"})) << w.name;
  }
}

// Root rewriting a file of another user leaves it that user's, so that user can go on
// writing it.
TEST(FileRules, RootRewritingAnotherUsersFileKeepsItTheirs) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to own a file for another user";
  struct passwd* nobody = ::getpwnam("nobody");
  ASSERT_NE(nobody, nullptr);
  for (const Writer& w : wholeFileWriters()) {
    TempDir d;
    writeBytes(d / "f", "old");
    ASSERT_EQ(::chown((d / "f").c_str(), nobody->pw_uid, nobody->pw_gid), 0);
    w.write(d / "f", "new");
    struct stat st = statOf(d / "f");
    EXPECT_EQ(st.st_uid, nobody->pw_uid) << w.name;
    EXPECT_EQ(st.st_gid, nobody->pw_gid) << w.name;
    EXPECT_EQ(readBytes(d / "f"), "new") << w.name;
    // The owner goes on writing it, in a folder where it may not make files.
    ::chmod(d.path().c_str(), 0755);
    // Its recovery folder, for the rewrite in place, is one of its own.
    test::makeDir(d / "state");
    ASSERT_EQ(::chown((d / "state").c_str(), nobody->pw_uid, nobody->pw_gid), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::setenv("XDG_STATE_HOME", (d / "state").c_str(), 1);
      bool ok = ::setgid(nobody->pw_gid) == 0 && ::setuid(nobody->pw_uid) == 0 &&
                replaceFileAtomically(d / "f", "by its owner");
      ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << w.name;
    EXPECT_EQ(readBytes(d / "f"), "by its owner") << w.name;
  }
}

TEST(FileRules, NewFilesTakeTheUmask) {
  for (mode_t mask : {mode_t(022), mode_t(077), mode_t(002), mode_t(0)}) {
    mode_t old = ::umask(mask);
    TempDir d;
    writeFileWhole(d / "whole", "x");
    OutputFile(T(d / "append"), OutputFile::Mode::Append).close();
    Text section = u"S", key = u"k", value = u"v";
    EXPECT_TRUE(WritePrivateProfileStringA(&section, &key, &value, T(d / "ini")));
    {
      ExtractionFolder out(T(d.path()));
      out.writeFile(u"member", "m");
    }
    ::umask(old);
    for (const char* name : {"whole", "append", "ini", "member"})
      EXPECT_EQ(statOf(d / name).st_mode & 07777, 0666 & ~mask) << name << " " << std::oct << mask;
  }
}

// A file without any write bit is read-only for every caller, root included.
TEST(FileRules, ReadOnlyFilesAreRefusedAndStayAsTheyWere) {
  struct Case {
    const char* what;
    std::function<void(const std::string&)> write;
  } cases[] = {
      {"whole file", [](const std::string& p) { writeFileWhole(p, "new"); }},
      {"output", [](const std::string& p) { OutputFile(T(p), OutputFile::Mode::Output); }},
      {"append", [](const std::string& p) { OutputFile(T(p), OutputFile::Mode::Append); }},
  };
  for (const auto& c : cases) {
    TempDir d;
    writeBytes(d / "ro", "old");
    ::chmod((d / "ro").c_str(), 0444);
    EXPECT_EQ(failureOf([&] { c.write(d / "ro"); }), err::PermissionDenied) << c.what;
    EXPECT_EQ(readBytes(d / "ro"), "old") << c.what;
    EXPECT_FALSE(replaceFileAtomically(d / "ro", "new")) << c.what;
    EXPECT_EQ(entriesOf(d.path()), std::set<std::string>{"ro"}) << c.what;
  }
}

TEST(FileRules, NamesUpToTheFileSystemLimitAreWritten) {
  TempDir d;
  for (size_t length : {200u, 254u, 255u}) {
    std::string path = d / std::string(length, 'n');
    writeFileWhole(path, "x");
    writeFileWhole(path, "y");
    EXPECT_EQ(readBytes(path), "y") << length;
  }
  EXPECT_EQ(failureOf([&] { writeFileWhole(d / std::string(256, 'n'), "x"); }),
            err::BadFileNameOrNumber);
  EXPECT_EQ(entriesOf(d.path()).size(), 3u);
}

// Where the file system has no unnamed files, a random temporary name made exclusively takes
// their place, with the same results and nothing left behind; a user's file that bears a name
// the library once used stays as it is.
TEST(FileRules, WithoutUnnamedFilesATemporaryNameServes) {
  faults::Scope scope;
  TempDir d;
  writeBytes(d / "old", "old");
  ::chmod((d / "old").c_str(), 0640);
  writeBytes(d / ".~zrk.old", "a user's own file");
  mode_t mask = ::umask(027);
  for (const char* name : {"old", "new"}) {
    faults::add({faults::Call::OpenWrite, d / name, EOPNOTSUPP, 0, 1});
    writeFileWhole(d / name, std::string("content of ") + name);
    EXPECT_EQ(readBytes(d / name), std::string("content of ") + name);
  }
  ::umask(mask);
  EXPECT_EQ(statOf(d / "old").st_mode & 07777, 0640u);
  EXPECT_EQ(statOf(d / "new").st_mode & 07777, 0640u);
  const std::set<std::string> all = {".~zrk.old", "new", "old"};
  EXPECT_EQ(entriesOf(d.path()), all);
  faults::add({faults::Call::OpenWrite, d / "old", EOPNOTSUPP, 0, 1});
  faults::diskFull(d / "old");
  EXPECT_EQ(failureOf([&] { writeFileWhole(d / "old", "lost"); }), err::DiskFull);
  EXPECT_EQ(readBytes(d / "old"), "content of old");
  EXPECT_EQ(entriesOf(d.path()), all);
  EXPECT_EQ(readBytes(d / ".~zrk.old"), "a user's own file");
}

TEST(FileRules, AnUnclosedOutputKeepsTheOldContent) {
  TempDir d;
  writeBytes(d / "f", "old");
  {
    OutputFile out(T(d / "f"), OutputFile::Mode::Output);
    out.writeBytes("half of the new");
  }
  EXPECT_EQ(readBytes(d / "f"), "old");
  EXPECT_EQ(entriesOf(d.path()), std::set<std::string>{"f"});
}

// A small tmpfs of its own; skipped where mounting is not permitted.
class FullDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::mount("tmpfs", dir.path().c_str(), "tmpfs", 0, "size=64k") != 0) {
      GTEST_SKIP() << "mounting a 64 KB tmpfs is not permitted here (needs root)";
    }
    mounted = true;
  }
  void TearDown() override {
    if (mounted) ::umount2(dir.path().c_str(), MNT_DETACH);
  }
  TempDir dir;
  bool mounted = false;
};

TEST_F(FullDisk, AWriteThatDoesNotFitKeepsTheOldContentWhole) {
  const std::string old(40 * 1024, 'o'), bigger(40 * 1024, 'n');
  std::string hard = dir / "hard";
  writeBytes(dir / "f", old);
  writeBytes(dir / "g", std::string(12 * 1024, 'g'));
  ASSERT_EQ(::link((dir / "g").c_str(), hard.c_str()), 0);
  for (const Writer& w : wholeFileWriters()) {
    EXPECT_EQ(failureOf([&] { w.write(dir / "f", bigger); }), err::DiskFull) << w.name;
    EXPECT_EQ(readBytes(dir / "f"), old) << w.name;
    // A hard-linked file is rewritten in place: room for it is taken before any byte changes.
    EXPECT_EQ(failureOf([&] { w.write(hard, bigger); }), err::DiskFull) << w.name;
    EXPECT_EQ(readBytes(hard), std::string(12 * 1024, 'g')) << w.name;
    EXPECT_EQ(entriesOf(dir.path()), (std::set<std::string>{"f", "g", "hard"})) << w.name;
  }
  writeFileWhole(dir / "f", "fits");
  EXPECT_EQ(readBytes(dir / "f"), "fits");
}

// A writer killed at any moment leaves the old content or the new, whole, and nothing beside
// it but, for a kill between the temporary's name and its rename, that random name.
TEST(FileRules, AKilledWriterLeavesOneWholeVersion) {
  TempDir d;
  const std::string a(300 * 1024, 'a'), b(200 * 1024, 'b');
  std::string path = d / "f";
  writeFileWhole(path, a);
  for (int round = 0; round < 27; ++round) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int i = 0;; ++i)
        writeFileWhole(path, i % 2 ? a : b);
    }
    ::usleep(useconds_t(2000 + round * 700));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    std::string now = readBytes(path);
    EXPECT_TRUE(now == a || now == b) << "round " << round << ": " << now.size() << " bytes";
    std::set<std::string> entries = entriesOf(d.path());
    // Killed between its link and its rename: a random name of the library's own, which no
    // later write mistakes for anything.
    std::erase_if(entries, [](const std::string& e) { return e.rfind(".zrk-tmp-", 0) == 0; });
    EXPECT_EQ(entries, std::set<std::string>{"f"}) << "round " << round;
  }
}

// Every whole-file writer, over a folder that holds a user's entries of every name the library
// once used for itself: they are never removed, replaced or in the way, and nothing else is left.
TEST(FileRules, TemporariesAreTheLibrarysAlone) {
  TempDir d;
  writeBytes(d / ".~zrk.f", "a user's file");
  test::makeDir(d / ".~zrk.g");
  writeBytes(d / ".~zrk.g/inside", "kept");
  ASSERT_EQ(::symlink("f", (d / ".~zrk.h").c_str()), 0);
  const std::set<std::string> users = {".~zrk.f", ".~zrk.g", ".~zrk.h"};
  for (const Writer& w : wholeFileWriters()) {
    for (const char* name : {"f", "g", "h"}) {
      w.write(d / name, std::string("first ") + name);
      w.write(d / name, std::string("second ") + name);
      EXPECT_EQ(readBytes(d / name), std::string("second ") + name) << w.name;
    }
  }
  {
    ExtractionFolder out(T(d.path()));
    for (const char* name : {"f", ".~zrk.f2", "g"})
      out.writeFile(T(name), std::string("member ") + name);
    EXPECT_TRUE(out.flush().empty());
  }
  EXPECT_EQ(readBytes(d / ".~zrk.f"), "a user's file");
  EXPECT_EQ(readBytes(d / ".~zrk.g/inside"), "kept");
  EXPECT_EQ(readBytes(d / ".~zrk.f2"), "member .~zrk.f2");
  EXPECT_EQ(readBytes(d / "g"), "member g");
  char target[8] = {};
  EXPECT_EQ(::readlink((d / ".~zrk.h").c_str(), target, sizeof target - 1), 1);
  std::set<std::string> all = users;
  all.insert({"f", "g", "h", ".~zrk.f2"});
  EXPECT_EQ(entriesOf(d.path()), all);
}

// A FIFO, a socket or a device where a file is written is refused with 75 at once: no writer
// waits for a reader, and the special file stays what it was.
TEST(FileRules, OnlyRegularFilesAreWritten) {
  TempDir d;
  ASSERT_EQ(::mkfifo((d / "fifo").c_str(), 0600), 0);
  test::makeUnopenableFile(d / "socket");
  ASSERT_EQ(::symlink("/dev/null", (d / "null").c_str()), 0);
  ::alarm(30);  // a writer that blocks ends the test instead of hanging it
  for (const char* name : {"fifo", "socket", "null"}) {
    std::string path = d / name;
    for (const Writer& w : wholeFileWriters())
      EXPECT_EQ(failureOf([&] { w.write(path, "x"); }), err::PathFileAccessError) << name;
    EXPECT_EQ(failureOf([&] { OutputFile out(T(path), OutputFile::Mode::Append); }),
              err::PathFileAccessError)
        << name;
    EXPECT_EQ(failureOf([&] { BinaryFile file(T(path)); }), err::PathFileAccessError) << name;
  }
  {
    ExtractionFolder out(T(d.path()));
    EXPECT_EQ(failureOf([&] { out.writeFile(u"fifo", "x"); }), err::PathFileAccessError);
  }
  ::alarm(0);
  EXPECT_TRUE(S_ISFIFO(statOf(d / "fifo").st_mode));
  EXPECT_TRUE(S_ISSOCK(statOf(d / "socket").st_mode));
  EXPECT_TRUE(S_ISLNK(statOf(d / "null").st_mode));
}

// Members that do not fit are reported one by one; those that fit are whole, and nothing else
// is left on the full disk.
TEST_F(FullDisk, ExtractionKeepsEveryMemberWholeOrAbsent) {
  std::vector<std::string> failedNames;
  {
    ExtractionFolder out(T(dir.path()));
    for (int i = 0; i < 10; ++i) {
      std::string name = "m" + std::to_string(i);
      try {
        out.writeFile(T(name), std::string(12 * 1024, char('a' + i)));
      } catch (const Failure& f) {
        EXPECT_EQ(f.number(), err::DiskFull) << name;
        failedNames.push_back(name);
      }
    }
    for (auto& [name, failure] : out.flush())
      failedNames.push_back(toUtf8(name));
  }
  EXPECT_FALSE(failedNames.empty());
  for (const std::string& e : entriesOf(dir.path())) {
    ASSERT_EQ(e[0], 'm') << e;
    EXPECT_TRUE(readBytes(dir / e) == std::string(12 * 1024, char('a' + (e[1] - '0')))) << e;
  }
  EXPECT_EQ(entriesOf(dir.path()).size() + failedNames.size(), 10u);
}

// An append that fails leaves the file at the length it had, without part of a line.
TEST_F(FullDisk, AFailedAppendLeavesTheOldLength) {
  writeBytes(dir / "log", "line 1\r\n");
  writeBytes(dir / "filler", std::string(40 * 1024, 'f'));
  OutputFile out(T(dir / "log"), OutputFile::Mode::Append);
  std::string big(64 * 1024, 'x');
  EXPECT_EQ(failureOf([&] {
              out.writeBytes(big);
              out.close();
            }),
            err::DiskFull);
  EXPECT_EQ(readBytes(dir / "log"), "line 1\r\n");
}

// A failed write is counted for callers whose operation gives no sign of it.
TEST(FileRules, FailedWritesAreCounted) {
  faults::Scope scope;
  TempDir d;
  WriteFailures before = writeFailuresOnThisThread();
  writeFileWhole(d / "f", "x");
  EXPECT_EQ(writeFailuresOnThisThread().count, before.count);
  faults::add({faults::Call::Rename, d / "f", EIO});
  EXPECT_FALSE(replaceFileAtomically(d / "f", "y"));
  EXPECT_EQ(writeFailuresOnThisThread().count, before.count + 1);
  EXPECT_EQ(writeFailuresOnThisThread().lastError, EIO);
  EXPECT_EQ(readBytes(d / "f"), "x");
  EXPECT_EQ(entriesOf(d.path()), std::set<std::string>{"f"});
}

}  // namespace
}  // namespace zrk::platform
