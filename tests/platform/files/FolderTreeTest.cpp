// Folder trees removed, copied and moved through folder descriptors: a link swapped in by
// another process at any moment, trees deeper than the longest path, owners, modes and links
// kept, moves into the folder itself refused, kills in the middle of a copy.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <set>
#include <thread>

#include <zrkKVL/Failure.h>
#include "platform/files/FileSystemObject.h"
#include "platform/files/FolderTree.h"
#include "support/FolderTrees.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::failureOf;
using test::listTree;
using test::T;
using test::TempDir;
using test::TreeListing;

bool isLink(const std::string& p) {
  struct stat st;
  return ::lstat(p.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// A scratch folder on another file system than the test's own, or "" where there is none.
class OtherFileSystem {
 public:
  OtherFileSystem() {
    struct stat shm, tmp;
    TempDir probe;
    if (::stat(memory_.path().c_str(), &shm) == 0 && ::stat(probe.path().c_str(), &tmp) == 0 &&
        shm.st_dev != tmp.st_dev) {
      path_ = memory_.path();
    }
  }
  const std::string& path() const { return path_; }

 private:
  test::MemoryFolder memory_;
  std::string path_;
};

// The folder outside every tree: what a followed link would reach.
void makeOutside(const std::string& outside) {
  test::makeDir(outside + "/deep");
  for (int i = 0; i < 20; ++i)
    test::writeBytes(outside + "/outside-" + std::to_string(i), "outside");
  test::writeBytes(outside + "/deep/outside-deep", "outside");
}

// A tree holding, at the top and two levels down, a folder "sub" beside a link "link" to the
// outside folder: the pairs the swapper exchanges.
std::vector<std::pair<std::string, std::string>> makeSwappedTree(const std::string& tree,
                                                                 const std::string& outside) {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const std::string& at : {tree, tree + "/a/b"}) {
    test::makeDir(at + "/sub/nested");
    for (int i = 0; i < 12; ++i)
      test::writeBytes(at + "/sub/in-" + std::to_string(i), "in");
    test::writeBytes(at + "/sub/nested/in-nested", "in");
    if (::symlink(outside.c_str(), (at + "/link").c_str()) != 0) std::abort();
    pairs.emplace_back(at + "/sub", at + "/link");
  }
  test::writeBytes(tree + "/a/in-a", "in");
  return pairs;
}

// Whatever a copy holds came from the tree: no name of the outside folder, and each file is
// one of the tree's.
void expectNothingFromOutside(const std::string& copy, const std::string& what) {
  for (const auto& [path, e] : listTree(copy)) {
    EXPECT_EQ(path.find("outside-"), std::string::npos) << what << ": " << path;
    if (e.kind == 'f') {
      EXPECT_EQ(e.data, "in") << what << ": " << path;
    }
  }
}

// Another process keeps exchanging a folder of the tree with a link to a folder outside it
// while the tree is removed, copied, moved or copied into: the link is removed or copied as a
// link, never followed, and the outside folder keeps every file and gains none, round after
// round. A copy into the tree may meet the link where a folder goes, and is refused then (58).
TEST(FolderTree, ALinkSwappedInDuringAWalkIsNeverFollowed) {
  OtherFileSystem other;
  struct Case {
    const char* what;
    bool treeGoes;
    std::function<void(const std::string& tree, const std::string& d)> run;
    int32_t mayFailWith = 0;
  } cases[] = {
      {"remove", true,
       [](const std::string& tree, const std::string&) { removeFolderTree(tree, false); }},
      {"remove through the platform object", true,
       [](const std::string& tree, const std::string&) {
         FileSystemObject().DeleteFolder(T(tree), true);
       }},
      {"copy", false,
       [](const std::string& tree, const std::string& d) {
         copyFolderTree(tree, d + "/copy");
         expectNothingFromOutside(d + "/copy", "copy");
       }},
      {"move to another file system", true,
       [&other](const std::string& tree, const std::string&) {
         if (other.path().empty()) return removeFolderTree(tree, false);
         std::string to = other.path() + "/moved";
         moveFolderTree(tree, to);
         expectNothingFromOutside(to, "move");
         removeFolderTree(to, false);
       }},
      {"copy into the tree", false,
       [](const std::string& tree, const std::string& d) {
         for (const std::string at : {"/src/sub/nested", "/src/a/b/sub/nested"}) {
           test::makeDir(d + at);
           test::writeBytes(d + at + "/in-new", "in");
         }
         copyFolderTree(d + "/src", tree);
       },
       err::FileAlreadyExists},
  };
  for (const auto& c : cases) {
    long swaps = 0;
    for (int round = 0; round < (c.treeGoes ? 30 : 8); ++round) {
      TempDir d;
      makeOutside(d / "outside");
      const TreeListing outside = listTree(d / "outside");
      auto pairs = makeSwappedTree(d / "tree", d / "outside");
      {
        test::Swapper swapper(pairs);
        while (swapper.swaps() < 10)
          std::this_thread::yield();
        int32_t failure = failureOf([&] { c.run(d / "tree", d.path()); });
        EXPECT_TRUE(failure == 0 || failure == c.mayFailWith) << c.what << ": " << failure;
        swaps += swapper.swaps();
      }
      EXPECT_EQ(test::exists(d / "tree"), !c.treeGoes) << c.what;
      EXPECT_EQ(listTree(d / "outside"), outside) << c.what << ", round " << round;
      if (::testing::Test::HasFailure()) return;
    }
    EXPECT_GT(swaps, 0) << c.what;
  }
}

// Trees deeper than the longest path the system takes are copied, moved and removed whole,
// with few descriptors however deep they go. One tree goes through every step in turn: each
// step takes it from one place to the next.
TEST(FolderTree, TreesDeeperThanTheLongestPathWork) {
  static constexpr int kLevels = 800;  // "/level" each: 4,800 bytes of path
  OtherFileSystem other;
  TempDir d;
  std::string elsewhere = other.path().empty() ? d.path() : other.path();
  test::makeDir(d / "top");
  test::makeDir(d / "there");
  test::makeDeepTree(d / "top", kLevels);
  struct Step {
    const char* what;
    std::string from, to;
    std::function<void(const std::string&, const std::string&)> run;
    bool sourceStays;
  } steps[] = {
      {"copy", d / "top", d / "copy", copyFolderTree, true},
      {"move in one rename", d / "copy", d / "moved", moveFolderTree, false},
      {"move into an existing folder", d / "moved", d / "there", moveFolderTree, false},
      {"move to another file system", d / "there", elsewhere + "/far", moveFolderTree, false},
      {"remove", elsewhere + "/far", "", [](auto& from, auto&) { removeFolderTree(from, false); },
       false},
      {"remove the source", d / "top", "", [](auto& from, auto&) { removeFolderTree(from, false); },
       false},
  };
  for (const auto& s : steps) {
    {
      test::DescriptorLimit limit(256);
      EXPECT_EQ(failureOf([&] { s.run(s.from, s.to); }), 0) << s.what;
    }
    bool whole = false;
    EXPECT_EQ(test::deepTreeLevels(s.from, whole), s.sourceStays ? kLevels : 0) << s.what;
    EXPECT_EQ(test::exists(s.from), s.sourceStays) << s.what;
    if (s.to.empty()) continue;
    EXPECT_EQ(test::deepTreeLevels(s.to, whole), kLevels) << s.what;
    EXPECT_TRUE(whole) << s.what;
  }
}

// Copies and moves keep each entry's mode, owner and group (root gives a copy of another
// user's file to that user; others keep their own), and links stay links. FIFOs are not
// copied. A move that has to copy removes the source by the deletion's rules, so a read-only
// file keeps the source, copied already.
TEST(FolderTree, CopiesAndMovesKeepModesOwnersAndLinks) {
  OtherFileSystem other;
  bool root = ::geteuid() == 0;
  struct Case {
    const char* what;
    bool intoExisting;
    bool otherFileSystem;
    bool move;
    int32_t failure;
    bool fifoKept;
  } cases[] = {
      {"copy", false, false, false, 0, false},
      {"copy into an existing folder", true, false, false, 0, false},
      {"copy to another file system", false, true, false, 0, false},
      {"move in one rename", false, false, true, 0, true},
      {"move into an existing folder", true, false, true, err::PermissionDenied, false},
      {"move to another file system", false, true, true, err::PermissionDenied, false},
  };
  for (const auto& c : cases) {
    if (c.otherFileSystem && other.path().empty()) continue;
    TempDir d;
    std::string src = d / "src";
    test::makeDir(src + "/private");
    test::writeBytes(src + "/secret", "secret");
    test::writeBytes(src + "/ro", "read-only");
    test::writeBytes(src + "/tool", "#!/bin/sh\n");
    test::writeBytes(src + "/private/inner", "inner");
    test::makeDir(src + "/frozen");
    test::writeBytes(src + "/frozen/f", "in a read-only folder");
    ::chmod((src + "/frozen").c_str(), 0555);
    test::makeDir(src + "/theirs");
    test::writeBytes(src + "/theirs/file", "theirs");
    ::chmod((src + "/secret").c_str(), 0600);
    ::chmod((src + "/ro").c_str(), 0444);
    ::chmod((src + "/tool").c_str(), 0750);
    ::chmod((src + "/private/inner").c_str(), 0640);
    ::chmod((src + "/private").c_str(), 0700);
    ::chmod((src + "/theirs/file").c_str(), 0600);
    ::chmod((src + "/theirs").c_str(), 0710);
    ::chmod(src.c_str(), 0750);
    ASSERT_EQ(::symlink("secret", (src + "/rel").c_str()), 0);
    ASSERT_EQ(::symlink("/nonexistent/target", (src + "/dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo((src + "/fifo").c_str(), 0600), 0);
    if (root) {
      // Another user's files, as an installation shared between accounts holds them.
      for (const char* p : {"/theirs", "/theirs/file", "/rel"})
        ASSERT_EQ(::lchown((src + p).c_str(), 65534, 65534), 0);
    }
    TreeListing before = listTree(src);
    std::string base = c.otherFileSystem ? other.path() : d.path();
    std::string dst = base + "/dst";
    if (c.intoExisting) {
      test::makeDir(dst + "/private");
      test::writeBytes(dst + "/secret", "old content");
      ::chmod((dst + "/secret").c_str(), 0666);
      test::writeBytes(dst + "/rel", "a file where the link goes");
      test::writeBytes(dst + "/kept", "kept");
    }
    int32_t failure =
        failureOf([&] { c.move ? moveFolderTree(src, dst) : copyFolderTree(src, dst); });
    EXPECT_EQ(failure, c.failure) << c.what;
    TreeListing after = listTree(dst);
    TreeListing expected = before;
    if (!c.fifoKept) expected.erase("/fifo");
    if (c.intoExisting) {
      expected["/kept"] = after["/kept"];
      // A folder that was there keeps its own mode and owner.
      expected["/private"] = after["/private"];
      EXPECT_EQ(after["/kept"].data, "kept") << c.what;
    }
    EXPECT_EQ(after, expected) << c.what << "\nsource:\n"
                               << test::describe(before) << "copy:\n"
                               << test::describe(after);
    struct stat top;
    ASSERT_EQ(::stat(dst.c_str(), &top), 0);
    if (!c.intoExisting) {
      EXPECT_EQ(top.st_mode & 07777, 0750u) << c.what;
    }
    bool sourceGone = c.move && c.failure == 0;
    EXPECT_EQ(test::exists(src), !sourceGone) << c.what;
    if (!sourceGone) {
      EXPECT_EQ(listTree(src), before) << c.what << ": the source as it was";
    }
    if (c.otherFileSystem) test::removeTree(dst);
  }
}

// A copy or move into the folder itself, or into any folder inside it, also through a link
// or under other letter case, is refused with 5 before anything changes.
TEST(FolderTree, IntoItselfIsRefusedWithNothingChanged) {
  TempDir d;
  test::makeDir(d / "a/b/c");
  test::writeBytes(d / "a/b/c/f", "f");
  test::writeBytes(d / "a/g", "g");
  ASSERT_EQ(::symlink((d / "a").c_str(), (d / "toA").c_str()), 0);
  ASSERT_EQ(::symlink((d / "a/b").c_str(), (d / "a/toB").c_str()), 0);
  FileSystemObject fso;
  const TreeListing before = listTree(d.path());
  struct Case {
    const char* what;
    std::function<void()> call;
  } cases[] = {
      {"copy onto itself", [&] { fso.CopyFolder(T(d / "a"), T(d / "a")); }},
      {"copy onto itself in other case", [&] { fso.CopyFolder(T(d / "a"), T(d / "A")); }},
      {"copy into a subfolder", [&] { fso.CopyFolder(T(d / "a"), T(d / "a/b")); }},
      {"copy into a new folder deep inside",
       [&] { fso.CopyFolder(T(d / "a"), T(d / "a/b/c/new")); }},
      {"copy through a link to itself", [&] { fso.CopyFolder(T(d / "a"), T(d / "toA/b/new")); }},
      {"copy through a link inside", [&] { fso.CopyFolder(T(d / "a"), T(d / "a/toB/new")); }},
      {"move into a subfolder", [&] { fso.MoveFolder(T(d / "a"), T(d / "a/b")); }},
      {"move into a new folder deep inside",
       [&] { fso.MoveFolder(T(d / "a"), T(d / "a/b/c/new")); }},
      {"move through a link to itself", [&] { fso.MoveFolder(T(d / "a"), T(d / "toA/new")); }},
      {"move in other case into itself", [&] { fso.MoveFolder(T(d / "A"), T(d / "a/B/new")); }},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(failureOf(c.call), err::InvalidCall) << c.what;
    EXPECT_EQ(listTree(d.path()), before) << c.what;
  }
}

// A move to the same name in other letters renames the folder to the letters written, in one
// rename: its content stays, and a folder named like a former in-between name is not touched.
TEST(FolderTree, MoveFolderInLetterCaseOnly) {
  for (const char* to : {"SERVER", "SERVER/", "SERVER\\", "Server"}) {
    TempDir d;
    FileSystemObject fso;
    test::makeDir(d / "server/settings");
    test::writeBytes(d / "server/settings/s.cfg", "data");
    test::makeDir(d / "SERVER.~rename");
    test::writeBytes(d / "SERVER.~rename/unrelated", "unrelated");
    const TreeListing content = listTree(d / "server");
    const TreeListing unrelated = listTree(d / "SERVER.~rename");
    std::string name = std::string(to).substr(0, 6);
    fso.MoveFolder(T(d / "server"), T(d.path()) + u"/" + T(to));
    EXPECT_EQ(listTree(d / name), content) << to;
    EXPECT_FALSE(test::exists(d / "server")) << to;
    EXPECT_EQ(listTree(d / "SERVER.~rename"), unrelated) << to;
  }
}

// What the platform object's move answers, and what each refusal leaves.
TEST(FolderTree, MoveFolderRefusals) {
  TempDir d;
  FileSystemObject fso;
  test::makeDir(d / "a/inner");
  test::writeBytes(d / "a/inner/f", "f");
  test::writeBytes(d / "file", "x");
  test::makeDir(d / "busy");
  ASSERT_EQ(::symlink("file", (d / "fileLink").c_str()), 0);
  ASSERT_EQ(::symlink("busy", (d / "folderLink").c_str()), 0);
  const TreeListing before = listTree(d.path());
  struct Case {
    const char* what;
    const char* from;
    const char* to;
    int32_t number;
  } cases[] = {
      {"missing source", "none", "x", err::PathNotFound},
      {"a file as source", "file", "x", err::PathNotFound},
      {"a link to a file as source", "fileLink", "x", err::PathNotFound},
      {"no folder for the destination", "a", "none/x", err::PathNotFound},
      {"a file where the folder goes", "a", "file", err::FileAlreadyExists},
      {"a link where the folder goes", "a", "folderLink", err::FileAlreadyExists},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(failureOf([&] { fso.MoveFolder(T(d / c.from), T(d / c.to)); }), c.number) << c.what;
    EXPECT_EQ(listTree(d.path()), before) << c.what;
  }
}

// A file system mounted inside a tree is no part of it: the removal is refused before anything
// goes, the mounted content and the tree's own stay. Mounting needs root.
TEST(FolderTree, ARemovalDoesNotReachIntoAMountedFileSystem) {
  TempDir d;
  test::makeDir(d / "tree/a/mnt");
  test::writeBytes(d / "tree/a/own", "own");
  if (::geteuid() != 0 || ::mount("none", (d / "tree/a/mnt").c_str(), "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "mounting a file system needs root";
  }
  struct Unmount {
    std::string at;
    ~Unmount() { ::umount2(at.c_str(), MNT_DETACH); }
  } unmount{d / "tree/a/mnt"};
  test::writeBytes(d / "tree/a/mnt/mounted", "mounted");
  FileSystemObject fso;
  for (bool force : {false, true}) {
    EXPECT_EQ(failureOf([&] { fso.DeleteFolder(T(d / "tree"), force); }), err::PathFileAccessError);
    EXPECT_EQ(test::readBytes(d / "tree/a/mnt/mounted"), "mounted");
    EXPECT_EQ(test::readBytes(d / "tree/a/own"), "own");
  }
}

// What stands in a copy's way refuses it, and is neither written through nor replaced: a FIFO
// is not opened (so nothing blocks), a read-only file keeps its content. The source holds a
// file "x" and a folder "y".
TEST(FolderTree, CopyRefusalsLeaveWhatStandsInTheWay) {
  struct Case {
    const char* what;
    std::function<void(const std::string& dst)> make;
    int32_t number;
  } cases[] = {
      {"a FIFO where a file goes",
       [](const std::string& dst) { ::mkfifo((dst + "/x").c_str(), 0600); },
       err::PathFileAccessError},
      {"a read-only file where a file goes",
       [](const std::string& dst) {
         test::writeBytes(dst + "/x", "keep");
         ::chmod((dst + "/x").c_str(), 0444);
       },
       err::PermissionDenied},
      {"a folder where a file goes", [](const std::string& dst) { test::makeDir(dst + "/x/keep"); },
       err::PathFileAccessError},
      {"a file where a folder goes",
       [](const std::string& dst) { test::writeBytes(dst + "/y", "keep"); },
       err::FileAlreadyExists},
  };
  for (const auto& c : cases) {
    TempDir d;
    test::makeDir(d / "src/y");
    test::writeBytes(d / "src/x", "new");
    test::makeDir(d / "dst");
    c.make(d / "dst");
    TreeListing before = listTree(d / "dst");
    EXPECT_EQ(failureOf([&] { copyFolderTree(d / "src", d / "dst"); }), c.number) << c.what;
    TreeListing after = listTree(d / "dst");
    for (const auto& [path, e] : before)
      EXPECT_EQ(after[path], e) << c.what << ": " << path;
  }
}

// A link given as the folder moves as the link: what it names is neither copied nor moved.
TEST(FolderTree, ALinkGivenAsTheFolderMovesAsALink) {
  TempDir d;
  FileSystemObject fso;
  test::makeDir(d / "elsewhere");
  test::writeBytes(d / "elsewhere/f", "f");
  ASSERT_EQ(::symlink((d / "elsewhere").c_str(), (d / "old").c_str()), 0);
  fso.MoveFolder(T(d / "old"), T(d / "new"));
  EXPECT_TRUE(isLink(d / "new"));
  EXPECT_FALSE(test::exists(d / "old"));
  fso.CopyFolder(T(d / "new"), T(d / "copy"));
  EXPECT_TRUE(isLink(d / "copy"));
  EXPECT_EQ(test::readBytes(d / "elsewhere/f"), "f");
}

// A copy killed at any moment leaves every file it wrote whole: each one in the copy holds its
// source's content, none is cut.
TEST(FolderTree, AKilledCopyLeavesEveryFileWhole) {
  TempDir d;
  std::map<std::string, std::string> files;
  for (int f = 0; f < 4; ++f) {
    std::string folder = "/f" + std::to_string(f);
    test::makeDir(d / ("src" + folder));
    for (int i = 0; i < 10; ++i) {
      std::string name = folder + "/file" + std::to_string(i);
      files[name] = std::string(size_t(5000 + 1000 * i), char('a' + i));
      test::writeBytes(d / ("src" + name), files[name]);
    }
  }
  auto copyInChild = [&](const std::string& to) {
    pid_t pid = ::fork();
    if (pid == 0) {
      try {
        copyFolderTree(d / "src", to);
      } catch (...) {
        ::_exit(1);
      }
      ::_exit(0);
    }
    return pid;
  };
  auto start = std::chrono::steady_clock::now();
  int status = 0;
  ::waitpid(copyInChild(d / "whole"), &status, 0);
  ASSERT_EQ(status, 0);
  auto full = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(listTree(d / "whole").size(), listTree(d / "src").size());
  int kills = 0, seen = 0;
  for (int round = 0; round < 12; ++round) {
    std::string to = d / ("k" + std::to_string(round));
    pid_t pid = copyInChild(to);
    std::this_thread::sleep_for(full * round / 12);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    kills += WIFSIGNALED(status);
    for (const auto& [path, e] : listTree(to)) {
      if (e.kind != 'f' || !files.count(path)) continue;
      ++seen;
      EXPECT_EQ(e.data.size(), files[path].size()) << "round " << round << ": " << path;
      EXPECT_EQ(e.data, files[path]) << "round " << round << ": " << path;
    }
    if (test::exists(to)) removeFolderTree(to, true);
  }
  EXPECT_GT(kills, 0);
  EXPECT_GT(seen, 0);
}

}  // namespace
}  // namespace zrk::platform
