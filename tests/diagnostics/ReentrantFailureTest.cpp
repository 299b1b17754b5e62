// The desktop backend's message box with a scripted dialog tool: the host's events go on while it
// is open, and a failure that arrives through them gets its own dialog and report.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <optional>

#include "HttpTestServer.h"
#include "core/mdlKVN.h"
#include "platform/desktop/DesktopDialogs.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

// A stand-in for zenity: writes a line when its window opens and when it closes, stays open for
// a while, and answers with the first button. Found first on PATH, with a display named.
const char* kDialogTool =
    "#!/bin/sh\n"
    "for a; do case \"$a\" in --text=*) what=$(printf '%s' \"${a#--text=}\" | sed -n 2p);; esac; "
    "done\n"
    "echo \"open $what\" >>\"$ZRK_DIALOG_LOG\"\n"
    "sleep 0.4\n"
    "echo \"close $what\" >>\"$ZRK_DIALOG_LOG\"\n"
    "for a; do case \"$a\" in --extra-button=*) echo \"${a#--extra-button=}\"; exit 1;; esac; "
    "done\n";

class ReentrantFailure : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    makeDir(tools / "bin");
    writeBytes(tools / "bin/zenity", kDialogTool);
    ::chmod((tools / "bin/zenity").c_str(), 0755);
    save("PATH", tools / "bin:" + std::string(std::getenv("PATH") ? std::getenv("PATH") : ""));
    save("DISPLAY", ":97");
    save("ZRK_DIALOG_LOG", tools / "dialogs.log");
    platform::setDialogBackend(host);
  }
  void TearDown() override {
    ::unsetenv("ZRKKVL_REPORT_HOST");
    for (auto it = saved.rbegin(); it != saved.rend(); ++it) {
      if (it->second) {
        ::setenv(it->first.c_str(), it->second->c_str(), 1);
      } else {
        ::unsetenv(it->first.c_str());
      }
    }
    LibraryTest::TearDown();
  }
  void save(const char* name, const std::string& value) {
    const char* old = std::getenv(name);
    saved.push_back({name, old ? std::optional<std::string>(old) : std::nullopt});
    ::setenv(name, value.c_str(), 1);
  }

  TempDir tools;
  std::shared_ptr<WithHostEvents<platform::DesktopDialogs>> host =
      std::make_shared<WithHostEvents<platform::DesktopDialogs>>();
  std::vector<std::pair<std::string, std::optional<std::string>>> saved;
};

TEST_F(ReentrantFailure, EventsGoOnAndAFailureArrivingThroughThemIsHandledInFull) {
  HttpTestServer server({"true"});
  ::setenv("ZRKKVL_REPORT_HOST", server.host().c_str(), 1);
  makeDir(root / "settings");
  writeBytes(root / "settings/config.ini", "[Settings]\r\nReportErrors=1\r\n");
  makeDir(root / "plugins");
  makeUnopenableFile(root / "outer.txt");
  makeUnopenableFile(root / "inner.txt");
  int passes = 0;
  bool arrived = false;
  host->onEvents = [&] {
    ++passes;
    // Once the first dialog is open, the host's code makes a call that fails.
    if (!arrived && readBytes(tools / "dialogs.log").find("open") != std::string::npos) {
      arrived = true;
      EXPECT_TRUE(kvn->ReadFile(root.text("inner.txt")).isEmpty());
    }
  };
  EXPECT_TRUE(kvn->ReadFile(root.text("outer.txt")).isEmpty());
  EXPECT_TRUE(arrived);
  EXPECT_GT(passes, 10) << "the host's events ran while the dialog was open";
  // The second dialog opened while the first was open.
  std::string outer = "Error 75: Path/File access error [" + (root / "outer.txt") + "]";
  std::string inner = "Error 75: Path/File access error [" + (root / "inner.txt") + "]";
  std::string shown = readBytes(tools / "dialogs.log");
  EXPECT_EQ(shown.substr(0, shown.find("close")), "open " + outer + "\nopen " + inner + "\n");
  EXPECT_NE(shown.find("close " + outer + "\n"), std::string::npos);
  EXPECT_NE(shown.find("close " + inner + "\n"), std::string::npos);
  // Both failures logged and reported, each by itself.
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_NE(requests[0].body.find("outer.txt"), std::string::npos);
  EXPECT_NE(requests[1].body.find("inner.txt"), std::string::npos);
  std::string log = readBytes(root / "ErrorLog.txt");
  EXPECT_NE(log.find("inner.txt"), std::string::npos);
  EXPECT_NE(log.find("outer.txt"), std::string::npos);
  EXPECT_EQ(mdlKVN::state().handlingDepth, 0);
}

TEST_F(ReentrantFailure, TheAnswerIsTheButtonPressed) {
  EXPECT_EQ(platform::dialogBackend()->messageBox(u"Continue?", platform::mb::YesNo, u"Q"),
            platform::mb::Yes);
  EXPECT_EQ(readBytes(tools / "dialogs.log"), "open \nclose \n");
}

}  // namespace
}  // namespace zrk::test
