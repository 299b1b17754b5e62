// Command lookup, option parsing with getopt_long, operand counts and the help texts.
#include "cli/CommandLine.h"

#include <getopt.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace zrk::cli {
namespace {

// An option word: a dash and more, but not a negative number ("-5" is an operand).
bool looksLikeOption(const std::string& a) {
  return a.size() > 1 && a[0] == '-' && !(a[1] >= '0' && a[1] <= '9');
}

// The operand names that stand for values (names, keys, texts): a value may be anything,
// "-1" or "--x" too, so where one is due the word is taken as it stands.
bool namesAValue(const std::string& operand) {
  static const char* const kValues[] = {"SECTION", "KEY", "VALUE",       "TEXT",
                                        "LINE",    "ARG", "DESCRIPTION", "TITLE"};
  for (const char* v : kValues) {
    if (operand == v) return true;
  }
  return false;
}

std::string tryHelp(const Command& command) {
  return "\nTry 'zrkkvl " + commandName(command) + " --help'.";
}

}  // namespace

std::string commandName(const Command& command) {
  return *command.family ? std::string(command.family) + " " + command.name : command.name;
}

const Command* findCommand(const std::vector<std::string>& words, size_t& used) {
  for (const auto& c : commands()) {
    if (!*c.family && !words.empty() && words[0] == c.name) return used = 1, &c;
    if (*c.family && words.size() >= 2 && words[0] == c.family && words[1] == c.name) {
      return used = 2, &c;
    }
  }
  return nullptr;
}

bool isFamily(const std::string& word) {
  for (const auto& c : commands()) {
    if (*c.family && word == c.family) return true;
  }
  return false;
}

namespace {

// The usage's operand words, as written: "FILE", "[DIR]", "LINE...".
std::vector<std::string> usageTokens(const char* usage) {
  std::vector<std::string> tokens;
  std::string u = usage;
  for (size_t pos = 0; pos < u.size();) {
    size_t end = u.find(' ', pos);
    if (end == std::string::npos) end = u.size();
    if (end > pos) tokens.push_back(u.substr(pos, end - pos));
    pos = end + 1;
  }
  return tokens;
}

std::string bareName(std::string token) {
  std::erase_if(token, [](char c) { return c == '[' || c == ']' || c == '.'; });
  return token;
}

}  // namespace

OperandCount operandCount(const char* usage) {
  OperandCount n;
  for (const std::string& token : usageTokens(usage)) {
    bool repeats = token.find("...") != std::string::npos;
    if (token[0] != '[') ++n.min;
    n.max = repeats || n.max == SIZE_MAX ? SIZE_MAX : n.max + 1;
  }
  return n;
}

std::string operandName(const char* usage, size_t index) {
  std::vector<std::string> tokens = usageTokens(usage);
  if (tokens.empty()) return "";
  if (index < tokens.size()) return bareName(tokens[index]);
  const std::string& last = tokens.back();
  return last.find("...") != std::string::npos ? bareName(last) : "";
}

bool takesWordAsItStands(const char* usage, size_t index) {
  OperandCount n = operandCount(usage);
  // Before the first operand a word may always be an option, as "--help" is.
  return index >= 1 && index + 1 >= n.min && namesAValue(operandName(usage, index));
}

namespace {

// getopt_long's table for the command's options and --help.
std::vector<option> optionTable(const Command& command) {
  std::vector<option> table;
  for (size_t i = 0; i < command.options.size(); ++i) {
    const Option& o = command.options[i];
    table.push_back({o.name, o.value ? required_argument : no_argument, nullptr, int(256 + i)});
  }
  table.push_back({"help", no_argument, nullptr, 'h'});
  table.push_back({nullptr, 0, nullptr, 0});
  return table;
}

// Takes the option word args[at] (with the next word as its value where it needs one) into
// `parsed`; gives how many words it used.
size_t takeOption(const Command& command, const std::vector<std::string>& args, size_t at,
                  ParsedArgs& parsed) {
  std::vector<std::string> words{"zrkkvl", args[at]};
  if (at + 1 < args.size()) words.push_back(args[at + 1]);
  std::vector<char*> argv;
  for (auto& w : words)
    argv.push_back(w.data());
  argv.push_back(nullptr);
  std::vector<option> table = optionTable(command);
  optind = 0;  // a full restart: getopt keeps state between calls
  opterr = 0;
  // "+": the word after an option that takes none is never looked at.
  while (optind < 2) {
    int c = getopt_long(int(words.size()), argv.data(), "+:h", table.data(), nullptr);
    if (c == -1) break;
    const char* given = argv[optind - 1];
    if (c == 'h') {
      parsed.help = true;
    } else if (c == ':') {
      throw UsageError{std::string("option '") + given + "' needs a value" + tryHelp(command)};
    } else if (c == '?') {
      std::string name = optopt ? std::string("-") + char(optopt) : given;
      throw UsageError{"unknown option '" + name + "' for " + commandName(command) +
                       tryHelp(command)};
    } else {
      const Option& o = command.options[size_t(c - 256)];
      parsed.options[o.name].push_back(o.value ? optarg : "");
    }
  }
  return size_t(std::max(optind, 2) - 1);
}

}  // namespace

// Options may stand before, between and after the operands. A word where a value operand is
// due is that operand whatever it looks like, as git config takes a value; "--" ends the
// options, and every later word is an operand.
ParsedArgs parseArgs(const Command& command, const std::vector<std::string>& args) {
  ParsedArgs parsed;
  bool optionsEnded = false;
  for (size_t at = 0; at < args.size();) {
    const std::string& word = args[at];
    if (!optionsEnded && word == "--") {
      optionsEnded = true;
      ++at;
    } else if (optionsEnded || !looksLikeOption(word) ||
               takesWordAsItStands(command.usage, parsed.operands.size())) {
      parsed.operands.push_back(word);
      ++at;
    } else {
      at += takeOption(command, args, at, parsed);
    }
  }
  if (parsed.help) return parsed;
  OperandCount count = operandCount(command.usage);
  if (parsed.operands.size() < count.min) {
    throw UsageError{commandName(command) + ": missing operand (usage: zrkkvl " +
                     commandName(command) + " " + command.usage + ")" + tryHelp(command)};
  }
  if (parsed.operands.size() > count.max) {
    throw UsageError{commandName(command) + ": unexpected argument '" + parsed.operands[count.max] +
                     "'" + tryHelp(command)};
  }
  return parsed;
}

int runWords(clsKVN& kvn, const Text& root, const std::vector<std::string>& words) {
  size_t used = 0;
  const Command* command = findCommand(words, used);
  if (!command) {
    if (!words.empty() && isFamily(words[0])) {
      if (words.size() >= 2 && (words[1] == "--help" || words[1] == "-h")) {
        printFamilyHelp(stdout, words[0]);
        return 0;
      }
      if (words.size() >= 2) {
        throw UsageError{"unknown command '" + words[0] + " " + words[1] + "'\nTry 'zrkkvl " +
                         words[0] + " --help'."};
      }
      printFamilyHelp(stderr, words[0]);
      return 2;
    }
    throw UsageError{"unknown command '" + (words.empty() ? "" : words[0]) +
                     "'\nTry 'zrkkvl --help'."};
  }
  ParsedArgs parsed =
      parseArgs(*command, std::vector<std::string>(words.begin() + long(used), words.end()));
  if (parsed.help) {
    printCommandHelp(stdout, *command);
    return 0;
  }
  Context context{*command, std::move(parsed.operands), std::move(parsed.options), kvn, root};
  return command->run(context);
}

void printToolHelp(std::FILE* out) {
  std::fprintf(out,
               "usage: zrkkvl [--root DIR] COMMAND [OPTIONS] [ARGS...]\n"
               "       zrkkvl --version | --help\n\n"
               "Options:\n"
               "  --root DIR     the installation root: settings/config.ini and ErrorLog.txt lie\n"
               "                 in DIR, MonitorLog.txt in DIR/dlls/Main Functions DLL\n"
               "                 (default: ZRKKVL_ROOT, else the main program's tree the\n"
               "                 tool lies in, else ~/.local/share/zrkkvl; see zrkkvl(1))\n"
               "  -h, --help     this help; after a command, that command's help\n"
               "  --version      the version\n"
               "  --             ends the options; later words are operands\n\n"
               "Commands:\n");
  for (const auto& c : commands()) {
    std::fprintf(out, "  %-17s %s\n", commandName(c).c_str(), c.summary);
  }
  std::fprintf(out,
               "\nValues (keys' values, lines, texts) are taken and printed as bytes, so UTF-8\n"
               "files round-trip unchanged; file names are UTF-8. Exit status: 0 success or yes,\n"
               "1 failure or no, 2 wrong command line.\n");
}

void printFamilyHelp(std::FILE* out, const std::string& family) {
  std::fprintf(out, "usage: zrkkvl %s COMMAND [OPTIONS] [ARGS...]\n\nCommands:\n", family.c_str());
  for (const auto& c : commands()) {
    if (family != c.family) continue;
    std::string line = std::string(c.name) + " " + c.usage;
    std::fprintf(out, "  %-32s %s\n", line.c_str(), c.summary);
  }
}

void printCommandHelp(std::FILE* out, const Command& command) {
  std::fprintf(out, "usage: zrkkvl %s%s %s\n  %s\n", commandName(command).c_str(),
               command.options.empty() ? "" : " [OPTIONS]", command.usage, command.summary);
  if (command.details) std::fprintf(out, "\n%s\n", command.details);
  if (command.options.empty()) return;
  std::fprintf(out, "\nOptions:\n");
  for (const Option& o : command.options) {
    std::string label = std::string("--") + o.name + (o.value ? std::string(" ") + o.value : "");
    std::fprintf(out, "  %-16s %s\n", label.c_str(), o.help);
  }
}

}  // namespace zrk::cli
