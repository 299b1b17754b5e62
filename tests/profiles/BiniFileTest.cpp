// The packed text file: exact bytes, names, type words, failures and what stays on disk.
#include <algorithm>
#include <filesystem>
#include <random>
#include <string>

#include "platform/text/CodePage.h"
#include "profiles/Base64.h"
#include "profiles/BiniFormat.h"
#include "tests/profiles/ProfileTestSupport.h"

namespace zrk::test {
namespace {

using namespace std::string_literals;

class BiniFile : public ProfileLibraryTest {
 protected:
  // Packs `plain` holding `content` with the given type word, and gives the packed bytes.
  std::string pack(const std::string& plain, const std::string& content, const std::string& packed,
                   std::optional<Text> type = std::nullopt) {
    writeBytes(root / plain, content);
    kvn->CompressBINI(root.text(plain), type);
    return readBytes(root / packed);
  }
};

TEST_F(BiniFile, OneLineFileByteForByte) {
  std::string packed = pack("p.ini", "abc", "p.bini");
  EXPECT_EQ(packed, "\x05\0\0\0\0\0\0\0BINIeJxLTErm5QIABL8BPg=="s);
  EXPECT_FALSE(exists(root / "p.ini"));
  EXPECT_TRUE(kvn->DecompressBINI(root.text("p.bini")));
  EXPECT_EQ(readBytes(root / "p.ini"), "abc\r\n");
  EXPECT_TRUE(exists(root / "p.bini"));  // the packed file stays beside it
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(BiniFile, EmptyLinesPackToTheEmptyStream) {
  EXPECT_EQ(pack("e.ini", "\r\n\r\n\r\n", "e.bini"), "\0\0\0\0\0\0\0\0BINIeJwDAAAAAAE="s);
  EXPECT_TRUE(kvn->DecompressBINI(root.text("e.bini")));
  EXPECT_EQ(readBytes(root / "e.ini"), "");
}

TEST_F(BiniFile, SizeFieldUnitsFirst) {
  std::string line(1232, 'q');  // with CR LF, 1234 characters
  std::string packed = pack("s.ini", line, "s.bini");
  EXPECT_EQ(packed.substr(0, 12), "\x04\x03\x02\x01\0\0\0\0BINI"s);
}

TEST_F(BiniFile, SizeDigitsUpToEightDigits) {
  EXPECT_EQ(SizeDigits(0), u"00000000");
  EXPECT_EQ(SizeDigits(1234), u"00001234");
  EXPECT_EQ(SizeDigits(99'999'999), u"99999999");
  EXPECT_THROW(SizeDigits(100'000'000), Failure);
  EXPECT_EQ(ZeroPadLeft(u"123456789", 8), u"12345678");
  EXPECT_EQ(ZeroPadLeft(u"7", 3), u"007");
}

TEST_F(BiniFile, BytesToTextStopsAtTheFirstZero) {
  EXPECT_EQ(BytesToText("BINI"s), u"BINI");
  EXPECT_EQ(BytesToText("BI\0NI"s), u"BI");
  EXPECT_EQ(BytesToText("\0BINI"s), u"");
  EXPECT_EQ(BytesToText("\xFF\x80"s), u"\u00FF\u20AC");
}

// Lines are normalised (empty ones gone, every one ended by CR LF); every other byte survives.
TEST_F(BiniFile, ContentRoundTrips) {
  std::string allBytes;
  for (int b = 0; b < 256; ++b) {
    if (b != '\r') allBytes += char(b);
  }
  struct Case {
    std::string plain, unpacked;
  } cases[] = {{"a\0b\xFF\r\nline2\r\n"s, "a\0b\xFF\r\nline2\r\n"s},
               {"x\r\n\r\ny", "x\r\ny\r\n"},
               {"lf\nstays\r\n", "lf\nstays\r\n"},
               {allBytes, allBytes + "\r\n"}};
  for (const Case& c : cases) {
    pack("r.ini", c.plain, "r.bini");
    ASSERT_TRUE(kvn->DecompressBINI(root.text("r.bini")));
    EXPECT_EQ(readBytes(root / "r.ini"), c.unpacked);
  }
  EXPECT_EQ(failures(), Failures{});
}

// The packed file holds what the character-level operations make of the normalised text, for
// every byte value and a size that spans many blocks of the vector loops.
TEST_F(BiniFile, PackedBytesEqualTheCharacterPath) {
  std::mt19937 rng(3);
  for (size_t length : {1u, 47u, 200'000u}) {
    std::string content;
    while (content.size() < length) {
      char b = char(rng());
      if (b == '\r' || b == '\n') continue;
      content += b;
      if (rng() % 64 == 0) content += "\r\n";  // never an empty line, which would be dropped
    }
    std::string normalised = content + "\r\n";
    Text stream = kvn->CompressString(platform::fromAnsi(normalised));
    std::string expected = ansi(SizeDigits(normalised.size()));
    std::reverse(expected.begin(), expected.end());
    for (char& digit : expected)
      digit = char(digit - '0');
    expected += "BINI" + ansi(Base64Encode(stream));
    ASSERT_EQ(pack("big.ini", content, "big.bini"), expected) << length;
    ASSERT_TRUE(kvn->DecompressBINI(root.text("big.bini")));
    EXPECT_EQ(readBytes(root / "big.ini"), normalised) << length;
  }
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(BiniFile, EveryOccurrenceOfTheExtensionIsReplaced) {
  makeDir(root / "d.ini");
  makeDir(root / "d.bini");
  pack("d.ini/p.ini", "k=v", "d.bini/p.bini");
  EXPECT_TRUE(exists(root / "d.bini/p.bini"));
  EXPECT_FALSE(exists(root / "d.ini/p.ini"));
}

TEST_F(BiniFile, TypeWords) {
  std::string cfg = pack("x.cfg", "a=1", "x.bcfg", Text(u"cfg"));
  EXPECT_EQ(cfg.substr(8, 4), "BCFG");
  EXPECT_FALSE(kvn->IsBINIFile(root.text("x.bcfg")));
  EXPECT_FALSE(kvn->DecompressBINI(root.text("x.bcfg")));
  EXPECT_FALSE(exists(root / "x.cfg"));
  Text type = u"cfg";
  EXPECT_TRUE(kvn->DecompressBINI(root.text("x.bcfg"), &type));
  EXPECT_EQ(readBytes(root / "x.cfg"), "a=1\r\n");
  EXPECT_EQ(type, u"cfg");

  std::string conf = pack("y.conf", "b=2", "y.bconf", Text(u"conf"));
  EXPECT_EQ(conf.substr(8, 5), "BCONF");
  Text confType = u"conf";
  EXPECT_FALSE(kvn->DecompressBINI(root.text("y.bconf"), &confType));

  std::string ini = pack("z.ini", "c=3", "z.bini", Text());
  EXPECT_EQ(ini.substr(8, 4), "BINI");
  Text empty;
  EXPECT_TRUE(kvn->DecompressBINI(root.text("z.bini"), &empty));
  EXPECT_EQ(empty, u"");
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(BiniFile, IsBINIFileLooksAtTheMagicOnly) {
  struct Case {
    std::string content;
    bool expected;
  } cases[] = {{"\x09\x09\x09\x09\x09\x09\x09\x09"
                "BINI",
                true},
               {"00000000BINIgarbage", true},
               {"12345678BIN", false},
               {"[s]\r\nk=v\r\n", false},
               {"", false}};
  for (const Case& c : cases) {
    writeBytes(root / "t.bini", c.content);
    EXPECT_EQ(kvn->IsBINIFile(root.text("t.bini")), c.expected) << c.content;
  }
  EXPECT_FALSE(kvn->IsBINIFile(root.text("missing.bini")));
  EXPECT_TRUE(exists(root / "missing.bini"));  // the binary open made it
  EXPECT_EQ(readBytes(root / "missing.bini"), "");
  EXPECT_THROW(kvn->IsBINIFile(root.text("no/such/folder.bini")), Failure);
}

TEST_F(BiniFile, DecompressRefusals) {
  writeBytes(root / "plain.ini", "[section]\r\nkey=value\r\n");
  EXPECT_FALSE(kvn->DecompressBINI(root.text("plain.ini")));
  EXPECT_EQ(readBytes(root / "plain.ini"), "[section]\r\nkey=value\r\n");
  EXPECT_FALSE(kvn->DecompressBINI(root.text("none.bini")));
  EXPECT_FALSE(exists(root / "none.ini"));
  EXPECT_EQ(failures(), Failures{});
}

// Damaged packed files are reported, and the plain file beside them keeps its content.
TEST_F(BiniFile, DamagedPackedFiles) {
  struct Case {
    std::string packed;
    std::string failure;
  } cases[] = {{"\x05\0\0\0\0BINI"s, "DecompressBINI:9@3"},
               {"\x05\0\0\0\0\0\0\0BINIYWJj\r\n"s, "DecompressBINI:9@12"},
               {"\x05\0\0\0\0\0\0\0BINI*WJj"s, "DecompressBINI:6@12"},
               {"\0\0\0\0\0\0\0\xFF"
                "BINIeJwDAAAAAAE="s,
                "DecompressBINI:6@12"}};
  for (const Case& c : cases) {
    loggedFailures().clear();
    writeBytes(root / "p.ini", "kept");
    writeBytes(root / "p.bini", c.packed);
    EXPECT_FALSE(kvn->DecompressBINI(root.text("p.bini")));
    EXPECT_EQ(failures(), Failures{c.failure});
    EXPECT_EQ(readBytes(root / "p.ini"), "kept");
  }
}

// A stream that does not expand whole is reported and never replaces the plain file, whatever
// size the header claims; with no plain file beside it, none is made. Writing what did expand
// would give a save a plain file short of profiles to pack over the whole store.
TEST_F(BiniFile, StreamThatDoesNotExpandWholeKeepsThePlainFile) {
  std::string text;
  for (int i = 0; i < 400; ++i)
    text += "Key" + std::to_string(i * 7919) + "=value " + std::to_string(i) + "\r\n";
  const std::string good = pack("g.ini", text, "g.bini");
  const std::string cut = good.substr(0, 12 + (good.size() - 12) / 8 * 4);
  std::string badCheck = base64DecodeBytes(good.substr(12));
  badCheck.back() ^= 0x40;  // the stream's check value: every byte of the text still expands
  struct Case {
    const char* name;
    std::string packed;
  } cases[] = {
      {"size of 1.3 billion, no body", "\x3f\x80\x5e\x80\0\0\0\0BINI"s},
      {"header only", "\x05\0\0\0\0\0\0\0BINI"s},
      {"stream cut in half", cut},
      {"check value damaged", good.substr(0, 12) + base64EncodeBytes(badCheck)},
      {"base64 of no stream", "\x03\0\0\0\0\0\0\0BINIYWJj"s},
      {"size far below the text", "\0\0\0\0\0\0\0\0"s + good.substr(8)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (bool plainExists : {true, false}) {
      loggedFailures().clear();
      std::filesystem::remove(root / "p.ini");
      if (plainExists) writeBytes(root / "p.ini", "[kept]\r\n");
      writeBytes(root / "p.bini", c.packed);
      EXPECT_FALSE(kvn->DecompressBINI(root.text("p.bini")));
      EXPECT_EQ(failures(), Failures{"DecompressBINI:62@13"});
      if (plainExists) {
        EXPECT_EQ(readBytes(root / "p.ini"), "[kept]\r\n");
      } else {
        EXPECT_FALSE(exists(root / "p.ini"));
      }
      EXPECT_EQ(readBytes(root / "p.bini"), c.packed);
    }
  }
}

// The size only sizes the buffer: a good stream under the largest size still gives its text.
TEST_F(BiniFile, LargestSizeWithASmallStream) {
  writeBytes(root / "p.bini",
             "\x09\x09\x09\x09\x09\x09\x09\x09"
             "BINIeJxLTErm5QIABL8BPg=="s);
  EXPECT_TRUE(kvn->DecompressBINI(root.text("p.bini")));
  EXPECT_EQ(readBytes(root / "p.ini"), "abc\r\n");
  EXPECT_EQ(failures(), Failures{});
}

TEST_F(BiniFile, PlainFileThatCannotBeDeletedStaysBesideThePackedOne) {
  writeBytes(root / "ro.ini", "abc");
  makeReadOnly(root / "ro.ini");
  kvn->CompressBINI(root.text("ro.ini"));
  EXPECT_EQ(readBytes(root / "ro.bini"), "\x05\0\0\0\0\0\0\0BINIeJxLTErm5QIABL8BPg=="s);
  EXPECT_EQ(readBytes(root / "ro.ini"), "abc");
  EXPECT_EQ(failures(), Failures{"CompressBINI:70@12"});
}

// Calls outside the contract are refused before anything changes.
TEST_F(BiniFile, CompressRefusalsKeepEveryFile) {
  const std::string packed = "\x05\0\0\0\0\0\0\0BINIeJxLTErm5QIABL8BPg=="s;
  writeBytes(root / "p.bini", packed);
  kvn->CompressBINI(root.text("p.ini"));  // no plain file
  EXPECT_EQ(readBytes(root / "p.bini"), packed);

  writeBytes(root / "notes.txt", "text");  // no ".ini" in the name
  kvn->CompressBINI(root.text("notes.txt"));
  EXPECT_EQ(readBytes(root / "notes.txt"), "text");

  writeBytes(root / "upper.INI", "text");  // the replacement respects case
  kvn->CompressBINI(root.text("upper.INI"));
  EXPECT_EQ(readBytes(root / "upper.INI"), "text");

  EXPECT_EQ(failures(), (Failures{"CompressBINI:53@2", "CompressBINI:52@5", "CompressBINI:52@5"}));
}

TEST_F(BiniFile, DecompressRefusesANameWithoutThePackedExtension) {
  const std::string packed = "\x05\0\0\0\0\0\0\0BINIeJxLTErm5QIABL8BPg=="s;
  writeBytes(root / "odd.dat", packed);
  EXPECT_FALSE(kvn->DecompressBINI(root.text("odd.dat")));
  EXPECT_EQ(readBytes(root / "odd.dat"), packed);
  EXPECT_EQ(failures(), Failures{"DecompressBINI:52@11"});
}

}  // namespace
}  // namespace zrk::test
