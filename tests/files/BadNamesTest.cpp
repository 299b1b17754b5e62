// A NUL in a file or folder name, through every public operation that takes one: failure 52
// (bad file name), reported or thrown as the operation's failure behaviour says, and the file
// that the name's part before the NUL names is neither read nor changed.
#include <filesystem>
#include <functional>
#include <set>

#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

class BadNames : public ReportingTest {
 protected:
  // The failure's number: thrown to the caller, or the one the operation reported.
  int32_t numberOf(const std::function<void()>& call) {
    loggedFailures().clear();
    int32_t thrown = failureOf(call);
    if (thrown) return thrown;
    return loggedFailures().empty() ? 0 : loggedFailures().front().failure.Number;
  }
};

TEST_F(BadNames, ANulInANameIsABadNameEverywhere) {
  makeDir(root / "d");
  const std::string victim = root / "d/victim";
  writeBytes(victim, "[S]\r\nk=old\r\n");
  ASSERT_TRUE(kvn->MakeArchive(Variant::textArray({u"5|a.txthello"}), root.text("d/good.zrk")));
  const std::set<std::string> before = entriesOf(root / "d");
  const Text nul = T(victim) + Text(u"\0.txt", 5);
  const Text nulIni = T(victim) + Text(u"\0", 1);
  struct Case {
    const char* operation;
    std::function<void()> call;
  } cases[] = {
      {"WriteFile", [&] { kvn->WriteFile(nul, Variant(Text(u"new"))); }},
      {"AppendFile", [&] { kvn->AppendFile(nulIni, Variant(Text(u"new"))); }},
      {"ReadFileToString", [&] { kvn->ReadFileToString(nulIni); }},
      {"ReadBinaryFileToString", [&] { kvn->ReadBinaryFileToString(nulIni); }},
      {"BinRead", [&] { kvn->BinRead(nulIni); }},
      {"HexRead", [&] { kvn->HexRead(nulIni); }},
      {"ReadFile", [&] { kvn->ReadFile(nulIni); }},
      {"MakeArchive", [&] { kvn->MakeArchive(Variant::textArray({u"5|a.txthello"}), nul); }},
      {"ExtractArchive", [&] { kvn->ExtractArchive(root.text("d/good.zrk"), nul); }},
      {"GetIniKey", [&] { kvn->GetIniKey(u"S", u"k", nulIni); }},
      {"GetIniKey raw", [&] { kvn->GetIniKey(u"S", u"k=", nulIni); }},
      {"GetAllIniSections", [&] { kvn->GetAllIniSections(nulIni); }},
      {"GetIniSection", [&] { kvn->GetIniSection(u"S", nulIni); }},
      {"WriteIniKey", [&] { kvn->WriteIniKey(u"S", u"k", u"new", nulIni); }},
      {"ClearIniSection",
       [&] {
         Text s = u"S", f = nulIni;
         kvn->ClearIniSection(s, f);
       }},
      {"IsBINIFile", [&] { kvn->IsBINIFile(nulIni); }},
      {"CompressBINI", [&] { kvn->CompressBINI(nulIni); }},
      {"DecompressBINI", [&] { kvn->DecompressBINI(nul); }},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(numberOf(c.call), err::BadFileNameOrNumber) << c.operation;
    EXPECT_EQ(readBytes(victim), "[S]\r\nk=old\r\n") << c.operation;
    EXPECT_EQ(entriesOf(root / "d"), before) << c.operation;
  }
}

}  // namespace
}  // namespace zrk::test
