// Log: the line format, the elapsed time in signed 32 bits, the restart above the size limit.
#include "platform/system/Clock.h"
#include "support/LoggedFailures.h"

namespace zrk::test {
namespace {

class MonitorLog : public ReportingTest {
 protected:
  void SetUp() override {
    ReportingTest::SetUp();
    setTick(1000);
  }
  void TearDown() override {
    platform::setTickSource(nullptr);
    ReportingTest::TearDown();
  }
  void setTick(uint32_t t) {
    platform::setTickSource([t] { return t; });
  }
  std::string logPath() const { return root / "dlls/Main Functions DLL/MonitorLog.txt"; }
};

TEST_F(MonitorLog, FirstCallMakesTheFileWithOneLine) {
  ASSERT_FALSE(kvn->MONITOR);
  EXPECT_EQ(kvn->Log(u"Func", u"Loc", u"Act"), 1000);
  EXPECT_EQ(readBytes(logPath()), "[Func][Loc][Act][0]\r\n");
  EXPECT_FALSE(exists(root / "MonitorLog.txt")) << "beside the library, not at the root";
}

TEST_F(MonitorLog, ElapsedTimeInSigned32Bits) {
  struct Case {
    uint32_t tick;
    std::optional<int32_t> eTime;
    int32_t result;
    const char* field;
  } cases[] = {
      {1000, std::nullopt, 1000, "0"},
      {1000, 0, 1000, "0"},
      {1000, -5, 1000, "0"},
      {1000, 1, 1000, "999"},
      {1000, 250, 1000, "750"},
      {1000, 1500, 1000, "-500"},
      {0x80000005u, std::nullopt, INT32_MIN + 5, "0"},
      {0xFFFFFFFFu, 1, -1, "-2"},
  };
  for (const auto& c : cases) {
    std::remove(logPath().c_str());
    setTick(c.tick);
    EXPECT_EQ(kvn->Log(u"", u"[x]", u"", c.eTime), c.result);
    EXPECT_EQ(readBytes(logPath()), std::string("[][[x]][][") + c.field + "]\r\n");
  }
  EXPECT_EQ(failureCount(), 0u);
}

TEST_F(MonitorLog, OverflowOfTheSubtractionIsReportedAndGivesZero) {
  setTick(0x80000000u);  // the most negative tick
  EXPECT_EQ(kvn->Log(u"f", u"l", u"a", INT32_MAX), 0);
  LoggedFailure f = onlyFailure();
  EXPECT_EQ(f.func, u"Log");
  EXPECT_EQ(f.failure.Number, 6);
  EXPECT_FALSE(exists(logPath()));
}

TEST_F(MonitorLog, RestartsOnlyAboveTheLimit) {
  for (size_t size : {size_t(100000), size_t(100001)}) {
    writeBytes(logPath(), std::string(size, 'x'));
    kvn->Log(u"f", u"l", u"a");
    std::string after = readBytes(logPath());
    if (size == 100000) {
      EXPECT_EQ(after, std::string(size, 'x') + "[f][l][a][0]\r\n") << "at the limit: appended";
    } else {
      EXPECT_EQ(after, "[f][l][a][0]\r\n") << "above the limit: started anew";
    }
  }
}

TEST_F(MonitorLog, LinesAccumulate) {
  int32_t start = kvn->Log(u"a", u"b", u"start");
  setTick(1042);
  std::vector<Variant> args{Variant(Text(u"a")), Variant(Text(u"b")), Variant(Text(u"end")),
                            Variant(start)};
  EXPECT_EQ(kvn->CallByName(u"Log", args), Variant(int32_t(1042)));
  EXPECT_EQ(readBytes(logPath()), "[a][b][start][0]\r\n[a][b][end][42]\r\n");
}

}  // namespace
}  // namespace zrk::test
