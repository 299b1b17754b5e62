// Attaching to the stand-in game and reading its strings and numbers.
#include <unistd.h>

#include <set>
#include <thread>

#include <zrkKVL/GameHandle.h>
#include "FakeGame.h"
#include "platform/CodePage.h"
#include "platform/Process.h"

namespace zrk::test {
namespace {

class GameProcessTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    handle = kvn->AttachToGame(game.pid());
    ASSERT_NE(handle, 0);
  }
  void TearDown() override {
    CloseGameHandle(handle);
    LibraryTest::TearDown();
  }

  FakeGame game;
  int32_t handle = 0;
  const uint32_t pageEnd = FakeGame::kLow + uint32_t(::sysconf(_SC_PAGESIZE));
};

TEST_F(GameProcessTest, ReadStrStopsAtZeroAndAtTheEndOfWhatCanBeRead) {
  std::string upperBytes;
  for (int b = 0x80; b <= 0xFF; ++b)
    upperBytes += char(b);
  struct Case {
    uint32_t address;
    Text expected;
  } cases[] = {
      {FakeGame::kLow, Text(255, u'x')},         // 300 bytes there: one request of 255
      {FakeGame::kLow + 45, Text(255, u'x')},    // still 255 non-zero bytes
      {FakeGame::kLow + 46, Text(254, u'x')},    // the 0 after them ends it
      {FakeGame::kLow + 0x200, u""},             // starts with 0
      {FakeGame::kLow + 0x220, u"Hello, game"},  //
      {FakeGame::kLow + 0x300, platform::fromAnsi(upperBytes)},
      {pageEnd - 10, u"0123456789"},        // the bytes before the unmapped page
      {pageEnd, u""},                       // nothing mapped
      {FakeGame::kHigh + 4, u"high half"},  // a negative address
  };
  for (const Case& c : cases) {
    EXPECT_EQ(kvn->ReadStr(handle, at(c.address)), c.expected) << std::hex << c.address;
  }
  EXPECT_EQ(kvn->ReadStr(handle, at(FakeGame::kLow + 0x300))[0], u'\u20AC');  // 0x80 in 1252
}

TEST_F(GameProcessTest, ReadLongIsLittleEndianAndSigned) {
  struct Case {
    uint32_t address;
    int32_t expected;
  } cases[] = {
      {FakeGame::kLow + 0x210, 513},
      {FakeGame::kLow + 0x214, -1},
      {FakeGame::kLow + 0x212, -65536},  // 00 00 FF FF
      {FakeGame::kHigh, 0x12345678},
      {pageEnd - 2, 0x3938},  // "89" and two bytes that can't be read
      {pageEnd, 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(kvn->ReadLong(handle, at(c.address)), c.expected) << std::hex << c.address;
  }
}

TEST_F(GameProcessTest, BadHandlesReadNothing) {
  int32_t closed = kvn->AttachToGame(game.pid());
  ASSERT_TRUE(CloseGameHandle(closed));
  for (int32_t h : {0, -1, 12345, closed}) {
    EXPECT_EQ(kvn->ReadStr(h, at(FakeGame::kLow + 0x220)), u"") << h;
    EXPECT_EQ(kvn->ReadLong(h, at(FakeGame::kLow + 0x210)), 0) << h;
  }
}

TEST_F(GameProcessTest, CallsByName) {
  std::vector<Variant> args{Variant(handle), Variant(at(FakeGame::kLow + 0x210))};
  EXPECT_EQ(kvn->CallByName(u"readlong", args), Variant(int32_t(513)));
  args = {Variant(handle), Variant(at(FakeGame::kLow + 0x220))};
  EXPECT_EQ(kvn->CallByName(u"ReadStr", args), Variant(Text(u"Hello, game")));
}

TEST_F(GameProcessTest, PlatformReadDeliversTheBytesBeforeTheGapByEitherWay) {
  for (bool memoryFile : {false, true}) {
    platform::setMemoryFileOnly(memoryFile);
    char buf[16] = {};
    size_t got = 99;
    uint32_t h = uint32_t(handle);
    EXPECT_EQ(platform::ReadProcessMemory(h, pageEnd - 10, buf, sizeof buf, &got), 0);
    EXPECT_EQ(got, 10u) << memoryFile;
    EXPECT_EQ(std::string(buf, 10), "0123456789") << memoryFile;
    EXPECT_EQ(platform::ReadProcessMemory(h, pageEnd, buf, sizeof buf, &got), 0);
    EXPECT_EQ(got, 0u) << memoryFile;
    EXPECT_EQ(platform::ReadProcessMemory(h, FakeGame::kHigh, buf, 4, &got), 1);
    EXPECT_EQ(std::string(buf, 4), "\x78\x56\x34\x12") << memoryFile;
  }
  platform::setMemoryFileOnly(false);
}

TEST_F(GameProcessTest, AttachSwitchesThePrivilegeOnlyForTheOpen) {
  size_t open = platform::HandleTable::instance().size();
  EXPECT_TRUE(platform::openedWithDebugPrivilege(uint32_t(handle)));
  EXPECT_FALSE(platform::debugPrivilegeEnabled());

  int32_t second = kvn->AttachToGame(game.pid());
  EXPECT_NE(second, 0);
  EXPECT_NE(second, handle);
  EXPECT_EQ(platform::HandleTable::instance().size(), open + 1);  // the token went again
  EXPECT_EQ(kvn->ReadLong(second, at(FakeGame::kLow + 0x210)), 513);
  EXPECT_TRUE(CloseGameHandle(second));
  EXPECT_FALSE(CloseGameHandle(second));
  EXPECT_EQ(platform::HandleTable::instance().size(), open);
}

TEST_F(GameProcessTest, RefusedAttachGivesZeroQuietly) {
  FakeGame ended;
  pid_t endedPid = ended.pid();
  ended.stop();
  size_t open = platform::HandleTable::instance().size();
  struct Case {
    const char* what;
    int32_t pid;
    platform::TokenFault fault;
  } cases[] = {
      {"no such process", endedPid, platform::TokenFault::None},
      {"id 0", 0, platform::TokenFault::None},
      {"negative id", -1, platform::TokenFault::None},
      {"token refused", game.pid(), platform::TokenFault::OpenToken},
      {"privilege unknown", game.pid(), platform::TokenFault::LookupPrivilege},
  };
  for (const Case& c : cases) {
    platform::setTokenFault(c.fault);
    EXPECT_EQ(kvn->AttachToGame(c.pid), 0) << c.what;
    platform::setTokenFault(platform::TokenFault::None);
    EXPECT_FALSE(platform::debugPrivilegeEnabled()) << c.what;
    EXPECT_EQ(platform::HandleTable::instance().size(), open) << c.what;
  }
  EXPECT_TRUE(dialogs->shown().empty());
}

}  // namespace
}  // namespace zrk::test

namespace zrk::test {
namespace {

TEST(HandleTable, ThreadsGetDistinctHandlesAndCloseThemAll) {
  size_t open = platform::HandleTable::instance().size();
  constexpr int kThreads = 4, kEach = 50;
  std::vector<std::vector<platform::HANDLE>> held(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        held[t].push_back(
            platform::OpenProcess(platform::PROCESS_QUERY_INFORMATION | platform::PROCESS_VM_READ,
                                  0, uint32_t(::getpid())));
      }
    });
  }
  for (auto& t : threads)
    t.join();
  std::set<platform::HANDLE> all;
  for (const auto& h : held)
    all.insert(h.begin(), h.end());
  EXPECT_EQ(all.size(), size_t(kThreads * kEach));
  EXPECT_EQ(all.count(0), 0u);
  threads.clear();
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (platform::HANDLE h : held[t])
        EXPECT_EQ(platform::CloseHandle(h), 1);
    });
  }
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(platform::HandleTable::instance().size(), open);
}

}  // namespace
}  // namespace zrk::test
