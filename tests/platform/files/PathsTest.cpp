// The path resolver's shortcut for a path that exists as written gives the same path the walk
// through each folder gives, with what stat says of it.
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/Paths.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::T;
using test::TempDir;

TEST(ResolvedPath, SameAsTheWalkForEveryKindOfPath) {
  TempDir d;
  test::makeDir(d / "Plugins/Sub");
  test::makeDir(d / "lower");
  test::writeBytes(d / "Plugins/Sub/File.TXT", "12345");
  test::writeBytes(d / "lower/file.txt", "x");
  ASSERT_EQ(::symlink("Plugins", (d / "link").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", (d / "Dangling").c_str()), 0);
  enum Kind { Missing, File, Folder };
  struct Case {
    const char16_t* path;  // below the folder
    std::string native;    // below the folder
    Kind kind;
  } cases[] = {
      {u"/Plugins/Sub/File.TXT", "/Plugins/Sub/File.TXT", File},
      {u"\\plugins\\sub\\file.txt", "/Plugins/Sub/File.TXT", File},
      {u"/PLUGINS/Sub/File.TXT", "/Plugins/Sub/File.TXT", File},
      {u"/Plugins/Sub/FILE.txt", "/Plugins/Sub/File.TXT", File},
      {u"/PLUGINS/new/x", "/Plugins/new/x", Missing},
      {u"/missing/plugins", "/missing/plugins", Missing},
      {u"/link/Sub/File.TXT", "/link/Sub/File.TXT", File},
      {u"/LINK/sub/file.txt", "/link/Sub/File.TXT", File},
      {u"/Dangling", "/Dangling", Missing},
      {u"/dangling", "/Dangling", Missing},
      {u"/Plugins/../lower/file.txt", "/Plugins/../lower/file.txt", File},
      {u"/plugins/../LOWER/File.txt", "/Plugins/../lower/file.txt", File},
      {u"/Plugins/Sub/", "/Plugins/Sub/", Folder},
      {u"/plugins//sub", "/Plugins//Sub", Folder},
  };
  for (const auto& c : cases) {
    Text path = T(d.path()) + c.path;
    SCOPED_TRACE(toUtf8(path));
    std::string expected = d.path() + c.native;
    EXPECT_EQ(nativePath(path), expected);
    ResolvedPath r = ResolvedPath::of(path);
    EXPECT_EQ(r.native, expected);
    EXPECT_EQ(r.found, c.kind != Missing);
    EXPECT_EQ(r.isFolder(), c.kind == Folder);
    if (c.kind == File) {
      EXPECT_EQ(r.st.st_size, c.native.find("File.TXT") != std::string::npos ? 5 : 1);
    }
  }
  EXPECT_FALSE(ResolvedPath::of(u"").found);
}

TEST(ResolvedPath, RelativePathsCountFromTheCurrentFolder) {
  TempDir d;
  test::writeBytes(d / "Name.ini", "x");
  char before[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(::chdir(d.path().c_str()), 0);
  ResolvedPath asWritten = ResolvedPath::of(u"Name.ini");
  ResolvedPath otherCase = ResolvedPath::of(u"NAME.INI");
  ResolvedPath missing = ResolvedPath::of(u"none.ini");
  ASSERT_EQ(::chdir(before), 0);
  EXPECT_EQ(asWritten.native, "Name.ini");
  EXPECT_TRUE(asWritten.found);
  EXPECT_EQ(otherCase.native, "Name.ini");
  EXPECT_TRUE(otherCase.found);
  EXPECT_EQ(missing.native, "none.ini");
  EXPECT_FALSE(missing.found);
}

}  // namespace
}  // namespace zrk::platform
