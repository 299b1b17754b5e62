// Command registry and the small helpers every command uses.
#include "cli/Command.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include <zrkKVL/Failure.h>
#include "cli/CommandLine.h"
#include "platform/CodePage.h"
#include "platform/Paths.h"

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

std::string Context::option(const std::string& name, const std::string& fallback) const {
  auto it = options.find(name);
  return it == options.end() ? fallback : it->second.back();
}

const std::string& arg(const Context& c, size_t index, const char* what) {
  if (index >= c.args.size()) throw UsageError{std::string("missing argument: ") + what};
  return c.args[index];
}

Text pathArg(const Context& c, size_t index, const char* what) {
  return fromUtf8(arg(c, index, what));
}

Text valueArg(const Context& c, size_t index, const char* what) {
  return valueOf(arg(c, index, what));
}

Text valueOf(const std::string& bytes) {
  return platform::fromAnsi(bytes);
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

std::vector<Text> inputLines() {
  std::vector<Text> lines;
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(valueOf(line));
  }
  return lines;
}

// A command whose library call failed has no result: its error line is all it prints.
void printValue(TextView text) {
  if (libraryFailed()) return;
  std::string bytes = platform::toAnsi(text);
  bytes += '\n';
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

void printPath(TextView path) {
  if (libraryFailed()) return;
  std::printf("%s\n", toUtf8(path).c_str());
}

int answer(bool yes) {
  std::printf("%s\n", yes ? "yes" : "no");
  return yes ? 0 : 1;
}

Text existingFile(const Context& c, size_t index, const char* what) {
  Text path = pathArg(c, index, what);
  if (!std::filesystem::is_regular_file(platform::nativePath(path))) {
    throw ToolError{commandName(c.command) + ": no file " + quotePath(path)};
  }
  return path;
}

std::string quotePath(TextView path) {
  return "'" + toUtf8(path) + "'";
}

}  // namespace zrk::cli
