// The command line: finding the command its words name, its options and operands, and help.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "cli/Command.h"

namespace zrk::cli {

// The command that `words` name ("ini get ..." or "call ..."), and how many words name it;
// nullptr when none does.
const Command* findCommand(const std::vector<std::string>& words, size_t& used);
bool isFamily(const std::string& word);

// The operand counts the usage text gives: "X" one, "[X]" at most one, "X..." any number more.
struct OperandCount {
  size_t min = 0;
  size_t max = 0;  // SIZE_MAX: no limit
};
OperandCount operandCount(const char* usage);
// The name of the operand at `index` ("FILE", "DIR", "LINE" for each of "LINE..."); "" beyond.
std::string operandName(const char* usage, size_t index);
// Whether the word for the operand at `index` is taken as it stands even when it looks like an
// option: a value operand (SECTION, KEY, VALUE, TEXT, LINE, ...) from the last required one on,
// once the first operand is given.
bool takesWordAsItStands(const char* usage, size_t index);

// The options and operands of one command's arguments; "--help" where an option may stand gives
// help instead.
// A UsageError for an unknown option, a missing option value or a wrong operand count.
struct ParsedArgs {
  bool help = false;
  std::vector<std::string> operands;
  std::map<std::string, std::vector<std::string>> options;
};
ParsedArgs parseArgs(const Command& command, const std::vector<std::string>& args);

// Runs the command that `words` name on `kvn`: what main does after the global options, and
// what the demo does for each step.
int runWords(clsKVN& kvn, const Text& root, const std::vector<std::string>& words);

// Help texts.
void printToolHelp(std::FILE* out);
void printFamilyHelp(std::FILE* out, const std::string& family);
void printCommandHelp(std::FILE* out, const Command& command);
std::string commandName(const Command& command);

}  // namespace zrk::cli
