// The "updates" folder removed by reqFolders while another process swaps a link into it, and
// when it holds a tree deeper than the longest path.
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "support/FolderTrees.h"
#include "support/HardeningSupport.h"

namespace zrk::test {
namespace {

using FolderWalk = HardeningTest;

const char* const kFolders[] = {"profiles", "settings", "adminlogs", "plugins", "mods"};

// "updates" holds, at its top and deeper, a folder beside a link to a folder outside the root;
// another process keeps exchanging the two. Round after round the outside folder keeps every
// file, "updates" goes, and the five folders are made.
TEST_F(FolderWalk, ALinkSwappedIntoUpdatesIsNeverFollowed) {
  long swaps = 0;
  for (int round = 0; round < 8; ++round) {
    TempDir d;
    makeDir(d / "outside/deep");
    for (int i = 0; i < 20; ++i)
      writeBytes(d / ("outside/keep-" + std::to_string(i)), "keep");
    writeBytes(d / "outside/deep/keep", "keep");
    const TreeListing outside = listTree(d / "outside");
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const std::string at : {"base/updates", "base/updates/a/b/c"}) {
      makeDir(d / (at + "/sub/inner"));
      for (int i = 0; i < 30; ++i)
        writeBytes(d / (at + "/sub/f" + std::to_string(i)), "update");
      ASSERT_EQ(::symlink((d / "outside").c_str(), (d / (at + "/link")).c_str()), 0);
      pairs.emplace_back(d / (at + "/sub"), d / (at + "/link"));
    }
    reportedNumbers().clear();
    {
      Swapper swapper(pairs);
      while (swapper.swaps() < 10)
        std::this_thread::yield();
      kvn->reqFolders(d.text("base"));
      swaps += swapper.swaps();
    }
    EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{}) << "round " << round;
    EXPECT_EQ(listTree(d / "outside"), outside) << "round " << round;
    EXPECT_FALSE(exists(d / "base/updates")) << "round " << round;
    for (const char* f : kFolders)
      EXPECT_TRUE(exists(d / ("base/" + std::string(f)))) << f;
    if (HasFailure()) return;
  }
  EXPECT_GT(swaps, 0);
}

// A tree deeper than the longest path the system takes is no reason to fail: it goes with
// "updates".
TEST_F(FolderWalk, UpdatesDeeperThanTheLongestPathIsRemoved) {
  makeDir(root / "base/updates");
  makeDeepTree(root / "base/updates", 800);
  kvn->reqFolders(root.text("base"));
  EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{});
  EXPECT_FALSE(exists(root / "base/updates"));
  for (const char* f : kFolders)
    EXPECT_TRUE(exists(root / ("base/" + std::string(f)))) << f;
}

}  // namespace
}  // namespace zrk::test
