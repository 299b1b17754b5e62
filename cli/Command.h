// The tool's command registry: each family of commands lives in its own file and registers here.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include <zrkKVL/clsKVN.h>

namespace zrk::cli {

// What a command gets: its own arguments (after family and name) and the library object.
struct Context {
  std::vector<std::string> args;
  clsKVN& kvn;
  Text root;  // the installation root in use
};

struct Command {
  const char* family;  // "ini", "bini", ...; "" for a top-level command
  const char* name;
  const char* usage;    // arguments, e.g. "FILE SECTION KEY"
  const char* summary;  // one line
  int (*run)(Context&);
};

struct CommandRegistrar {
  CommandRegistrar(std::initializer_list<Command> commands);
};

const std::vector<Command>& commands();

// A failure of the command line itself: printed as one line on stderr, exit code 2.
struct UsageError {
  std::string message;
};

// The argument at `index`, or a usage error naming what is missing.
const std::string& arg(const Context& c, size_t index, const char* what);
Text textArg(const Context& c, size_t index, const char* what);

// A file's bytes, or standard input for "-".
std::string readInput(const std::string& fileOrDash);

// Writes text to standard output as UTF-8, with a newline.
void printLine(TextView text);

}  // namespace zrk::cli
