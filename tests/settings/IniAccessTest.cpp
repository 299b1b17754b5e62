// INI access methods: result shapes, the raw-line key path, the line reader.
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

Variant noLog(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  return Variant();
}

class IniAccess : public LibraryTest {
 protected:
  Text file(const std::string& bytes) {
    writeBytes(root / "a.ini", bytes);
    return root.text("a.ini");
  }
  static std::vector<Text> texts(const Variant& v) {
    std::vector<Text> out;
    for (const auto& e : v.array().items)
      out.push_back(e.toText());
    return out;
  }
  CallStandIn log_{u"LogError", noLog};
};

TEST_F(IniAccess, SectionListShapes) {
  EXPECT_EQ(texts(kvn->GetAllIniSections(file("[A]\r\nk=v\r\n[B]\r\n"))),
            (std::vector<Text>{u"A", u"B", u""}));
  EXPECT_EQ(texts(kvn->GetAllIniSections(file("no sections\r\n"))), std::vector<Text>{u""});
  EXPECT_EQ(texts(kvn->GetAllIniSections(root.text("none.ini"))), std::vector<Text>{u""});
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(IniAccess, SectionListStopsAtItsBuffer) {
  std::string ini;
  std::vector<Text> names;
  for (int i = 0; i < 120; ++i) {  // 120 names of 9 characters: more than 1019 with their NULs
    std::string n = "Section" + std::to_string(100 + i).substr(1);
    ini += "[" + n + "]\r\n";
    names.push_back(T(n));
  }
  std::vector<Text> got = texts(kvn->GetAllIniSections(file(ini)));
  ASSERT_EQ(got.size(), 103u);  // 101 whole names, the cut one, the empty last
  EXPECT_EQ(std::vector<Text>(got.begin(), got.begin() + 101),
            std::vector<Text>(names.begin(), names.begin() + 101));
  EXPECT_EQ(got[101], names[101].substr(0, 7));  // 1019 - 2 - 101 * 10 characters left
  EXPECT_EQ(got[102], u"");
}

TEST_F(IniAccess, SectionListAtItsBufferSize) {
  // 101 names of 9 characters take 1010 with their NULs; the last name and those behind it
  // decide whether the list fits in 1019 with its closing NUL.
  std::string head;
  std::vector<Text> names;
  for (int i = 0; i < 101; ++i) {
    std::string n = "Section" + std::to_string(100 + i).substr(1);
    head += "[" + n + "]\r\n";
    names.push_back(T(n));
  }
  struct Case {
    size_t lastLength;
    int behind;  // sections after the last
    size_t lastKept;
    const char16_t* cutBehind;  // what is left of the names behind it, if any
  } cases[] = {
      {6, 0, 6, nullptr},  // 1017 and the closing NUL: fits
      {6, 1, 6, nullptr},  // one more name would need 1019: cut after the last, whole
      {5, 1, 5, u"B"},     // the name behind keeps one character
      {7, 0, 7, nullptr},  // fits exactly: still cut, the last name is whole
      {8, 0, 7, nullptr},  // the last loses its end
      {8, 3, 7, nullptr}, {40, 2, 7, nullptr},
  };
  for (const auto& c : cases) {
    std::string ini = head + "[" + std::string(c.lastLength, 'Z') + "]\r\n";
    for (int i = 0; i < c.behind; ++i)
      ini += "[B" + std::to_string(i) + "]\r\n";
    std::vector<Text> expected = names;
    expected.push_back(Text(c.lastKept, u'Z'));
    if (c.cutBehind) expected.push_back(c.cutBehind);
    expected.push_back(u"");
    EXPECT_EQ(texts(kvn->GetAllIniSections(file(ini))), expected)
        << c.lastLength << " behind " << c.behind;
  }
}

TEST_F(IniAccess, SectionShapes) {
  Variant absent = kvn->GetIniSection(u"S", root.text("none.ini"));
  EXPECT_TRUE(absent.isEmpty());
  Variant none = kvn->GetIniSection(u"X", file("[S]\r\nk=v\r\n"));
  ASSERT_TRUE(none.isArray());
  EXPECT_EQ(none.array().upperBound(), -1);
  Variant emptyFile = kvn->GetIniSection(u"X", file(""));
  ASSERT_TRUE(emptyFile.isArray());
  EXPECT_EQ(emptyFile.array().upperBound(), -1);
  EXPECT_EQ(texts(kvn->GetIniSection(u"s", file("[S]\r\na=1\r\nb = 2\r\n[T]\r\n"))),
            (std::vector<Text>{u"a=1", u"b=2", u""}));
}

TEST_F(IniAccess, NoSectionIsCut) {
  // A section named "" whose last line has no line end needs every character the file has.
  struct Case {
    const char* name;
    const char16_t* section;
    std::string bytes;
    std::vector<Text> lines;
  } cases[] = {
      {"empty name, LF, last line open", u"", "[]\nk=v", {u"k=v", u""}},
      {"empty name, CR, last line open",
       u"",
       "[]\rk=v\rlonger=value",
       {u"k=v", u"longer=value", u""}},
      {"empty name, no key", u"", "[]\nplain", {u"plain", u""}},
      {"empty name after another", u"", "[A]\na=1\n[]\nk=v", {u"k=v", u""}},
      {"named, last line open", u"S", "[S]\nk=v", {u"k=v", u""}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(texts(kvn->GetIniSection(c.section, file(c.bytes))), c.lines);
  }
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(IniAccess, KeysByNameAndByRawLine) {
  Text f = file("a=b=0 before any section\r\n[S]\r\nk=" + std::string(300, 'x') +
                "\r\nempty=\r\nA=b=upper\r\n[T]\r\na=b=c\r\na=bcd\r\n");
  struct Case {
    const char16_t* section;
    const char16_t* key;
    Text value;
  } cases[] = {
      {u"S", u"k", Text(254, u'x')},
      {u"S", u"missing", u""},
      {u"S", u"empty", u""},
      {u"anything", u"a=b", u"0 before any section"},  // first matching line of the whole file
      {u"S", u"A=b", u"upper"},                        // case counts on this path
      {u"S", u"a=bc", u"a=bcd"},                       // nothing to remove: the whole line
      {u"S", u"zz=1", u""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(kvn->GetIniKey(c.section, c.key, f), c.value) << toUtf8(c.key);
  }
  EXPECT_EQ(kvn->GetIniKey(u"S", u"k", root.text("none.ini")), u"");
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(IniAccess, RawLinePathOnAnUnreadableFileReportsTwice) {
  makeUnopenableFile(root / "s.ini");
  Text f = root.text("s.ini");
  EXPECT_EQ(kvn->GetIniKey(u"S", u"a=b", f), u"");
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 2u);
  EXPECT_NE(shown[0].text.find(u"Function/Sub: ReadFile"), Text::npos);
  Text expected = u"Error 13: Type mismatch [S, a=b, " + f + u"]";
  EXPECT_NE(shown[1].text.find(expected), Text::npos) << toUtf8(shown[1].text);
}

TEST_F(IniAccess, WriteAndClear) {
  Text f = root.text("w.ini");
  kvn->WriteIniKey(u"S", u"k", u"v", f);
  kvn->WriteIniKey(u"T", u"x", u"y", f);
  EXPECT_EQ(readBytes(root / "w.ini"), "[S]\r\nk=v\r\n[T]\r\nx=y\r\n");
  Text sect = u"s";
  kvn->ClearIniSection(sect, f);
  EXPECT_EQ(readBytes(root / "w.ini"), "[T]\r\nx=y\r\n");
  Text nowhere = root.text("none/w.ini");
  kvn->WriteIniKey(u"S", u"k", u"v", nowhere);  // refused quietly
  Text other = u"None";
  kvn->ClearIniSection(other, f);
  EXPECT_EQ(readBytes(root / "w.ini"), "[T]\r\nx=y\r\n");
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(IniAccess, ReadFileLines) {
  struct Case {
    std::string bytes;
    std::vector<Text> lines;
  } cases[] = {
      {"a\r\n\r\nb\r\n", {u"a", u"b", u""}},
      {"a\r\n\r\nb", {u"a", u"b", u""}},
      {"  \r\nx", {u"  ", u"x", u""}},
      {"a\nb\n", {u"a\nb\n", u""}},
      {"", {u""}},
      {"\r\n\r\n", {u""}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(texts(kvn->ReadFile(file(c.bytes))), c.lines) << c.bytes;
  EXPECT_EQ(texts(kvn->ReadFile(root.text("none.txt"))), std::vector<Text>{u""});
}

}  // namespace
}  // namespace zrk::test
