// url: address checks and URL decoding.
#include "cli/Command.h"

namespace zrk::cli {
namespace {

int check(Context& c) {
  Text url = c.kvn.validateUrl(textArg(c, 0, "URL"));
  if (url.empty()) return 1;
  printLine(url);
  return 0;
}

int decode(Context& c) {
  printLine(c.kvn.URLDecode(textArg(c, 0, "TEXT")));
  return 0;
}

int ip(Context& c) {
  bool yes = c.kvn.isIpAdd(textArg(c, 0, "TEXT"));
  printLine(yes ? u"True" : u"False");
  return yes ? 0 : 1;
}

const CommandRegistrar kUrl{
    {"url", "check", "URL", "print the address to use, or exit 1 if it is not valid", check},
    {"url", "decode", "TEXT", "decode + and %XX escapes", decode},
    {"url", "ip", "TEXT", "whether the text is a numeric IPv4 address (exit 0 if so)", ip},
};

}  // namespace
}  // namespace zrk::cli
