// Validation of a profile form: the order of the checks, the messages, the name's characters.
#include <zrkKVL/FormObject.h>
#include "tests/profiles/ProfileTestSupport.h"

namespace zrk::test {
namespace {

const Text kNotAlphanumeric =
    u"Profile name MUST be alphanumeric!\r\n\r\nWhats Allowed?\r\n - Any letter a-z or A-Z\r\n"
    u" - Any numeric value\r\n - Spaces between letters/numbers\r\n\r\n***Spaces at the start "
    u"or the end of the name, will automatically be trimmed off.";

struct Fields {
  Text name = u"Server 1", old, path = u"/games/hl.exe", game = u"Half-Life",
       stats = u"PsychoStats";
};

std::shared_ptr<FormObject> formOf(const Fields& f) {
  auto form = std::make_shared<FormObject>();
  form->set(u"txtName", u"Text", f.name)
      .set(u"txtOld", u"Text", f.old)
      .set(u"txtPath", u"Text", f.path)
      .set(u"cboGames", u"Text", f.game)
      .set(u"cboStats", u"Text", f.stats);
  return form;
}

class ProfileValidation : public ProfileLibraryTest {
 protected:
  void SetUp() override {
    ProfileLibraryTest::SetUp();
    writeBytes(root / "profiles.ini", "[Alpha]\r\npath=a\r\n[Beta 2]\r\npath=b\r\n");
  }
  Text validate(const Fields& f) {
    return kvn->validateProfile(*formOf(f), root.text("profiles.ini"));
  }
};

TEST_F(ProfileValidation, ChecksInOrder) {
  auto with = [](auto change) {
    Fields f;
    change(f);
    return f;
  };
  struct Case {
    Fields fields;
    Text message;
  } cases[] = {
      {Fields{}, u""},
      {with([](Fields& f) { f.name = u"    "; }), u"You must enter a profile name!"},
      {with([](Fields& f) {
         f.name = u"";
         f.path = u"";
       }),
       u"You must enter a profile name!"},
      {with([](Fields& f) {
         f.name = u"a-b";
         f.path = u"";
       }),
       kNotAlphanumeric},
      {with([](Fields& f) { f.name = u"a.b"; }), kNotAlphanumeric},
      {with([](Fields& f) { f.name = u"a_b"; }), kNotAlphanumeric},
      {with([](Fields& f) { f.name = u"caf\u00E9"; }), kNotAlphanumeric},
      {with([](Fields& f) { f.name = u"\tx"; }), kNotAlphanumeric},
      {with([](Fields& f) {
         f.path = u"";
         f.game = u"Please select a Game";
       }),
       u"Path to game exe is empty!"},
      {with([](Fields& f) {
         f.game = u"Please select a Game";
         f.stats = u"Please select a Stats System";
       }),
       u"You have not selected a Game!"},
      {with([](Fields& f) { f.game = u"please select a game"; }), u""},
      {with([](Fields& f) { f.stats = u"Please select a Stats System"; }),
       u"You have not selected a Stats System!"},
      {with([](Fields& f) { f.name = u"Alpha"; }), u"You already have a profile with this name!"},
      {with([](Fields& f) {
         f.name = u"Beta 2";
         f.old = u"Gamma";
       }),
       u"You already have a profile with this name!"},
      {with([](Fields& f) {
         f.name = u"Alpha";
         f.old = u"Alpha";
       }),
       u""},
      {with([](Fields& f) { f.name = u"ALPHA"; }), u""},
      {with([](Fields& f) { f.name = u"  Alpha  "; }),
       u"You already have a profile with this name!"},
      {with([](Fields& f) { f.name = u"1 2  3"; }), u""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(validate(c.fields), c.message) << toUtf8(c.fields.name);
  }
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(ProfileValidation, NameIsTrimmedOnTheFormEvenWhenALaterCheckFails) {
  Fields f;
  f.name = u"  My Server ";
  f.path = u"";
  auto form = formOf(f);
  EXPECT_EQ(kvn->validateProfile(*form, root.text("profiles.ini")), u"Path to game exe is empty!");
  EXPECT_EQ(formGet(*form, u"txtName", u"Text").toText(), u"My Server");
}

TEST_F(ProfileValidation, FilesWithoutSectionsFindNothing) {
  kvn->CompressBINI(root.text("profiles.ini"));
  Fields f;
  f.name = u"Alpha";
  for (const char* file : {"profiles.bini", "missing.ini"}) {
    EXPECT_EQ(kvn->validateProfile(*formOf(f), root.text(file)), u"") << file;
  }
}

TEST_F(ProfileValidation, MissingControlIsReportedAndGivesEmpty) {
  auto bare = std::make_shared<FormObject>();
  bare->set(u"txtName", u"Text", Text(u"Name")).set(u"txtPath", u"Text", Text(u"p"));
  EXPECT_EQ(kvn->validateProfile(*bare, root.text("profiles.ini")), u"");
  EXPECT_EQ(failures(), Failures{"validateProfile:438@5"});
}

TEST_F(ProfileValidation, CheckAlphaNumeric) {
  struct Case {
    Text text;
    bool expected;
  } cases[] = {{u"", false},
               {u"_", false},
               {u" ", true},
               {u"7", true},
               {u"abc XYZ 09", true},
               {u"ab\u00C4", false},
               {u"a#", false},
               {Text(32766, u'a'), true},
               {Text(32766, u'a') + u"-", false}};
  for (const Case& c : cases)
    EXPECT_EQ(kvn->CheckAlphaNumeric(c.text), c.expected);
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(ProfileValidation, CheckAlphaNumericCountsIn16Bits) {
  EXPECT_TRUE(kvn->CheckAlphaNumeric(Text(32767, u'a')));  // the count overflows after the last
  EXPECT_FALSE(kvn->CheckAlphaNumeric(Text(32768, u'a')));
  EXPECT_EQ(failures(), (Failures{"checkAlphaNumeric:6@0", "checkAlphaNumeric:6@0"}));
}

}  // namespace
}  // namespace zrk::test
