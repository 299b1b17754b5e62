// The writers' file rules on a real file system: links, owners, modes, read-only files, a full
// disk, kills during a write, long names. Run as root and as an unprivileged user.
#include "platform/SafeFile.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>

#include <zrkKVL/Failure.h>
#include "platform/ExtractionFolder.h"
#include "platform/FileIO.h"
#include "platform/ProfileOps.h"
#include "platform/SysCalls.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::failureOf;
using test::readBytes;
using test::T;
using test::TempDir;
using test::writeBytes;

struct stat statOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st;
}

std::set<std::string> entriesOf(const std::string& dir) {
  std::set<std::string> out;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    out.insert(e.path().filename().string());
  return out;
}

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
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
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

// Where the file system has no unnamed files, a short temporary name of the file's own takes
// their place, with the same results and nothing left behind.
TEST(FileRules, WithoutUnnamedFilesATemporaryNameServes) {
  faults::Scope scope;
  TempDir d;
  writeBytes(d / "old", "old");
  ::chmod((d / "old").c_str(), 0640);
  writeBytes(d / ".~zrk.old", "left by a killed writer");
  mode_t mask = ::umask(027);
  for (const char* name : {"old", "new"}) {
    faults::add({faults::Call::OpenWrite, d / name, EOPNOTSUPP, 0, 1});
    writeFileWhole(d / name, std::string("content of ") + name);
    EXPECT_EQ(readBytes(d / name), std::string("content of ") + name);
  }
  ::umask(mask);
  EXPECT_EQ(statOf(d / "old").st_mode & 07777, 0640u);
  EXPECT_EQ(statOf(d / "new").st_mode & 07777, 0640u);
  EXPECT_EQ(entriesOf(d.path()), (std::set<std::string>{"new", "old"}));
  faults::add({faults::Call::OpenWrite, d / "old", EOPNOTSUPP, 0, 1});
  faults::diskFull(d / "old");
  EXPECT_EQ(failureOf([&] { writeFileWhole(d / "old", "lost"); }), err::DiskFull);
  EXPECT_EQ(readBytes(d / "old"), "content of old");
  EXPECT_EQ(entriesOf(d.path()), (std::set<std::string>{"new", "old"}));
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

// A writer killed at any moment leaves the old content or the new, whole, and no temporary
// that outlives the next write.
TEST(FileRules, AKilledWriterLeavesOneWholeVersionAndNoTemporary) {
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
    entries.erase(".~zrk.f");  // killed between its link and its rename: the next write takes it
    EXPECT_EQ(entries, std::set<std::string>{"f"}) << "round " << round;
  }
  writeFileWhole(path, "last");
  EXPECT_EQ(entriesOf(d.path()), std::set<std::string>{"f"});
}

}  // namespace
}  // namespace zrk::platform
