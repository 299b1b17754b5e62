// The error log: the record byte for byte, its place, the dump rows, and what a failure leaves.
#include <gtest/gtest.h>

#include "DiagnosticsFixture.h"
#include "diagnostics/DiagnosticText.h"
#include "platform/system/LibraryFolder.h"

namespace zrk::test {
namespace {

const std::string kRecord =
    "--------------------------------------- Error Start "
    "---------------------------------------\r\n"
    "Date: 2026-03-04\r\n"
    "Time: 05:06:07\r\n"
    "File: zrkKVL.dll\r\n"
    "Function: ReadFileToString\r\n"
    "Error Line: -12\r\n"
    "Error No.: 53\r\n"
    "Error Desc.: File not found [C:\\T\\a.txt]\r\n"
    "Error Dump:\r\n"
    " 56 47 56 7A 64 47 6C 34 57 33 70 76 63 6E 5A 64 4E 69 34 78 57 33 70 76 63 6E 5A 64 4D 6A\r\n"
    " 4E 62 65 6D 39 79 64 6C 30 77 4C 6A 42 62 65 6D 39 79 64 6C 30 3D\r\n"
    "System Dump:\r\n"
    " 2F 75 73 72 2F 73 62 69 6E 2F 69 6E 69 74 64 7C 2F 75 73 72 2F 62 69 6E 2F 62 61 73 68 78\r\n"
    "---------------------------------------- Error End "
    "----------------------------------------\r\n"
    "\r\n\r\n\r\n";

void logProbe(clsKVN& kvn, Text description = u"File not found [C:\\T\\a.txt]") {
  kvn.LogError(u"zrkKVL.dll", u"ReadFileToString", FailureInfo{53, description}, -12);
}

TEST_F(DiagnosticsTest, RecordIsByteExactAndAppended) {
  writeBytes(root / "ErrorLog.txt", "kept\r\n");
  logProbe(*kvn);
  logProbe(*kvn);
  EXPECT_EQ(errorLog(), "kept\r\n" + kRecord + kRecord);
  EXPECT_EQ(gProcessCalls, 2);
}

TEST_F(DiagnosticsTest, RecordWithoutSystemDump) {
  struct Case {
    const char* name;
    Variant list;
  } cases[] = {
      {"one name", Variant::textArray({u"/usr/sbin/initd"})},
      {"empty list", Variant::textArray({Text()})},
      {"no array", Variant()},
  };
  std::string withoutDump = kRecord;
  size_t from = withoutDump.find("System Dump:");
  size_t to = withoutDump.find("-----", from);
  withoutDump.replace(from, to - from, "\r\n");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::remove((root / "ErrorLog.txt").c_str());
    gProcesses = c.list;
    logProbe(*kvn);
    EXPECT_EQ(errorLog(), withoutDump);
  }
}

TEST_F(DiagnosticsTest, DescriptionsPassUnchanged) {
  logProbe(*kvn, u"");
  EXPECT_NE(errorLog().find("\r\nError Desc.: \r\nError Dump:\r\n"), std::string::npos);
  std::remove((root / "ErrorLog.txt").c_str());
  logProbe(*kvn, u"two\r\nlines \u20ac");
  EXPECT_NE(errorLog().find("\r\nError Desc.: two\r\nlines \x80\r\nError Dump:"),
            std::string::npos);
}

TEST_F(DiagnosticsTest, LogLiesInTheRootOrBesideTheLibrary) {
  struct Case {
    std::string libraryFolder;
    std::string logFile;
  } cases[] = {
      {"dlls/Main Functions DLL", "ErrorLog.txt"},
      {"elsewhere", "elsewhere/ErrorLog.txt"},
      {"DLLS/Main Functions DLL", "DLLS/Main Functions DLL/ErrorLog.txt"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.libraryFolder);
    makeDir(root / c.libraryFolder);
    platform::overrideLibraryFolder(root.text(c.libraryFolder));
    logProbe(*kvn);
    EXPECT_EQ(readBytes(root / c.logFile), kRecord);
    std::remove((root / c.logFile).c_str());
  }
}

TEST_F(DiagnosticsTest, LogThatCannotBeWrittenFailsTheCall) {
  makeDir(root / "ErrorLog.txt");  // a folder where the file should be
  EXPECT_THROW(logProbe(*kvn), Failure);
  EXPECT_EQ(gProcessCalls, 0);  // nothing is gathered for a record that can't be kept
}

std::string tokensOfA(int n) {
  std::string s;
  for (int i = 0; i < n; ++i)
    s += " 61";
  return s;
}

TEST(DumpBlock, RowsOfThirtyTokens) {
  struct Case {
    Text source;
    std::string rows;
  } cases[] = {
      {u"AB", " 41 42"},
      {u"\n\x0f", " 0A 0F"},
      {u"\u20ac\u00ff\u4e00", " 80 FF 3F"},  // through the code page; outside it is "?"
      {Text(30, u'a'), tokensOfA(30)},
      {Text(31, u'a'), tokensOfA(30) + "\r\n" + tokensOfA(1)},
      {Text(60, u'a'), tokensOfA(30) + "\r\n" + tokensOfA(30)},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(toUtf8(diagnostics::dumpBlock(u"T:", c.source)), "T:\r\n" + c.rows);
  }
}

}  // namespace
}  // namespace zrk::test
