// url: address checks and URL decoding.
#include "cli/Command.h"

namespace zrk::cli {
namespace {

int check(Context& c) {
  Text url = c.kvn.validateUrl(valueArg(c, 0, "URL"));
  if (url.empty()) return 1;
  printValue(url);
  return 0;
}

int decode(Context& c) {
  printValue(c.kvn.URLDecode(valueArg(c, 0, "TEXT")));
  return 0;
}

int ip(Context& c) {
  return answer(c.kvn.isIpAdd(valueArg(c, 0, "TEXT")));
}

const CommandRegistrar kUrl{
    {"url", "check", "URL",
     "print the address to use, or exit 1 if it is not valid (an international host name\n"
     "                                   in its ASCII form, xn--...)",
     check},
    {"url", "decode", "TEXT", "decode + and %XX escapes", decode},
    {"url", "ip", "TEXT", "whether the text is a numeric IPv4 address: yes (exit 0) or no (exit 1)",
     ip},
};

}  // namespace
}  // namespace zrk::cli
