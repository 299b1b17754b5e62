// MakeArchive and ExtractArchive: the format byte for byte, round trips, damaged records, names
// that would leave the output folder, and damaged or cut archives.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "compress/ArchiveFormat.h"
#include "compress/StringCompression.h"
#include "files/TextOps.h"
#include "platform/text/CodePage.h"
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

const Text kSep(1, u'\x10');

std::string hexBytes(const char* hex) {
  std::string out;
  for (const char* p = hex; *p;) {
    if (*p == ' ') {
      ++p;
      continue;
    }
    out += static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16));
    p += 2;
  }
  return out;
}

// Every file below `dir`, as paths relative to it.
std::set<std::string> filesBelow(const std::string& dir) {
  std::set<std::string> out;
  for (auto& e : std::filesystem::recursive_directory_iterator(dir)) {
    if (e.is_regular_file()) out.insert(std::filesystem::relative(e.path(), dir).string());
  }
  return out;
}

class Archive : public ReportingTest {
 protected:
  void SetUp() override {
    ReportingTest::SetUp();
    makeDir(root / "in");
    makeDir(root / "out");
  }

  // A record as the writer makes it, with the element length it declares.
  Text record(const Text& element, std::optional<Text> declared = std::nullopt) {
    return declared.value_or(decimal(int64_t(element.size()))) + kSep +
           kvn->CompressString(element);
  }
  // An archive file of these records, written as the writer lays them out.
  std::string archiveOf(const std::vector<Text>& records, const std::string& name = "arc.zrk") {
    Text lengths, body;
    for (const Text& r : records) {
      lengths += platform::fromAnsi(archive::lengthListEntry(int64_t(r.size())));
      body += r;
    }
    std::string path = root / ("in/" + name);
    writeBytes(path, platform::toAnsi(u"ZRKArch" + kSep + lengths + kSep + body + u"\r\n"));
    return path;
  }
  bool extract(const std::string& archive) {
    return kvn->ExtractArchive(T(archive), root.text("out"));
  }
  std::string out(const std::string& name) { return readBytes(root / ("out/" + name)); }
};

// The numbers of a record read from bytes are what the interface makes of the same text, the
// failures included, on both sides of the direct way for plain digits.
TEST_F(Archive, NumbersFromBytesAreReadAsTheirText) {
  const std::string texts[] = {"0",          "7",          "000000012",   "123456789", "1234567890",
                               "2147483647", "2147483648", "00000000001", "",          " 5",
                               "5 ",         "-3",         "+4",          "&H1F",      "1e3",
                               "3.5",        "x",          "1 2",         "\x10"};
  for (const std::string& t : texts) {
    int32_t expected = 0, got = 0;
    int32_t expectedFailure = failureOf([&] { expected = files::numberFromText(T(t)); });
    EXPECT_EQ(failureOf([&] { got = archive::numberFromBytes(t); }), expectedFailure) << t;
    EXPECT_EQ(got, expected) << t;
  }
  EXPECT_EQ(archive::numberFromBytes("123456789"), 123456789);
}

TEST_F(Archive, TheTwoExampleElementsGiveExactly63Bytes) {
  std::string path = root / "in/ex.zrk";
  Variant elements = Variant::textArray({u"5|a.txthello", u"5|b.txtworld"});
  EXPECT_TRUE(kvn->MakeArchive(elements, T(path)));
  EXPECT_EQ(readBytes(path),
            hexBytes("5A 52 4B 41 72 63 68 10 32 32 33 32 32 33 10"
                     "31 32 10 78 9C 33 AD 49 D4 2B A9 28 C9 48 CD C9 C9 07 00 1D 0B 04 B5"
                     "31 32 10 78 9C 33 AD 49 D2 2B A9 28 29 CF 2F CA 49 01 00 1D 8F 04 CA"
                     "0D 0A"));

  EXPECT_TRUE(extract(path));
  EXPECT_EQ(out("a.txt"), "hello\r\n");
  EXPECT_EQ(out("b.txt"), "world\r\n");
  EXPECT_EQ(filesBelow(root / "out"), (std::set<std::string>{"a.txt", "b.txt"}));

  // Without an output folder the files go beside the archive.
  EXPECT_TRUE(kvn->ExtractArchive(T(path)));
  EXPECT_EQ(readBytes(root / "in/a.txt"), "hello\r\n");
  EXPECT_TRUE(dialogs->shown().empty());
  EXPECT_EQ(failureCount(), 0u);
}

TEST_F(Archive, RoundTripKeepsEveryByteAndAddsALineEnd) {
  Text allBytes;
  for (int b = 0; b < 256; ++b)
    allBytes += platform::fromAnsiByte(static_cast<unsigned char>(b));
  Text big;
  uint32_t x = 12345;
  for (int i = 0; i < 300000; ++i) {  // poorly compressible: a record length of 6 digits
    x = x * 1103515245u + 12345u;
    big += platform::fromAnsiByte(static_cast<unsigned char>(x >> 24));
  }
  // An element whose stream ends in a blank: the trim must stop at the line end behind it.
  Text blankTail;
  for (int n = 0; blankTail.empty(); ++n) {
    Text e = u"5|t.txt" + decimal(n);
    if (kvn->CompressString(e).back() == u' ') blankTail = e;
  }
  std::string path = root / "in/all.zrk";
  Variant elements = Variant::textArray(
      {u"7|all.bin" + allBytes, u"", u"7|big.bin" + big, u"8|ends.txt\r\n", blankTail});
  ASSERT_TRUE(kvn->MakeArchive(elements, T(path)));
  EXPECT_EQ(readBytes(path).substr(8, 1), "3") << "the empty element leaves no list entry";

  EXPECT_TRUE(extract(path));
  EXPECT_EQ(out("all.bin"), platform::toAnsi(allBytes) + "\r\n");
  EXPECT_EQ(out("big.bin"), platform::toAnsi(big) + "\r\n");
  EXPECT_EQ(out("ends.txt"), "\r\n\r\n");
  EXPECT_EQ(out("t.txt"), toUtf8(blankTail.substr(7)) + "\r\n");
  EXPECT_EQ(filesBelow(root / "out").size(), 4u);
}

// Whatever the number of elements and where the empty ones and the values that are no text
// stand, the records follow the elements' order: as built one element after the other.
TEST_F(Archive, RecordsFollowTheElementsInOrder) {
  struct Case {
    const char* what;
    std::vector<Variant> items;
  } cases[] = {
      {"one", {Variant(u"5|a.txthello")}},
      {"three, an empty one between", {Variant(u"1|ax"), Variant(u""), Variant(u"1|by")}},
      {"an odd number",
       {Variant(u"1|a1"), Variant(u"1|b22"), Variant(u"1|c333"), Variant(u"1|d4444"),
        Variant(u"1|e55555")}},
      {"a number among the texts", {Variant(u"1|aa"), Variant(int32_t(7)), Variant(u"1|bb")}},
      {"an empty one last", {Variant(u"1|aa"), Variant(u"1|bb"), Variant(u"")}},
  };
  for (const Case& c : cases) {
    std::string lengths, records;
    for (const Variant& v : c.items) {
      std::string bytes = platform::toAnsi(v.toText());
      if (bytes.empty()) continue;
      std::string record = std::to_string(bytes.size()) + archive::kSeparatorByte +
                           compression::compressBytes(bytes);
      lengths += archive::lengthListEntry(int64_t(record.size()));
      records += record;
    }
    std::string path = root / "in/order.zrk";
    ASSERT_TRUE(kvn->MakeArchive(Variant(VariantArray{0, c.items}), T(path))) << c.what;
    EXPECT_EQ(readBytes(path), std::string(archive::kMagic) + archive::kSeparatorByte + lengths +
                                   archive::kSeparatorByte + records + "\r\n")
        << c.what;
  }
}

TEST_F(Archive, MakeArchiveRefusals) {
  std::string path = root / "in/x.zrk";
  EXPECT_FALSE(kvn->MakeArchive(Variant(Text(u"5|a.txthello")), T(path)));
  EXPECT_FALSE(kvn->MakeArchive(Variant::textArray({u"", u"5|a.txthello"}), T(path)));
  EXPECT_FALSE(exists(path));
  for (Variant noIndexZero : {Variant::textArray({}), Variant(VariantArray{1, {Variant(u"x")}})}) {
    try {
      kvn->MakeArchive(noIndexZero, T(path));
      ADD_FAILURE() << "an array without index 0 must fail";
    } catch (const Failure& f) {
      EXPECT_EQ(f.number(), 9);
    }
  }
  EXPECT_FALSE(exists(path));
  // A failed write is reported by WriteFile; the result is whether a file exists.
  EXPECT_FALSE(kvn->MakeArchive(Variant::textArray({u"1|ab"}), root.text("none/x.zrk")));
  EXPECT_EQ(onlyFailure().func, u"WriteFile");
}

TEST_F(Archive, DamagedRecordsAfterOneYes) {
  std::string path = archiveOf({
      record(u"5|a.txthello"),
      record(u"hello"),                   // no bar: damaged
      record(u"0000000001|xten digits"),  // bar at position 11: intact
      record(u"00000000001|yeleven"),     // bar at position 12: damaged
      record(u"5|a.txtagain"),            // the later of two equal names stands
  });
  dialogs->answer(platform::mb::Yes);
  EXPECT_TRUE(extract(path));
  EXPECT_EQ(filesBelow(root / "out"),
            (std::set<std::string>{"a.txt", "arc_File1.txt", "x", "arcFile2.txt"}));
  EXPECT_EQ(out("a.txt"), "again\r\n");
  EXPECT_EQ(out("arc_File1.txt"), "hello\r\n");
  EXPECT_EQ(out("x"), "ten digits\r\n");
  EXPECT_EQ(out("arcFile2.txt"), "00000000001|yeleven\r\n");

  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 1u) << "asked once per call";
  EXPECT_EQ(shown[0].title, u"Confirmation Required!");
  EXPECT_EQ(shown[0].buttons, 4);
  EXPECT_EQ(shown[0].text,
            u"File Name: " + T(path) +
                u"\r\n\r\nThe compressed file you are trying to extract appears to be damaged!\r\n"
                u"\r\nThe ZRK can still attempt to extract the files, but the original file names "
                u"will be lost \r\nand the ZRK will assign names to the files in the folowing "
                u"format: [Archivename][Filenumber].txt\r\n\r\nDo you wish to continue?");
}

TEST_F(Archive, AnswerOtherThanYesEndsTheWalk) {
  std::string path = archiveOf({record(u"1|aA"), record(u"damaged"), record(u"1|bB")});
  dialogs->answer(platform::mb::No);
  EXPECT_FALSE(extract(path));
  EXPECT_EQ(filesBelow(root / "out"), (std::set<std::string>{"a"}));
}

TEST_F(Archive, StreamsThatFailGiveTheWorkBuffer) {
  Text cut = record(u"5|a.txthello");
  cut.resize(cut.size() - 4);  // the check value is gone: everything expanded, then NULs
  std::string path = archiveOf({cut, u"10" + kSep + u"not a zlib stream"});
  EXPECT_TRUE(extract(path));
  // 12 characters expand into a buffer of 24: behind the 5 content characters stand 12 NULs.
  EXPECT_EQ(out("a.txt"), "hello" + std::string(12, '\0') + "\r\n");
  // Nothing expands: the 22 NULs of the buffer count as a damaged element.
  EXPECT_EQ(out("arc_File1.txt"), std::string(22, '\0') + "\r\n");
}

TEST_F(Archive, NamesThatWouldLeaveTheFolderAreRefusedAndTheWalkGoesOn) {
  const Text bad[] = {u"../evil.txt", u"sub/x.txt", u"..\\evil2.txt",    u"..",
                      u".",           u"",          Text(u"n\0/../z", 7)};
  std::vector<Text> records;
  for (const Text& name : bad)
    records.push_back(record(decimal(int64_t(name.size())) + u"|" + name + u"pwned"));
  records.push_back(record(u"6|ok.txtfine"));
  makeDir(root / "out/sub");
  std::string path = archiveOf(records);
  EXPECT_TRUE(extract(path));

  EXPECT_EQ(filesBelow(root.path()), (std::set<std::string>{"in/arc.zrk", "out/ok.txt"}))
      << "nothing but the good record was written";
  ASSERT_EQ(failureCount(), std::size(bad));
  for (size_t i = 0; i < std::size(bad); ++i) {
    const LoggedFailure& f = loggedFailures()[i];
    EXPECT_EQ(f.func, u"WriteFile");
    EXPECT_EQ(f.failure.Number, 75);
    EXPECT_EQ(f.failure.Description,
              u"Path/File access error [" + root.text("out") + u"/" + bad[i] + u"]");
  }
}

TEST_F(Archive, DamagedArchivesFailToTheCaller) {
  std::string good = platform::toAnsi(record(u"1|aA"));
  struct Case {
    const char* what;
    std::string bytes;  // "" with `missing`: no file at all
    int32_t failure;    // 0: returns normally
    bool missing = false;
  } cases[] = {
      {"missing archive", "", 5, true},
      {"empty archive", "", 5},
      {"one separator", "ZRKArch\x10", 5},
      {"empty list", "ZRKArch\x10\x10\r\n", 0},
      {"list entry not numeric", "ZRKArch\x10x5\x10" + good + "\r\n", 13},
      {"digit count 0",
       "ZRKArch\x10"
       "0\x10" +
           good + "\r\n",
       13},
      {"record without separator",
       "ZRKArch\x10"
       "13\x10"
       "abc\r\n",
       5},
      {"no digits before the separator",
       "ZRKArch\x10"
       "11\x10\x10xyz\r\n",
       13},
      {"records run out",
       "ZRKArch\x10"
       "15\x10",
       5},
      {"record length beyond 32 bits",
       "ZRKArch\x10"
       "41e10\x10" +
           good + "\r\n",
       6},
  };
  for (const auto& c : cases) {
    loggedFailures().clear();
    std::string path = root / "in/bad.zrk";
    std::remove(path.c_str());
    if (!c.missing) writeBytes(path, c.bytes);
    int32_t got = 0;
    try {
      kvn->ExtractArchive(T(path), root.text("out"));
    } catch (const Failure& f) {
      got = f.number();
    }
    EXPECT_EQ(got, c.failure) << c.what;
    EXPECT_TRUE(filesBelow(root / "out").empty()) << c.what;
  }
}

TEST_F(Archive, FailuresInTheElementReachTheCaller) {
  struct Case {
    const char* what;
    Text element;
    std::string archiveName;
    int32_t failure;
  } cases[] = {
      {"bar first", u"|abc", "arc.zrk", 13},
      {"name length not numeric", u"x|abc", "arc.zrk", 13},
      {"name longer than what follows", u"9|abc", "arc.zrk", 5},
      {"archive name too short for the base", u"no bar", "ab", 5},
  };
  for (const auto& c : cases) {
    std::string path = archiveOf({record(c.element)}, c.archiveName);
    int32_t got = 0;
    try {
      extract(path);
    } catch (const Failure& f) {
      got = f.number();
    }
    EXPECT_EQ(got, c.failure) << c.what;
  }
  EXPECT_TRUE(filesBelow(root / "out").empty());
}

// Every cut and every single-byte change of a real archive ends in a result or a failure of
// the call, and writes nothing outside the output folder.
TEST_F(Archive, CutAndChangedArchivesStayInsideTheFolder) {
  std::string path = root / "in/ex.zrk";
  ASSERT_TRUE(kvn->MakeArchive(Variant::textArray({u"5|a.txthello", u"5|b.txtworld"}), T(path)));
  std::string whole = readBytes(path);
  std::vector<std::string> variants;
  for (size_t n = 0; n < whole.size(); ++n)
    variants.push_back(whole.substr(0, n));
  for (size_t i = 0; i < whole.size(); ++i) {
    for (int delta : {1, 0x2F, 0x80}) {
      std::string v = whole;
      v[i] = static_cast<char>(v[i] + delta);
      variants.push_back(v);
    }
  }
  for (const std::string& v : variants) {
    writeBytes(path, v);
    try {
      kvn->ExtractArchive(T(path), root.text("out"));
    } catch (const Failure&) {
    }
  }
  for (const std::string& f : filesBelow(root.path())) {
    EXPECT_TRUE(f.rfind("out/", 0) == 0 || f == "in/ex.zrk") << f;
  }
}

TEST_F(Archive, OutputFolderForms) {
  std::string path = archiveOf({record(u"1|aA")});
  EXPECT_TRUE(kvn->ExtractArchive(T(path), root.text("out") + u"\\"));
  EXPECT_EQ(out("a"), "A\r\n");
  EXPECT_TRUE(kvn->ExtractArchive(T(path), root.text("none")));
  EXPECT_FALSE(exists(root / "none")) << "the folder is not made";
  EXPECT_EQ(onlyFailure().failure.Number, 76);
}

// A link standing where a member goes, also under a name that differs only in case, is
// replaced by a regular file: what it points to is never written.
TEST_F(Archive, MembersNeverGoThroughLinks) {
  makeDir(root / "elsewhere");
  writeBytes(root / "elsewhere/victim", "victim");
  writeBytes(root / "elsewhere/victim2", "victim2");
  ASSERT_EQ(::symlink((root / "elsewhere/victim").c_str(), (root / "out/a.txt").c_str()), 0);
  ASSERT_EQ(::symlink((root / "elsewhere/victim2").c_str(), (root / "out/B.TXT").c_str()), 0);
  ASSERT_EQ(::symlink((root / "elsewhere/nothing").c_str(), (root / "out/c.txt").c_str()), 0);
  std::string path =
      archiveOf({record(u"5|a.txtfirst"), record(u"5|b.txtsecond"), record(u"5|c.txtthird")});
  EXPECT_TRUE(extract(path));
  EXPECT_EQ(failureCount(), 0u);
  EXPECT_EQ(readBytes(root / "elsewhere/victim"), "victim");
  EXPECT_EQ(readBytes(root / "elsewhere/victim2"), "victim2");
  EXPECT_FALSE(exists(root / "elsewhere/nothing"));
  EXPECT_EQ(filesBelow(root / "out"), (std::set<std::string>{"a.txt", "B.TXT", "c.txt"}));
  EXPECT_EQ(out("a.txt"), "first\r\n");
  EXPECT_EQ(out("B.TXT"), "second\r\n");
  EXPECT_EQ(out("c.txt"), "third\r\n");
}

// Names match without regard to case, also between members of one archive: the last of a
// name wins, under the name the folder already has.
TEST_F(Archive, ManyMembersMatchNamesWithoutCase) {
  writeBytes(root / "out/Old.Txt", "old");
  ::chmod((root / "out/Old.Txt").c_str(), 0640);
  std::vector<Text> records{record(u"7|old.txtnew")};
  std::set<std::string> expected{"Old.Txt", "Twice.txt"};
  for (int i = 0; i < 3000; ++i) {
    Text name = u"m" + decimal(i) + u".txt";
    records.push_back(record(decimal(int64_t(name.size())) + u"|" + name + decimal(i)));
    expected.insert("m" + std::to_string(i) + ".txt");
  }
  records.push_back(record(u"9|Twice.txtone"));
  records.push_back(record(u"9|TWICE.TXTtwo"));
  EXPECT_TRUE(extract(archiveOf(records)));
  EXPECT_EQ(failureCount(), 0u);
  EXPECT_EQ(filesBelow(root / "out"), expected);
  EXPECT_EQ(out("Old.Txt"), "new\r\n");
  struct stat st;
  ASSERT_EQ(::stat((root / "out/Old.Txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u) << "a replaced member keeps its mode";
  EXPECT_EQ(out("m2999.txt"), "2999\r\n");
  EXPECT_EQ(out("Twice.txt"), "two\r\n");
}

// A read-only file where a member goes is refused, root included, and the walk goes on.
TEST_F(Archive, AReadOnlyMemberFileIsRefusedAndKept) {
  writeBytes(root / "out/ro.txt", "keep");
  ::chmod((root / "out/ro.txt").c_str(), 0444);
  EXPECT_TRUE(extract(archiveOf({record(u"6|ro.txtnew"), record(u"6|ok.txtfine")})));
  EXPECT_EQ(out("ro.txt"), "keep");
  EXPECT_EQ(out("ok.txt"), "fine\r\n");
  LoggedFailure f = onlyFailure();
  EXPECT_EQ(f.func, u"WriteFile");
  EXPECT_EQ(f.failure.Number, 70);
  EXPECT_EQ(f.failure.Description, u"Permission denied [" + root.text("out") + u"/ro.txt]");
}

}  // namespace
}  // namespace zrk::test
