// Writers under injected faults: nothing stored is lost, a packed file is the old or the new one
// whole, and each failure is reported with the number of its cause.
#include <cstdio>
#include <filesystem>

#include <zrkKVL/FormObject.h>
#include "support/HardeningSupport.h"
#include "tests/profiles/ProfileTestSupport.h"

namespace zrk::test {
namespace {

using namespace platform;

class Faults : public HardeningTest {
 protected:
  // The packed form of `plain`, made in a side folder without faults.
  std::string packedOf(const std::string& plain) {
    makeDir(root / "side");
    writeBytes(root / "side/p.ini", plain);
    kvn->CompressBINI(root.text("side/p.ini"));
    std::string packed = readBytes(root / "side/p.bini");
    std::filesystem::remove_all(root / "side");
    return packed;
  }
};

TEST_F(Faults, CompressBiniKeepsThePlainFileAndAWholePackedFile) {
  const std::string oldPacked = packedOf("[A]\r\nk=old\r\n");
  const std::string plain = "[A]\r\nk=new\r\n";
  const std::string newPacked = packedOf(plain);
  for (const WriteFault& f : writeFaults()) {
    reportedNumbers().clear();
    writeBytes(root / "p.bini", oldPacked);
    writeBytes(root / "p.ini", plain);
    f.arm(root / "p.bini");
    kvn->CompressBINI(root.text("p.ini"));
    faults::clear();
    EXPECT_EQ(readBytes(root / "p.ini"), plain) << f.name << ": the plain file stays";
    std::string packed = exists(root / "p.bini") ? readBytes(root / "p.bini") : "";
    EXPECT_TRUE(packed == oldPacked || packed == newPacked) << f.name << ": " << packed.size();
    EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{numberOf(f.error)}) << f.name;
    EXPECT_EQ(entriesOf(root.path()), (std::set<std::string>{"dlls", "p.bini", "p.ini"})) << f.name;
  }
}

TEST_F(Faults, DecompressBiniKeepsThePackedFileAndTheOldPlainFile) {
  const std::string packed = packedOf("[A]\r\nk=new\r\n");
  const std::string oldPlain = "[A]\r\nk=old\r\n";
  for (const WriteFault& f : writeFaults()) {
    reportedNumbers().clear();
    writeBytes(root / "p.bini", packed);
    writeBytes(root / "p.ini", oldPlain);
    f.arm(root / "p.ini");
    EXPECT_FALSE(kvn->DecompressBINI(root.text("p.bini"))) << f.name;
    faults::clear();
    EXPECT_EQ(readBytes(root / "p.bini"), packed) << f.name;
    EXPECT_EQ(readBytes(root / "p.ini"), oldPlain) << f.name;
    EXPECT_EQ(reportedNumbers().size(), 1u) << f.name;
    EXPECT_EQ(entriesOf(root.path()), (std::set<std::string>{"dlls", "p.bini", "p.ini"})) << f.name;
  }
}

// Whatever fails while a profile is saved, the stored profile stays readable: in the packed
// file as it was, or in the plain file left beside it.
TEST_F(Faults, SavingAProfileLosesNoStoredProfile) {
  makeDir(root / "profiles");
  writeBytes(root / "profiles.ini", "[Keep]\r\npath=k\r\n");
  kvn->CompressBINI(root.text("profiles.ini"));
  const std::string stored = readBytes(root / "profiles.bini");
  for (const char* target : {"profiles.ini", "profiles.bini"}) {
    for (const WriteFault& f : writeFaults()) {
      std::remove((root / "profiles.ini").c_str());
      writeBytes(root / "profiles.bini", stored);
      f.arm(root / target);
      kvn->writeProfile(*formOf(Profile(u"New")), root.text("profiles.bini"), root.text());
      faults::clear();
      std::string packed = exists(root / "profiles.bini") ? readBytes(root / "profiles.bini") : "";
      std::string text;
      if (!packed.empty()) {
        writeBytes(root / "copy.bini", packed);
        EXPECT_TRUE(kvn->DecompressBINI(root.text("copy.bini"))) << target << ", " << f.name;
        text = readBytes(root / "copy.ini");
        std::remove((root / "copy.ini").c_str());
      }
      if (exists(root / "profiles.ini")) text += readBytes(root / "profiles.ini");
      EXPECT_NE(text.find("[Keep]\r\npath=k\r\n"), std::string::npos) << target << ", " << f.name;
    }
  }
}

TEST_F(Faults, WriteFileReportsTheCause) {
  for (const WriteFault& f : writeFaults()) {
    reportedNumbers().clear();
    writeBytes(root / "w.txt", "old\r\n");
    f.arm(root / "w.txt");
    kvn->WriteFile(root.text("w.txt"), Variant(Text(u"new")));
    faults::clear();
    EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{numberOf(f.error)}) << f.name;
    EXPECT_EQ(entriesOf(root.path()), (std::set<std::string>{"dlls", "w.txt"})) << f.name;
  }
}

TEST_F(Faults, ARefusedLogRecordKeepsTheLogAndEndsInItsFailure) {
  const std::string log = root / "ErrorLog.txt";
  for (const WriteFault& f : writeFaults()) {
    writeBytes(log, "earlier record\r\n");
    f.arm(log);
    int32_t number = 0;
    try {
      kvn->LogError(u"Here", u"Fn", FailureInfo{5, u"Invalid procedure call or argument"}, 3);
    } catch (const Failure& e) {
      number = e.number();
    }
    faults::clear();
    EXPECT_EQ(number, numberOf(f.error)) << f.name;
    EXPECT_EQ(readBytes(log).substr(0, 16), "earlier record\r\n") << f.name;
  }
}

// Each file is written through WriteFile, whose own frame reports the cause; the walk goes on.
TEST_F(Faults, ExtractionIntoAFaultyFolderReportsTheCause) {
  makeDir(root / "out");
  ASSERT_TRUE(kvn->MakeArchive(Variant::textArray({u"5|a.txthello"}), root.text("a.arc")));
  const std::string archive = readBytes(root / "a.arc");
  for (const WriteFault& f : writeFaults()) {
    reportedNumbers().clear();
    std::remove((root / "out/a.txt").c_str());
    f.arm(root / "out/");
    EXPECT_TRUE(kvn->ExtractArchive(root.text("a.arc"), root.text("out"))) << f.name;
    faults::clear();
    EXPECT_EQ(reportedNumbers(), std::vector<int32_t>{numberOf(f.error)}) << f.name;
    EXPECT_EQ(readBytes(root / "a.arc"), archive) << f.name;
  }
}

TEST_F(Faults, AnArchiveThatVanishesIsReportedAndWritesNothing) {
  makeDir(root / "out");
  ASSERT_TRUE(kvn->MakeArchive(Variant::textArray({u"5|a.txthello"}), root.text("a.arc")));
  faults::vanishes(root / "a.arc");
  try {
    kvn->ExtractArchive(root.text("a.arc"), root.text("out"));
  } catch (const Failure&) {
  }
  faults::clear();
  EXPECT_TRUE(entriesOf(root / "out").empty());
  EXPECT_FALSE(reportedNumbers().empty() && dialogs->shown().empty()) << "the failure is reported";
}

}  // namespace
}  // namespace zrk::test
