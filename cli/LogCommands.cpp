// log: a line in the monitor log beside the library.
#include <filesystem>

#include "cli/Command.h"
#include "platform/files/Paths.h"
#include "platform/system/LibraryFolder.h"

namespace zrk::cli {
namespace {

int write(Context& c) {
  std::optional<int32_t> since;
  if (c.args.size() > 3) {
    Text s = valueArg(c, 3, "SINCE");
    if (!isNumericText(s)) throw UsageError{"log write: SINCE is a number: " + c.args[3]};
    since = Variant(s).toLong();
  }
  // The log lies beside the library, in DIR/dlls/Main Functions DLL under --root DIR.
  Text folder = platform::libraryFolder();
  if (!std::filesystem::is_directory(platform::nativePath(folder))) {
    throw ToolError{"log write: no folder " + quotePath(folder) + " for MonitorLog.txt"};
  }
  int32_t tick =
      c.kvn.Log(valueArg(c, 0, "FUNC"), valueArg(c, 1, "LOC"), valueArg(c, 2, "ACT"), since);
  printValue(decimal(tick));
  return 0;
}

const CommandRegistrar kLog{
    {"log", "write", "FUNC LOC ACT [SINCE]",
     "add a line to MonitorLog.txt; prints the tick to pass as SINCE later", write},
};

}  // namespace
}  // namespace zrk::cli
