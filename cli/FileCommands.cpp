// file: whole files as number text or lines, and the line writers.
#include <cstdio>

#include "cli/Command.h"
#include "cli/WriteCheck.h"
#include "platform/text/CodePage.h"

namespace zrk::cli {
namespace {

// The number text without the reader's spare blanks behind it.
void printNumbers(const Text& numbers) {
  size_t end = numbers.find_last_not_of(u' ');
  printValue(end == Text::npos ? Text() : numbers.substr(0, end + 1));
}

int hex(Context& c) {
  printNumbers(c.kvn.HexRead(existingFile(c, 0, "FILE")));
  return 0;
}

int bin(Context& c) {
  printNumbers(c.kvn.BinRead(existingFile(c, 0, "FILE")));
  return 0;
}

int read(Context& c) {
  printValue(c.kvn.ReadFileToString(existingFile(c, 0, "FILE")));
  return 0;
}

// The operands behind the file name, one line each; standard input's lines when there are none.
Variant lines(const Context& c) {
  std::vector<Text> texts;
  for (size_t i = 1; i < c.args.size(); ++i)
    texts.push_back(valueOf(c.args[i]));
  if (c.args.size() == 1) texts = inputLines();
  return Variant::textArray(std::move(texts));
}

// The bytes the line writer makes of `lines`: each line, then CR LF.
std::string bytesOf(const Variant& lines) {
  std::string bytes;
  for (const Variant& line : lines.array().items)
    bytes += platform::toAnsi(line.toText()) + "\r\n";
  return bytes;
}

int write(Context& c) {
  Text file = pathArg(c, 0, "FILE");
  Variant data = lines(c);
  FileStamp before = stampOf(file);
  c.kvn.WriteFile(file, data);
  // Times on disk are coarse: an unchanged stamp is a failure only if the content differs too.
  if (!libraryFailed() && stampOf(file) == before &&
      (!before.exists || readInput(toUtf8(file)) != bytesOf(data))) {
    failWrite("file write", file);
  }
  return 0;
}

int append(Context& c) {
  Text file = pathArg(c, 0, "FILE");
  Variant data = lines(c);
  FileStamp before = stampOf(file);
  if (!before.exists) throw ToolError{"file append: no file " + quotePath(file)};
  c.kvn.AppendFile(file, data);
  // A failure the library reported has its error line already.
  if (!libraryFailed() && stampOf(file).size == before.size && !data.array().items.empty()) {
    failWrite("file append", file);
  }
  return 0;
}

const CommandRegistrar kFile{
    {"file", "hex", "FILE", "print the bytes as hexadecimal numbers, each followed by /", hex},
    {"file", "bin", "FILE", "print the bytes as decimal numbers, each followed by /", bin},
    {"file", "read", "FILE", "print the lines from the first non-blank one, joined by CR LF", read},
    {"file", "write", "FILE [LINE...]",
     "replace the file with these lines, or standard input's (CR LF after each)", write},
    {"file", "append", "FILE [LINE...]",
     "add these lines, or standard input's, to an existing file (CR LF after each)", append},
};

}  // namespace
}  // namespace zrk::cli
