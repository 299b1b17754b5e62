// The man page and the bash completion against the tool's own command table: a command or an
// option that either of them lacks (or that the completion offers and the tool does not have)
// fails here.
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

using Words = std::set<std::string>;

Words wordsOf(const std::string& text) {
  Words words;
  std::istringstream in(text);
  for (std::string w; in >> w;)
    words.insert(w);
  return words;
}

// The completion script's tables: `local -A NAME=( [key]="words" ... )` and `local NAME="..."`,
// with $form and the like put in.
struct Completion {
  std::map<std::string, std::string> variables;
  std::map<std::string, std::map<std::string, Words>> tables;
};

Completion readCompletion(const std::string& script) {
  Completion c;
  std::regex variable(R"re(^\s*local (\w+)="([^"]*)"\s*$)re");
  std::regex tableStart(R"re(^\s*local -A (\w+)=\(\s*$)re");
  std::regex entry(R"re(^\s*\[([^\]]+)\]="([^"]*)"\s*$)re");
  std::istringstream in(script);
  std::string table;
  for (std::string line; std::getline(in, line);) {
    std::smatch m;
    if (!table.empty() && std::regex_match(line, m, entry)) {
      std::string value = m[2];
      for (const auto& [name, text] : c.variables) {
        for (size_t at; (at = value.find("$" + name)) != std::string::npos;)
          value.replace(at, name.size() + 1, text);
      }
      c.tables[table][m[1]] = wordsOf(value);
    } else if (!table.empty() && line.find(')') != std::string::npos) {
      table.clear();
    } else if (std::regex_match(line, m, tableStart)) {
      table = m[1];
      c.tables[table];
    } else if (std::regex_match(line, m, variable)) {
      c.variables[m[1]] = m[2];
    }
  }
  return c;
}

Words optionsOf(const cli::Command& command) {
  Words options;
  for (const cli::Option& o : command.options)
    options.insert(std::string("--") + o.name);
  return options;
}

TEST(ToolDocs, CompletionOffersEveryCommandAndOptionOfTheTool) {
  Completion c = readCompletion(readBytes(ZRK_DOC_DIR "/zrkkvl.bash-completion"));
  ASSERT_EQ(c.tables.count("commands"), 1u) << "the completion's table of commands";
  std::map<std::string, Words> families;
  Words top;
  std::map<std::string, Words> options;  // by command name, only those that have options
  for (const cli::Command& command : cli::commands()) {
    (*command.family ? families[command.family] : top).insert(command.name);
    if (!command.options.empty()) options[cli::commandName(command)] = optionsOf(command);
  }
  EXPECT_EQ(c.tables["commands"], families);
  EXPECT_EQ(wordsOf(c.variables["top"]), top);
  EXPECT_EQ(c.tables["options"], options);
}

// The page with its font changes and escapes taken out: "\fBini get\fR \-\-x" reads
// "ini get --x".
std::string plainText(std::string roff) {
  roff = std::regex_replace(roff, std::regex(R"(\\f[BIRP])"), "");
  roff = std::regex_replace(roff, std::regex(R"(\\-)"), "-");
  roff = std::regex_replace(roff, std::regex("\""), "");
  return roff;
}

// Whether `word` stands in `text` on its own: no letter, digit or dash right before or after.
bool standsIn(const std::string& text, const std::string& word) {
  auto joins = [](char ch) { return std::isalnum(static_cast<unsigned char>(ch)) || ch == '-'; };
  for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    bool before = at > 0 && joins(text[at - 1]);
    bool after = at + word.size() < text.size() && joins(text[at + word.size()]);
    if (!before && !after) return true;
  }
  return false;
}

TEST(ToolDocs, ManPageDescribesEveryCommandAndOption) {
  std::string page = readBytes(ZRK_DOC_DIR "/zrkkvl.1");
  // Each command is named in the heading of an item: the line after a .TP.
  std::string headings;
  std::istringstream in(page);
  for (std::string line, last; std::getline(in, line); last = line) {
    if (last == ".TP") headings += plainText(line) + "\n";
  }
  std::string text = plainText(page);
  for (const cli::Command& command : cli::commands()) {
    EXPECT_TRUE(standsIn(headings, cli::commandName(command)))
        << "no item for '" << cli::commandName(command) << "' in zrkkvl(1)";
    for (const std::string& option : optionsOf(command)) {
      EXPECT_TRUE(standsIn(text, option))
          << "zrkkvl(1) does not name " << option << " of " << cli::commandName(command);
    }
  }
}

}  // namespace
}  // namespace zrk::test
