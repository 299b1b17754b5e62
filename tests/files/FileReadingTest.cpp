// The whole-file readers: line texts, number texts with their spare tails, failure words.
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

using FileReading = ReportingTest;

TEST_F(FileReading, LinesJoinWithCrLfOnceTextHasStarted) {
  struct Case {
    const char* what;
    std::string bytes;
    Text text;
  } cases[] = {
      {"empty line kept inside", "a\r\n\r\nb\r\n", u"a\r\n\r\nb"},
      {"one line loses its end", "x\r\n", u"x"},
      {"blank lines in front vanish", "   \r\n\r\n  \r\n  hi\r\n\r\nyo  \r\n", u"hi\r\n\r\nyo"},
      {"a blank line gives way to the next", "  \r\nz", u"z"},
      {"tab is no blank", "\t\r\n", u"\t"},
      {"lone LF stays in the line", "a\nb\n", u"a\nb\n"},
      {"lone CR ends a line", "a\rb", u"a\r\nb"},
      {"empty lines behind the text stay", "a\r\n\r\n\r\n", u"a\r\n\r\n"},
      {"empty file", "", u""},
      {"code page", bytesOf({0x80, 0xFF}), u"\u20AC\u00FF"},
  };
  for (const auto& c : cases) {
    std::string path = root / "in.txt";
    writeBytes(path, c.bytes);
    EXPECT_EQ(kvn->ReadFileToString(T(path)), c.text) << c.what;
  }
  EXPECT_EQ(failureCount(), 0u);
}

TEST_F(FileReading, NumberTextsAndTheirSpareTails) {
  // The growing buffer takes 3 and then 5 more characters for 65/66/, and so on.
  struct Case {
    std::string bytes;
    Text binRead, hexRead, readBinary;
  } cases[] = {
      {"AB", u"65/66/   ", u"41/42/   ", u"65/66/"},
      {bytesOf({0x41, 0x0A}), u"65/10/   ", u"41/A/   ", u"65/10/"},
      {bytesOf({0, 10, 255}), u"0/10/255/" + Text(7, u' '), u"0/A/FF/" + Text(6, u' '),
       u"0/10/255/"},
  };
  for (const auto& c : cases) {
    std::string path = root / "in.bin";
    writeBytes(path, c.bytes);
    EXPECT_EQ(kvn->BinRead(T(path)), c.binRead);
    EXPECT_EQ(kvn->HexRead(T(path)), c.hexRead);
    EXPECT_EQ(kvn->ReadBinaryFileToString(T(path)), c.readBinary);
  }
}

// Every byte value survives the number text, in both radixes.
TEST_F(FileReading, AllByteValuesReadBack) {
  std::string all;
  for (int i = 0; i < 256; ++i)
    all += static_cast<char>(255 - i);
  std::string path = root / "all.bin";
  writeBytes(path, all);
  auto parse = [](const Text& numbers, int radix) {
    std::string back;
    for (const Text& piece : split(numbers, u"/")) {
      if (piece.find_first_not_of(u' ') == Text::npos) continue;
      EXPECT_TRUE(piece == u"0" || piece[0] != u'0') << "leading zero in " << toUtf8(piece);
      back += static_cast<char>(std::stoi(toUtf8(piece), nullptr, radix));
    }
    return back;
  };
  EXPECT_EQ(parse(kvn->HexRead(T(path)), 16), all);
  EXPECT_EQ(parse(kvn->BinRead(T(path)), 10), all);
  EXPECT_EQ(kvn->HexRead(T(path)).substr(0, 9), u"FF/FE/FD/") << "upper-case digits";
}

TEST_F(FileReading, MissingFileWordsDifferPerReader) {
  Text n = root.text("absent.txt");
  struct Case {
    Text (clsKVN::*read)(Text);
    const char16_t* func;
    Text words;
    int32_t line;
  } cases[] = {
      {&clsKVN::ReadFileToString, u"ReadFileToString", u"File not found [" + n + u"]", 1},
      {&clsKVN::ReadBinaryFileToString, u"ReadBinaryFileToString",
       u"File not found [" + n + u"]File [" + n + u"]", 1},
      {&clsKVN::BinRead, u"BinRead", u"File not found [" + n + u"]", 0},
      {&clsKVN::HexRead, u"HexRead", u"File not found", 0},
  };
  for (const auto& c : cases) {
    loggedFailures().clear();
    EXPECT_EQ(((*kvn).*c.read)(n), u"") << toUtf8(c.func);
    LoggedFailure f = onlyFailure();
    EXPECT_EQ(f.func, c.func);
    EXPECT_EQ(f.failure.Number, 53);
    EXPECT_EQ(f.failure.Description, c.words);
    EXPECT_EQ(f.line, c.line) << toUtf8(c.func);
  }
  EXPECT_EQ(dialogs->shown().size(), 4u);
}

TEST_F(FileReading, EmptyFileIsAFailureOnlyForTheByteReaders) {
  std::string path = root / "empty.bin";
  writeBytes(path, "");
  Text n = T(path);
  struct Case {
    Text (clsKVN::*read)(Text);
    Text words;  // empty when no failure is expected
  } cases[] = {
      {&clsKVN::ReadFileToString, u""},
      {&clsKVN::ReadBinaryFileToString, u"Subscript out of rangeFile [" + n + u"]"},
      {&clsKVN::BinRead, u"Subscript out of range"},
      {&clsKVN::HexRead, u"Subscript out of range"},
  };
  for (const auto& c : cases) {
    loggedFailures().clear();
    EXPECT_EQ(((*kvn).*c.read)(n), u"");
    if (c.words.empty()) {
      EXPECT_EQ(failureCount(), 0u);
    } else {
      LoggedFailure f = onlyFailure();
      EXPECT_EQ(f.failure.Number, 9);
      EXPECT_EQ(f.failure.Description, c.words);
    }
  }
}

}  // namespace
}  // namespace zrk::test
