// The tool's command registry: each family of commands lives in its own file and registers here.
#pragma once

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include <zrkKVL/clsKVN.h>

namespace zrk::cli {

struct Command;

// What a command gets: its operands, the options given, and the library object.
struct Context {
  const Command& command;
  std::vector<std::string> args;
  std::map<std::string, std::vector<std::string>> options;  // by long name; a flag holds ""
  clsKVN& kvn;
  Text root;  // the installation root given with --root, empty for the library's own

  bool has(const std::string& option) const { return options.count(option) != 0; }
  // The last value given for `option`, or `fallback`.
  std::string option(const std::string& name, const std::string& fallback = "") const;
};

// An option of one command: --name, with a value when `value` names it.
struct Option {
  const char* name;
  const char* value;  // "N", "DIR", ...; nullptr for a flag
  const char* help;
};

struct Command {
  const char* family;  // "ini", "bini", ...; "" for a top-level command
  const char* name;
  const char* usage;    // operands: "FILE SECTION KEY", "[DIR]", "FILE..."; their count follows
  const char* summary;  // one line
  int (*run)(Context&);
  std::vector<Option> options = {};
  const char* details = nullptr;  // more lines for --help
};

struct CommandRegistrar {
  CommandRegistrar(std::initializer_list<Command> commands);
};

const std::vector<Command>& commands();

// A wrong command line: one line on stderr, exit code 2.
struct UsageError {
  std::string message;
};

// A failure the tool finds itself (a write that did not happen): one line on stderr, exit 1.
struct ToolError {
  std::string message;
};

// Whether the library has reported a failure it trapped during this run (its error line is out).
bool libraryFailed();

// Operands. A file name is UTF-8 as every path; a value is bytes, one character per byte through
// the code page, so that any file's bytes go in and come out unchanged.
const std::string& arg(const Context& c, size_t index, const char* what);
Text pathArg(const Context& c, size_t index, const char* what);
Text valueArg(const Context& c, size_t index, const char* what);
Text valueOf(const std::string& bytes);
// A file name operand naming a regular file that exists; a ToolError naming it else.
Text existingFile(const Context& c, size_t index, const char* what);

// A file's bytes, or standard input for "-".
std::string readInput(const std::string& fileOrDash);
// The next line of standard input without its LF; false at the end of the input.
bool readInputLine(std::string& line);
// Standard input's lines as values, without their line ends (LF or CR LF).
std::vector<Text> inputLines();

// Results on standard output, one line each: a value as its bytes, a path as UTF-8.
void printValue(TextView text);
void printPath(TextView path);
// A yes/no answer: prints "yes" or "no" and gives the exit code, 0 for yes.
int answer(bool yes);

// "'path'" for messages, as shown() shows it.
std::string quotePath(TextView path);

// Text as the tool prints names and messages: UTF-8, with each control character (U+0000 to
// U+001F, U+007F to U+009F) and each byte that is not UTF-8 written as \xNN, so that no escape
// sequence a file or member name holds reaches the terminal raw. Values keep their bytes.
std::string shown(TextView text);
// A message on standard error, "zrkkvl: " + message; each of its lines is shown as above.
void printError(const std::string& message);

}  // namespace zrk::cli
