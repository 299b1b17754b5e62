// Command lookup, option parsing with getopt_long, operand counts and the help texts.
#include "cli/CommandLine.h"

#include <getopt.h>

#include <cstdint>
#include <cstring>

namespace zrk::cli {
namespace {

// Marks an operand that looks like a negative number while getopt runs, so "-5" stays an
// operand and is not taken for options.
constexpr char kNumberMark = '\x01';

bool looksNegativeNumber(const std::string& a) {
  return a.size() > 1 && a[0] == '-' && a[1] >= '0' && a[1] <= '9';
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

OperandCount operandCount(const char* usage) {
  OperandCount n;
  std::string u = usage;
  for (size_t pos = 0; pos < u.size();) {
    size_t end = u.find(' ', pos);
    if (end == std::string::npos) end = u.size();
    std::string token = u.substr(pos, end - pos);
    pos = end + 1;
    if (token.empty()) continue;
    bool repeats = token.find("...") != std::string::npos;
    if (token[0] != '[') ++n.min;
    n.max = repeats || n.max == SIZE_MAX ? SIZE_MAX : n.max + 1;
  }
  return n;
}

ParsedArgs parseArgs(const Command& command, const std::vector<std::string>& args) {
  std::vector<std::string> words{"zrkkvl"};
  for (size_t i = 0; i < args.size(); ++i)
    words.push_back(looksNegativeNumber(args[i]) ? kNumberMark + std::to_string(i) : args[i]);
  std::vector<char*> argv;
  for (auto& w : words)
    argv.push_back(w.data());
  argv.push_back(nullptr);

  std::vector<option> table;
  for (size_t i = 0; i < command.options.size(); ++i) {
    const Option& o = command.options[i];
    table.push_back({o.name, o.value ? required_argument : no_argument, nullptr, int(256 + i)});
  }
  table.push_back({"help", no_argument, nullptr, 'h'});
  table.push_back({nullptr, 0, nullptr, 0});

  ParsedArgs parsed;
  optind = 0;  // a full restart: getopt keeps state between calls
  opterr = 0;
  for (int c;
       (c = getopt_long(int(words.size()), argv.data(), ":h", table.data(), nullptr)) != -1;) {
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
  for (int i = optind; i < int(words.size()); ++i) {
    std::string w = argv[size_t(i)];
    parsed.operands.push_back(w[0] == kNumberMark ? args[std::stoul(w.substr(1))] : w);
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
