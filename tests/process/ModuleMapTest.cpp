// Where modules lie: the map's lines, the module-base rule, address text, and a real 64-bit
// program that none of our code built.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>

#include <zrkKVL/GameHandle.h>
#include "platform/loader/SharedLibrary.h"
#include "platform/process/ElfFile.h"
#include "platform/process/ProcessAccess.h"
#include "platform/process/ProcessMaps.h"
#include "platform/process/ProcessObject.h"
#include "platform/process/ProcessSymbols.h"
#include "process/AddressText.h"
#include "process/ModuleMap.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

TEST(MappingLine, FieldsAsTheSystemWritesThem) {
  struct Case {
    std::string line;
    bool valid;
    uint64_t start, end;
    std::string permissions;
    uint64_t offset;
    std::string path;
  } cases[] = {
      {"55d0c0a3e000-55d0c0a40000 r--p 00000000 fe:00 247101                     /usr/bin/sleep",
       true, 0x55d0c0a3e000, 0x55d0c0a40000, "r--p", 0, "/usr/bin/sleep"},
      {"7ffd1c3a2000-7ffd1c3c3000 rw-p 00000000 00:00 0                          [stack]", true,
       0x7ffd1c3a2000, 0x7ffd1c3c3000, "rw-p", 0, "[stack]"},
      {"30000000-30001000 rw-p 00000000 00:00 0 ", true, 0x30000000, 0x30001000, "rw-p", 0, ""},
      {"30000000-30001000 rw-p 00000000 00:00 0", true, 0x30000000, 0x30001000, "rw-p", 0, ""},
      {"7f00-8f00 r-xp 0002f000 fe:00 12 /opt/my game/bin (deleted)", true, 0x7f00, 0x8f00, "r-xp",
       0x2f000, "/opt/my game/bin (deleted)"},
      {"ffffffffff600000-ffffffffff601000 --xp 00000000 00:00 0 [vsyscall]", true,
       0xffffffffff600000, 0xffffffffff601000, "--xp", 0, "[vsyscall]"},
      {"", false, 0, 0, "", 0, ""},
      {"30000000 rw-p 00000000 00:00 0", false, 0, 0, "", 0, ""},           // no range
      {"3000000g-30001000 rw-p 00000000 00:00 0", false, 0, 0, "", 0, ""},  // not hex
      {"30000000-30001000 rw- 00000000 00:00 0", false, 0, 0, "", 0, ""},   // short rights
      {"30000000-30001000 rw-p 00000000", false, 0, 0, "", 0, ""},          // cut short
  };
  for (const Case& c : cases) {
    std::optional<platform::MemoryMapping> m = platform::parseMappingLine(c.line);
    ASSERT_EQ(m.has_value(), c.valid) << c.line;
    if (!m) continue;
    EXPECT_EQ(m->start, c.start) << c.line;
    EXPECT_EQ(m->end, c.end) << c.line;
    EXPECT_EQ(m->permissions, c.permissions) << c.line;
    EXPECT_EQ(m->offset, c.offset) << c.line;
    EXPECT_EQ(m->path, c.path) << c.line;
  }
}

TEST(ModuleBase, LowestMappingOfTheFileFromItsFirstByte) {
  const std::vector<platform::MemoryMapping> map = {
      {0x1000, 0x2000, "rw-p", 0, ""},
      {0x5000, 0x6000, "r-xp", 0x1000, "/opt/game/bin/server"},  // not the file's start
      {0x4000, 0x5000, "r--p", 0, "/opt/game/bin/server"},
      {0x9000, 0xa000, "r--p", 0, "/opt/game/bin/server"},  // mapped once more, higher
      {0x7000, 0x8000, "r--p", 0, "/lib/libgame.so (deleted)"},
      {0xb000, 0xc000, "rw-p", 0, "[heap]"},
      {0xd000, 0xe000, "r--p", 0, "/lib/libgame.so.2"},
  };
  struct Case {
    std::string name;
    uint64_t base;  // 0: none
  } cases[] = {
      {"server", 0x4000},
      {"/opt/game/bin/server", 0x4000},
      {"bin/server", 0},  // a path matches only whole
      {"serve", 0},
      {"Server", 0},  // file names keep their case
      {"libgame.so", 0x7000},
      {"/lib/libgame.so", 0x7000},
      {"libgame.so (deleted)", 0x7000},
      {"libgame.so.2", 0xd000},
      {"[heap]", 0},  // not a file
      {"", 0},
  };
  for (const Case& c : cases) {
    auto m = process::moduleMapping(map, c.name);
    EXPECT_EQ(m ? m->start : 0, c.base) << c.name;
  }
}

TEST(AddressText, HexWith0xOrDecimalToAll64Bits) {
  struct Case {
    std::string text;
    std::optional<uint64_t> value;
  } cases[] = {
      {"0x55d0c0a3e000", 0x55d0c0a3e000},
      {"0X7FFF", 0x7fff},
      {"0xffffffffffffffff", ~uint64_t(0)},
      {"94112236347392", 94112236347392},
      {"18446744073709551615", ~uint64_t(0)},
      {"0", 0},
      {"0x10000000000000000", std::nullopt},  // 65 bits
      {"18446744073709551616", std::nullopt},
      {"-1", std::nullopt},
      {"+1", std::nullopt},
      {"0x", std::nullopt},
      {"", std::nullopt},
      {"55d0c0a3e000", std::nullopt},  // hex needs its prefix
      {"0x12 ", std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(process::parseAddress(c.text), c.value) << c.text;
  }
}

TEST(AccessRefusal, NamesTheMissingRightAndYamasScope) {
  struct Case {
    std::optional<int> scope;
    std::string text;
  } cases[] = {
      {std::nullopt, "needs root or CAP_SYS_PTRACE"},
      {0, "needs root or CAP_SYS_PTRACE; ptrace_scope is 0"},
      {1, "needs root or CAP_SYS_PTRACE; ptrace_scope is 1"},
      {2, "needs root or CAP_SYS_PTRACE; ptrace_scope is 2"},
      {3, "ptrace_scope is 3: no process may read another's memory"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(platform::accessRefusal(c.scope), c.text);
  }
  EXPECT_EQ(platform::whyUnreadable(uint32_t(INT_MAX)), "no such process");
  EXPECT_EQ(platform::whyUnreadable(uint32_t(::getpid())), "");
}

// /usr/bin/sleep, a position-independent program: it lies above 4 GiB.
class SystemProgramTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    pid = ::fork();
    if (pid == 0) {
      ::execl("/usr/bin/sleep", "sleep", "60", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    // Wait until the program has replaced the fork's copy of us and, started in full, sleeps.
    for (int i = 0; i < 1000 && !asleep(); ++i)
      ::usleep(2000);
    ASSERT_TRUE(asleep());
    handle = kvn->AttachToGame(pid);
    ASSERT_NE(handle, 0);
  }
  void TearDown() override {
    CloseGameHandle(handle);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    LibraryTest::TearDown();
  }
  std::string exe() const { return platform::executableOf(uint32_t(pid)); }
  bool asleep() const {
    std::string stat = readBytes("/proc/" + std::to_string(pid) + "/stat");
    size_t end = stat.rfind(')');
    return exe().find("sleep") != std::string::npos && end != std::string::npos &&
           stat.compare(end, 4, ") S ") == 0;
  }

  pid_t pid = -1;
  int32_t handle = 0;
};

TEST_F(SystemProgramTest, ItsLoadAddressHoldsItsElfHeader) {
  const Text elfStart =
      u"\x7F"
      u"ELF\x02\x01\x01";  // 64-bit, little-endian, version 1
  for (Text name : {Text(u"sleep"), T(exe()), Text(u"libc.so.6")}) {
    int64_t base = kvn->GetModuleBase(handle, name);
    EXPECT_GT(uint64_t(base), 0xFFFFFFFFu) << toUtf8(name);
    EXPECT_EQ(kvn->ReadLong64(handle, base), 0x464C457F) << toUtf8(name);
    EXPECT_EQ(kvn->ReadStr64(handle, base).substr(0, 7), elfStart) << toUtf8(name);
  }
  EXPECT_EQ(kvn->GetModuleBase(handle, u"sleepy"), 0);
  EXPECT_EQ(kvn->GetModuleBase(0, u"sleep"), 0);

  // The same by name, as a plug-in that binds late does it.
  std::vector<Variant> args{Variant(handle), Variant(Text(u"sleep"))};
  Variant base = kvn->CallByName(u"getmodulebase", args);
  ASSERT_EQ(base.kind(), Variant::Kind::Double);
  EXPECT_EQ(base.toDouble(), double(kvn->GetModuleBase(handle, u"sleep")));
  args = {Variant(handle), base};
  EXPECT_EQ(kvn->CallByName(u"ReadLong64", args), Variant(int32_t(0x464C457F)));
}

TEST_F(SystemProgramTest, ExportedVariablesByName) {
  // The program's short name, in the pointer that the executable holds for the C library.
  int64_t at = kvn->GetSymbolAddress(handle, u"sleep", u"program_invocation_short_name");
  ASSERT_NE(at, 0);
  uint64_t pointer = uint32_t(kvn->ReadLong64(handle, at)) |
                     uint64_t(uint32_t(kvn->ReadLong64(handle, at + 4))) << 32;
  EXPECT_EQ(kvn->ReadStr64(handle, int64_t(pointer)), u"sleep");
  // A library's own variable: the standard output's FILE, whose flags carry a magic number.
  int64_t out = kvn->GetSymbolAddress(handle, u"libc.so.6", u"_IO_2_1_stdout_");
  EXPECT_EQ(uint32_t(kvn->ReadLong64(handle, out)) & 0xFFFF0000u, 0xFBAD0000u);

  struct Case {
    Text module, symbol;
  } absent[] = {
      {u"libc.so.6", u"no_such_symbol_here"},
      {u"libc.so.6", u""},
      {u"sleep", u"malloc"},  // only referred to there, not defined
      {u"libc.so.7", u"program_invocation_short_name"},
      {u"[stack]", u"main"},
  };
  for (const Case& c : absent) {
    EXPECT_EQ(kvn->GetSymbolAddress(handle, c.module, c.symbol), 0)
        << toUtf8(c.module) << " " << toUtf8(c.symbol);
  }
  std::vector<Variant> args{Variant(handle), Variant(Text(u"sleep")),
                            Variant(Text(u"program_invocation_short_name"))};
  EXPECT_EQ(kvn->CallByName(u"GetSymbolAddress", args), Variant(double(at)));
}

TEST(ElfSymbols, FilesThatAreNoElfGiveNothing) {
  TempDir dir;
  writeBytes(dir / "text", "not an ELF file\n");
  writeBytes(dir / "cut",
             "\x7F"
             "ELF\x02\x01\x01");
  for (std::string path : {dir / "text", dir / "cut", dir / "missing", dir.path()}) {
    EXPECT_FALSE(platform::findElfSymbol(path, "main")) << path;
  }
}

// Without libelf no file is read: failure 429, not a symbol that seems missing.
TEST(ElfSymbols, WithoutLibelfNoFileIsRead) {
  struct Case {
    const char* file;
    bool found;
  } cases[] = {{"libzrk-missing.so.1", false}, {"", true}};
  for (const Case& c : cases) {
    platform::overrideLibraryFile(platform::kElfLibrary, c.file);
    try {
      EXPECT_EQ(platform::findElfSymbol("/proc/self/exe", "main").has_value(), c.found) << c.file;
      EXPECT_TRUE(c.found) << c.file;
    } catch (const Failure& f) {
      EXPECT_FALSE(c.found) << c.file;
      EXPECT_EQ(f.number(), err::CantCreateObject);
    }
  }
}

}  // namespace
}  // namespace zrk::test
