// The process list and the running test: both strategies, the id loop, the result list.
#include <unistd.h>

#include <cctype>
#include <climits>
#include <filesystem>
#include <functional>
#include <optional>

#include <zrkKVL/GameHandle.h>
#include "platform/process/ProcessList.h"
#include "platform/system/SystemInfo.h"
#include "process/ProcessEnumeration.h"
#include "support/FakeGame.h"

namespace zrk::test {
namespace {

std::string linkTarget(const std::string& link) {
  char buf[PATH_MAX];
  ssize_t n = ::readlink(link.c_str(), buf, sizeof buf);
  return n > 0 ? std::string(buf, size_t(n)) : "";
}

Text upper(const std::string& s) {
  std::string u = s;
  for (char& c : u)
    c = char(std::toupper(static_cast<unsigned char>(c)));
  return T(u);
}

std::vector<Text> names(const Variant& v) {
  std::vector<Text> out;
  for (const Variant& e : v.array().items)
    out.push_back(e.isEmpty() ? Text() : e.toText());
  return out;
}

struct Logged {
  Text func;
  int32_t number;
  int32_t line;
};
std::vector<Logged> gLogged;

Variant logErrorStandIn(clsKVN&, Dispatch::CallKind, std::vector<Variant>& args) {
  gLogged.push_back(
      {args.at(1).toText(), failureFromObject(args.at(2)).Number, args.at(3).toLong()});
  return Variant();
}

class ProcessListTest : public LibraryTest {
 protected:
  void TearDown() override {
    platform::setPlatformIdOverride(std::nullopt);
    platform::setEnumProcesses(nullptr);
    LibraryTest::TearDown();
  }
  void useStrategy(uint32_t id) { platform::setPlatformIdOverride(id); }

  FakeGame game;
  const std::string self = linkTarget("/proc/self/exe");
};

TEST_F(ProcessListTest, ModuleStrategyListsFullPathsWithNoEmptyElementBeforeAFilledOne) {
  Text none;
  for (Variant v : {kvn->GetRunningProcesses(), kvn->GetRunningProcesses(&none)}) {
    ASSERT_TRUE(v.isArray());
    EXPECT_EQ(v.array().lowerBound, 0);
    std::vector<Text> list = names(v);
    EXPECT_NE(std::find(list.begin(), list.end(), T(self)), list.end());
    EXPECT_NE(std::find(list.begin(), list.end(), T(game.path())), list.end());
    for (size_t i = 0; i + 1 < list.size(); ++i)
      EXPECT_FALSE(list[i].empty()) << i;
  }
}

TEST_F(ProcessListTest, SnapshotStrategyListsFileNames) {
  useStrategy(1);
  std::vector<Text> list = names(kvn->GetRunningProcesses());
  EXPECT_NE(std::find(list.begin(), list.end(), T(game.fileName())), list.end());
  EXPECT_EQ(std::find(list.begin(), list.end(), T(game.path())), list.end());
}

TEST_F(ProcessListTest, NamesMatchExactlyAsEachStrategyKnowsThem) {
  const Variant gamePid(int32_t(game.pid()));
  struct Case {
    uint32_t strategy;
    Text name;
    Variant expected;
  } cases[] = {
      {2, T(game.path()), gamePid},       {2, T(game.fileName()), Variant()},
      {2, upper(game.path()), Variant()}, {1, T(game.fileName()), gamePid},
      {1, T(game.path()), Variant()},     {1, upper(game.fileName()), Variant()},
      {0, T(game.path()), Variant()},     {0, T(game.fileName()), Variant()},
  };
  for (Case& c : cases) {
    useStrategy(c.strategy);
    Text name = c.name;
    EXPECT_EQ(kvn->GetRunningProcesses(&name), c.expected) << c.strategy << " " << toUtf8(c.name);
    EXPECT_EQ(name, c.name);
  }
}

TEST_F(ProcessListTest, AReplacedOrDeletedExecutableKeepsItsPath) {
  FakeGame removed;
  std::filesystem::copy_file(game.path(), game.path() + ".new");
  std::filesystem::rename(game.path() + ".new", game.path());  // an update put in place
  std::filesystem::remove(removed.path());
  ASSERT_NE(linkTarget("/proc/" + std::to_string(game.pid()) + "/exe"), game.path());
  for (const FakeGame* g : {&game, &removed}) {
    SCOPED_TRACE(g->path());
    useStrategy(2);
    Text path = T(g->path());
    EXPECT_EQ(kvn->GetRunningProcesses(&path), Variant(int32_t(g->pid())));
    std::vector<Text> list = names(kvn->GetRunningProcesses());
    EXPECT_NE(std::find(list.begin(), list.end(), path), list.end());
    useStrategy(1);
    Text file = T(g->fileName());
    EXPECT_EQ(kvn->GetRunningProcesses(&file), Variant(int32_t(g->pid())));
    int32_t h = kvn->AttachToGame(g->pid());
    EXPECT_NE(kvn->GetModuleBase(h, path), 0);
    CloseGameHandle(h);
  }
}

TEST_F(ProcessListTest, BothStrategiesFindTheTestItself) {
  useStrategy(2);
  Text path = T(self);
  Variant byPath = kvn->GetRunningProcesses(&path);
  ASSERT_FALSE(byPath.isEmpty());
  // Of several runs of the same binary the last one listed stands; each is one of ours.
  EXPECT_EQ(linkTarget("/proc/" + std::to_string(byPath.toLong()) + "/exe"), self);
  useStrategy(1);
  Text file = T(self.substr(self.rfind('/') + 1));
  Variant byFile = kvn->GetRunningProcesses(&file);
  ASSERT_FALSE(byFile.isEmpty());
  // Other runs of a binary of this name (parallel test processes) may start or end between the
  // two lookups: the answer is a process of this file name, or one that has ended since.
  std::string exe = linkTarget("/proc/" + std::to_string(byFile.toLong()) + "/exe");
  if (!exe.empty()) {
    EXPECT_EQ(exe.substr(exe.rfind('/') + 1), self.substr(self.rfind('/') + 1));
  }
}

TEST_F(ProcessListTest, ProcessRunningByEitherStrategy) {
  FakeGame ended;
  pid_t endedPid = ended.pid();
  ended.stop();
  size_t open = platform::HandleTable::instance().size();
  for (uint32_t strategy : {1u, 2u}) {
    useStrategy(strategy);
    EXPECT_TRUE(kvn->ProcessRunning(game.pid())) << strategy;
    EXPECT_TRUE(kvn->ProcessRunning(::getpid())) << strategy;
    EXPECT_FALSE(kvn->ProcessRunning(endedPid)) << strategy;
    EXPECT_FALSE(kvn->ProcessRunning(0)) << strategy;
  }
  useStrategy(0);
  EXPECT_FALSE(kvn->ProcessRunning(game.pid()));
  EXPECT_EQ(names(kvn->GetRunningProcesses()), std::vector<Text>{Text()});
  EXPECT_EQ(platform::HandleTable::instance().size(), open);  // every handle closed again
}

TEST_F(ProcessListTest, IdBufferDoublesUntilACallLeavesRoom) {
  struct Case {
    int tableSize;  // -1: the call fails and fills nothing
    std::vector<uint32_t> sizes;
    size_t ids;
  } cases[] = {
      {3, {16}, 3},
      {4, {16, 32}, 4},
      {8, {16, 32, 64}, 8},
      {24, {16, 32, 64, 128}, 24},
      {0, {16}, 0},
      {-1, {16, 32, 64, 128}, 24},
      {40, {16, 32, 64, 128, 256}, 40},
  };
  for (const Case& c : cases) {
    std::vector<uint32_t> sizes;
    platform::setEnumProcesses([&](uint32_t* ids, uint32_t cb, uint32_t& needed) -> int32_t {
      sizes.push_back(cb);
      if (c.tableSize < 0) return 0;
      uint32_t n = std::min<uint32_t>(uint32_t(c.tableSize), cb / 4);
      for (uint32_t i = 0; i < n; ++i)
        ids[i] = 1000 + i;
      needed = n * 4;
      return 1;
    });
    std::vector<uint32_t> ids = process::runningProcessIds();
    EXPECT_EQ(sizes, c.sizes) << c.tableSize;
    ASSERT_EQ(ids.size(), c.ids) << c.tableSize;
    for (size_t i = 0; i < ids.size(); ++i) {
      EXPECT_EQ(ids[i], c.tableSize < 0 ? 0u : 1000 + i) << c.tableSize;
    }
  }
}

TEST_F(ProcessListTest, FailuresAreReportedUnderTheOperationsName) {
  CallStandIn logError(u"LogError", logErrorStandIn);
  gLogged.clear();
  platform::setEnumProcesses(
      [](uint32_t*, uint32_t, uint32_t&) -> int32_t { throw Failure(err::OutOfMemory); });
  EXPECT_TRUE(kvn->GetRunningProcesses().isEmpty());
  Text name = T(game.path());
  EXPECT_TRUE(kvn->GetRunningProcesses(&name).isEmpty());
  EXPECT_FALSE(kvn->ProcessRunning(game.pid()));
  ASSERT_EQ(gLogged.size(), 3u);
  EXPECT_EQ(gLogged[0].func, u"GetRunningProcesses");
  EXPECT_EQ(gLogged[0].number, err::OutOfMemory);
  EXPECT_EQ(gLogged[0].line, 2);
  EXPECT_EQ(gLogged[2].func, u"ProcessRunning");
  EXPECT_EQ(gLogged[2].line, 1);
  EXPECT_EQ(dialogs->shown().size(), 3u);
}

TEST(ResultList, EmptyLastElementIsOverwrittenOthersGrowTheList) {
  struct Case {
    std::vector<Text> names;
    std::vector<Text> expected;
  } cases[] = {
      {{}, {u""}},
      {{u"a"}, {u"a"}},
      {{u""}, {u""}},
      {{u"a", u"b"}, {u"a", u"b"}},
      {{u"a", u""}, {u"a", u""}},
      {{u"a", u"", u"b"}, {u"a", u"b"}},
      {{u"a", u"a"}, {u"a", u"a"}},  // no removal of doubles
  };
  for (const Case& c : cases) {
    VariantArray list;
    list.items.assign(1, Variant());
    for (const Text& n : c.names)
      process::appendToResultList(list, n);
    EXPECT_EQ(names(Variant(list)), c.expected) << c.names.size();
    EXPECT_EQ(list.lowerBound, 0);
  }
}

TEST(PlatformProcessList, EnumProcessesFillsAtMostTheBufferAndSaysHowMuch) {
  std::vector<uint32_t> ids(4096);
  uint32_t needed = 0;
  ASSERT_NE(platform::EnumProcesses(ids.data(), 4096 * 4, needed), 0);
  ASSERT_LT(needed, 4096u * 4);
  ids.resize(needed / 4);
  EXPECT_NE(std::find(ids.begin(), ids.end(), uint32_t(::getpid())), ids.end());
  uint32_t small[2] = {};
  ASSERT_NE(platform::EnumProcesses(small, 8, needed), 0);
  EXPECT_EQ(needed, 8u);
}

// While a reading lives, every call is served from the one picture it took at the first call, as
// the growing calls of one caller need; once it is gone, each call reads /proc anew.
TEST(PlatformProcessList, OneReadingServesEveryCallWhileItLives) {
  auto listed = [](uint32_t cb) {
    std::vector<uint32_t> ids(cb / 4);
    uint32_t needed = 0;
    EXPECT_NE(platform::EnumProcesses(ids.data(), cb, needed), 0);
    ids.resize(needed / 4);
    return ids;
  };
  auto lists = [](const std::vector<uint32_t>& ids, pid_t pid) {
    return std::find(ids.begin(), ids.end(), uint32_t(pid)) != ids.end();
  };
  std::optional<FakeGame> started;
  {
    platform::ProcessTableReading reading;
    const std::vector<uint32_t> first = listed(16384);
    ASSERT_TRUE(lists(first, ::getpid()));
    started.emplace();
    EXPECT_EQ(listed(16384), first);
    EXPECT_EQ(listed(8), std::vector<uint32_t>(first.begin(), first.begin() + 2));
    EXPECT_FALSE(lists(listed(32768), started->pid()));
  }
  EXPECT_TRUE(lists(listed(16384), started->pid()));
}

}  // namespace
}  // namespace zrk::test
