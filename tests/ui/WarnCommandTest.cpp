// The tool's update warning on a desktop stays on screen until the user closes it, also with
// nothing held open on standard input.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "support/TestSupport.h"

namespace zrk::test {
namespace {

// A stand-in for zenity's text window: it notes when it opens, and when the user closes it a
// second later. A window taken down by its program's end notes no close.
const char* kDialogTool =
    "#!/bin/sh\n"
    "echo open >>\"$ZRK_DIALOG_LOG\"\n"
    "sleep 1\n"
    "echo closed >>\"$ZRK_DIALOG_LOG\"\n";

TEST(WarnCommand, TheToolStaysUntilTheWindowIsClosed) {
  TempDir tools, root;
  makeDir(tools / "bin");
  writeBytes(tools / "bin/zenity", kDialogTool);
  ASSERT_EQ(::chmod((tools / "bin/zenity").c_str(), 0755), 0);
  // A display that does not exist: the library's own X11 window cannot be made, and the dialog
  // tool shows the form instead.
  std::string command = "env PATH='" + tools / "bin" + ":" + std::getenv("PATH") +
                        "' DISPLAY=:4711 ZRK_DIALOG_LOG='" + tools / "dialogs.log" + "' '" +
                        ZRK_TOOL_FILE + "' --root '" + root.path() +
                        "' ui warn zrkKVL.dll </dev/null >/dev/null 2>&1";
  auto start = std::chrono::steady_clock::now();
  int status = std::system(command.c_str());
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(readBytes(tools / "dialogs.log"), "open\nclosed\n");
  EXPECT_GE(took, std::chrono::seconds(1));
}

}  // namespace
}  // namespace zrk::test
