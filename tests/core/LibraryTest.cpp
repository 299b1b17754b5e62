// The library object: version, root path, folder tree, release, threads.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <thread>

#include "core/mdlKVN.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

Variant noLog(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  return Variant();
}

class Library : public LibraryTest {
 protected:
  CallStandIn log_{u"LogError", noLog};
};

TEST_F(Library, VersionIgnoresItsArgument) {
  EXPECT_EQ(kvn->dllVersion(u""), u"1.4.1");
  EXPECT_EQ(kvn->dllVersion(u"anything"), u"1.4.1");
}

TEST(RootPath, RemovesEveryOccurrenceOfTheInstalledSubPathWithCase) {
  struct Case {
    const char16_t* folder;
    const char16_t* root;
  } cases[] = {
      {u"/T/dlls/Main Functions DLL", u"/T"},
      {u"/T/DLLS/Main Functions DLL", u"/T/DLLS/Main Functions DLL"},
      {u"/opt/game", u"/opt/game"},
      {u"/a/dlls/Main Functions DLL/b/dlls/Main Functions DLL", u"/a/b"},
      {u"/dlls/Main Functions DLL", u""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(mdlKVN::RootPathFromFolder(c.folder), c.root);
}

TEST_F(Library, ReqFoldersMakesTheTreeAndDropsUpdates) {
  makeDir(root / "updates/sub");
  writeBytes(root / "updates/sub/x.txt", "x");
  makeDir(root / "Plugins");
  kvn->reqFolders(root.text());
  for (const char* name : {"profiles", "settings", "adminlogs", "mods", "Plugins"}) {
    EXPECT_TRUE(std::filesystem::is_directory(root / name)) << name;
  }
  EXPECT_FALSE(exists(root / "plugins"))
      << "an existing folder differing in case satisfies the check";
  EXPECT_FALSE(exists(root / "updates"));
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(Library, ReqFoldersStopsAtTheFailingStep) {
  writeBytes(root / "mods", "a file where a folder belongs");
  kvn->reqFolders(root.text());
  ASSERT_EQ(dialogs->shown().size(), 1u);
  EXPECT_NE(dialogs->shown()[0].text.find(u"Error 58: File already exists"), Text::npos);
  EXPECT_TRUE(std::filesystem::is_directory(root / "plugins"));

  TempDir other;
  makeDir(other / "updates");
  writeBytes(other / "updates/ro.txt", "x");
  ::chmod((other / "updates/ro.txt").c_str(), 0444);
  kvn->reqFolders(other.text());
  EXPECT_TRUE(exists(other / "updates/ro.txt"));
  EXPECT_FALSE(exists(other / "profiles")) << "nothing is made after the deletion fails";
  EXPECT_EQ(dialogs->shown().size(), 2u);
}

TEST_F(Library, UnloadReleasesButKeepsWorking) {
  mdlKVN::state().SystemInfoStr = u"description";
  mdlKVN::state().systemInfoDue = false;
  kvn->Unload();
  EXPECT_TRUE(mdlKVN::rootPath().empty());
  EXPECT_EQ(mdlKVN::state().MainObject, nullptr);
  EXPECT_EQ(kvn->GetUIDStr(), u"description[zorv]");  // no DirectX version here
  EXPECT_EQ(kvn->dllVersion(u""), u"1.4.1");
  kvn->Unload();   // again: nothing left to release
  clsKVN another;  // no second start-up
  EXPECT_EQ(mdlKVN::state().MainObject, nullptr);
}

TEST_F(Library, ThreadsHaveTheirOwnState) {
  std::shared_ptr<clsKVN> mainHere = mdlKVN::state().MainObject;
  Text rootThere;
  std::shared_ptr<clsKVN> mainThere;
  bool thereAfterUnloadHere = false;
  std::thread t([&] {
    clsKVN there;
    rootThere = mdlKVN::rootPath();
    mainThere = mdlKVN::state().MainObject;
    there.Unload();
  });
  t.join();
  EXPECT_EQ(rootThere, root.text());
  EXPECT_NE(mainThere, mainHere);
  EXPECT_EQ(mdlKVN::rootPath(), root.text()) << "Unload on another thread leaves this one";
  std::thread u([&] {
    clsKVN there;
    thereAfterUnloadHere = !mdlKVN::rootPath().empty();
    there.Unload();
  });
  kvn->Unload();
  u.join();
  EXPECT_TRUE(thereAfterUnloadHere);
}

TEST_F(Library, InstanceVariablesAreTheirOwn) {
  kvn->ProfileCount = 7;
  kvn->ActiveProfiles = 3;
  EXPECT_EQ(mdlKVN::state().MainObject->ProfileCount, 0);
  EXPECT_EQ(mdlKVN::state().MainObject->ActiveProfiles, 0);
}

}  // namespace
}  // namespace zrk::test
