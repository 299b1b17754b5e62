// The bini and profile commands of the tool, run as a user runs them.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "ToolRun.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

using namespace std::string_literals;

// Starts the tool without waiting for it, its output thrown away.
pid_t startTool(std::vector<std::string> args) {
  args.insert(args.begin(), ZRK_TOOL_FILE);
  pid_t pid = ::fork();
  if (pid == 0) {
    int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, 1);
    ::dup2(null, 2);
    std::vector<char*> argv;
    for (auto& a : args)
      argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  return pid;
}

int exitCodeOf(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A profiles file of `count` profiles named "Server <10000 + i>", packed.
void storeProfiles(const TempDir& dir, int count) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += "[Server " + std::to_string(10000 + i) + "]\r\npath=p\r\n";
  writeBytes(dir / "profiles.ini", text);
  ASSERT_EQ(runTool({"bini", "pack", dir / "profiles.ini"}).code, 0);
}

// The packed file's text, unpacked from a copy.
std::string unpackedCopy(const TempDir& dir) {
  writeBytes(dir / "copy.bini", readBytes(dir / "profiles.bini"));
  if (runTool({"bini", "unpack", dir / "copy.bini"}).code != 0) return "";
  std::string text = readBytes(dir / "copy.ini");
  std::remove((dir / "copy.ini").c_str());
  std::remove((dir / "copy.bini").c_str());
  return text;
}

size_t countOf(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++n;
  return n;
}

std::vector<std::string> saveArgs(const std::string& file, const std::string& root,
                                  const std::string& name) {
  return {"profile",   "save",   file, root,      "--name", name,     "--path",
          "/srv/game", "--game", "q3", "--stats", "s",      "--port", "27960"};
}

TEST(ProfileTool, BiniPackTestUnpack) {
  TempDir dir;
  writeBytes(dir / "p.ini", "abc");
  ToolRun pack = runTool({"bini", "pack", dir / "p.ini"});
  EXPECT_EQ(pack.code, 0) << pack.err;
  EXPECT_EQ(pack.out, dir / "p.bini" + "\n");
  EXPECT_EQ(readBytes(dir / "p.bini"), "\x05\0\0\0\0\0\0\0BINIeJxLTErm5QIABL8BPg=="s);
  EXPECT_FALSE(exists(dir / "p.ini"));
  ToolRun test = runTool({"bini", "test", dir / "p.bini"});
  EXPECT_EQ(test.code, 0);
  EXPECT_EQ(test.out, "yes\n");
  EXPECT_EQ(runTool({"bini", "unpack", dir / "p.bini"}).code, 0);
  EXPECT_EQ(readBytes(dir / "p.ini"), "abc\r\n");
  test = runTool({"bini", "test", dir / "p.ini"});
  EXPECT_EQ(test.code, 1);
  EXPECT_EQ(test.out, "no\n");
  ToolRun again = runTool({"bini", "unpack", dir / "p.ini"});
  EXPECT_EQ(again.code, 1);
  EXPECT_EQ(again.out, "");
  EXPECT_NE(again.err.find(dir / "p.ini"), std::string::npos) << again.err;
}

TEST(ProfileTool, ValidateAndSave) {
  TempDir dir;
  makeDir(dir / "profiles");
  std::string file = dir / "profiles.bini";
  ToolRun bad = runTool(
      {"profile", "validate", file, "--name", "a-b", "--path", "p", "--game", "g", "--stats", "s"});
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(bad.out.rfind("Profile name MUST be alphanumeric!\r\n", 0), 0u) << bad.out;
  ToolRun good = runTool({"profile", "validate", file, "--name", " Srv ", "--path", "p", "--game",
                          "g", "--stats", "s"});
  EXPECT_EQ(good.code, 0) << good.err;
  EXPECT_EQ(good.out, "valid\n");

  ToolRun save = runTool({"profile", "save", file, dir.path(), "--name", "Srv", "--path", "/g",
                          "--game", "hl", "--url", "http://a", "--url=http://b", "--acs", "1"});
  EXPECT_EQ(save.code, 0) << save.err;
  EXPECT_NE(save.out.find("[Srv]\npath=/g\nupload=http://a|http://b\n"), std::string::npos)
      << save.out;
  EXPECT_TRUE(exists(dir / "profiles/Srv/settings"));
  EXPECT_EQ(runTool({"bini", "test", file}).code, 0);
}

TEST(ProfileTool, FormOptionsAreChecked) {
  TempDir dir;
  std::string file = dir / "p.bini";
  struct Case {
    std::vector<std::string> args;
    const char* message;
  } cases[] = {
      {{"profile", "validate", file, "--bogus", "1"}, "unknown option '--bogus'"},
      {{"profile", "validate", file, "--name"}, "option '--name' needs a value"},
      {{"profile", "validate", file, "extra", "--name", "a"}, "unexpected argument 'extra'"},
      {{"profile", "save", file, dir.path(), "--acs", "3"}, "--acs takes 0, 1 or 2"},
      {{"profile", "save", file}, "missing operand"},
  };
  for (const Case& c : cases) {
    ToolRun r = runTool(c.args);
    EXPECT_EQ(r.code, 2) << c.message;
    EXPECT_EQ(r.out, "") << c.message;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
  EXPECT_FALSE(exists(file)) << "a refused command line writes nothing";
}

// Saves of different profiles started at once into one profiles file: all of them stay, with
// every profile stored before, and each exits 0.
TEST(ProfileTool, ParallelSavesKeepEveryProfile) {
  TempDir dir;
  makeDir(dir / "profiles");
  storeProfiles(dir, 20);
  std::vector<pid_t> saves;
  for (int i = 0; i < 10; ++i)
    saves.push_back(
        startTool(saveArgs(dir / "profiles.bini", dir.path(), "New " + std::to_string(i))));
  for (pid_t pid : saves)
    EXPECT_EQ(exitCodeOf(pid), 0);
  std::string text = unpackedCopy(dir);
  EXPECT_EQ(countOf(text, "\r\n["), 29u);  // every section but the first follows a line end
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(countOf(text, "[Server " + std::to_string(10000 + i) + "]\r\npath=p\r\n"), 1u);
  for (int i = 0; i < 10; ++i) {
    std::string head = "[New " + std::to_string(i) + "]\r\npath=/srv/game\r\n";
    EXPECT_EQ(countOf(text, head), 1u) << head;
  }
  EXPECT_EQ(countOf(text, "port=27960\r\n"), 10u);
  EXPECT_FALSE(exists(dir / "profiles.ini"));
}

// `ini set` on the plain file while `bini pack` packs it: the value ends in the packed file or
// in a plain file made after the pack, never lost.
TEST(ProfileTool, AnIniSetDuringAPackIsKept) {
  TempDir dir;
  std::string base;
  for (int i = 0; i < 2000; ++i)
    base += "[S" + std::to_string(i) + "]\r\nkey=value " + std::to_string(i) + "\r\n";
  int lost = 0;
  for (int round = 0; round < 12; ++round) {
    std::remove((dir / "profiles.bini").c_str());
    writeBytes(dir / "profiles.ini", base);
    pid_t pack = startTool({"bini", "pack", dir / "profiles.ini"});
    pid_t set =
        startTool({"ini", "set", dir / "profiles.ini", "Edit", "round", std::to_string(round)});
    EXPECT_EQ(exitCodeOf(set), 0);
    EXPECT_EQ(exitCodeOf(pack), 0);
    std::string line = "[Edit]\r\nround=" + std::to_string(round) + "\r\n";
    bool packed = unpackedCopy(dir).find(line) != std::string::npos;
    bool plain = readBytes(dir / "profiles.ini") == line;
    lost += !packed && !plain;
    std::remove((dir / "profiles.ini").c_str());
  }
  EXPECT_EQ(lost, 0);
}

// `profile validate` checks a name against the stored profiles, packed as they lie at rest,
// with either name, however many there are; `profile save` keeps them all.
TEST(ProfileTool, ValidateAndSaveOnAThousandPackedProfiles) {
  TempDir dir;
  makeDir(dir / "profiles");
  storeProfiles(dir, 1000);
  const std::string packed = readBytes(dir / "profiles.bini");
  auto validate = [&](const std::string& file, const std::string& name) {
    return runTool({"profile", "validate", file, "--name", name, "--path", "p", "--game", "g",
                    "--stats", "s"});
  };
  for (const char* file : {"profiles.bini", "profiles.ini"}) {
    ToolRun taken = validate(dir / file, "Server 10999");
    EXPECT_EQ(taken.code, 1) << file;
    EXPECT_EQ(taken.out, "You already have a profile with this name!\n") << file;
    ToolRun free = validate(dir / file, "Server 11000");
    EXPECT_EQ(free.code, 0) << free.err;
    EXPECT_EQ(free.out, "valid\n");
  }
  EXPECT_EQ(readBytes(dir / "profiles.bini"), packed);
  EXPECT_FALSE(exists(dir / "profiles.ini"));

  ToolRun save = runTool(saveArgs(dir / "profiles.bini", dir.path(), "Server 11000"));
  EXPECT_EQ(save.code, 0) << save.err;
  std::string text = unpackedCopy(dir);
  EXPECT_EQ(countOf(text, "\r\n["), 1000u);
  EXPECT_EQ(countOf(text, "[Server 10999]\r\npath=p\r\n"), 1u);

  writeBytes(dir / "profiles.bini", packed.substr(0, packed.size() / 2));
  ToolRun cut = validate(dir / "profiles.bini", "Server 10999");
  EXPECT_EQ(cut.code, 1);
  EXPECT_NE(cut.err.find("cannot unpack"), std::string::npos) << cut.err;
}

// A save that does not store every key exits 1 and names the key; the stored file stays.
TEST(ProfileTool, ASaveThatCannotStoreAKeyExits1) {
  TempDir dir;
  makeDir(dir / "profiles");
  storeProfiles(dir, 3);
  const std::string packed = readBytes(dir / "profiles.bini");
  std::vector<std::string> args = saveArgs(dir / "profiles.bini", dir.path(), "Srv");
  args.insert(args.end(), {"--padnum", "5\r\n[Injected]"});
  ToolRun r = runTool(args);
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("[apn]"), std::string::npos) << r.err;
  EXPECT_EQ(r.out.find("saved"), std::string::npos) << r.out;
  EXPECT_EQ(readBytes(dir / "profiles.bini"), packed);

  writeBytes(dir / "profiles.bini", packed.substr(0, 20));
  ToolRun damaged = runTool(saveArgs(dir / "profiles.bini", dir.path(), "Srv"));
  EXPECT_EQ(damaged.code, 1);
  EXPECT_NE(damaged.err.find("(in writeProfile)"), std::string::npos) << damaged.err;
  EXPECT_EQ(readBytes(dir / "profiles.bini"), packed.substr(0, 20));
}

}  // namespace
}  // namespace zrk::test
