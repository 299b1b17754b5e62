// The folder of a renamed profile: moved whole with owners, modes and links, also in letter
// case only, and no other folder touched.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include <zrkKVL/FormObject.h>
#include "support/FolderTrees.h"
#include "tests/profiles/ProfileTestSupport.h"

namespace zrk::test {
namespace {

std::shared_ptr<FormObject> renameForm(const Text& name, const Text& old) {
  auto form = std::make_shared<FormObject>();
  form->set(u"txtName", u"Text", name).set(u"txtOld", u"Text", old);
  for (const char16_t* c : {u"txtPath", u"cboStats", u"txtSrHost", u"txtPadtime", u"txtPadnum",
                            u"txtGamePort", u"cboGames"}) {
    form->set(c, u"Text", Text(u"x"));
  }
  form->set(u"cboGames", u"ToolTipText", Text(u"hl")).set(u"cboLL", u"ListIndex", int32_t(0));
  for (const char16_t* c : {u"chkAcs", u"chkAra", u"chkRbm", u"chkAntiStatsPad"})
    form->set(c, u"Value", int16_t(1));
  form->control(u"lstUrls").setList({u"http://a/u"});
  return form;
}

using ProfileRenameFolders = ProfileLibraryTest;

// A profile's folder as a main program leaves it: private settings, a file of another account
// (when root can make one), a link inside the folder and a link to a folder outside it.
void makeProfileFolder(const std::string& folder, const std::string& outside) {
  makeDir(folder + "/settings");
  writeBytes(folder + "/settings/secret.cfg", "password=1");
  writeBytes(folder + "/server.cfg", "hostname x");
  writeBytes(folder + "/theirs.log", "log");
  ::chmod((folder + "/settings/secret.cfg").c_str(), 0600);
  ::chmod((folder + "/settings").c_str(), 0700);
  ::chmod((folder + "/theirs.log").c_str(), 0640);
  ::chmod(folder.c_str(), 0750);
  ::symlink("settings/secret.cfg", (folder + "/current.cfg").c_str());
  ::symlink(outside.c_str(), (folder + "/shared").c_str());
  if (::geteuid() == 0) ::lchown((folder + "/theirs.log").c_str(), 65534, 65534);
}

// Renamed to a free name (one rename), into the folder of an existing name (a merge), and in
// letter case only: the new folder holds what the old one held, entry for entry with owner,
// mode and link target; the old one is gone; the outside folder, the other profiles' folders
// and an unrelated folder named like a former in-between name stay as they were.
TEST_F(ProfileRenameFolders, RenamesKeepOwnersModesLinksAndOtherFolders) {
  struct Case {
    const char16_t* old;
    const char16_t* name;
    bool newFolderExists;
  } cases[] = {
      {u"Old", u"New", false},
      {u"Old", u"New", true},
      {u"server", u"SERVER", false},
  };
  for (const auto& c : cases) {
    TempDir d;
    std::string profiles = d / "profiles";
    std::string oldFolder = profiles + "/" + toUtf8(c.old);
    std::string newFolder = profiles + "/" + toUtf8(c.name);
    makeDir(d / "outside");
    writeBytes(d / "outside/shared.txt", "shared");
    makeProfileFolder(oldFolder, d / "outside");
    makeDir(profiles + "/Other/settings");
    writeBytes(profiles + "/Other/settings/o.cfg", "other");
    makeDir(newFolder + ".~rename");
    writeBytes(newFolder + ".~rename/unrelated.txt", "unrelated");
    if (c.newFolderExists) {
      makeDir(newFolder);
      writeBytes(newFolder + "/mine.cfg", "mine");
    }
    const TreeListing moved = listTree(oldFolder);
    const TreeListing others = listTree(profiles + "/Other");
    const TreeListing unrelated = listTree(newFolder + ".~rename");
    const TreeListing outside = listTree(d / "outside");
    loggedFailures().clear();
    EXPECT_TRUE(kvn->writeProfile(*renameForm(c.name, c.old), d.text("profiles.bini"), d.text()))
        << toUtf8(c.name);
    EXPECT_EQ(failures(), Failures{}) << toUtf8(c.name);
    TreeListing now = listTree(newFolder);
    if (c.newFolderExists) {
      EXPECT_EQ(now.extract("/mine.cfg").mapped().data, "mine");
    }
    EXPECT_EQ(now, moved) << toUtf8(c.name) << "\nold:\n"
                          << describe(moved) << "new:\n"
                          << describe(now);
    EXPECT_EQ(entriesOf(profiles),
              (std::set<std::string>{toUtf8(c.name), toUtf8(c.name) + ".~rename", "Other"}))
        << toUtf8(c.name);
    EXPECT_EQ(listTree(profiles + "/Other"), others);
    EXPECT_EQ(listTree(newFolder + ".~rename"), unrelated);
    EXPECT_EQ(listTree(d / "outside"), outside);
  }
}

// A profile folder that is a link to elsewhere moves as the link: nothing it names is copied.
TEST_F(ProfileRenameFolders, AFolderThatIsALinkMovesAsTheLink) {
  makeDir(root / "profiles");
  makeDir(root / "elsewhere/settings");
  writeBytes(root / "elsewhere/settings/e.cfg", "e");
  ASSERT_EQ(::symlink((root / "elsewhere").c_str(), (root / "profiles/Old").c_str()), 0);
  EXPECT_TRUE(
      kvn->writeProfile(*renameForm(u"New", u"Old"), root.text("profiles.bini"), root.text()));
  struct stat st;
  ASSERT_EQ(::lstat((root / "profiles/New").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_FALSE(exists(root / "profiles/Old"));
  EXPECT_EQ(readBytes(root / "elsewhere/settings/e.cfg"), "e");
}

}  // namespace
}  // namespace zrk::test
