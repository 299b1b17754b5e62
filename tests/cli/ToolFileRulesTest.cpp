// The tool's writes by the library's rules, its archive commands' refusals and notices, its
// printing of hostile names, and every command against paths the system refuses, as root and as
// nobody.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "ToolRun.h"
#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "platform/files/SysCalls.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

// An archive of the given elements, made through the library by name.
void makeArchive(const TempDir& dir, const std::string& archive, const std::string& elements) {
  writeBytes(dir / "elements", elements);
  ASSERT_EQ(runTool({"call", "MakeArchive", "lines:" + dir / "elements", "path:" + archive}).code,
            0);
  ::unlink((dir / "elements").c_str());
}

// With --force a file is replaced as the library replaces files: owner, group, mode and hard
// links stay; a read-only file and a folder are refused and named, and the walk goes on.
TEST(ToolFileRules, ForcedExtractionKeepsWhatTheFileIs) {
  TempDir dir;
  makeDir(dir / "out");
  makeArchive(dir, dir / "x.zrk", "5|a.txtnew a\n5|b.txtnew b\n3|subnew sub\n5|c.txtnew c\n");
  writeBytes(dir / "out/a.txt", "old a");
  ::chmod((dir / "out/a.txt").c_str(), 0640);
  ASSERT_EQ(::link((dir / "out/a.txt").c_str(), (dir / "a-link").c_str()), 0);
  bool root = ::geteuid() == 0;
  if (root) {
    ASSERT_EQ(::chown((dir / "out/a.txt").c_str(), 65534, 65534), 0);
  }
  writeBytes(dir / "out/b.txt", "read-only b");
  ::chmod((dir / "out/b.txt").c_str(), 0444);
  makeDir(dir / "out/sub");

  ToolRun r = runTool({"archive", "extract", "--force", dir / "x.zrk", dir / "out"});
  EXPECT_EQ(r.code, 1) << r.err;
  EXPECT_EQ(readBytes(dir / "a-link"), "new a\r\n");
  struct stat a = statOf(dir / "out/a.txt");
  EXPECT_EQ(a.st_ino, statOf(dir / "a-link").st_ino);
  EXPECT_EQ(a.st_mode & 07777, 0640u);
  if (root) {
    EXPECT_EQ(a.st_uid, 65534u);
  }
  EXPECT_EQ(readBytes(dir / "out/b.txt"), "read-only b");
  EXPECT_NE(r.err.find("b.txt"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("sub"), std::string::npos) << r.err;
  EXPECT_TRUE(std::filesystem::is_directory(dir / "out/sub"));
  EXPECT_EQ(readBytes(dir / "out/c.txt"), "new c\r\n") << "the walk goes on";
  EXPECT_EQ(r.err.find("terminate"), std::string::npos) << r.err;
  EXPECT_EQ(entriesOf(dir / "out"), (std::set<std::string>{"a.txt", "b.txt", "c.txt", "sub"}));
}

// Without --force a file of the member's name in any case stays, and no second file of that
// name appears beside it; a member met twice is named.
TEST(ToolFileRules, ExtractionNamesWhatItDoesNotWrite) {
  TempDir dir;
  makeDir(dir / "out");
  makeArchive(dir, dir / "x.zrk", "5|A.TXTnew\n5|d.txtfirst\n5|D.TXTsecond\n");
  writeBytes(dir / "out/a.txt", "old");
  ToolRun r = runTool({"archive", "extract", dir / "x.zrk", dir / "out"});
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(readBytes(dir / "out/a.txt"), "old");
  EXPECT_NE(r.err.find("A.TXT' exists, not replaced"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("D.TXT' comes twice"), std::string::npos) << r.err;
  EXPECT_EQ(readBytes(dir / "out/d.txt"), "second\r\n");
  EXPECT_EQ(entriesOf(dir / "out"), (std::set<std::string>{"a.txt", "d.txt"}));
}

// Two operands of one member name, or a folder, make no archive; an existing one stays.
TEST(ToolFileRules, MakeRefusesWhatExtractionCouldNotGiveBack) {
  TempDir dir;
  makeDir(dir / "srv1");
  makeDir(dir / "srv2");
  writeBytes(dir / "srv1/server.log", "one");
  writeBytes(dir / "srv2/SERVER.LOG", "two");
  writeBytes(dir / "old.zrk", "old archive");
  struct Case {
    std::vector<std::string> operands;
    std::string named;
  } cases[] = {
      {{dir / "srv1/server.log", dir / "srv2/SERVER.LOG"}, dir / "srv2/SERVER.LOG"},
      {{dir / "srv1/server.log", dir / "srv2"}, dir / "srv2"},
      {{dir / "srv1/server.log", dir / "none.log"}, dir / "none.log"},
  };
  for (const Case& c : cases) {
    for (const char* archive : {"new.zrk", "old.zrk"}) {
      std::vector<std::string> args = {"archive", "make", dir / archive};
      args.insert(args.end(), c.operands.begin(), c.operands.end());
      ToolRun r = runTool(args);
      EXPECT_EQ(r.code, 1) << c.named;
      EXPECT_NE(r.err.find("'" + c.named + "'"), std::string::npos) << r.err;
    }
    EXPECT_FALSE(exists(dir / "new.zrk")) << c.named;
    EXPECT_EQ(readBytes(dir / "old.zrk"), "old archive");
  }
}

// Control characters and bytes outside UTF-8 in names are shown escaped, never raw.
TEST(ToolFileRules, NamesAreShownEscaped) {
  EXPECT_EQ(cli::shown(u"a\x1b[31mred\r\n\x7f\x9b"), "a\\x1B[31mred\\x0D\\x0A\\x7F\\x9B");
  EXPECT_EQ(cli::shown(fromUtf8("caf\xc3\xa9 \xff")), "caf\xc3\xa9 \\xFF");
  EXPECT_EQ(cli::shown(u"\xd800x"), "\\uD800x");
  TempDir dir;
  makeDir(dir / "out");
  makeArchive(dir, dir / "x.zrk", "9|\x1b]0;pwn\x07Xcontent\n");
  writeBytes(dir / "out/\x1b]0;pwn\x07X", "there");
  ToolRun r = runTool({"archive", "extract", dir / "x.zrk", dir / "out"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("\\x1B]0;pwn\\x07X"), std::string::npos) << r.err;
  ToolRun missing = runTool({"file", "read", dir / "no\x1b[2Jfile\xff"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.err.find("no\\x1B[2Jfile\\xFF"), std::string::npos) << missing.err;
  for (const std::string& err : {r.err, missing.err}) {
    for (char c : err)
      EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << int(c);
  }
}

// A FIFO or a device where the tool expects a file is named and refused at once.
TEST(ToolFileRules, SpecialFilesAreRefusedWithoutBlocking) {
  TempDir dir;
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  writeBytes(dir / "a.txt", "a");
  struct Case {
    std::vector<std::string> args;
    std::string says;
  } cases[] = {
      {{"file", "read", dir / "fifo"}, "is not a regular file"},
      {{"file", "hex", "/dev/zero"}, "is not a regular file"},
      {{"archive", "make", dir / "x.zrk", dir / "a.txt", dir / "fifo"}, "is not a regular file"},
      {{"archive", "make", dir / "x.zrk", "/dev/zero"}, "is not a regular file"},
      {{"archive", "extract", dir / "fifo", dir.path()}, "is not a regular file"},
      {{"file", "write", dir / "fifo", "line"}, "Error 75"},
      {{"file", "append", dir / "fifo", "line"}, "Error 75"},
      {{"ini", "get", dir / "fifo", "s", "k"}, ""},
  };
  for (const Case& c : cases) {
    ToolRun r = runTool(c.args);
    EXPECT_EQ(r.code, 1) << c.args[1] << " " << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << c.args[1] << " " << r.err;
  }
  EXPECT_FALSE(exists(dir / "x.zrk"));
}

TEST(ToolFileRules, BiniTestOfAMissingFileCreatesNothing) {
  TempDir dir;
  ToolRun r = runTool({"bini", "test", dir / "none.bini"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("no file '" + dir / "none.bini" + "'"), std::string::npos) << r.err;
  EXPECT_FALSE(exists(dir / "none.bini"));
}

// Every command, each operand a path the system refuses (a link loop, a folder that cannot be
// entered, a path longer than PATH_MAX): an error line or an answer, never an abort.
TEST(ToolFileRules, EveryCommandSurvivesPathsTheSystemRefuses) {
  TempDir dir;
  ::chmod(dir.path().c_str(), 0755);
  ASSERT_EQ(::symlink("loop", (dir / "loop").c_str()), 0);
  makeDir(dir / "closed");
  writeBytes(dir / "closed/f", "x");
  ::chmod((dir / "closed").c_str(), 0);
  std::string longPath = dir.path();
  while (longPath.size() <= PATH_MAX)
    longPath += "/" + std::string(200, 'n');
  const std::vector<std::string> paths = {dir / "loop", dir / "loop/x", dir / "closed/f",
                                          dir / "closed", longPath};
  makeDir(dir / "root");
  ::chmod((dir / "root").c_str(), 0777);
  bool asNobody = canRunAsNobody();
  for (const cli::Command& command : cli::commands()) {
    std::string name = cli::commandName(command);
    cli::OperandCount count = cli::operandCount(command.usage);
    if (count.max == 0) continue;  // no operand, no path to give it (report send would post)
    size_t n = std::max<size_t>(count.min, std::min<size_t>(count.max, 2));
    for (const std::string& path : paths) {
      std::vector<std::string> args = {"--root", dir / "root"};
      if (*command.family) args.push_back(command.family);
      args.push_back(command.name);
      for (size_t i = 0; i < n; ++i)
        args.push_back(path);
      for (bool nobody : {false, true}) {
        if (nobody && !asNobody) continue;
        ToolRun r = nobody ? runToolAsNobody(args) : runTool(args);
        EXPECT_TRUE(r.code >= 0 && r.code <= 2)
            << name << (nobody ? " as nobody " : " ") << path.substr(0, 80) << ": " << r.code << " "
            << r.err.substr(0, 300);
        EXPECT_EQ(r.err.find("terminate"), std::string::npos) << name << r.err.substr(0, 300);
      }
    }
  }
  ::chmod((dir / "closed").c_str(), 0755);
}

// An INI edit that fails at its last step (an I/O error while a hard-linked file is rewritten in
// place) leaves the file as it was and the command exits 1, though the file's stamp changed.
class ToolWrites : public LibraryTest {};

TEST_F(ToolWrites, IniSetFailsAfterAFailedLastStep) {
  platform::faults::Scope scope;
  std::string ini = root / "s.ini";
  writeBytes(ini, "[S]\r\nk=old\r\n");
  ASSERT_EQ(::link(ini.c_str(), (root / "link.ini").c_str()), 0);
  platform::faults::add({platform::faults::Call::Write, ini, EIO});
  try {
    cli::runWords(*kvn, Text(), {"ini", "set", ini, "S", "k", "new"});
    FAIL() << "no failure";
  } catch (const cli::ToolError& e) {
    EXPECT_NE(e.message.find("cannot write '" + ini + "'"), std::string::npos) << e.message;
  }
  EXPECT_EQ(readBytes(root / "link.ini"), "[S]\r\nk=old\r\n");
  platform::faults::clear();
  EXPECT_EQ(cli::runWords(*kvn, Text(), {"ini", "set", ini, "S", "k", "new"}), 0);
  EXPECT_EQ(readBytes(root / "link.ini"), "[S]\r\nk=new\r\n");
}

}  // namespace
}  // namespace zrk::test
