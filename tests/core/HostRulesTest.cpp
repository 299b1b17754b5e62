// The library on a real host: links, read-only files and folders, and paths that would leave
// the folder asked for, through the public operations.
#include <sys/stat.h>
#include <unistd.h>

#include "support/HardeningSupport.h"

namespace zrk::test {
namespace {

using HostRules = HardeningTest;

const char* const kFolders[] = {"profiles", "settings", "adminlogs", "plugins", "mods"};

bool isLink(const std::string& p) {
  struct stat st;
  return ::lstat(p.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// An "updates" that is a link goes as a link; the folder it names keeps all it holds.
TEST_F(HostRules, AnUpdatesLinkIsRemovedAsALink) {
  makeDir(root / "other/deep");
  writeBytes(root / "other/deep/keep.txt", "keep");
  makeDir(root / "base");
  ASSERT_EQ(::symlink((root / "other").c_str(), (root / "base/updates").c_str()), 0);
  kvn->reqFolders(root.text("base"));
  EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{});
  EXPECT_FALSE(isLink(root / "base/updates"));
  EXPECT_EQ(readBytes(root / "other/deep/keep.txt"), "keep");
  for (const char* f : kFolders)
    EXPECT_TRUE(exists(root / ("base/" + std::string(f)))) << f;
}

// A read-only item anywhere in "updates" stops the removal before anything goes, and none of
// the five folders is made.
TEST_F(HostRules, AReadOnlyItemInUpdatesRemovesNothing) {
  for (const char* readOnly : {"updates/b/z.txt", "updates/b"}) {
    TempDir base;
    makeDir(base / "updates/a");
    writeBytes(base / "updates/a/first.txt", "1");
    makeDir(base / "updates/b");
    writeBytes(base / "updates/b/z.txt", "2");
    ::chmod((base / readOnly).c_str(), 0444 | (std::string(readOnly) == "updates/b" ? 0111 : 0));
    reportedNumbers().clear();
    kvn->reqFolders(base.text());
    EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{70}) << readOnly;
    EXPECT_TRUE(exists(base / "updates/a/first.txt")) << readOnly;
    EXPECT_TRUE(exists(base / "updates/b/z.txt")) << readOnly;
    for (const char* f : kFolders)
      EXPECT_FALSE(exists(base / f)) << readOnly << ": " << f;
  }
}

// An empty root would put the five folders at the top of the file system. Every folder
// creation is refused by the fault seam here, so that a regression cannot make them.
TEST_F(HostRules, AnEmptyRootIsRefused) {
  platform::faults::add({platform::faults::Call::MakeFolder, "/", EROFS});
  platform::faults::add({platform::faults::Call::Remove, "/", EROFS});
  kvn->reqFolders(u"");
  platform::faults::clear();
  EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{76});
}

// Read-only is the platform's attribute: refused for every caller, root included, and the
// file stays as it was.
TEST_F(HostRules, ReadOnlyFilesAreRefusedByEveryWriter) {
  const std::string path = root / "ro.txt";
  writeBytes(path, "old\r\n");
  ::chmod(path.c_str(), 0444);
  kvn->WriteFile(T(path), Variant(Text(u"new")));
  kvn->AppendFile(T(path), Variant(Text(u"more")));
  kvn->WriteIniKey(u"S", u"k", u"v", T(path));
  EXPECT_EQ(reportedNumbers(), (std::vector<int32_t>{70, 70})) << "the INI write is no failure";
  EXPECT_EQ(readBytes(path), "old\r\n");
  EXPECT_EQ(entriesOf(root.path()), (std::set<std::string>{"dlls", "ro.txt"}));
}

// Writing through a link changes its target, in the other folder, and the link stays.
TEST_F(HostRules, WritersGoThroughALinkToItsTarget) {
  makeDir(root / "elsewhere");
  writeBytes(root / "elsewhere/t.txt", "old\r\n");
  ASSERT_EQ(::symlink((root / "elsewhere/t.txt").c_str(), (root / "link.txt").c_str()), 0);
  kvn->WriteFile(root.text("link.txt"), Variant(Text(u"new")));
  kvn->AppendFile(root.text("LINK.TXT"), Variant(Text(u"more")));
  EXPECT_TRUE(isLink(root / "link.txt"));
  EXPECT_EQ(readBytes(root / "elsewhere/t.txt"), "new\r\nmore\r\n");
  EXPECT_EQ(entriesOf(root / "elsewhere"), std::set<std::string>{"t.txt"});
  EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{});
}

// An archive rewritten on a disk that is full keeps its old content whole.
TEST_F(HostRules, MakeArchiveOnAFullDiskKeepsTheOldArchive) {
  ASSERT_TRUE(kvn->MakeArchive(Variant::textArray({u"5|a.txthello"}), root.text("a.arc")));
  const std::string old = readBytes(root / "a.arc");
  platform::faults::diskFull(root / "a.arc", 0);
  kvn->MakeArchive(Variant::textArray({u"5|b.txtworld"}), root.text("a.arc"));
  platform::faults::clear();
  EXPECT_EQ(readBytes(root / "a.arc"), old);
  EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{61});
  EXPECT_EQ(entriesOf(root.path()), (std::set<std::string>{"a.arc", "dlls"}));
}

}  // namespace
}  // namespace zrk::test
