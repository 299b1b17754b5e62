// The tool's archive commands on real files.
#include <sys/wait.h>

#include <cstdlib>

#include "support/TestSupport.h"

namespace zrk::test {
namespace {

int runTool(const std::string& args) {
  std::string command = std::string("'") + ZRK_TOOL_FILE + "' " + args + " >/dev/null 2>&1";
  int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ArchiveTool, MakeThenExtractGivesTheFilesBack) {
  TempDir dir;
  writeBytes(dir / "a.txt", "hello\r\n");
  writeBytes(dir / "b.bin", std::string("\0\x10\xFF", 3));
  makeDir(dir / "out");
  ASSERT_EQ(runTool("archive make '" + dir / "x.zrk" + "' '" + dir / "a.txt" + "' '" +
                    dir / "b.bin" + "'"),
            0);
  ASSERT_EQ(runTool("archive extract '" + dir / "x.zrk" + "' '" + dir / "out" + "'"), 0);
  EXPECT_EQ(readBytes(dir / "out/a.txt"), "hello\r\n") << "one line end, not two";
  EXPECT_EQ(readBytes(dir / "out/b.bin"), std::string("\0\x10\xFF\r\n", 5));
}

}  // namespace
}  // namespace zrk::test
