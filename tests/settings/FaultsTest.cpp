// Settings files under injected faults: nothing stored is lost, failures carry their words.
#include <dirent.h>

#include "platform/files/SysCalls.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

using namespace platform;

Variant noLog(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  return Variant();
}

class SettingsFaults : public LibraryTest {
 protected:
  faults::Scope scope_;
  CallStandIn log_{u"LogError", noLog};
};

TEST_F(SettingsFaults, RefusedIniWritesChangeNothing) {
  const std::string before = "; keep\r\n[S]\r\nk=old\r\n";
  struct Case {
    const char* what;
    std::function<void(const std::string&)> arm;
  } cases[] = {
      {"disk full", [](const std::string& p) { faults::diskFull(p); }},
      {"write refused", [](const std::string& p) { faults::writeRefused(p); }},
      {"read-only folder", [](const std::string& p) { faults::readOnlyFolder(p); }},
  };
  for (const auto& c : cases) {
    writeBytes(root / "a.ini", before);
    c.arm(root / "a.ini");
    kvn->WriteIniKey(u"S", u"k", u"new", root.text("a.ini"));
    Text sect = u"S", file = root.text("a.ini");
    kvn->ClearIniSection(sect, file);
    faults::clear();
    EXPECT_EQ(readBytes(root / "a.ini"), before) << c.what;
    size_t entries = 0;
    DIR* d = ::opendir(root.path().c_str());
    while (dirent* e = ::readdir(d))
      entries += e->d_name[0] != '.';
    ::closedir(d);
    EXPECT_EQ(entries, 2u) << c.what << ": no temporary file is left (a.ini and dlls)";
  }
  EXPECT_TRUE(dialogs->shown().empty()) << "a refused write is no failure";
}

TEST_F(SettingsFaults, FileVanishingBeforeTheOpenIsReportedWithItsName) {
  writeBytes(root / "v.txt", "a\r\n");
  faults::vanishes(root / "v.txt");
  Variant r = kvn->ReadFile(root.text("v.txt"));
  EXPECT_TRUE(r.isEmpty());
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 1u);
  Text name = root.text("v.txt");
  EXPECT_NE(shown[0].text.find(u"Error 53: File not found [" + name + u"] [" + name + u"]"),
            Text::npos)
      << toUtf8(shown[0].text);
}

}  // namespace
}  // namespace zrk::test
