// The ini commands as scripts use them, each case held beside git config or crudini where
// those have the same case (crudini's cases are skipped where it is not installed).
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "ToolRun.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

std::string lines(const std::vector<std::string>& items) {
  std::string out;
  for (const std::string& i : items)
    out += i + "\n";
  return out;
}

TEST(IniTool, KeysUnsetAndRemoveSectionSayWhetherThereWasAnything) {
  TempDir dir;
  const std::string ini = dir / "f.ini";
  writeBytes(ini,
             "; top\r\n[a]\r\nk=1\r\nLong Key = 2\r\nk=again\r\n;c\r\n[b]\r\nx=1\r\n[none]\r\n");
  struct Step {
    std::vector<std::string> args;
    int code;
    std::string out;
    std::string fileAfter;  // "" when the step leaves the file as it was
  } steps[] = {
      {{"keys", ini, "a"}, 0, "k\nLong Key\n", ""},
      {{"keys", ini, " A "}, 0, "k\nLong Key\n", ""},
      {{"keys", ini, "none"}, 1, "", ""},
      {{"keys", ini, "missing"}, 1, "", ""},
      {{"keys", dir / "missing.ini", "a"}, 1, "", ""},
      {{"unset", ini, "a", "long key"},
       0,
       "",
       "; top\r\n[a]\r\nk=1\r\nk=again\r\n;c\r\n[b]\r\nx=1\r\n[none]\r\n"},
      {{"unset", ini, "a", "long key"}, 1, "", ""},
      {{"unset", ini, "b", "k"}, 1, "", ""},
      {{"unset", ini, "missing", "k"}, 1, "", ""},
      {{"unset", dir / "missing.ini", "a", "k"}, 1, "", ""},
      {{"unset", ini, "a", "k"},
       0,
       "",
       "; top\r\n[a]\r\nk=again\r\n;c\r\n[b]\r\nx=1\r\n[none]\r\n"},
      {{"get", ini, "a", "k"}, 0, "again\n", ""},  // the second line of a key stood behind
      {{"remove-section", ini, "B"}, 0, "", "; top\r\n[a]\r\nk=again\r\n;c\r\n[none]\r\n"},
      {{"remove-section", ini, "b"}, 1, "", ""},
      {{"remove-section", dir / "missing.ini", "b"}, 1, "", ""},
      {{"clear", ini, "b"}, 0, "", ""},  // clear: a missing section is no failure
      {{"remove-section", ini, "none"}, 0, "", "; top\r\n[a]\r\nk=again\r\n;c\r\n"},
  };
  for (const Step& s : steps) {
    std::string before = readBytes(ini);
    std::vector<std::string> args{"ini"};
    args.insert(args.end(), s.args.begin(), s.args.end());
    ToolRun r = runTool(args);
    std::string what = s.args[0] + " " + s.args[s.args.size() - 1];
    EXPECT_EQ(r.code, s.code) << what << ": " << r.err;
    EXPECT_EQ(r.out, s.out) << what;
    EXPECT_EQ(r.err, "") << what;
    EXPECT_EQ(readBytes(ini), s.fileAfter.empty() ? before : s.fileAfter) << what;
  }
  EXPECT_FALSE(exists(dir / "missing.ini")) << "a removal makes no file";

  // git config fails the same two removals that have nothing to remove.
  writeBytes(dir / "g.cfg", "[a]\n\tk = 1\n");
  EXPECT_NE(runProgram({"git", "config", "-f", dir / "g.cfg", "--unset", "a.zz"}).code, 0);
  EXPECT_NE(runProgram({"git", "config", "-f", dir / "g.cfg", "--remove-section", "zz"}).code, 0);
  if (hasProgram("crudini")) {  // crudini lists a section's keys as ini keys does
    writeBytes(dir / "c.ini", "[a]\nk=1\nlong key = 2\n[b]\n");
    for (const char* section : {"a", "b"}) {
      ToolRun ours = runTool({"ini", "keys", dir / "c.ini", section});
      ToolRun theirs = runProgram({"crudini", "--get", dir / "c.ini", section});
      EXPECT_EQ(ours.out, theirs.out) << section;
    }
  }
}

// Removals and writes of one file by many processes at once: each removal takes its own key and
// no write is lost, as the engine's writes of one folder take turns.
TEST(IniTool, RemovalsAndWritesFromManyProcessesAtOnce) {
  TempDir dir;
  const std::string ini = dir / "f.ini";
  constexpr int kKeys = 16;
  std::string content = "[gone]\r\nx=1\r\n[s]\r\n";
  for (int i = 0; i < kKeys; ++i)
    content += "old" + std::to_string(i) + "=" + std::to_string(i) + "\r\n";
  writeBytes(ini, content);
  std::vector<std::thread> runs;
  std::vector<int> codes(2 * kKeys + 1, -2);
  for (int i = 0; i < kKeys; ++i) {
    runs.emplace_back([&, i] {
      codes[i] = runTool({"ini", "unset", ini, "s", "old" + std::to_string(i)}).code;
    });
    runs.emplace_back([&, i] {
      codes[kKeys + i] = runTool({"ini", "set", ini, "s", "new" + std::to_string(i), "-1"}).code;
    });
  }
  runs.emplace_back([&] {
    codes[2 * kKeys] = runTool({"ini", "remove-section", ini, "gone"}).code;
  });
  for (std::thread& t : runs)
    t.join();
  EXPECT_EQ(codes, std::vector<int>(2 * kKeys + 1, 0));
  std::vector<std::string> keys;
  for (int i = 0; i < kKeys; ++i)
    keys.push_back("new" + std::to_string(i));
  std::string listed = runTool({"ini", "keys", ini, "s"}).out;
  std::vector<std::string> got;
  for (size_t at = 0, nl; (nl = listed.find('\n', at)) != std::string::npos; at = nl + 1)
    got.push_back(listed.substr(at, nl - at));
  std::sort(got.begin(), got.end());
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(got, keys) << readBytes(ini);
  EXPECT_EQ(runTool({"ini", "sections", ini}).out, "s\n");
}

// The fixed buffers of the library's lookups cut; the tool reads around them.
TEST(IniTool, WholeValuesAndEverySection) {
  TempDir dir;
  const std::string ini = dir / "f.ini";
  std::string longValue(1000, 'v');
  longValue.replace(500, 3, "=;x");
  ASSERT_EQ(runTool({"ini", "set", ini, "s", "long", longValue}).code, 0);
  ToolRun got = runTool({"ini", "get", ini, "s", "long"});
  EXPECT_EQ(got.code, 0);
  EXPECT_EQ(got.out, longValue + "\n");
  EXPECT_EQ(runTool({"call", "GetIniKey", "s", "long", ini}).out, longValue.substr(0, 254) + "\n")
      << "the operation keeps its own limit";

  std::string many;
  std::vector<std::string> names;
  for (int i = 1; i <= 200; ++i) {
    names.push_back("server" + std::to_string(i));
    many += "[" + names.back() + "]\nport=" + std::to_string(27000 + i) + "\n";
  }
  writeBytes(dir / "many.ini", many);
  ToolRun sections = runTool({"ini", "sections", dir / "many.ini"});
  EXPECT_EQ(sections.code, 0);
  EXPECT_EQ(sections.out, lines(names));
  ToolRun call = runTool({"call", "GetAllIniSections", dir / "many.ini"});
  EXPECT_LT(call.out.size(), 1020u) << "the operation keeps its own list buffer";

  if (hasProgram("crudini")) {
    EXPECT_EQ(runProgram({"crudini", "--get", ini, "s", "long"}).out, got.out);
    EXPECT_EQ(runProgram({"crudini", "--get", dir / "many.ini"}).out, sections.out);
  }
}

// A file saved with a UTF-8 byte-order mark, as some Windows editors save one.
TEST(IniTool, AByteOrderMarkIsNoPartOfTheFirstLine) {
  TempDir dir;
  const std::string ini = dir / "bom.ini";
  const std::string bom = "\xEF\xBB\xBF";
  writeBytes(ini, bom + "[server]\r\nport=27960\r\nkey=a=b=c\r\n[other]\r\nx=1\r\n");
  struct Case {
    std::vector<std::string> args;
    std::string out;
  } reads[] = {
      {{"ini", "get", ini, "server", "port"}, "27960\n"},
      {{"ini", "sections", ini}, "server\nother\n"},
      {{"ini", "section", ini, "SERVER"}, "port=27960\nkey=a=b=c\n"},
      {{"ini", "keys", ini, "server"}, "port\nkey\n"},
      {{"call", "GetIniKey", "server", "port", ini}, "27960\n"},
      {{"call", "GetIniKey", "x", "key=a", ini}, "b=c\n"},  // the raw-line search
      {{"ini", "lines", ini},
       bom + "[server]\nport=27960\nkey=a=b=c\n[other]\nx=1\n\n"},  // as stored
  };
  for (const Case& c : reads) {
    ToolRun r = runTool(c.args);
    EXPECT_EQ(r.code, 0) << c.args[1] << " " << r.err;
    EXPECT_EQ(r.out, c.out) << c.args[1];
  }

  // Writes keep the mark where it stands and find the first section behind it.
  ASSERT_EQ(runTool({"ini", "set", ini, "server", "port", "27961"}).code, 0);
  ASSERT_EQ(runTool({"ini", "set", ini, "server", "name", "Alpha"}).code, 0);
  EXPECT_EQ(readBytes(ini),
            bom + "[server]\r\nport=27961\r\nkey=a=b=c\r\nname=Alpha\r\n[other]\r\nx=1\r\n");
  ASSERT_EQ(runTool({"ini", "remove-section", ini, "server"}).code, 0);
  EXPECT_EQ(readBytes(ini), bom + "[other]\r\nx=1\r\n");
  ASSERT_EQ(runTool({"ini", "remove-section", ini, "other"}).code, 0);
  EXPECT_EQ(readBytes(ini), bom);
  ASSERT_EQ(runTool({"ini", "set", ini, "new", "k", "v"}).code, 0);
  EXPECT_EQ(readBytes(ini), bom + "[new]\r\nk=v\r\n") << "no line end between mark and head";

  // git config reads the same file the same way and keeps the mark too.
  writeBytes(dir / "bom.cfg", bom + "[server]\n\tport = 27960\n");
  EXPECT_EQ(runProgram({"git", "config", "-f", dir / "bom.cfg", "server.port"}).out, "27960\n");
  ASSERT_EQ(runProgram({"git", "config", "-f", dir / "bom.cfg", "server.port", "1"}).code, 0);
  EXPECT_EQ(readBytes(dir / "bom.cfg").substr(0, 3), bom);
}

// A value operand is the value whatever it looks like; git config stores the same words.
TEST(IniTool, ValuesThatLookLikeOptions) {
  TempDir dir;
  const std::string ini = dir / "f.ini", cfg = dir / "g.cfg";
  struct Case {
    std::vector<std::string> words;  // what follows FILE SECTION KEY
    std::string stored;
  } cases[] = {
      {{"-1"}, "-1"},
      {{"-x"}, "-x"},
      {{"--help"}, "--help"},
      {{"-h"}, "-h"},
      {{"--root=/"}, "--root=/"},
      {{"--", "--"}, "--"},
      {{"--", "-v"}, "-v"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> set{"ini", "set", ini, "s", "k"};
    set.insert(set.end(), c.words.begin(), c.words.end());
    ToolRun r = runTool(set);
    EXPECT_EQ(r.code, 0) << c.stored << ": " << r.err;
    EXPECT_EQ(runTool({"ini", "get", ini, "s", "k"}).out, c.stored + "\n");

    std::vector<std::string> git{"git", "config", "-f", cfg, "s.k"};
    git.push_back(c.words.back());
    ASSERT_EQ(runProgram(git).code, 0) << c.stored;
    EXPECT_EQ(runProgram({"git", "config", "-f", cfg, "s.k"}).out, c.stored + "\n");
  }
  // Keys and sections that look like options, where they are the last operand.
  ASSERT_EQ(runTool({"ini", "set", ini, "--", "-s", "-k", "-v"}).code, 0);
  EXPECT_EQ(runTool({"ini", "get", ini, "--", "-s", "-k"}).out, "-v\n");
  EXPECT_EQ(runTool({"ini", "keys", ini, "-s"}).out, "-k\n");
  EXPECT_EQ(runTool({"ini", "unset", ini, "--", "-s", "-k"}).code, 0);
  EXPECT_EQ(runTool({"ini", "remove-section", ini, "-s"}).code, 0);
  // Where an option may stand, it is one.
  EXPECT_EQ(runTool({"ini", "get", "--help"}).code, 0);
  EXPECT_EQ(runTool({"ini", "get", ini, "-x", "k"}).code, 2);
  EXPECT_EQ(runTool({"ini", "set", ini, "s", "k", "v", "--bogus"}).code, 2)
      << "no value is due after the last operand";
  EXPECT_EQ(runTool({"ini", "get", ini, "s", "k"}).out, "-v\n") << "the refused set wrote nothing";
}

// A file that cannot be read is no missing key: its own message and exit 1, for every command.
TEST(IniTool, AnUnreadableFileFailsWithItsOwnMessage) {
  TempDir dir;
  ::chmod(dir.path().c_str(), 0755);
  const std::string ini = dir / "secret.ini";
  writeBytes(ini, "[s]\nk=v\n");
  ::chmod(ini.c_str(), 0);
  const std::string socket = dir / "socket.ini";
  makeUnopenableFile(socket);  // unopenable for root too
  std::vector<std::vector<std::string>> commands{
      {"get", "s", "k"}, {"keys", "s"},          {"section", "s"},    {"sections"},
      {"lines"},         {"set", "s", "k", "w"}, {"unset", "s", "k"}, {"remove-section", "s"},
      {"clear", "s"},
  };
  auto check = [](const ToolRun& r, const std::string& file, const std::string& command) {
    EXPECT_EQ(r.code, 1) << command;
    EXPECT_EQ(r.out, "") << command;
    EXPECT_NE(r.err.find("ini " + command + ": cannot read '" + file + "'"), std::string::npos)
        << command << ": " << r.err;
  };
  for (const auto& c : commands) {
    std::vector<std::string> args{"ini", c[0], socket};
    args.insert(args.end(), c.begin() + 1, c.end());
    check(runTool(args), socket, c[0]);
    if (canRunAsNobody()) {
      args[2] = ini;
      check(runToolAsNobody(args), ini, c[0]);
    }
  }
  ::chmod(ini.c_str(), 0644);
  EXPECT_EQ(readBytes(ini), "[s]\nk=v\n");
  if (!canRunAsNobody()) GTEST_SKIP() << "the 0000 file needs root and runuser";
  ::chmod(ini.c_str(), 0);
  // git config too says it cannot read the file, and fails.
  ToolRun git = runProgramAsNobody({"git", "config", "-f", ini, "s.k"});
  EXPECT_NE(git.code, 0);
  EXPECT_NE(git.err.find("Permission denied"), std::string::npos) << git.err;
}

}  // namespace
}  // namespace zrk::test
