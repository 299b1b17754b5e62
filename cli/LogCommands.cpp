// log: a line in the monitor log beside the library.
#include "cli/Command.h"

namespace zrk::cli {
namespace {

int write(Context& c) {
  std::optional<int32_t> since;
  if (c.args.size() > 3) since = Variant(textArg(c, 3, "SINCE")).toLong();
  int32_t tick =
      c.kvn.Log(textArg(c, 0, "FUNC"), textArg(c, 1, "LOC"), textArg(c, 2, "ACT"), since);
  printLine(decimal(tick));
  return 0;
}

const CommandRegistrar kLog{
    {"log", "write", "FUNC LOC ACT [SINCE]",
     "add a line to MonitorLog.txt; prints the tick to pass as SINCE later", write},
};

}  // namespace
}  // namespace zrk::cli
