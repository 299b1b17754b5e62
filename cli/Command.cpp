// Command registry and the small helpers every command uses.
#include "cli/Command.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include <zrkKVL/Failure.h>
#include "cli/CommandLine.h"
#include "platform/files/FileIO.h"
#include "platform/files/Paths.h"
#include "platform/text/CodePage.h"

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
    std::string bytes;
    char block[65536];
    for (size_t n; (n = std::fread(block, 1, sizeof block, stdin)) > 0;)
      bytes.append(block, n);
    return bytes;
  }
  Text name = fromUtf8(fileOrDash);
  try {
    return platform::readAllBytes(name);  // a regular file alone: a FIFO or device is refused
  } catch (const Failure& f) {
    if (f.number() != err::FileNotFound) throw;
    throw Failure(err::FileNotFound, u"File not found [" + name + u"]");
  }
}

bool readInputLine(std::string& line) {
  char* buffer = nullptr;
  size_t capacity = 0;
  ssize_t n = ::getline(&buffer, &capacity, stdin);
  if (n > 0) line.assign(buffer, size_t(n) - (buffer[n - 1] == '\n'));
  std::free(buffer);
  return n > 0;
}

std::vector<Text> inputLines() {
  std::vector<Text> lines;
  for (std::string line; readInputLine(line);) {
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
  std::printf("%s\n", shown(path).c_str());
}

int answer(bool yes) {
  std::printf("%s\n", yes ? "yes" : "no");
  return yes ? 0 : 1;
}

Text existingFile(const Context& c, size_t index, const char* what) {
  Text path = pathArg(c, index, what);
  platform::ResolvedPath p = platform::ResolvedPath::of(path);
  if (!p.found) throw ToolError{commandName(c.command) + ": no file " + quotePath(path)};
  if (!S_ISREG(p.st.st_mode)) {
    throw ToolError{commandName(c.command) + ": " + quotePath(path) + " is not a regular file"};
  }
  return path;
}

std::string quotePath(TextView path) {
  return "'" + shown(path) + "'";
}

std::string shown(TextView text) {
  std::string out;
  char escaped[8];
  for (size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    unsigned code = isStrayByteCharacter(c) ? unsigned(c - 0xDC00) : unsigned(c);
    if (code < 0x20 || (code >= 0x7F && code <= 0x9F) || isStrayByteCharacter(c)) {
      std::snprintf(escaped, sizeof escaped, "\\x%02X", code & 0xFF);
      out += escaped;
    } else if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
               text[i + 1] <= 0xDFFF) {
      out += toUtf8(text.substr(i, 2));
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      std::snprintf(escaped, sizeof escaped, "\\u%04X", unsigned(c));
      out += escaped;
    } else {
      out += toUtf8(text.substr(i, 1));
    }
  }
  return out;
}

void printError(const std::string& message) {
  std::string lines;
  for (const Text& line : split(fromUtf8(message), u"\n"))
    lines += (lines.empty() ? "" : "\n") + shown(line);
  std::fprintf(stderr, "zrkkvl: %s\n", lines.c_str());
}

}  // namespace zrk::cli
