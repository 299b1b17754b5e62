// WriteFile and AppendFile: the bytes on disk, and how failures are reported.
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

using FileWriting = ReportingTest;

Variant texts(std::vector<Text> items, int32_t lowerBound = 0) {
  Variant v = Variant::textArray(std::move(items));
  v.array().lowerBound = lowerBound;
  return v;
}

TEST_F(FileWriting, EveryStringIsALineEndingInCrLf) {
  struct Case {
    const char* what;
    Variant data;
    std::string bytes;
  } cases[] = {
      {"empty string", Variant(Text()), "\r\n"},
      {"bytes 0, 16, 255", Variant(Text{u'\0', u'\x10', u'\xFF'}),
       bytesOf({0, 0x10, 0xFF, 13, 10})},
      {"a line end of its own gets a second", Variant(Text(u"x\r\n")), "x\r\n\r\n"},
      {"code page character", Variant(Text(u"\u20AC")), bytesOf({0x80, 13, 10})},
      {"array", texts({u"a", u"b"}), "a\r\nb\r\n"},
      {"empty element", texts({u"a", u"", u"b"}), "a\r\n\r\nb\r\n"},
      {"array without elements", texts({}), ""},
  };
  for (const auto& c : cases) {
    std::string path = root / "out.txt";
    writeBytes(path, "old content that must go");
    kvn->WriteFile(T(path), c.data);
    EXPECT_EQ(readBytes(path), c.bytes) << c.what;
  }
  EXPECT_EQ(failureCount(), 0u);
}

TEST_F(FileWriting, ArrayAboveIndexZeroEmptiesTheFileThenReportsSubscript) {
  std::string path = root / "out.txt";
  writeBytes(path, "keep?");
  kvn->WriteFile(T(path), texts({u"a", u"b"}, 1));
  EXPECT_EQ(readBytes(path), "");
  LoggedFailure f = onlyFailure();
  EXPECT_EQ(f.func, u"WriteFile");
  EXPECT_EQ(f.failure.Number, 9);
  EXPECT_EQ(f.failure.Description, u"Subscript out of range [" + T(path) + u"]");
  EXPECT_EQ(dialogs->shown().size(), 1u);
}

TEST_F(FileWriting, MissingFolderIsReportedAndNotMade) {
  std::string path = root / "nofolder/out.txt";
  kvn->WriteFile(T(path), Variant(Text(u"x")));
  EXPECT_FALSE(exists(root / "nofolder"));
  LoggedFailure f = onlyFailure();
  EXPECT_EQ(f.func, u"WriteFile");
  EXPECT_EQ(f.failure.Number, 76);
  EXPECT_EQ(f.failure.Description, u"Path not found [" + T(path) + u"]");
  EXPECT_EQ(f.line, 1);
}

TEST_F(FileWriting, AppendAddsLinesBehindWhatTheFileHeld) {
  std::string path = root / "log.txt";
  writeBytes(path, "start\r\n");
  kvn->AppendFile(T(path), Variant(Text()));
  kvn->AppendFile(T(path), texts({u"one", u"two"}));
  kvn->AppendFile(T(path), Variant(Text(u"three")));
  EXPECT_EQ(readBytes(path), "start\r\n\r\none\r\ntwo\r\nthree\r\n");
}

TEST_F(FileWriting, AppendToAMissingFileOrEmptyNameDoesNothing) {
  kvn->AppendFile(root.text("absent.txt"), Variant(Text(u"x")));
  kvn->AppendFile(u"", Variant(Text(u"x")));
  EXPECT_FALSE(exists(root / "absent.txt"));
  EXPECT_EQ(failureCount(), 0u);
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(FileWriting, AppendFailureNamesTheFileInTheText) {
  std::string path = root / "sock";
  makeUnopenableFile(path);
  kvn->AppendFile(T(path), Variant(Text(u"x")));
  LoggedFailure f = onlyFailure();
  EXPECT_EQ(f.func, u"AppendFile on file " + T(path));
  EXPECT_NE(f.failure.Number, 0);
  EXPECT_EQ(f.failure.Description.find(u"["), Text::npos) << "the words stay unchanged";
}

}  // namespace
}  // namespace zrk::test
