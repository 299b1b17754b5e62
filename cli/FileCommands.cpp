// file: whole files as number text or lines, and the line writers.
#include "cli/Command.h"

namespace zrk::cli {
namespace {

// The number text without the reader's spare blanks behind it.
void printNumbers(const Text& numbers) {
  size_t end = numbers.find_last_not_of(u' ');
  printLine(end == Text::npos ? Text() : numbers.substr(0, end + 1));
}

int hex(Context& c) {
  printNumbers(c.kvn.HexRead(textArg(c, 0, "FILE")));
  return 0;
}

int bin(Context& c) {
  printNumbers(c.kvn.BinRead(textArg(c, 0, "FILE")));
  return 0;
}

int read(Context& c) {
  printLine(c.kvn.ReadFileToString(textArg(c, 0, "FILE")));
  return 0;
}

// The arguments behind the file name, one line each.
Variant lines(const Context& c) {
  std::vector<Text> texts;
  for (size_t i = 1; i < c.args.size(); ++i)
    texts.push_back(fromUtf8(c.args[i]));
  return Variant::textArray(std::move(texts));
}

int write(Context& c) {
  c.kvn.WriteFile(textArg(c, 0, "FILE"), lines(c));
  return 0;
}

int append(Context& c) {
  c.kvn.AppendFile(textArg(c, 0, "FILE"), lines(c));
  return 0;
}

const CommandRegistrar kFile{
    {"file", "hex", "FILE", "print the bytes as hexadecimal numbers, each followed by /", hex},
    {"file", "bin", "FILE", "print the bytes as decimal numbers, each followed by /", bin},
    {"file", "read", "FILE", "print the lines from the first non-blank one, joined by CR LF", read},
    {"file", "write", "FILE [LINE...]", "replace the file with these lines (CR LF after each)",
     write},
    {"file", "append", "FILE [LINE...]", "add these lines to an existing file", append},
};

}  // namespace
}  // namespace zrk::cli
