// The tool's command line as scripts use it: options, operands, exit codes, what goes to which
// stream, bytes in and out, and writes that did not happen.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "ToolRun.h"
#include "cli/CommandLine.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

size_t countEntries(const std::string& dir) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(dir))
    ++n;
  return n;
}

TEST(CommandLine, OperandCountsFollowTheUsage) {
  struct Case {
    const char* usage;
    size_t min, max;
  } cases[] = {
      {"", 0, 0},
      {"FILE SECTION KEY", 3, 3},
      {"ARCHIVE [DIR]", 1, 2},
      {"FILE [LINE...]", 1, SIZE_MAX},
      {"ARCHIVE FILE...", 2, SIZE_MAX},
      {"TEXT [BUTTONS [TITLE]]", 1, 3},
  };
  for (const Case& c : cases) {
    cli::OperandCount n = cli::operandCount(c.usage);
    EXPECT_EQ(n.min, c.min) << c.usage;
    EXPECT_EQ(n.max, c.max) << c.usage;
  }
}

// Where a value is due, a word that looks like an option is the value.
TEST(CommandLine, ValueOperandsTakeTheWordAsItStands) {
  struct Case {
    const char* usage;
    size_t index;
    bool asItStands;
  } cases[] = {
      {"FILE SECTION KEY VALUE", 3, true},
      {"FILE SECTION KEY VALUE", 2, false},
      {"FILE SECTION KEY VALUE", 0, false},
      {"FILE SECTION KEY", 2, true},
      {"FILE SECTION", 1, true},
      {"FILE SECTION", 2, false},
      {"FILE [LINE...]", 1, true},
      {"FILE [LINE...]", 7, true},
      {"NAME [ARG...]", 1, true},
      {"TEXT [BUTTONS [TITLE]]", 0, false},
      {"TEXT [BUTTONS [TITLE]]", 2, true},
      {"[DESCRIPTION]", 0, false},
      {"ARCHIVE [DIR]", 1, false},
      {"FILE ROOT", 1, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(cli::takesWordAsItStands(c.usage, c.index), c.asItStands)
        << c.usage << " at " << c.index;
  }
}

TEST(CommandLine, StreamsAndExitCodes) {
  TempDir dir;
  writeBytes(dir / "f.ini", "[s]\nk=v\n");
  std::string ini = dir / "f.ini";
  struct Case {
    std::vector<std::string> args;
    int code;
    std::string out;
    std::string errHas;  // "" for an empty stderr
  } cases[] = {
      {{"--version"}, 0, "zrkkvl 1.4.1\n", ""},
      {{}, 2, "", "usage: zrkkvl"},
      {{"--bogus"}, 2, "", "unknown option '--bogus'"},
      {{"nonsense"}, 2, "", "unknown command 'nonsense'"},
      {{"ini"}, 2, "", "usage: zrkkvl ini COMMAND"},
      {{"ini", "nonsense"}, 2, "", "unknown command 'ini nonsense'"},
      {{"ini", "get", ini, "s", "k", "extra"}, 2, "", "unexpected argument 'extra'"},
      {{"ini", "get", ini, "s"}, 2, "", "missing operand"},
      {{"ini", "get", "--bogus", ini, "s", "k"}, 2, "", "unknown option '--bogus'"},
      {{"--root"}, 2, "", "option '--root' needs a value"},
      {{"ini", "get", ini, "s", "k"}, 0, "v\n", ""},
      {{"--", "ini", "get", ini, "s", "k"}, 0, "v\n", ""},
      {{"ini", "get", ini, "s", "K"}, 0, "v\n", ""},
      {{"ini", "get", ini, "s", "missing"}, 1, "", ""},
      {{"ini", "get", ini, "missing", "k"}, 1, "", ""},
      {{"ini", "get", dir / "missing.ini", "s", "k"}, 1, "", ""},
      {{"url", "ip", "127.0.0.1"}, 0, "yes\n", ""},
      {{"url", "ip", "localhost"}, 1, "no\n", ""},
      {{"call", "ReadFileToString", dir / "none.txt"}, 1, "", "none.txt"},
  };
  for (const Case& c : cases) {
    ToolRun r = runTool(c.args);
    std::string shown = c.args.empty() ? "(none)" : c.args[0] + " " + c.args.back();
    EXPECT_EQ(r.code, c.code) << shown;
    EXPECT_EQ(r.out, c.out) << shown;
    if (c.errHas.empty()) {
      EXPECT_EQ(r.err, "") << shown;
    } else {
      EXPECT_NE(r.err.find(c.errHas), std::string::npos) << shown << ": " << r.err;
    }
  }
}

TEST(CommandLine, HelpGoesToStandardOutput) {
  for (std::vector<std::string> args :
       std::vector<std::vector<std::string>>{{"--help"},
                                             {"-h"},
                                             {"help"},
                                             {"ini", "--help"},
                                             {"ini", "get", "--help"},
                                             {"ini", "get", "a", "-h"},
                                             {"url", "decode", "--help"},
                                             {"report", "log", "--help"},
                                             {"call", "--help"},
                                             {"--root=/nowhere", "archive", "extract", "--help"}}) {
    ToolRun r = runTool(args);
    EXPECT_EQ(r.code, 0) << args.back();
    EXPECT_NE(r.out.find("usage: zrkkvl"), std::string::npos) << args.back();
    EXPECT_EQ(r.err, "") << args.back();
  }
  EXPECT_NE(runTool({"archive", "extract", "--help"}).out.find("CR LF added"), std::string::npos);
}

TEST(CommandLine, ValuesCrossAsBytes) {
  TempDir dir;
  std::string ini = dir / "u.ini";
  const std::string unicode =
      "\xC3\x9Cn\xC3\xAF"
      "c\xC3\xB8"
      "d\xC3\xA9";                              // Ünïcødé
  const std::string game = "\xF0\x9F\x8E\xAE";  // a 4-byte character
  writeBytes(ini, "[s]\nk=" + unicode + "\n");
  EXPECT_EQ(runTool({"ini", "get", ini, "s", "k"}).out, unicode + "\n");
  ASSERT_EQ(runTool({"ini", "set", ini, "s", "g", game}).code, 0);
  std::string written = readBytes(ini);
  EXPECT_EQ(written.rfind("[s]\nk=" + unicode + "\ng=" + game, 0), 0u) << written;
  EXPECT_EQ(runTool({"ini", "get", ini, "s", "g"}).out, game + "\n");

  // A file name is UTF-8; a value after -- may start with a dash; a negative number is a value.
  std::string named = dir / ("n" + unicode + ".ini");
  ASSERT_EQ(runTool({"ini", "set", named, "s", "k", "--", "--dash"}).code, 0);
  ASSERT_EQ(runTool({"ini", "set", named, "s", "n", "-5"}).code, 0);
  EXPECT_EQ(runTool({"ini", "get", named, "s", "k"}).out, "--dash\n");
  EXPECT_EQ(runTool({"ini", "get", named, "s", "n"}).out, "-5\n");

  ASSERT_EQ(runTool({"file", "write", dir / "w.txt", unicode, ""}).code, 0);
  EXPECT_EQ(readBytes(dir / "w.txt"), unicode + "\r\n\r\n");
  EXPECT_EQ(runTool({"file", "read", dir / "w.txt"}).out.rfind(unicode, 0), 0u);
}

TEST(CommandLine, IniClearLeavesTheOtherSections) {
  TempDir dir;
  std::string ini = dir / "c.ini";
  writeBytes(ini, "; top\n[a]\nk=1\n[b]\nk=2\n");
  ToolRun r = runTool({"ini", "clear", ini, "A"});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(runTool({"ini", "sections", ini}).out, "b\n");
  EXPECT_EQ(runTool({"ini", "get", ini, "a", "k"}).code, 1);
  EXPECT_EQ(runTool({"ini", "section", ini, "b"}).out, "k=2\n");
  EXPECT_EQ(runTool({"ini", "clear", ini, "missing"}).code, 0) << "nothing to remove is no failure";
}

TEST(CommandLine, LinesFromStandardInput) {
  TempDir dir;
  std::string file = dir / "f.txt";
  writeBytes(file, "old\r\n");
  ToolRun w = runTool({"file", "write", file}, "x\r\ny\n");
  EXPECT_EQ(w.code, 0) << w.err;
  EXPECT_EQ(readBytes(file), "x\r\ny\r\n");
  EXPECT_EQ(runTool({"file", "append", file}, "z\n").code, 0);
  EXPECT_EQ(readBytes(file), "x\r\ny\r\nz\r\n");
  EXPECT_EQ(runTool({"file", "write", file, "same"}).code, 0);
  EXPECT_EQ(runTool({"file", "write", file, "same"}).code, 0) << "an unchanged file is no failure";
  ToolRun missing = runTool({"file", "append", dir / "none.txt", "z"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.err.find(dir / "none.txt"), std::string::npos) << missing.err;
  EXPECT_FALSE(exists(dir / "none.txt"));
}

TEST(CommandLine, StandardInputLinesKeepTheirBytes) {
  TempDir dir;
  std::string file = dir / "f.txt";
  struct Case {
    std::string input, written;
  } cases[] = {
      {"x\r\ny\n", "x\r\ny\r\n"},
      {"x\ny", "x\r\ny\r\n"},                                  // the last line without its LF
      {"a\n\nb\n", "a\r\n\r\nb\r\n"},                          // an empty line stays
      {std::string("a\0b\n", 4), std::string("a\0b\r\n", 5)},  // a NUL inside a line
      {std::string(70000, 'l') + "\n", std::string(70000, 'l') + "\r\n"},
  };
  for (const Case& c : cases) {
    ToolRun w = runTool({"file", "write", file}, c.input);
    EXPECT_EQ(w.code, 0) << w.err;
    EXPECT_EQ(readBytes(file), c.written) << c.input.substr(0, 16);
  }
}

TEST(CommandLine, WritesThatCannotHappenFailNamingThePath) {
  TempDir dir;
  struct Case {
    std::vector<std::string> args;
    std::string path;
  } cases[] = {
      {{"ini", "set", dir / "no/x.ini", "s", "k", "v"}, dir / "no/x.ini"},
      {{"ini", "clear", dir / "no/x.ini", "s"}, dir / "no/x.ini"},
      {{"--root", dir / "r", "log", "write", "f", "l", "a"}, dir / "r/dlls/Main Functions DLL"},
  };
  for (const Case& c : cases) {
    ToolRun r = runTool(c.args);
    EXPECT_EQ(r.code, 1) << c.path;
    EXPECT_EQ(r.out, "") << c.path;
    EXPECT_NE(r.err.find("'" + c.path + "'"), std::string::npos) << r.err;
  }
  EXPECT_FALSE(exists(dir / "no"));
  EXPECT_FALSE(exists(dir / "r"));
}

TEST(CommandLine, RootDecidesWhereTheLogsGo) {
  TempDir dir;
  std::string lib = dir / "dlls/Main Functions DLL";
  makeDir(dir / "dlls");
  makeDir(lib);
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{
           {"--root", dir.path(), "log", "write", "f", "l", "a"},
           {"--root=" + dir.path(), "log", "write", "f", "l", "a"}}) {
    ToolRun r = runTool(args);
    EXPECT_EQ(r.code, 0) << r.err;
  }
  EXPECT_TRUE(exists(lib + "/MonitorLog.txt"));
  ToolRun r = runTool({"--root", dir.path(), "report", "log", "x"});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, dir / "ErrorLog.txt" + "\n");
  EXPECT_TRUE(exists(dir / "ErrorLog.txt"));
}

// As root every folder is writable; as an unprivileged user a folder of root's is not.
TEST(CommandLine, UnwritableFolderAsAnUnprivilegedUser) {
  if (!canRunAsNobody()) GTEST_SKIP() << "needs root and runuser";
  TempDir dir;
  ::chmod(dir.path().c_str(), 0755);
  makeDir(dir / "ro");
  ::chmod((dir / "ro").c_str(), 0755);
  ToolRun r = runToolAsNobody({"ini", "set", dir / "ro/x.ini", "s", "k", "v"});
  EXPECT_EQ(r.code, 1) << r.err;
  EXPECT_NE(r.err.find("'" + dir / "ro/x.ini" + "': folder is not writable"), std::string::npos)
      << r.err;
  EXPECT_FALSE(exists(dir / "ro/x.ini"));
}

// The demo makes its root in the temporary folder and removes it, unless asked to keep it.
TEST(CommandLine, DemoCleansUpItsRoot) {
  TempDir tmp;
  const char* before = std::getenv("TMPDIR");
  std::string saved = before ? before : "";
  ::setenv("TMPDIR", tmp.path().c_str(), 1);
  ToolRun plain = runTool({"demo"});
  size_t leftAfterPlain = countEntries(tmp.path());
  ToolRun kept = runTool({"demo", "--keep"});
  size_t leftAfterKeep = countEntries(tmp.path());
  before ? ::setenv("TMPDIR", saved.c_str(), 1) : ::unsetenv("TMPDIR");

  EXPECT_EQ(plain.code, 0) << plain.err;
  EXPECT_NE(plain.out.find("Every step succeeded."), std::string::npos) << plain.out;
  EXPECT_EQ(leftAfterPlain, 0u);
  EXPECT_EQ(kept.code, 0) << kept.err;
  EXPECT_EQ(leftAfterKeep, 1u);
  EXPECT_NE(kept.out.find("The files are kept in " + tmp.path()), std::string::npos) << kept.out;
}

}  // namespace
}  // namespace zrk::test
