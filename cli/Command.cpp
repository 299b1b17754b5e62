// Command registry and the small helpers every command uses.
#include "cli/Command.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include <zrkKVL/Failure.h>

namespace zrk::cli {
namespace {
std::vector<Command>& registry() {
  static std::vector<Command> all;
  return all;
}
}  // namespace

CommandRegistrar::CommandRegistrar(std::initializer_list<Command> list) {
  registry().insert(registry().end(), list.begin(), list.end());
}

const std::vector<Command>& commands() {
  return registry();
}

const std::string& arg(const Context& c, size_t index, const char* what) {
  if (index >= c.args.size()) throw UsageError{std::string("missing argument: ") + what};
  return c.args[index];
}

Text textArg(const Context& c, size_t index, const char* what) {
  return fromUtf8(arg(c, index, what));
}

std::string readInput(const std::string& fileOrDash) {
  if (fileOrDash == "-") {
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  }
  std::ifstream in(fileOrDash, std::ios::binary);
  if (!in) throw Failure(err::FileNotFound, u"File not found [" + fromUtf8(fileOrDash) + u"]");
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void printLine(TextView text) {
  std::printf("%s\n", toUtf8(text).c_str());
}

}  // namespace zrk::cli
