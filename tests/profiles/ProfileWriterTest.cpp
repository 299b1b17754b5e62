// Saving a profile: the keys, the folders, the packed file, and what each failure leaves.
#include <filesystem>
#include <functional>
#include <string>

#include <zrkKVL/FormObject.h>
#include "tests/profiles/ProfileTestSupport.h"

namespace zrk::test {
namespace {

class ProfileWriter : public ProfileLibraryTest {
 protected:
  void SetUp() override {
    ProfileLibraryTest::SetUp();
    makeDir(root / "profiles");
  }
  bool save(const Profile& p, const std::string& file = "profiles.bini") {
    return kvn->writeProfile(*formOf(p), root.text(file), root.text());
  }
  // The profiles file as it is at rest: unpacked into a copy, so the packed file stays alone.
  std::string unpacked() {
    EXPECT_FALSE(exists(root / "profiles.ini"));
    writeBytes(root / "copy.bini", readBytes(root / "profiles.bini"));
    EXPECT_TRUE(kvn->DecompressBINI(root.text("copy.bini")));
    return readBytes(root / "copy.ini");
  }
};

TEST_F(ProfileWriter, FirstProfileEverWithEitherName) {
  for (const char* file : {"profiles.bini", "profiles.ini"}) {
    std::remove((root / "profiles.bini").c_str());
    Profile p{u"Server 1"};
    EXPECT_TRUE(save(p, file)) << file;
    EXPECT_EQ(unpacked(), keysOf(p));
    EXPECT_TRUE(exists(root / "profiles/Server 1/settings"));
  }
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(ProfileWriter, UploadAndListIndexValues) {
  Profile none{u"A"};
  none.urls = {};
  none.listIndex = -1;
  EXPECT_TRUE(save(none));
  EXPECT_EQ(unpacked(), keysOf(none, " "));
}

TEST_F(ProfileWriter, PlainFileWithoutPackedFileEndsPacked) {
  writeBytes(root / "profiles.ini", "[Old]\r\npath=x\r\n");
  Profile p{u"New"};
  EXPECT_TRUE(save(p, "profiles.ini"));
  EXPECT_EQ(unpacked(), "[Old]\r\npath=x\r\n" + keysOf(p));
}

// A plain name while only the packed file exists still keeps every stored profile.
TEST_F(ProfileWriter, PlainNameUnpacksTheStoredFile) {
  Profile a{u"A"}, b{u"B"};
  ASSERT_TRUE(save(a));
  EXPECT_TRUE(save(b, "profiles.ini"));
  EXPECT_EQ(unpacked(), keysOf(a) + keysOf(b));
}

TEST_F(ProfileWriter, KeepingTheNameTouchesNoFolder) {
  writeBytes(root / "profiles.ini", "[Same]\r\nextra=1\r\npath=old\r\n");
  Profile p{u"Same", u"Same"};
  EXPECT_FALSE(save(p, "profiles.ini"));  // no folder: false, yet saved and packed
  EXPECT_FALSE(exists(root / "profiles/Same"));
  EXPECT_EQ(unpacked(), "[Same]\r\nextra=1\r\npath=C:\\Games\\hl.exe\r\n" +
                            keysOf(p).substr(keysOf(p).find("upload=")));
  EXPECT_EQ(failures(), Failures{});
}

// A save leaves the packed bytes that its keys give when written one by one, in their order, into
// the unpacked file: new and existing profiles, sections and keys in any order, every line end, a
// byte-order mark.
TEST_F(ProfileWriter, ASaveGivesTheBytesOfItsKeysWrittenOneByOne) {
  struct Case {
    const char* what;
    const char* before;  // null: no profiles file yet
    Profile profile;
  } cases[] = {
      {"first profile", nullptr, {u"New"}},
      {"new profile among others", "[A]\r\npath=a\r\n[B]\r\npath=b\r\n", {u"New"}},
      {"existing profile, keys changed",
       "[A]\r\npath=a\r\n[Same]\r\nport=1\r\nextra=e\r\npath=old\r\n[B]\r\npath=b\r\n",
       {u"Same", u"Same"}},
      {"sections and keys in another order",
       "[B]\r\nx=1\r\n[same]\r\nsss=s\r\nHOST=h\r\n; c\r\n\r\nGame=g\r\n[A]\r\n",
       {u"Same", u"Same"}},
      {"LF lines", "[A]\npath=a\n[Same]\nhost=h\n", {u"Same", u"Same"}},
      {"CR LF lines without a final line end", "[A]\r\npath=a", {u"New"}},
      {"byte-order mark", "\xEF\xBB\xBF[A]\r\npath=a\r\n", {u"New"}},
      {"byte-order mark, the profile first",
       "\xEF\xBB\xBF[Same]\r\nport=1\r\n",
       {u"Same", u"Same"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    for (const char* f : {"profiles.bini", "profiles.ini", "expected.bini", "expected.ini"})
      std::remove((root / f).c_str());
    if (c.before) {  // the expected file starts from the same unpacked content as the save
      writeBytes(root / "profiles.ini", c.before);
      kvn->CompressBINI(root.text("profiles.ini"));
      writeBytes(root / "expected.bini", readBytes(root / "profiles.bini"));
      ASSERT_TRUE(kvn->DecompressBINI(root.text("expected.bini")));
    }
    const std::string keys = keysOf(c.profile);
    for (size_t at = keys.find("\r\n") + 2; at < keys.size();) {
      size_t eq = keys.find('=', at), end = keys.find("\r\n", at);
      kvn->WriteIniKey(c.profile.name, T(keys.substr(at, eq - at)),
                       T(keys.substr(eq + 1, end - eq - 1)), root.text("expected.ini"));
      at = end + 2;
    }
    kvn->CompressBINI(root.text("expected.ini"));
    makeDir(root / ("profiles/" + toUtf8(c.profile.name) + "/settings"));
    EXPECT_TRUE(save(c.profile));
    EXPECT_EQ(readBytes(root / "profiles.bini"), readBytes(root / "expected.bini"));
    EXPECT_FALSE(exists(root / "profiles.ini"));
  }
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(ProfileWriter, NewProfileWithExistingFolders) {
  makeDir(root / "profiles/Here/settings");
  writeBytes(root / "profiles/Here/settings/a.cfg", "kept");
  EXPECT_TRUE(save(Profile{u"Here"}));
  EXPECT_EQ(readBytes(root / "profiles/Here/settings/a.cfg"), "kept");
}

TEST_F(ProfileWriter, RenameCarriesFolderAndDropsOldSection) {
  writeBytes(root / "profiles.ini", "[Keep]\r\npath=k\r\n[Old]\r\npath=o\r\nextra=1\r\n");
  kvn->CompressBINI(root.text("profiles.ini"));
  makeDir(root / "profiles/Old/settings");
  writeBytes(root / "profiles/Old/settings/s.cfg", "old");
  makeDir(root / "profiles/New");
  writeBytes(root / "profiles/New/s2.cfg", "merged");
  Profile p{u"New", u"Old"};
  EXPECT_TRUE(save(p));
  EXPECT_EQ(unpacked(), "[Keep]\r\npath=k\r\n" + keysOf(p));
  EXPECT_FALSE(exists(root / "profiles/Old"));
  EXPECT_EQ(readBytes(root / "profiles/New/settings/s.cfg"), "old");
  EXPECT_EQ(readBytes(root / "profiles/New/s2.cfg"), "merged");
}

// A change of letter case only renames section and folder, and loses nothing.
TEST_F(ProfileWriter, RenameInLetterCaseOnly) {
  writeBytes(root / "profiles.ini", "[server]\r\npath=o\r\nextra=1\r\n[Other]\r\npath=x\r\n");
  kvn->CompressBINI(root.text("profiles.ini"));
  makeDir(root / "profiles/server/settings");
  writeBytes(root / "profiles/server/settings/s.cfg", "data");
  Profile p{u"SERVER", u"server"};
  EXPECT_TRUE(save(p));
  EXPECT_EQ(unpacked(), "[Other]\r\npath=x\r\n" + keysOf(p));
  EXPECT_EQ(readBytes(root / "profiles/SERVER/settings/s.cfg"), "data");
  EXPECT_FALSE(exists(root / "profiles/server"));
  EXPECT_FALSE(exists(root / "profiles/SERVER.~rename"));
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(ProfileWriter, NameOfNeitherFormIsRefused) {
  writeBytes(root / "profiles.txt", "[A]\r\npath=a\r\n");
  EXPECT_FALSE(save(Profile{u"B"}, "profiles.txt"));
  EXPECT_EQ(readBytes(root / "profiles.txt"), "[A]\r\npath=a\r\n");
  EXPECT_EQ(failures(), Failures{"writeProfile:52@1"});
}

// A profile name is one folder below "profiles" and one section: a name that would reach
// elsewhere, or that no section can hold, is refused before anything changes, on disk or in the
// profiles file.
TEST_F(ProfileWriter, NamesThatLeaveTheProfilesFolderAreRefused) {
  writeBytes(root / "profiles.ini", "[Keep]\r\npath=k\r\n");
  kvn->CompressBINI(root.text("profiles.ini"));
  const std::string packed = readBytes(root / "profiles.bini");
  makeDir(root / "victim/settings");
  writeBytes(root / "victim/settings/v.cfg", "v");
  makeDir(root / "profiles/Old");
  const Profile cases[] = {
      {u"../escape"},
      {u"..\\escape"},
      {u".."},
      {u"."},
      {u"a/b"},
      {u"a\\b"},
      {root.text("escape")},
      {u""},
      {u" "},
      {u" \t "},
      {Text(u"..\0x", 4)},
      {Text(u"New\0", 4)},
      {u"a\rb"},
      {u"a\nb"},
      {u"a]b"},
      {u"New", Text(u"..\0x", 4)},
      {u"New", u"Old\r\n[Keep"},
      {u"New", u" "},
      {u"New", u"../victim"},
      {u"New", u".."},
      {u"New", u"..\\victim"},
  };
  for (const Profile& p : cases) {
    loggedFailures().clear();
    EXPECT_FALSE(save(p)) << toUtf8(p.name) << " / " << toUtf8(p.old);
    EXPECT_EQ(failures(), Failures{"writeProfile:52@1"})
        << toUtf8(p.name) << " / " << toUtf8(p.old);
    EXPECT_EQ(readBytes(root / "profiles.bini"), packed);
    EXPECT_FALSE(exists(root / "profiles.ini"));
  }
  EXPECT_EQ(readBytes(root / "victim/settings/v.cfg"), "v");
  EXPECT_FALSE(exists(root / "escape"));
  EXPECT_FALSE(exists(root / "profiles/New"));
  EXPECT_FALSE(exists(root / "profiles/a"));
  EXPECT_TRUE(exists(root / "profiles/Old"));
}

// A plain file left beside the packed one (by a failed or killed save) is older than the packed
// content: whichever name is given, the save starts from the packed file.
TEST_F(ProfileWriter, ALeftPlainFileNeverReplacesThePackedContent) {
  for (const char* file : {"profiles.ini", "profiles.bini"}) {
    std::remove((root / "profiles.bini").c_str());
    writeBytes(root / "profiles.ini", "[Keep]\r\npath=k\r\n");
    kvn->CompressBINI(root.text("profiles.ini"));
    writeBytes(root / "profiles.ini", "[Left]\r\npath=l\r\n");
    Profile p{u"New"};
    EXPECT_TRUE(save(p, file)) << file;
    EXPECT_EQ(unpacked(), "[Keep]\r\npath=k\r\n" + keysOf(p)) << file;
  }
  EXPECT_EQ(failures(), Failures{});
}

// After a failure the packed file is as before, the plain file lies beside it, and the next call
// starts again from the packed state.
TEST_F(ProfileWriter, FailuresLeaveThePackedFileAlone) {
  struct Case {
    const char* what;
    std::function<void(FormObject&)> damage;
    Profile profile;
    std::string failure;
  } cases[] = {
      {"no list",
       [](FormObject& f) { f.control(u"lstUrls") = FormControl(); },
       {u"N"},
       "writeProfile:438@6"},
      {"no cboLL",
       [](FormObject& f) { f.control(u"cboLL") = FormControl(); },
       {u"N"},
       "writeProfile:438@7"},
      {"old folder missing", [](FormObject&) {}, {u"N", u"Gone"}, "writeProfile:76@9"},
      {"profiles folder missing", [](FormObject&) {}, {u"N"}, "writeProfile:76@10"},
  };
  const std::string stored = "[Gone]\r\npath=g\r\n[Keep]\r\npath=k\r\n";
  for (Case& c : cases) {
    loggedFailures().clear();
    std::remove((root / "profiles.ini").c_str());
    writeBytes(root / "profiles.ini", stored);
    kvn->CompressBINI(root.text("profiles.ini"));
    const std::string packed = readBytes(root / "profiles.bini");
    if (std::string(c.what) == "profiles folder missing") {
      std::filesystem::remove_all(root / "profiles");
    }
    auto form = formOf(c.profile);
    c.damage(*form);
    EXPECT_FALSE(kvn->writeProfile(*form, root.text("profiles.bini"), root.text())) << c.what;
    EXPECT_EQ(failures(), Failures{c.failure}) << c.what;
    EXPECT_EQ(readBytes(root / "profiles.bini"), packed) << c.what;
    EXPECT_TRUE(exists(root / "profiles.ini")) << c.what;

    makeDir(root / "profiles");
    Profile next{u"Next"};
    EXPECT_TRUE(save(next)) << c.what;
    EXPECT_EQ(unpacked(), stored + keysOf(next)) << c.what;
  }
}

// The profile operations answer by name, with any late-bound form.
TEST_F(ProfileWriter, ReachableByName) {
  Variant form(std::shared_ptr<Dispatch>(formOf(Profile{u"P"})));
  Variant packed(root.text("profiles.bini")), plain(root.text("profiles.ini"));
  auto call = [&](const char16_t* name, std::vector<Variant> args) {
    return kvn->CallByName(name, args);
  };
  EXPECT_TRUE(call(u"WRITEPROFILE", {form, packed, Variant(root.text())}).toBool());
  EXPECT_TRUE(call(u"isbinifile", {packed}).toBool());
  EXPECT_TRUE(call(u"DecompressBINI", {packed, Variant(Text())}).toBool());
  EXPECT_EQ(call(u"validateProfile", {form, plain}).toText(),
            u"You already have a profile with this name!");
  EXPECT_FALSE(call(u"CheckAlphaNumeric", {Variant(Text(u"a_b"))}).toBool());
  call(u"CompressBINI", {plain});
  EXPECT_FALSE(exists(root / "profiles.ini"));
}

}  // namespace
}  // namespace zrk::test
