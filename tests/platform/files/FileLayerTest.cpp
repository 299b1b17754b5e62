// Paths resolved without regard to case, the file-system object, and the file opens.
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include <zrkKVL/Failure.h>
#include "platform/files/BinaryFile.h"
#include "platform/files/FileIO.h"
#include "platform/files/FileSystemObject.h"
#include "platform/files/Paths.h"
#include "support/TestSupport.h"

namespace zrk::platform {
namespace {

using test::failureOf;
using test::T;
using test::TempDir;

TEST(Paths, BothSeparatorsAndCaseInsensitiveNames) {
  TempDir d;
  test::makeDir(d / "Plugins/Sub");
  test::writeBytes(d / "Plugins/Sub/File.TXT", "x");
  EXPECT_EQ(nativePath(T(d.path()) + u"\\plugins\\sub\\file.txt"), d / "Plugins/Sub/File.TXT");
  EXPECT_EQ(nativePath(T(d.path()) + u"/PLUGINS/new/x"), d / "Plugins/new/x");
  EXPECT_EQ(nativePath(T(d.path()) + u"//plugins"), d.path() + "//Plugins");
  EXPECT_EQ(parentOf(u"a\\b/c.txt"), u"a\\b");
  EXPECT_EQ(fileNameOf(u"a\\b/c.txt"), u"c.txt");
}

TEST(FileSystemObject, RefusalsCarryTheRuntimeNumbers) {
  TempDir d;
  FileSystemObject fso;
  test::writeBytes(d / "f", "x");
  test::makeDir(d / "dir");
  struct Case {
    const char* what;
    std::function<void()> call;
    int32_t number;
  } cases[] = {
      {"create over a file", [&] { fso.CreateFolder(T(d / "f")); }, err::FileAlreadyExists},
      {"create without parent", [&] { fso.CreateFolder(T(d / "no/x")); }, err::PathNotFound},
      {"delete missing file", [&] { fso.DeleteFile(T(d / "nope")); }, err::FileNotFound},
      {"delete missing folder", [&] { fso.DeleteFolder(T(d / "nope")); }, err::PathNotFound},
      {"get missing file", [&] { fso.GetFile(T(d / "nope")); }, err::FileNotFound},
      {"get missing folder", [&] { fso.GetFolder(T(d / "nope")); }, err::PathNotFound},
      {"read a folder", [&] { readAllBytes(T(d / "dir")); }, err::PathFileAccessError},
      {"read missing", [&] { readAllBytes(T(d / "nope")); }, err::FileNotFound},
      {"read empty name", [&] { readAllBytes(u""); }, err::BadFileNameOrNumber},
      {"write without folder", [&] { OutputFile(T(d / "no/x"), OutputFile::Mode::Output); },
       err::PathNotFound},
  };
  for (auto& c : cases)
    EXPECT_EQ(failureOf(c.call), c.number) << c.what;
  EXPECT_TRUE(fso.FileExists(T(d / "F")));
  EXPECT_FALSE(fso.FileExists(T(d / "dir")));
  EXPECT_TRUE(fso.FolderExists(T(d / "DIR")));
  EXPECT_FALSE(fso.FolderExists(T(d / "f")));
}

TEST(FileSystemObject, ReadOnlyContentRefusesDeletionWithoutForce) {
  TempDir d;
  FileSystemObject fso;
  test::makeDir(d / "tree/inner");
  test::writeBytes(d / "tree/inner/ro", "x");
  ::chmod((d / "tree/inner/ro").c_str(), 0444);
  EXPECT_EQ(failureOf([&] { fso.DeleteFolder(T(d / "tree")); }), err::PermissionDenied);
  EXPECT_TRUE(test::exists(d / "tree/inner/ro")) << "nothing removed on a refusal";
  EXPECT_EQ(failureOf([&] { fso.DeleteFile(T(d / "tree/inner/ro")); }), err::PermissionDenied);
  fso.DeleteFolder(T(d / "tree"), true);
  EXPECT_FALSE(test::exists(d / "tree"));
}

TEST(FileSystemObject, CopyFolderMakesAndOverwrites) {
  TempDir d;
  FileSystemObject fso;
  test::makeDir(d / "a/b");
  test::writeBytes(d / "a/b/x", "new");
  test::makeDir(d / "c/b");
  test::writeBytes(d / "c/b/x", "old");
  test::writeBytes(d / "c/keep", "k");
  fso.CopyFolder(T(d / "a"), T(d / "c"));
  fso.CopyFolder(T(d / "a"), T(d / "fresh"));
  EXPECT_EQ(test::readBytes(d / "c/b/x"), "new");
  EXPECT_EQ(test::readBytes(d / "c/keep"), "k");
  EXPECT_EQ(test::readBytes(d / "fresh/b/x"), "new");
  FolderInfo info = fso.GetFolder(T(d / "c"));
  EXPECT_EQ(info.FileNames, std::vector<Text>{u"keep"});
  EXPECT_EQ(fso.GetFile(T(d / "c/keep")).Size, 1);
}

TEST(TextInputFile, LineEnds) {
  struct Case {
    std::string bytes;
    std::vector<Text> lines;
  } cases[] = {
      {"", {}},
      {"a\r\nb", {u"a", u"b"}},
      {"a\r\nb\r\n", {u"a", u"b"}},
      {"a\rb\r", {u"a", u"b"}},
      {"a\nb\n", {u"a\nb\n"}},
      {"\r\n\r\n", {u"", u""}},
      {"x\r\r\ny", {u"x", u"", u"y"}},
      {"\x80\xff", {u"\u20ac\u00ff"}},
  };
  TempDir d;
  for (const auto& c : cases) {
    test::writeBytes(d / "f", c.bytes);
    TextInputFile in(T(d / "f"));
    std::vector<Text> got;
    while (!in.atEnd())
      got.push_back(in.readLine());
    EXPECT_EQ(got, c.lines) << c.bytes;
  }
}

TEST(FileNumbers, AreReusedAfterClose) {
  int first;
  {
    FileNumber a;
    first = a.value();
    FileNumber b;
    EXPECT_NE(b.value(), first);
  }
  FileNumber c;
  EXPECT_EQ(c.value(), first);
}

TEST(ReplaceFileAtomically, LeavesNoTemporaryAndRefusesWithoutFolder) {
  TempDir d;
  EXPECT_TRUE(replaceFileAtomically(d / "f", "abc"));
  EXPECT_EQ(test::readBytes(d / "f"), "abc");
  EXPECT_FALSE(replaceFileAtomically(d / "none/f", "abc"));
  size_t entries = 0;
  for (auto& e : std::filesystem::directory_iterator(d.path()))
    entries += !e.path().empty();
  EXPECT_EQ(entries, 1u);
}

}  // namespace
}  // namespace zrk::platform

namespace zrk::platform {
namespace {

using test::T;
using test::TempDir;

bool isLink(const std::string& p) {
  struct stat st;
  return ::lstat(p.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// Links are removed as links: what they point to, outside the folder, stays.
TEST(FileSystemObject, DeletionNeverFollowsLinks) {
  TempDir d;
  FileSystemObject fso;
  test::makeDir(d / "victim/inner");
  test::writeBytes(d / "victim/inner/v", "v");
  test::makeDir(d / "tree/sub");
  ASSERT_EQ(::symlink((d / "victim").c_str(), (d / "tree/sub/dirlink").c_str()), 0);
  ASSERT_EQ(::symlink((d / "victim/inner/v").c_str(), (d / "tree/filelink").c_str()), 0);
  ASSERT_EQ(::symlink((d / "victim").c_str(), (d / "folderlink").c_str()), 0);
  fso.DeleteFolder(T(d / "tree"));
  fso.DeleteFolder(T(d / "FolderLink"));
  EXPECT_FALSE(test::exists(d / "tree"));
  EXPECT_FALSE(isLink(d / "folderlink"));
  EXPECT_EQ(test::readBytes(d / "victim/inner/v"), "v");
}

// A read-only item, file or folder, refuses the deletion without force; a folder this caller
// cannot empty refuses it with or without force. Either way nothing is removed.
TEST(FileSystemObject, ARefusedDeletionRemovesNothing) {
  struct Case {
    const char* what;
    const char* item;
    mode_t mode;
    bool force;
    bool refusedAsRoot;
  } cases[] = {
      {"read-only file", "tree/b/ro", 0444, false, true},
      {"read-only folder", "tree/b", 0555, false, true},
      {"read-only top folder", "tree", 0555, false, true},
      {"forced, folder not writable", "tree/b", 0555, true, false},
  };
  for (const auto& c : cases) {
    TempDir d;
    FileSystemObject fso;
    test::makeDir(d / "tree/a");
    test::writeBytes(d / "tree/a/first", "1");
    test::makeDir(d / "tree/b");
    test::writeBytes(d / "tree/b/ro", "2");
    test::writeBytes(d / "tree/z", "3");
    ::chmod((d / c.item).c_str(), c.mode);
    bool refused = c.refusedAsRoot || ::geteuid() != 0;
    int32_t number = test::failureOf([&] { fso.DeleteFolder(T(d / "tree"), c.force); });
    EXPECT_EQ(number, refused ? err::PermissionDenied : 0) << c.what;
    EXPECT_EQ(test::exists(d / "tree/a/first"), refused) << c.what;
    EXPECT_EQ(test::exists(d / "tree/z"), refused) << c.what;
    EXPECT_EQ(test::exists(d / "tree/b/ro"), refused) << c.what;
  }
}

// A link is copied as a link, so a loop of links or a link to a folder above costs nothing,
// and a link standing where a copied file goes is replaced, never written through.
TEST(FileSystemObject, CopyingNeverFollowsLinks) {
  TempDir d;
  FileSystemObject fso;
  test::makeDir(d / "src/sub");
  test::writeBytes(d / "src/sub/f", "copied");
  test::writeBytes(d / "src/g", "g");
  ASSERT_EQ(::symlink("..", (d / "src/sub/up").c_str()), 0);
  ASSERT_EQ(::symlink("loop", (d / "src/loop").c_str()), 0);
  test::writeBytes(d / "victim", "victim");
  test::makeDir(d / "dst");
  ASSERT_EQ(::symlink((d / "victim").c_str(), (d / "dst/g").c_str()), 0);
  fso.CopyFolder(T(d / "src"), T(d / "dst"));
  EXPECT_EQ(test::readBytes(d / "dst/sub/f"), "copied");
  EXPECT_TRUE(isLink(d / "dst/sub/up"));
  EXPECT_TRUE(isLink(d / "dst/loop"));
  EXPECT_FALSE(isLink(d / "dst/g"));
  EXPECT_EQ(test::readBytes(d / "dst/g"), "g");
  EXPECT_EQ(test::readBytes(d / "victim"), "victim");
}

TEST(FileSystemObject, CreateTextFileRefusesAReadOnlyFile) {
  TempDir d;
  FileSystemObject fso;
  test::writeBytes(d / "ro", "keep");
  ::chmod((d / "ro").c_str(), 0444);
  EXPECT_EQ(test::failureOf([&] { fso.CreateTextFile(T(d / "ro")); }), err::PermissionDenied);
  EXPECT_EQ(test::readBytes(d / "ro"), "keep");
}

}  // namespace
}  // namespace zrk::platform

namespace zrk::platform {
namespace {

// A binary open of a read-only file reads it and refuses every write, root included.
TEST(BinaryFile, AReadOnlyFileIsReadAndNeverWritten) {
  test::TempDir d;
  test::writeBytes(d / "ro.bin", "abcdef");
  ::chmod((d / "ro.bin").c_str(), 0444);
  BinaryFile file(test::T(d / "ro.bin"));
  std::string got(3, '\0');
  file.readAt(2, got);
  EXPECT_EQ(got, "bcd");
  EXPECT_EQ(test::failureOf([&] { file.writeAt(1, "XY"); }), err::PermissionDenied);
  file.close();
  EXPECT_EQ(test::readBytes(d / "ro.bin"), "abcdef");
}

}  // namespace
}  // namespace zrk::platform
