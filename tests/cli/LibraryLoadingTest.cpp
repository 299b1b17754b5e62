// A command loads only the libraries it uses: those opened at their first need stay unloaded
// when nothing needs them, as the loader's own record of the files it opened shows.
#include <string>
#include <vector>

#include "ToolRun.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

TEST(LibraryLoading, ACommandLoadsOnlyWhatItUses) {
  TempDir dir;
  writeBytes(dir / "s.ini", "[server]\nport = 27960\n");
  struct Case {
    std::vector<std::string> args;
    std::vector<std::string> loaded;  // of the libraries opened at first need
  } cases[] = {
      {{"ini", "get", dir / "s.ini", "server", "port"}, {}},
      {{"call", "CompressString", "abc"}, {"libz.so.1"}},
      {{"call", "DecompressString", "x", "3"}, {"libz.so.1", "libdeflate.so.0"}},
  };
  const std::string onDemand[] = {"libz.so.1", "libdeflate.so.0", "libelf.so.1", "libcurl.so.4"};
  for (const Case& c : cases) {
    std::vector<std::string> argv{"env", "LD_DEBUG=files", ZRK_TOOL_FILE};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    ToolRun r = runProgram(argv);
    EXPECT_EQ(r.code, 0) << c.args[1] << r.err;
    for (const std::string& library : onDemand) {
      bool expected = std::find(c.loaded.begin(), c.loaded.end(), library) != c.loaded.end();
      EXPECT_EQ(r.err.find("file=" + library + " ") != std::string::npos, expected)
          << c.args[0] << " " << c.args[1] << ": " << library;
    }
  }
}

}  // namespace
}  // namespace zrk::test
