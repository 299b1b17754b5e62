// The update warning: the form loaded at start-up, the window's text across calls and closes,
// and its place on the screen.
#include <gtest/gtest.h>

#include "core/mdlKVN.h"
#include "support/TestSupport.h"
#include "ui/frmUpdWarn.h"

namespace zrk::test {
namespace {

const Text kOpening =
    u"Some of the ZRKV3 files need to be updated!\r\n"
    u"\r\n"
    u"If the following files are not updated, then you may experience problems \r\n"
    u"with these files and other files that rely on them.\r\n"
    u"\r\n"
    u"Files:";

const Text kHowTo =
    u"To Update the ZRK's Core Compnents, click on the \"Updates\" Tab, then click the "
    u"\"Update ZRK\"button to check for updates. Once the ZRK has found updates, click the "
    u"\"Get Updates\" button to download the updates, then restart the ZRK to install them.\r\n"
    u"\r\n"
    u"To Update the ZRK's Plugins, click on the \"Plugins\" Tab, then click the "
    u"\"Check Plugins\"button to check for updates. Once the ZRK has found updates, click the "
    u"\"Get Updates\" button to download the updates, then restart the ZRK to install them.";

using UpdateWarningTest = LibraryTest;

TEST_F(UpdateWarningTest, StartUpLoadsTheFormHidden) {
  auto form = mdlKVN::state().UpdWarn;
  ASSERT_TRUE(form);
  EXPECT_TRUE(form->Loaded());
  EXPECT_FALSE(form->Visible());
  EXPECT_TRUE(dialogs->windows().empty());
  EXPECT_EQ(form->HowToStr(), kHowTo);
  EXPECT_EQ(form->txtInfo(), kOpening);
}

TEST_F(UpdateWarningTest, TextGrowsWhileOpenAndStartsAfreshAfterClose) {
  struct Step {
    const char* what;
    bool closeFirst;
    Text fNames;
    size_t window;  // the window record that shows the text
    Text text;
  };
  const Text one = kOpening + u"\r\nzrkKVL.dll\r\nzrkProfiles.dll\r\n\r\n" + kHowTo;
  const Text two = one + u"\r\nplugins\\stats.dll\r\n\r\n" + kHowTo;
  const Step steps[] = {
      {"first call", false, u"zrkKVL.dll\r\nzrkProfiles.dll", 0, one},
      {"second call while open", false, u"plugins\\stats.dll", 0, two},
      {"call after close", true, u"mods.ini", 1, kOpening + u"\r\nmods.ini\r\n\r\n" + kHowTo},
      {"empty names", true, u"", 2, kOpening + u"\r\n\r\n\r\n" + kHowTo},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    if (step.closeFirst) dialogs->closeWindow(dialogs->windows().size() - 1);
    kvn->UpdateWarning(step.fNames);
    auto windows = dialogs->windows();
    ASSERT_EQ(windows.size(), step.window + 1);
    EXPECT_EQ(windows[step.window].text, step.text);
    EXPECT_TRUE(windows[step.window].open);
    EXPECT_EQ(windows[step.window].layout.caption, u"WARNING!");
  }
  // A closed window keeps what it showed when it went.
  EXPECT_EQ(dialogs->windows()[0].text, two);
  EXPECT_FALSE(dialogs->windows()[0].open);
}

TEST_F(UpdateWarningTest, FormStandsInTheTopRightCorner) {
  // A wide screen, one just wider than the form, and one narrower (the left goes negative).
  for (int32_t screen : {19200, ui::frmUpdWarn::Width + 150, 4000}) {
    SCOPED_TRACE(screen);
    dialogs->setScreenWidthTwips(screen);
    mdlKVN::state().UpdWarn = std::make_shared<ui::frmUpdWarn>();
    kvn->UpdateWarning(u"a.dll");
    platform::FormLayout l = dialogs->windows().back().layout;
    EXPECT_EQ(l.top, 100);
    EXPECT_EQ(l.left, screen - l.width - 100);
    EXPECT_EQ(l.width, ui::frmUpdWarn::Width);
    EXPECT_GE(l.width, l.clientWidth);
    EXPECT_EQ(l.clientWidth, 6495);
    EXPECT_EQ(l.clientHeight, 3255);
    // The text box leaves a margin of 120 on every side.
    EXPECT_EQ(l.boxLeft + l.boxWidth + 120, l.clientWidth);
    EXPECT_EQ(l.boxTop + l.boxHeight + 120, l.clientHeight);
    EXPECT_EQ(l.backColour, 0xECE9D8u);
    EXPECT_EQ(l.fontName, u"Tahoma");
  }
  // A second call while open does not move the window, whatever the screen does meanwhile.
  dialogs->setScreenWidthTwips(30000);
  kvn->UpdateWarning(u"b.dll");
  EXPECT_EQ(dialogs->windows().back().layout.left, 4000 - ui::frmUpdWarn::Width - 100);
}

// A backend whose windows cannot be shown.
class FailingWindows : public platform::ScriptedDialogs {
 public:
  std::shared_ptr<platform::TextWindow> showTextWindow(const platform::FormLayout&,
                                                       TextView) override {
    throw Failure(err::OutOfMemory);
  }
};

TEST_F(UpdateWarningTest, FailureReachesTheCallerUnreported) {
  auto failing = std::make_shared<FailingWindows>();
  platform::setDialogBackend(failing);
  try {
    kvn->UpdateWarning(u"a.dll");
    FAIL() << "no failure";
  } catch (const Failure& f) {
    EXPECT_EQ(f.number(), err::OutOfMemory);
  }
  EXPECT_TRUE(failing->shown().empty());
}

TEST_F(UpdateWarningTest, AnswersByNameInAnyCase) {
  std::vector<Variant> args{Variant(Text(u"x.dll"))};
  kvn->CallByName(u"updatewarning", args);
  ASSERT_EQ(dialogs->windows().size(), 1u);
  EXPECT_EQ(dialogs->windows()[0].text, kOpening + u"\r\nx.dll\r\n\r\n" + kHowTo);
}

}  // namespace
}  // namespace zrk::test
