// Tooltips (one window per call, owned by the form, 240 pixels wide at most) and help pages.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "core/mdlKVN.h"
#include "platform/desktop/DesktopDialogs.h"
#include "platform/desktop/Windows.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

using ToolTipTest = LibraryTest;
using HelpTest = LibraryTest;

std::vector<platform::ToolTipWindow> tipsOwnedBy(const platform::ScriptedDialogs& d, int32_t form) {
  std::vector<platform::ToolTipWindow> owned;
  for (const auto& t : d.toolTips()) {
    if (t.owner == form) owned.push_back(t);
  }
  return owned;
}

TEST_F(ToolTipTest, EachCallMakesOneTipWindowOwnedByTheForm) {
  struct Case {
    const char* what;
    int32_t form, control;
    Text text, shown;  // shown: the tip after its ANSI round trip
  };
  const Case cases[] = {
      {"plain", 9001, 77, u"Server port", u"Server port"},
      {"same control again", 9001, 77, u"Second tip", u"Second tip"},
      {"code page letters stay", 9002, 78, u"Caf\u00e9 \u20ac", u"Caf\u00e9 \u20ac"},
      {"outside the code page", 9002, 79, u"\u03a9 ok", u"? ok"},
      {"empty text", 9003, 80, u"", u""},
  };
  for (const Case& c : cases)
    kvn->CreateToolTip(c.form, 4242, c.control, c.text);

  auto tips = dialogs->toolTips();
  ASSERT_EQ(tips.size(), std::size(cases));
  for (size_t i = 0; i < tips.size(); ++i) {
    SCOPED_TRACE(cases[i].what);
    const platform::ToolTipWindow& t = tips[i];
    EXPECT_TRUE(platform::IsWindow(t.handle));
    EXPECT_EQ(t.owner, cases[i].form);
    EXPECT_EQ(t.instance, 4242);
    EXPECT_EQ(t.style, platform::TTS_ALWAYSTIP);
    EXPECT_EQ(t.maxTipWidth, 240);
    ASSERT_EQ(t.tools.size(), 1u);
    EXPECT_EQ(t.tools[0].flags, platform::TTF_IDISHWND | platform::TTF_SUBCLASS);
    EXPECT_EQ(t.tools[0].owner, 0);
    EXPECT_EQ(t.tools[0].id, cases[i].control);
    EXPECT_EQ(t.tools[0].text, cases[i].shown);
  }
  EXPECT_NE(tips[0].handle, tips[1].handle);
  EXPECT_TRUE(dialogs->shown().empty());

  // The tips go with their form, and only those.
  EXPECT_TRUE(platform::DestroyWindow(9001));
  EXPECT_FALSE(platform::IsWindow(tips[0].handle));
  EXPECT_FALSE(platform::IsWindow(tips[1].handle));
  EXPECT_TRUE(platform::IsWindow(tips[2].handle));
  EXPECT_TRUE(tipsOwnedBy(*dialogs, 9001).at(1).destroyed);
  EXPECT_FALSE(tipsOwnedBy(*dialogs, 9002).at(0).destroyed);
  EXPECT_FALSE(platform::DestroyWindow(9001));
  platform::DestroyWindow(9002);
  platform::DestroyWindow(9003);
}

TEST_F(ToolTipTest, AnswersByName) {
  std::vector<Variant> args{Variant(int32_t(7)), Variant(int32_t(8)), Variant(int32_t(9)),
                            Variant(Text(u"by name"))};
  kvn->CallByName(u"createTOOLTIP", args);
  auto tips = dialogs->toolTips();
  ASSERT_EQ(tips.size(), 1u);
  EXPECT_EQ(tips[0].owner, 7);
  EXPECT_EQ(tips[0].instance, 8);
  ASSERT_EQ(tips[0].tools.size(), 1u);
  EXPECT_EQ(tips[0].tools[0].id, 9);
  EXPECT_EQ(tips[0].tools[0].text, u"by name");
  platform::DestroyWindow(7);
}

TEST(ToolTipWindows, MessagesOnTheWindow) {
  int32_t tip = platform::CreateWindowExA(0, platform::kToolTipClass, nullptr, 1, 0, 0, 0, 0, 5, 0,
                                          6, nullptr);
  ASSERT_GT(tip, 0);
  EXPECT_EQ(platform::CreateWindowExA(0, "button", nullptr, 1, 0, 0, 0, 0, 5, 0, 6, nullptr), 0);
  // The width message gives the width before.
  EXPECT_EQ(platform::SendMessageA(tip, platform::TTM_SETMAXTIPWIDTH, 0, 240), -1);
  EXPECT_EQ(platform::SendMessageA(tip, platform::TTM_SETMAXTIPWIDTH, 0, 300), 240);

  Text wide = u"tip";
  platform::TOOLINFO info;
  info.cbSize = platform::kToolInfoSize;
  info.uFlags = 17;
  info.uId = 33;
  info.lpszText = wide.c_str();
  EXPECT_EQ(platform::SendMessageA(tip, platform::TTM_ADDTOOLW, 0, &info), 1);
  // Index 1 finds nothing with one tool and leaves the record alone; index 0 fills it.
  platform::TOOLINFO probe;
  probe.uId = -1;
  EXPECT_EQ(platform::SendMessageA(tip, platform::TTM_ENUMTOOLSW, 1, &probe), 0);
  EXPECT_EQ(probe.uId, -1);
  EXPECT_EQ(platform::SendMessageA(tip, platform::TTM_ENUMTOOLSW, 0, &probe), 1);
  EXPECT_EQ(probe.uId, 33);
  EXPECT_EQ(probe.uFlags, 17u);
  // The ANSI update finds the tool by its control.
  std::string bytes = "caf\xe9";
  info.lpszText = bytes.c_str();
  platform::SendMessageA(tip, platform::TTM_UPDATETIPTEXTA, 0, &info);
  EXPECT_EQ(platform::toolTipWindow(tip)->tools.at(0).text, u"caf\u00e9");
  info.uId = 34;
  info.lpszText = "other";
  platform::SendMessageA(tip, platform::TTM_UPDATETIPTEXTA, 0, &info);
  EXPECT_EQ(platform::toolTipWindow(tip)->tools.at(0).text, u"caf\u00e9");

  EXPECT_TRUE(platform::DestroyWindow(tip));
  EXPECT_EQ(platform::SendMessageA(tip, platform::TTM_SETMAXTIPWIDTH, 0, 1), 0);
}

// A backend that fails as soon as a tip window is made.
class FailingTips : public platform::ScriptedDialogs {
 public:
  void toolTipChanged(const platform::ToolTipWindow&) override { throw Failure(err::OutOfMemory); }
  void showHelp(TextView, TextView) override { throw Failure(err::FileNotFound); }
};

Variant noLog(clsKVN&, Dispatch::CallKind, std::vector<Variant>&) {
  return Variant();
}

TEST_F(ToolTipTest, FailureIsReportedUnderItsName) {
  CallStandIn log(u"LogError", noLog);
  auto failing = std::make_shared<FailingTips>();
  platform::setDialogBackend(failing);
  kvn->CreateToolTip(1, 2, 3, u"tip");
  auto shown = failing->shown();
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].title, u"DLL Error!");
  EXPECT_EQ(shown[0].text,
            u"Error Line: 1\r\nError 7: Out of memory\r\nDLL: zrkKVL.dll\r\n"
            u"Function/Sub: CreateToolTip\r\n\r\nError Report Sent: No");
}

TEST_F(HelpTest, OpensTheFileBelowTheRootAtThePage) {
  struct Case {
    Text file, page;
    Text wantFile, wantPage;
  };
  const Text root = mdlKVN::rootPath();
  const Case cases[] = {
      {u"help/zrk.chm", u"profiles.htm", root + u"/help/zrk.chm", u"profiles.htm"},
      // Nothing is normalised: a leading backslash gives two separators in a row.
      {u"\\zrk.chm", u"index.htm", root + u"/\\zrk.chm", u"index.htm"},
      // The page crosses as ANSI text.
      {u"zrk.chm", u"\u03a9 caf\u00e9.htm", root + u"/zrk.chm", u"? caf\u00e9.htm"},
      {u"", u"", root + u"/", u""},
  };
  for (const Case& c : cases)
    kvn->ShowHelp(c.file, c.page);
  auto help = dialogs->helpShown();
  ASSERT_EQ(help.size(), std::size(cases));
  for (size_t i = 0; i < help.size(); ++i) {
    EXPECT_EQ(help[i].file, cases[i].wantFile);
    EXPECT_EQ(help[i].topic, cases[i].wantPage);
  }
}

TEST_F(HelpTest, FailuresPassUnnoticed) {
  auto failing = std::make_shared<FailingTips>();
  platform::setDialogBackend(failing);
  EXPECT_NO_THROW(kvn->ShowHelp(u"zrk.chm", u"a.htm"));
  std::vector<Variant> args{Variant(Text(u"zrk.chm")), Variant(Text(u"a.htm"))};
  EXPECT_NO_THROW(kvn->CallByName(u"SHOWHELP", args));
  EXPECT_TRUE(failing->shown().empty());
}

TEST(HelpTarget, FindsThePageInAHelpFolderWithoutRegardToCase) {
  TempDir dir;
  makeDir(dir / "Help");
  writeBytes(dir / "Help/Index.htm", "<html></html>");
  writeBytes(dir / "zrk.chm", "ITSF");
  writeBytes(dir / "Guide 1.HTML", "<html></html>");
  struct Case {
    Text file, topic;
    std::string want;
  };
  const std::string url = "file://" + dir.path();
  const Case cases[] = {
      {dir.text("help"), u"index.htm", dir / "Help/Index.htm"},
      {dir.text("help"), u"index.htm#ports", url + "/Help/Index.htm#ports"},
      {dir.text("help"), u"missing.htm", dir / "Help"},
      {dir.text("help"), u"", dir / "Help"},
      // An HTML file opens at the topic's place in it.
      {dir.text("guide 1.html"), u"profiles", url + "/Guide%201.HTML#profiles"},
      {dir.text("Guide 1.HTML"), u"Server ports \u00e9",
       url + "/Guide%201.HTML#Server%20ports%20%C3%A9"},
      {dir.text("Guide 1.HTML"), u"", dir / "Guide 1.HTML"},
      {dir.text("zrk.chm"), u"index.htm", dir / "zrk.chm"},
      {dir.text("none.chm"), u"index.htm", ""},
  };
  for (const Case& c : cases)
    EXPECT_EQ(platform::helpTarget(c.file, c.topic), c.want);
}

TEST(DesktopHelp, APageOpensInTheBrowserAtItsTopic) {
  TempDir dir;
  makeDir(dir / "bin");
  writeBytes(dir / "bin/viewer",
             "#!/bin/sh\necho \"$@\" >\"$0.args.tmp\" && mv \"$0.args.tmp\" \"$0.args\"\n");
  ::chmod((dir / "bin/viewer").c_str(), 0755);
  writeBytes(dir / "guide.htm", "<html></html>");
  std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
  std::string browser = std::getenv("BROWSER") ? std::getenv("BROWSER") : "";
  ::setenv("PATH", (dir / "bin:" + path).c_str(), 1);
  ::setenv("BROWSER", "viewer", 1);
  platform::DesktopDialogs().showHelp(dir.text("guide.htm"), u"ports");
  for (int i = 0; i < 100 && !exists(dir / "bin/viewer.args"); ++i)
    ::usleep(50000);
  ::setenv("PATH", path.c_str(), 1);
  browser.empty() ? ::unsetenv("BROWSER") : ::setenv("BROWSER", browser.c_str(), 1);
  EXPECT_EQ(readBytes(dir / "bin/viewer.args"), "file://" + dir.path() + "/guide.htm#ports\n");
}

TEST(DesktopMessageBox, ButtonsAndAnswers) {
  using namespace platform;
  struct Case {
    int32_t code;
    std::vector<std::string> buttons;
    std::string icon;
  };
  const Case cases[] = {
      {mb::OKOnly, {"OK"}, ""},
      {mb::YesNo | mb::Question, {"Yes", "No"}, "dialog-question"},
      {mb::YesNoCancel | mb::Exclamation, {"Yes", "No", "Cancel"}, "dialog-warning"},
      {mb::AbortRetryIgnore | mb::Critical, {"Abort", "Retry", "Ignore"}, "dialog-error"},
      {mb::RetryCancel | mb::Information, {"Retry", "Cancel"}, "dialog-information"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.code);
    auto args = messageBoxArguments(u"a\r\nb", c.code, u"T");
    std::vector<std::string> buttons;
    std::string icon = "?", text;
    for (const auto& a : args) {
      if (a.rfind("--extra-button=", 0) == 0) buttons.push_back(a.substr(15));
      if (a.rfind("--icon-name=", 0) == 0) icon = a.substr(12);
      if (a.rfind("--text=", 0) == 0) text = a.substr(7);
    }
    EXPECT_EQ(buttons, c.buttons);
    EXPECT_EQ(icon, c.icon);
    EXPECT_EQ(text, "a\nb");
  }
  struct Answer {
    int32_t code;
    std::string printed;
    int32_t want;
  };
  const Answer answers[] = {
      {mb::YesNo, "No\n", mb::No},
      {mb::YesNo, "Yes\n", mb::Yes},
      {mb::YesNoCancel, "", mb::Cancel},
      {mb::YesNo, "", mb::No},
      {mb::OKOnly, "", mb::OK},
      {mb::AbortRetryIgnore, "Retry\n", mb::Retry},
      {mb::OKCancel, "OK\n", mb::OK},
      {mb::RetryCancel, "", mb::Cancel},
      // GTK's own messages share the stream; only a whole line names a button.
      {mb::YesNo, "Gtk-Message: mapped without a transient parent\nYes\n", mb::Yes},
      {mb::YesNo, "Gtk-Message: Yes\n", mb::No},
  };
  for (const Answer& a : answers) {
    EXPECT_EQ(messageBoxAnswer(a.code, a.printed), a.want) << a.code << " " << a.printed;
  }
}

TEST(DesktopBackend, NeedsADisplay) {
  const char* display = std::getenv("DISPLAY");
  std::string saved = display ? display : "";
  ::unsetenv("DISPLAY");
  EXPECT_FALSE(platform::DesktopDialogs::available());
  ::setenv("DISPLAY", "", 1);
  EXPECT_FALSE(platform::DesktopDialogs::available());
  if (display)
    ::setenv("DISPLAY", saved.c_str(), 1);
  else
    ::unsetenv("DISPLAY");
}

}  // namespace
}  // namespace zrk::test
