// sys: the machine description the library keeps for its logs and reports.
#include "cli/Command.h"

namespace zrk::cli {
namespace {

int describe(Context& c) {
  c.kvn.SetUIDStr();
  printValue(replaceAll(c.kvn.GetUIDStr(), u"\r\n", u"\n"));
  return 0;
}

int gpu(Context& c) {
  printValue(replaceAll(c.kvn.GetGPUName(), u"\r\n", u"\n"));
  return 0;
}

int registry(Context& c) {
  Text key = valueArg(c, 0, "KEY"), value = valueArg(c, 1, "VALUE");
  Variant v = c.kvn.GetRegistryString(key, value);
  if (v.isEmpty()) return 1;
  printValue(v.toText());
  return 0;
}

const CommandRegistrar kSys{
    {"sys", "describe", "", "print the system description as logs and reports carry it", describe},
    {"sys", "gpu", "", "print the graphics adapter and its identifier", gpu},
    {"sys", "registry", "KEY VALUE",
     "print a value of the machine registry stand-in (exit 1 when absent)", registry},
};

}  // namespace
}  // namespace zrk::cli
