// The error report against a real HTTP server on loopback: the request byte for byte, the
// answers, the bounded wait, and the failure path that sends it.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "DiagnosticsFixture.h"
#include "HttpTestServer.h"
#include "core/MethodFrame.h"
#include "diagnostics/ErrorReport.h"
#include "diagnostics/frmKVL.h"
#include "platform/loader/SharedLibrary.h"
#include "platform/net/WebTransfer.h"

namespace zrk::test {
namespace {

const std::string kSep = "|*|*|";

Variant repDat(int32_t upperBound = 5) {
  VariantArray a;
  a.items = {Variant(Text(u"53")),
             Variant(Text(u"File not found [a&b+c%d \u00e9.txt]")),
             Variant(Text(u"zrkKVL.dll 1.4.1")),
             Variant(Text(u"ReadFileToString")),
             Variant(Text(u"False")),
             Variant(int32_t(12))};
  a.items.resize(size_t(upperBound + 1));
  return Variant(std::move(a));
}

size_t count(const std::string& s, const std::string& what) {
  size_t n = 0;
  for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + what.size()))
    ++n;
  return n;
}

class ReportTest : public DiagnosticsTest {
 protected:
  void SetUp() override {
    DiagnosticsTest::SetUp();
    mdlKVN::state().SystemInfoStr = u"Testix[zorv]Card\r\n0A-FFFF8086";
    mdlKVN::state().systemInfoDue = false;
    writeBytes(root / "a.dll", "x");
    writeBytes(root / "B.DLL", "x");
    makeDir(root / "plugins");
    writeBytes(root / "plugins/p.dll", "x");
    writeBytes(root / "plugins/Q.Dll", "x");
    kvn->ProfileCount = 3;
    kvn->ActiveProfiles = 2;
  }
  void TearDown() override {
    platform::setSleeper({});
    ::unsetenv("ZRKKVL_REPORT_HOST");
    DiagnosticsTest::TearDown();
  }

  void useHost(const std::string& host) { ::setenv("ZRKKVL_REPORT_HOST", host.c_str(), 1); }
  void useDeadHost() { useHost("127.0.0.1:" + std::to_string(HttpTestServer::deadPort())); }
  // Sleeps become counted ticks that take no time.
  void fakeSleep() {
    platform::setSleeper([this](uint32_t ms) {
      ++sleeps;
      if (ms != 10) ++otherSleeps;
    });
  }
  bool send(Variant rep = repDat()) { return kvn->SendErrorReport(rep); }
  void reportErrors(const std::string& value) {
    makeDir(root / "settings");
    writeBytes(root / "settings/config.ini", "[Settings]\r\nReportErrors=" + value + "\r\n");
  }
  Text lastDialog() {
    auto shown = dialogs->shown();
    return shown.empty() ? Text() : shown.back().text;
  }

  int sleeps = 0, otherSleeps = 0;
};

TEST_F(ReportTest, PostsTheRecordExactly) {
  HttpTestServer server({"true"});
  useHost(server.host());
  EXPECT_TRUE(send());
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].requestLine, "POST /zorvdev/ErrorReports.php HTTP/1.1");
  EXPECT_NE(requests[0].headers.find("\r\nContent-Type: application/x-www-form-urlencoded\r\n"),
            std::string::npos);
  EXPECT_EQ(requests[0].headers.find("Expect:"), std::string::npos);
  EXPECT_EQ(requests[0].body, "Report=2026-03-04" + kSep + "05:06:07" + kSep + "zrkKVL.dll 1.4.1" +
                                  kSep + "ReadFileToString" + kSep + "12" + kSep + "53" + kSep +
                                  "File not found [a&b+c%d \xe9.txt]" + kSep +
                                  "Testix[zorv]Card\r\n0A-FFFF8086[zorv]" + kSep + "1" + kSep +
                                  "False" + kSep +
                                  "/usr/sbin/initd|/usr/bin/bashx||a.dll |\\Plugins\\p.dll " +
                                  kSep + "3" + kSep + "2" + kSep + "2026-03-04 05:06:07" + kSep);
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(ReportTest, RecordWithoutLineOrProcesses) {
  HttpTestServer server({"1"});
  useHost(server.host());
  gProcesses = Variant::textArray({u"/usr/sbin/initd"});
  EXPECT_TRUE(send(repDat(4)));
  std::string body = server.requests().at(0).body;
  EXPECT_EQ(count(body, kSep), 14u);
  EXPECT_NE(body.find("ReadFileToString" + kSep + kSep + "53"), std::string::npos);
  EXPECT_NE(body.find(kSep + "||a.dll |\\Plugins\\p.dll " + kSep), std::string::npos);
}

TEST_F(ReportTest, SharedObjectPluginsWithTheirVersions) {
  // The built library records the name it is linked under: libzrkKVL.so.1.
  std::string library = readBytes(ZRK_LIBRARY_FILE);
  struct Case {
    const char* file;
    std::string bytes;
    const char* entry;  // nullptr: not listed
  } cases[] = {
      {"libstats.so", library, "|\\Plugins\\libstats.so 1"},
      {"libmaps.so.2.5.1", "no ELF", "|\\Plugins\\libmaps.so.2.5.1 2.5.1"},
      {"libplain.so", "no ELF", "|\\Plugins\\libplain.so "},
      {"libcut.so", library.substr(0, 200), "|\\Plugins\\libcut.so "},
      {"libUPPER.SO", library, nullptr},
      {"notes.so.txt", "x", nullptr},
      {"libodd.so.2a", "x", nullptr},
      {"libdots.so..1", "x", nullptr},
      {"libtail.so.1.", "x", nullptr},
      {".so", "x", nullptr},
  };
  for (const auto& c : cases)
    writeBytes(root / ("plugins/" + std::string(c.file)), c.bytes);
  std::string list = ansi(diagnostics::libraryFileList(root.text()));
  EXPECT_EQ(list.substr(0, 6), "|a.dll") << "the root lists library files only";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    std::string listed = "|\\Plugins\\" + std::string(c.file) + " ";
    if (c.entry) {
      size_t at = list.find(c.entry);
      ASSERT_NE(at, std::string::npos) << list;
      size_t end = at + std::strlen(c.entry);
      EXPECT_TRUE(end == list.size() || list[end] == '|') << list;
    } else {
      EXPECT_EQ(list.find(listed), std::string::npos) << list;
    }
  }
  EXPECT_NE(list.find("|\\Plugins\\p.dll "), std::string::npos);
  EXPECT_EQ(list.find('/'), std::string::npos) << "no entry holds the platform's separator";
}

TEST_F(ReportTest, AnswersConvertToBoolean) {
  std::string longOne(249, '0');
  longOne += "1";  // numeric 1 only when all parts arrive, in order
  struct Case {
    std::vector<std::string> parts;
    bool result;
    bool failure13;
  } cases[] = {
      {{"true"}, true, false},
      {{"FaLsE"}, false, false},
      {{"0"}, false, false},
      {{"-1"}, true, false},
      {{longOne.substr(0, 70), longOne.substr(70, 110), longOne.substr(180)}, true, false},
      {{"bad word"}, false, true},
      {{""}, false, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.parts.front());
    size_t dialogsBefore = dialogs->shown().size();
    HttpTestServer server(c.parts);
    useHost(server.host());
    EXPECT_EQ(send(), c.result);
    std::string whole;
    for (const auto& p : c.parts)
      whole += p;
    EXPECT_EQ(toUtf8(diagnostics::KVL().ResponseResult), whole);
    EXPECT_TRUE(diagnostics::KVL().ResponseRecieved);
    ASSERT_EQ(dialogs->shown().size(), dialogsBefore + (c.failure13 ? 1 : 0));
    if (c.failure13) {
      EXPECT_EQ(lastDialog(),
                u"Error Line: 12\r\nError 13: Type mismatch\r\nDLL: zrkKVL.dll\r\n"
                u"Function/Sub: SendErrorReport\r\n\r\nError Report Sent: No");
    }
  }
}

TEST_F(ReportTest, SilentServerEndsAfterTheWholeWait) {
  auto server = HttpTestServer::silent();
  useHost(server->host());
  fakeSleep();
  EXPECT_FALSE(send());
  EXPECT_EQ(sleeps, 5001);  // 5000 while executing, one more testing the flag
  EXPECT_EQ(otherSleeps, 0);
  EXPECT_EQ(server->requests().size(), 1u);
  EXPECT_NE(lastDialog().find(u"Error 13: Type mismatch"), Text::npos);
}

TEST_F(ReportTest, RefusedRequestUsesUpTheWait) {
  useDeadHost();
  fakeSleep();
  EXPECT_FALSE(send());
  EXPECT_EQ(sleeps, 5000);
  EXPECT_FALSE(diagnostics::KVL().ResponseRecieved);
}

// The wait ends after its time as well as after its ticks, however few ticks have passed.
TEST_F(ReportTest, WaitEndsAfterFiftySecondsOfTime) {
  auto server = HttpTestServer::silent();
  useHost(server->host());
  fakeSleep();
  uint32_t now = 7000;
  platform::setTickSource([&now] { return now += 1000; });  // each look at the clock: 1 s later
  EXPECT_FALSE(send());
  platform::setTickSource({});
  EXPECT_EQ(sleeps, 51);  // 50 while executing, one more testing the flag
  EXPECT_NE(lastDialog().find(u"Error 13: Type mismatch"), Text::npos);
}

// An answer that never ends is read only up to the control's limit: the report fails as for an
// answer it cannot use, at once, also when an earlier exchange left a good answer behind.
TEST_F(ReportTest, EndlessAnswerIsCutAndFails) {
  {
    HttpTestServer server({"true"});
    useHost(server.host());
    EXPECT_TRUE(send());
  }
  auto flood = HttpTestServer::flood(size_t(64) << 20);
  useHost(flood->host());
  fakeSleep();
  EXPECT_FALSE(send());
  EXPECT_LT(sleeps, 5000);  // ended by the cut, not by the wait
  EXPECT_NE(lastDialog().find(u"Error Line: 12\r\nError 13: Type mismatch"), Text::npos);
  EXPECT_EQ(diagnostics::KVL().ResponseResult, u"true");
  EXPECT_FALSE(diagnostics::KVL().ResponseRecieved);
  EXPECT_LT(flood->floodSent(), size_t(16) << 20);  // the client hung up long before the end
}

// The largest answer kept still counts; one character more is cut.
TEST_F(ReportTest, AnswerAtTheLimit) {
  const size_t limit = platform::WebTransfer::kAnswerLimit;
  for (size_t length : {limit, limit + 1}) {
    SCOPED_TRACE(length);
    HttpTestServer server({std::string(length - 1, '0') + "1"});
    useHost(server.host());
    EXPECT_EQ(send(), length == limit);
  }
}

// Without libcurl the control cannot be made: at once, unseen, unlogged, the report fails; the
// failure that sent it says so in its own dialog.
TEST_F(ReportTest, MissingTransferLibraryIsAControlThatCannotBeMade) {
  HttpTestServer server({"true"});
  useHost(server.host());
  reportErrors("1");
  platform::overrideLibraryFile(platform::kTransferLibrary, "libcurl-missing.so.4");
  fakeSleep();
  bool sent = send();
  makeUnopenableFile(root / "a.txt");
  EXPECT_TRUE(kvn->ReadFile(root.text("a.txt")).isEmpty());
  platform::overrideLibraryFile(platform::kTransferLibrary, "");
  EXPECT_FALSE(sent);
  EXPECT_EQ(sleeps, 0) << "no wait";
  EXPECT_TRUE(server.requests().empty());
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 1u) << "only the dialog of the failure that sent the report";
  EXPECT_NE(shown[0].text.find(u"Function/Sub: ReadFile\r\n\r\nError Report Sent: Failed!"),
            Text::npos);
  std::string log = errorLog();
  EXPECT_EQ(count(log, "ReadFile"), 1u) << log;
  EXPECT_EQ(log.find("SendErrorReport"), std::string::npos) << log;
}

// A host's timer goes on while a report's answer takes two seconds, and a call its timer makes
// that fails is a call of its own: logged, reported through a transfer of its own beside the one
// under way, and shown in its own dialog; the first report still gets its answer.
TEST_F(ReportTest, HostEventsRunDuringTheWait) {
  auto server = HttpTestServer::delayed("true", 2000);
  useHost(server->host());
  reportErrors("1");
  makeUnopenableFile(root / "timer.txt");
  auto host = std::make_shared<WithHostEvents<platform::ScriptedDialogs>>();
  dialogs = host;
  platform::setDialogBackend(host);
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  Clock::time_point nextTick = start + std::chrono::milliseconds(100);
  int ticks = 0;
  bool called = false;
  host->onEvents = [&] {
    if (Clock::now() < nextTick) return;
    ++ticks;
    nextTick += std::chrono::milliseconds(100);
    if (ticks == 3 && !called) {
      called = true;
      EXPECT_TRUE(kvn->ReadFile(root.text("timer.txt")).isEmpty());
    }
  };
  EXPECT_TRUE(send());
  auto waited = Clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(2000));
  EXPECT_TRUE(called);
  EXPECT_GE(ticks, 18) << "the timer fired all through the wait";
  auto requests = server->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_NE(requests[0].body.find(kSep + "ReadFileToString" + kSep), std::string::npos);
  EXPECT_NE(requests[1].body.find(kSep + "ReadFile" + kSep), std::string::npos);
  auto shown = host->shown();
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_NE(shown[0].text.find(u"Function/Sub: ReadFile\r\n\r\nError Report Sent: Yes"),
            Text::npos);
  EXPECT_NE(errorLog().find("timer.txt"), std::string::npos);
  EXPECT_EQ(diagnostics::KVL().ResponseResult, u"true");
  EXPECT_FALSE(diagnostics::KVL().held);
}

TEST_F(ReportTest, EarlierAnswerStandsWhenNoneComes) {
  {
    HttpTestServer server({"true"});
    useHost(server.host());
    EXPECT_TRUE(send());
  }
  auto silent = HttpTestServer::silent();
  useHost(silent->host());
  fakeSleep();
  EXPECT_TRUE(send());
  EXPECT_TRUE(dialogs->shown().empty());
}

TEST_F(ReportTest, FailuresBeforeSendingAreReported) {
  HttpTestServer server({"true"});
  useHost(server.host());
  EXPECT_FALSE(send(repDat(3)));  // no index 4
  EXPECT_NE(lastDialog().find(u"Error Line: 3\r\nError 9: Subscript out of range"), Text::npos);
  EXPECT_FALSE(send(Variant(Text(u"not an array"))));
  EXPECT_NE(lastDialog().find(u"Error Line: 2\r\nError 13: "), Text::npos);
  std::filesystem::remove_all(root / "plugins");
  EXPECT_FALSE(send());
  EXPECT_NE(lastDialog().find(u"Error Line: 4\r\nError 76: Path not found"), Text::npos);
  EXPECT_TRUE(server.requests().empty());
  EXPECT_EQ(count(errorLog(), "Function: SendErrorReport\r\n"), 3u);
}

Variant cantCreate(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  throw Failure(err::CantCreateObject);
}

TEST_F(ReportTest, ComponentFailureIsNeverReported) {
  CallStandIn failing(u"GetRunningProcesses", cantCreate);
  useDeadHost();
  EXPECT_FALSE(send());
  EXPECT_TRUE(dialogs->shown().empty());
  EXPECT_FALSE(exists(root / "ErrorLog.txt"));
}

// A trapping method that fails at line 7 and returns its empty result.
Text probe() {
  Text result;
  MethodFrame frame(u"Probe");
  frame.run([&] {
    frame.line(7);
    throw Failure(53, u"gone");
  });
  return result;
}

TEST_F(ReportTest, TrappedFailureWithDeadServer) {
  reportErrors("1");
  useDeadHost();
  fakeSleep();
  EXPECT_EQ(probe(), u"");
  // The report's own failure first, with its own dialog, then the first one's.
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 2u);
  EXPECT_EQ(shown[0].text,
            u"Error Line: 12\r\nError 13: Type mismatch\r\nDLL: zrkKVL.dll\r\n"
            u"Function/Sub: SendErrorReport\r\n\r\nError Report Sent: No");
  EXPECT_EQ(shown[1].title, u"DLL Error!");
  EXPECT_EQ(shown[1].buttons, 0);
  EXPECT_EQ(shown[1].text,
            u"Error Line: 7\r\nError 53: gone\r\nDLL: zrkKVL.dll\r\nFunction/Sub: Probe\r\n\r\n"
            u"Error Report Sent: Failed!");
  // One record for the failure, one for the report that could not be completed.
  std::string log = errorLog();
  EXPECT_EQ(count(log, "Error Start"), 2u);
  size_t first = log.find("Function: Probe\r\nError Line: 7\r\nError No.: 53\r\n");
  size_t second = log.find("Function: SendErrorReport\r\nError Line: 12\r\nError No.: 13\r\n");
  ASSERT_NE(first, std::string::npos);
  ASSERT_NE(second, std::string::npos);
  EXPECT_LT(first, second);
}

TEST_F(ReportTest, TrappedFailureSendsTheMainObjectsReport) {
  reportErrors("1");
  HttpTestServer server({"True"});
  useHost(server.host());
  probe();
  EXPECT_EQ(dialogs->shown().at(0).text.substr(dialogs->shown().at(0).text.rfind(u"\r\n") + 2),
            u"Error Report Sent: Yes");
  std::string body = server.requests().at(0).body;
  EXPECT_NE(body.find(kSep + "zrkKVL.dll 1.4.1" + kSep + "Probe" + kSep + "7" + kSep + "53" + kSep +
                      "gone" + kSep),
            std::string::npos);
  // The main object's counters, not the caller's instance's.
  EXPECT_NE(body.find(kSep + "0" + kSep + "0" + kSep + "2026-03-04 05:06:07" + kSep),
            std::string::npos);
  EXPECT_EQ(count(errorLog(), "Error Start"), 1u);
}

TEST_F(ReportTest, ReportOnlyForTheExactSetting) {
  HttpTestServer server({"true"});
  useHost(server.host());
  for (std::string value : {"0", "2", "true", "", " 1x"}) {
    SCOPED_TRACE(value);
    reportErrors(value);
    probe();
    EXPECT_EQ(lastDialog().substr(lastDialog().rfind(u"\r\n") + 2), u"Error Report Sent: No");
  }
  std::filesystem::remove_all(root / "settings");
  probe();
  EXPECT_EQ(lastDialog().substr(lastDialog().rfind(u"\r\n") + 2), u"Error Report Sent: No");
  EXPECT_TRUE(server.requests().empty());
  EXPECT_EQ(count(errorLog(), "Error Start"), 6u);
}

// The process list itself fails, through its own frame.
Variant failingProcesses(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  ++gProcessCalls;
  MethodFrame frame(u"GetRunningProcesses");
  frame.run([&] {
    frame.line(2);
    throw Failure(err::DeviceIOError);
  });
  return Variant();
}

TEST_F(ReportTest, FailureInsideTheProcessDumpDoesNotRecurse) {
  CallStandIn failing(u"GetRunningProcesses", failingProcesses);
  probe();
  EXPECT_EQ(gProcessCalls, 1);
  // The process list's failure is shown, but not logged inside the record it interrupted.
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 2u);
  EXPECT_NE(shown[0].text.find(u"Function/Sub: GetRunningProcesses"), Text::npos);
  EXPECT_NE(shown[1].text.find(u"Function/Sub: Probe"), Text::npos);
  std::string log = errorLog();
  EXPECT_EQ(count(log, "Error Start"), 1u);
  EXPECT_NE(log.find("Function: Probe\r\n"), std::string::npos);
  EXPECT_EQ(log.find("System Dump:"), std::string::npos);
}

}  // namespace
}  // namespace zrk::test
