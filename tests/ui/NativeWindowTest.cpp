// The update warning's own X11 window: its text wrapped to the box, and the window itself on a
// virtual display (Xvfb) with its title, place and size, and no buttons.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "core/mdlKVN.h"
#include "platform/desktop/DesktopDialogs.h"
#include "platform/desktop/X11TextWindow.h"
#include "support/TestSupport.h"
#include "ui/frmUpdWarn.h"

namespace zrk::test {
namespace {

TEST(WrapLines, BreaksAtLineEndsAndBlanks) {
  auto sixEach = [](std::string_view s) { return int(s.size()) * 6; };  // 10 characters: 60
  struct Case {
    const char* text;
    std::vector<std::string> lines;
  } cases[] = {
      {"", {""}},
      {"short", {"short"}},
      {"a\r\nb\rc\nd", {"a", "b", "c", "d"}},
      {"ends\r\n", {"ends", ""}},
      {"\r\n\r\n", {"", "", ""}},
      {"one two three four", {"one two", "three four"}},
      {"exactly 10", {"exactly 10"}},
      {"abcdefghijklmnopqrstuvwxy", {"abcdefghij", "klmnopqrst", "uvwxy"}},
      {"a verylongwordhere b", {"a", "verylongwo", "rdhere b"}},
      {"Files:\r\nzrkKVL.dll", {"Files:", "zrkKVL.dll"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(platform::wrapLines(c.text, 60, sixEach), c.lines);
  }
}

// Runs a command and gives what it printed; nullopt when it failed.
std::optional<std::string> output(const std::string& command) {
  FILE* p = ::popen(command.c_str(), "r");
  if (!p) return std::nullopt;
  std::string out;
  char buf[512];
  while (size_t n = std::fread(buf, 1, sizeof buf, p))
    out.append(buf, n);
  return ::pclose(p) == 0 ? std::optional(out) : std::nullopt;
}

int fieldOf(const std::string& info, const std::string& label) {
  size_t at = info.find(label);
  return at == std::string::npos ? -1 : std::atoi(info.c_str() + at + label.size());
}

// A virtual display for the test, with the desktop backend.
class NativeWindowTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    const char* old = std::getenv("DISPLAY");
    savedDisplay = old ? std::optional<std::string>(old) : std::nullopt;
    if (!output("command -v Xvfb") || !output("command -v xwininfo")) {
      GTEST_SKIP() << "needs Xvfb and xwininfo";
    }
    for (int n = 150; n < 200 && display.empty(); ++n) {
      if (!exists("/tmp/.X" + std::to_string(n) + "-lock")) display = ":" + std::to_string(n);
    }
    xvfb = ::fork();
    if (xvfb == 0) {
      ::execlp("Xvfb", "Xvfb", display.c_str(), "-screen", "0", "1024x768x24", "-nolisten", "tcp",
               static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::setenv("DISPLAY", display.c_str(), 1);
    for (int i = 0; i < 100 && !output("xwininfo -root >/dev/null 2>&1"); ++i)
      ::usleep(50000);
    platform::setDialogBackend(std::make_shared<platform::DesktopDialogs>());
  }
  void TearDown() override {
    mdlKVN::state().UpdWarn.reset();  // closes the window
    if (xvfb > 0) {
      ::kill(xvfb, SIGTERM);
      ::waitpid(xvfb, nullptr, 0);
    }
    savedDisplay ? ::setenv("DISPLAY", savedDisplay->c_str(), 1) : ::unsetenv("DISPLAY");
    LibraryTest::TearDown();
  }

  // xwininfo's report of the window with this title, once it is there.
  std::string windowInfo(const std::string& title) {
    for (int i = 0; i < 100; ++i) {
      if (auto info = output("xwininfo -name '" + title + "' 2>/dev/null")) return *info;
      ::usleep(50000);
    }
    return "";
  }

  std::string display;
  pid_t xvfb = -1;
  std::optional<std::string> savedDisplay;
};

TEST_F(NativeWindowTest, TheWarningIsAPlainWindowAtItsPlace) {
  kvn->UpdateWarning(u"zrkKVL.dll");
  std::string info = windowInfo("WARNING!");
  ASSERT_FALSE(info.empty()) << "no window titled WARNING!";
  // The top right corner of a 1024-pixel screen, 100 twips from both edges; the client area of
  // 6495 x 3255 twips.
  EXPECT_EQ(fieldOf(info, "Absolute upper-left X:"),
            (1024 * 15 - ui::frmUpdWarn::Width - 100) / 15);
  EXPECT_EQ(fieldOf(info, "Absolute upper-left Y:"), 100 / 15);
  EXPECT_EQ(fieldOf(info, "Width:"), 6495 / 15);
  EXPECT_EQ(fieldOf(info, "Height:"), 3255 / 15);
  // The library's own window, drawn by itself: no child windows, so no button of any toolkit.
  EXPECT_EQ(output("xprop -name 'WARNING!' WM_CLASS").value_or(""),
            "WM_CLASS(STRING) = \"zrkKVL\", \"zrkKVL\"\n");
  auto tree = output("xwininfo -name 'WARNING!' -children");
  ASSERT_TRUE(tree);
  EXPECT_NE(tree->find("0 children"), std::string::npos) << *tree;
  auto form = mdlKVN::state().UpdWarn;
  EXPECT_TRUE(form->Visible());

  // A second call adds to the same window.
  kvn->UpdateWarning(u"plugins\\stats.dll");
  EXPECT_EQ(fieldOf(windowInfo("WARNING!"), "Absolute upper-left X:"),
            fieldOf(info, "Absolute upper-left X:"));
  EXPECT_EQ(output("xwininfo -root -tree | grep -c 'WARNING!'").value_or(""), "1\n");
}

}  // namespace
}  // namespace zrk::test
