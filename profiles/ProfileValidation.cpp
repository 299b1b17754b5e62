// Whether a profile form can be saved, and the test for the characters of a profile name.
#include <zrkKVL/FormObject.h>
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/ini/ProfileOps.h"

namespace zrk {
namespace {

constexpr TextView kGamePrompt = u"Please select a Game";
constexpr TextView kStatsPrompt = u"Please select a Stats System";

constexpr TextView kNotAlphanumeric =
    u"Profile name MUST be alphanumeric!\r\n"
    u"\r\n"
    u"Whats Allowed?\r\n"
    u" - Any letter a-z or A-Z\r\n"
    u" - Any numeric value\r\n"
    u" - Spaces between letters/numbers\r\n"
    u"\r\n"
    u"***Spaces at the start or the end of the name, will automatically be trimmed off.";

// The text without spaces (character 32 only) at either end.
Text trimSpaces(const Text& s) {
  size_t first = s.find_first_not_of(u' ');
  if (first == Text::npos) return Text();
  return s.substr(first, s.find_last_not_of(u' ') - first + 1);
}

bool isAllowed(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
         c == u' ';
}

Text text(Dispatch& F, TextView control) {
  return formGet(F, control, u"Text").toText();
}

}  // namespace

Text clsKVN::validateProfile(Dispatch& F, Text iFile) {
  Text result;
  MethodFrame frame(u"validateProfile");
  frame.run([&] {
    frame.line(1);
    formLet(F, u"txtName", u"Text", Variant(trimSpaces(text(F, u"txtName"))));
    frame.line(2);
    if (text(F, u"txtName").empty()) {
      result = u"You must enter a profile name!";
      return;
    }
    frame.line(3);
    if (!CheckAlphaNumeric(text(F, u"txtName"))) {
      result = Text(kNotAlphanumeric);
      return;
    }
    frame.line(4);
    if (text(F, u"txtPath").empty()) {
      result = u"Path to game exe is empty!";
      return;
    }
    frame.line(5);
    if (text(F, u"cboGames") == kGamePrompt) {
      result = u"You have not selected a Game!";
      return;
    }
    frame.line(6);
    if (text(F, u"cboStats") == kStatsPrompt) {
      result = u"You have not selected a Stats System!";
      return;
    }
    frame.line(7);
    // The whole list, not the section list's fixed buffer: a name behind its end would pass
    // and the save would overwrite that profile.
    const Text newName = text(F, u"txtName");
    for (const Text& name : platform::allSectionNames(iFile, 4096).names) {
      // The old name is read only for a name taken already: a form may lack that control.
      if (name == newName && text(F, u"txtOld") != newName) {
        result = u"You already have a profile with this name!";
        return;
      }
    }
  });
  return result;
}

bool clsKVN::CheckAlphaNumeric(Text strInputText) {
  bool result = false;
  MethodFrame frame(u"checkAlphaNumeric");
  frame.run([&] {
    // The count runs in a signed 16-bit value: a text past its range overflows, one of 32,767
    // characters only once its last character has passed.
    if (strInputText.size() > size_t(INT16_MAX)) throw Failure(err::Overflow);
    for (char16_t c : strInputText) {
      result = isAllowed(c);
      if (!result) return;
    }
    if (strInputText.size() == size_t(INT16_MAX)) throw Failure(err::Overflow);
  });
  return result;
}

static const CallRegistrar kValidationCalls{
    {u"validateProfile", calls::method<&clsKVN::validateProfile>},
    {u"CheckAlphaNumeric", calls::method<&clsKVN::CheckAlphaNumeric>},
};

}  // namespace zrk
