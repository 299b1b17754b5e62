// The failure path: the dialog text, the report setting, the bound on failure chains.
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "platform/desktop/EventPump.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

// What the stand-ins saw, and what the report stand-in answers.
struct Seen {
  int logs = 0;
  int reports = 0;
  bool reportAnswer = true;
  FailureInfo logged;
  Text loggedFunc;
  int32_t loggedLine = -1;
  Variant record;
};
Seen seen;

Variant fakeLog(clsKVN&, Dispatch::CallKind, std::vector<Variant>& a) {
  ++seen.logs;
  seen.loggedFunc = a.at(1).toText();
  seen.logged = failureFromObject(a.at(2));
  seen.loggedLine = a.at(3).toLong();
  return Variant();
}

Variant fakeReport(clsKVN&, Dispatch::CallKind, std::vector<Variant>& a) {
  ++seen.reports;
  seen.record = a.at(0);
  return Variant(seen.reportAnswer);
}

// A report that fails inside itself, as a trapping method does.
Variant failingReport(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  ++seen.reports;
  bool result = false;
  MethodFrame frame(u"SendErrorReport");
  frame.run([] { throw Failure(err::PathNotFound); });
  return Variant(result);
}

class FailureReport : public LibraryTest {
 protected:
  void SetUp() override {
    seen = Seen{};
    LibraryTest::SetUp();
  }
  void setReportErrors(const char16_t* value) {
    makeDir(root / "settings");
    kvn->WriteIniKey(u"Settings", u"ReportErrors", value, root.text("settings/config.ini"));
  }
  CallStandIn log_{u"LogError", fakeLog};
  CallStandIn report_{u"SendErrorReport", fakeReport};
};

TEST_F(FailureReport, DialogTextByteForByte) {
  mdlKVN::HandleFailure(u"ReadFileToString", {53, u"File not found [C:\\T\\a.txt]"}, 12);
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 1u);
  const auto& d = shown[0];
  EXPECT_EQ(d.text,
            u"Error Line: 12\r\nError 53: File not found [C:\\T\\a.txt]\r\nDLL: zrkKVL.dll\r\n"
            u"Function/Sub: ReadFileToString\r\n\r\nError Report Sent: No");
  EXPECT_EQ(d.title, u"DLL Error!");
  EXPECT_EQ(d.buttons, 0);
  EXPECT_EQ(seen.logs, 1);
  EXPECT_EQ(seen.reports, 0) << "config.ini is absent";
}

TEST_F(FailureReport, OnlyTheExactValueOneSendsAReport) {
  struct Case {
    const char16_t* value;
    bool answer;
    const char16_t* line;
  } cases[] = {
      {u"0", true, u"Error Report Sent: No"},    {u"2", true, u"Error Report Sent: No"},
      {u"true", true, u"Error Report Sent: No"}, {u"", true, u"Error Report Sent: No"},
      {u"1", true, u"Error Report Sent: Yes"},   {u"1", false, u"Error Report Sent: Failed!"},
  };
  for (const auto& c : cases) {
    setReportErrors(c.value);
    seen.reportAnswer = c.answer;
    size_t before = dialogs->shown().size();
    mdlKVN::HandleFailure(u"X", {5, u"Invalid procedure call or argument"}, 0);
    ASSERT_EQ(dialogs->shown().size(), before + 1);
    Text text = dialogs->shown().back().text;
    EXPECT_TRUE(text.ends_with(c.line)) << toUtf8(c.value) << " -> " << toUtf8(text);
    EXPECT_TRUE(text.starts_with(u"Error Line: 0\r\n"));
  }
  EXPECT_EQ(seen.reports, 2);
}

TEST_F(FailureReport, ReportRecordHoldsTheFailure) {
  setReportErrors(u"1");
  mdlKVN::HandleFailure(u"GetIniKey", {76, u"Path not found\r\nsecond line"}, 4);
  const VariantArray& r = seen.record.array();
  ASSERT_EQ(r.lowerBound, 0);
  ASSERT_EQ(r.upperBound(), 5);
  EXPECT_EQ(r.at(0), Variant(Text(u"76")));
  EXPECT_EQ(r.at(1), Variant(Text(u"Path not found\r\nsecond line")));
  EXPECT_EQ(r.at(2), Variant(Text(u"zrkKVL.dll 1.4.1")));
  EXPECT_EQ(r.at(3), Variant(Text(u"GetIniKey")));
  EXPECT_EQ(r.at(4), Variant(Text(u"False")));
  EXPECT_EQ(r.at(5), Variant(int32_t(4)));
  EXPECT_EQ(seen.logged.Description, u"Path not found\r\nsecond line");
  EXPECT_EQ(seen.loggedFunc, u"GetIniKey");
  EXPECT_EQ(seen.loggedLine, 4);
}

TEST_F(FailureReport, AFailingReportGetsItsOwnDialogThenFailed) {
  CallStandIn failing(u"SendErrorReport", failingReport);
  setReportErrors(u"1");
  mdlKVN::HandleFailure(u"Outer", {53, u"File not found"}, 1);
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 2u);
  EXPECT_EQ(shown[0].text,
            u"Error Line: 0\r\nError 76: Path not found\r\nDLL: zrkKVL.dll\r\n"
            u"Function/Sub: SendErrorReport\r\n\r\nError Report Sent: No");
  EXPECT_EQ(shown[0].title, u"DLL Error!");
  EXPECT_TRUE(shown[1].text.starts_with(u"Error Line: 1\r\nError 53: File not found\r\n"));
  EXPECT_TRUE(shown[1].text.ends_with(u"Error Report Sent: Failed!"));
  EXPECT_EQ(seen.reports, 1) << "the inner failure sends nothing";
  EXPECT_EQ(seen.logs, 2) << "both failures are logged once";
  EXPECT_EQ(mdlKVN::state().handlingDepth, 0);
}

// A report whose wait runs the host's events, as the real one does.
Variant pumpingReport(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  ++seen.reports;
  platform::processEvents();
  return Variant(true);
}

TEST_F(FailureReport, ACallArrivingThroughTheHostsEventsIsHandledInFull) {
  CallStandIn pumping(u"SendErrorReport", pumpingReport);
  setReportErrors(u"1");
  auto host = std::make_shared<WithHostEvents<platform::ScriptedDialogs>>();
  int arrived = 0;
  host->onEvents = [&] {
    if (arrived++ == 0) mdlKVN::HandleFailure(u"Inner", {5, u"Invalid procedure call"}, 3);
  };
  dialogs = host;
  platform::setDialogBackend(host);
  mdlKVN::HandleFailure(u"Outer", {53, u"File not found"}, 1);
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 2u);
  EXPECT_NE(shown[0].text.find(u"Function/Sub: Inner\r\n\r\nError Report Sent: Yes"), Text::npos)
      << "its own report, as a call of its own";
  EXPECT_NE(shown[1].text.find(u"Function/Sub: Outer\r\n\r\nError Report Sent: Yes"), Text::npos);
  EXPECT_EQ(seen.reports, 2);
  EXPECT_EQ(seen.logs, 2);
  EXPECT_EQ(mdlKVN::state().chain.depth, 0);
}

TEST_F(FailureReport, TrappedMethodReturnsItsEmptyResult) {
  Variant missing = kvn->ReadFile(root.text("missing.txt"));
  EXPECT_TRUE(missing.isArray()) << "a missing file is no failure";
  makeUnopenableFile(root / "sock.txt");
  Variant lines = kvn->ReadFile(root.text("sock.txt"));
  EXPECT_TRUE(lines.isEmpty());
  auto shown = dialogs->shown();
  ASSERT_EQ(shown.size(), 1u);
  Text expected = u"Error 75: Path/File access error [" + root.text("sock.txt") + u"]";
  EXPECT_NE(shown[0].text.find(expected), Text::npos) << toUtf8(shown[0].text);
}

TEST_F(FailureReport, AfterUnloadTheFailureReachesTheCaller) {
  kvn->Unload();
  makeUnopenableFile(root / "sock.txt");
  try {
    kvn->ReadFile(root.text("sock.txt"));
    FAIL() << "no failure";
  } catch (const Failure& f) {
    EXPECT_EQ(f.number(), err::ObjectNotSet);
  }
  EXPECT_EQ(seen.logs, 0);
  EXPECT_TRUE(dialogs->shown().empty());
}

}  // namespace
}  // namespace zrk::test
