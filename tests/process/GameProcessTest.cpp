// Attaching to the stand-in game and reading its strings and numbers.
#include <unistd.h>

#include <atomic>
#include <memory>
#include <set>
#include <thread>

#include <zrkKVL/GameHandle.h>
#include "platform/process/Process.h"
#include "platform/text/CodePage.h"
#include "support/FakeGame.h"

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

  // A 64-bit address as a Double, as hex or decimal text (exact to all 64 bits), or a Long.
  const Variant far = Variant(int32_t(0xDEADBEEF));
  struct Case {
    Variant address;
    Variant expected;
  } cases[] = {
      {Variant(double(FakeGame::kFar)), far},
      {Variant(Text(u"0x200000000000")), far},
      {Variant(Text(u"35184372088832")), far},
      {Variant(at(FakeGame::kLow + 0x210)), Variant(int32_t(513))},
  };
  for (const Case& c : cases) {
    args = {Variant(handle), c.address};
    EXPECT_EQ(kvn->CallByName(u"ReadLong64", args), c.expected) << toUtf8(c.address.toText());
  }
  args = {Variant(handle), Variant(Text(u"0x200000000008"))};
  EXPECT_EQ(kvn->CallByName(u"readstr64", args), Variant(Text(u"far above 4 GiB")));
  for (Variant bad :
       {Variant(1e19), Variant(Text(u"far")), Variant(Text(u"0x10000000000000000"))}) {
    args = {Variant(handle), bad};
    EXPECT_NE(failureOf([&] { kvn->CallByName(u"ReadLong64", args); }), 0) << toUtf8(bad.toText());
  }

  int32_t second = kvn->AttachToGame(game.pid());
  args = {Variant(second)};
  EXPECT_EQ(kvn->CallByName(u"CloseGameHandle", args), Variant(true));
  EXPECT_EQ(kvn->CallByName(u"closegamehandle", args), Variant(false));
  EXPECT_EQ(kvn->ReadLong(second, at(FakeGame::kLow + 0x210)), 0);
}

// Reads go through the memory file where we may open it, through process_vm_readv otherwise.
class ReadPathTest : public GameProcessTest, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    platform::setMemoryFileUse(GetParam());
    GameProcessTest::SetUp();
  }
  void TearDown() override {
    GameProcessTest::TearDown();
    platform::setMemoryFileUse(true);
  }
};
INSTANTIATE_TEST_SUITE_P(ByFileOrById, ReadPathTest, testing::Bool());

TEST_P(ReadPathTest, PlatformReadDeliversTheBytesBeforeTheGap) {
  char buf[16] = {};
  size_t got = 99;
  uint32_t h = uint32_t(handle);
  EXPECT_EQ(platform::ReadProcessMemory(h, pageEnd - 10, buf, sizeof buf, &got), 0);
  EXPECT_EQ(got, 10u);
  EXPECT_EQ(std::string(buf, 10), "0123456789");
  EXPECT_EQ(platform::ReadProcessMemory(h, pageEnd, buf, sizeof buf, &got), 0);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(platform::ReadProcessMemory(h, FakeGame::kHigh, buf, 4, &got), 1);
  EXPECT_EQ(std::string(buf, 4), "\x78\x56\x34\x12");
  // A range of many pages is read whole, however many pieces it is cut into.
  std::string low(pageEnd - FakeGame::kLow, '\0');
  EXPECT_EQ(platform::ReadProcessMemory(h, FakeGame::kLow, low.data(), low.size(), &got), 1);
  EXPECT_EQ(got, low.size());
  EXPECT_EQ(low.substr(low.size() - 10), "0123456789");
  for (uint64_t top : {~uint64_t(0), ~uint64_t(0) - 2}) {  // the range would wrap round
    EXPECT_EQ(platform::ReadProcessMemory(h, top, buf, sizeof buf, &got), 0);
    EXPECT_EQ(got, 0u);
  }
}

TEST_F(GameProcessTest, SixtyFourBitReadsReachAbove4GiBWithTheSameRules) {
  const uint64_t farEnd = FakeGame::kFar + uint64_t(::sysconf(_SC_PAGESIZE));
  struct Case {
    uint64_t address;
    Text string;
    int32_t number;
  } cases[] = {
      {FakeGame::k4GiB - 8, u"crosses 4 GiB", 0x736f7263},  // over the boundary
      {FakeGame::k4GiB + 0x100, u"!Ce\u2021", int32_t(0x87654321)},
      {FakeGame::kFar, u"\u00EF\u00BE\u00AD\u00DE", int32_t(0xDEADBEEF)},
      {FakeGame::kFar + 8, u"far above 4 GiB", 0x20726166},
      {farEnd - 4, u"tail", 0x6c696174},
      {farEnd - 2, u"il", 0x6c69},  // the bytes before the unmapped page
      {farEnd, u"", 0},
      {FakeGame::kLow + 0x220, u"Hello, game", 0x6c6c6548},  // below 4 GiB as well
      {FakeGame::kHigh, u"xV4\x12high half", 0x12345678},
      {uint64_t(-1) - 1, u"", 0},  // the top of the range, as a negative number
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.address);
    EXPECT_EQ(kvn->ReadStr64(handle, int64_t(c.address)), c.string);
    EXPECT_EQ(kvn->ReadLong64(handle, int64_t(c.address)), c.number);
  }
  // The 32-bit operations take the low half only: 4 GiB + 0x100 becomes 0x100, unmapped.
  EXPECT_EQ(kvn->ReadLong(handle, at(0x100)), 0);
}

TEST_F(GameProcessTest, AGamesOwnVariablesByName) {
  const Text game = T(this->game.fileName());
  int64_t score = kvn->GetSymbolAddress(handle, game, u"gameScore");
  int64_t title = kvn->GetSymbolAddress(handle, game, u"gameTitle");
  EXPECT_GT(uint64_t(score), 0xFFFFFFFFu);  // a position-independent program, above 4 GiB
  EXPECT_EQ(kvn->ReadLong64(handle, score), 4242);
  EXPECT_EQ(kvn->ReadStr64(handle, title), u"Stand-in Arena");
  EXPECT_EQ(kvn->GetSymbolAddress(handle, T(this->game.path()), u"gameScore"), score);
  EXPECT_EQ(kvn->GetSymbolAddress(handle, game, u"gameScor"), 0);
  EXPECT_EQ(kvn->GetSymbolAddress(0, game, u"gameScore"), 0);
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

namespace zrk::test {
namespace {

class ProcessIdentityTest : public LibraryTest {};

class StaleHandleTest : public LibraryTest, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    platform::setMemoryFileUse(GetParam());
    LibraryTest::SetUp();
  }
  void TearDown() override {
    LibraryTest::TearDown();
    platform::setMemoryFileUse(true);
  }
};
INSTANTIATE_TEST_SUITE_P(ByFileOrById, StaleHandleTest, testing::Bool());

TEST_P(StaleHandleTest, AHandleReadsNothingOnceItsProcessEndedAlsoAfterItsIdIsTakenAgain) {
  if (::geteuid() != 0) GTEST_SKIP() << "taking a chosen process id needs root";
  auto game = std::make_unique<FakeGame>();
  const pid_t pid = game->pid();
  int32_t stale = kvn->AttachToGame(pid);
  ASSERT_EQ(kvn->ReadLong(stale, at(FakeGame::kLow + 0x210)), 513);
  game.reset();  // ended and reaped: its id is free
  EXPECT_EQ(kvn->ReadLong(stale, at(FakeGame::kLow + 0x210)), 0);

  FakeGame successor(FakeGame::Options{.pid = pid});
  ASSERT_EQ(successor.pid(), pid) << "another process took the id first";
  int32_t fresh = kvn->AttachToGame(pid);
  EXPECT_EQ(kvn->ReadLong(fresh, at(FakeGame::kLow + 0x210)), 513);  // the same bytes are there
  EXPECT_EQ(kvn->ReadLong(stale, at(FakeGame::kLow + 0x210)), 0);
  EXPECT_EQ(kvn->ReadStr64(stale, int64_t(FakeGame::kFar + 8)), u"");
  EXPECT_EQ(kvn->GetModuleBase(stale, T(successor.fileName())), 0);
  EXPECT_NE(kvn->GetModuleBase(fresh, T(successor.fileName())), 0);
  EXPECT_TRUE(CloseGameHandle(stale));  // a stale handle is still the caller's to close
  EXPECT_TRUE(CloseGameHandle(fresh));
}

TEST_F(ProcessIdentityTest, AThreadIdOpensNothing) {
  std::atomic<pid_t> tid{0};
  std::atomic<bool> done{false};
  std::thread worker([&] {
    tid = ::gettid();
    while (!done)
      std::this_thread::yield();
  });
  while (!tid)
    std::this_thread::yield();
  size_t open = platform::HandleTable::instance().size();
  EXPECT_EQ(kvn->AttachToGame(tid), 0);
  EXPECT_FALSE(kvn->ProcessRunning(tid));
  int32_t own = kvn->AttachToGame(::getpid());  // the process the thread belongs to opens
  EXPECT_NE(own, 0);
  EXPECT_EQ(platform::HandleTable::instance().size(), open + 1);
  CloseGameHandle(own);
  done = true;
  worker.join();
}

}  // namespace
}  // namespace zrk::test
