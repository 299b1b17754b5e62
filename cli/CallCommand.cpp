// call: any public operation by name, arguments parsed as Variants.
#include <cstdio>

#include "cli/Command.h"
#include "core/CallTable.h"
#include "platform/text/CodePage.h"

namespace zrk::cli {
namespace {

// An argument as a Variant: "text:", "path:", "int:", "num:", "bool:" and "lines:FILE" force a
// kind; otherwise whole numbers become Long, other numbers Double, true/false Boolean, the rest
// text. Text is bytes through the code page; "path:" takes a UTF-8 file name as it is.
Variant parseArgument(const std::string& a) {
  auto after = [&](const char* prefix) -> std::optional<std::string> {
    std::string p = prefix;
    if (a.compare(0, p.size(), p) == 0) return a.substr(p.size());
    return std::nullopt;
  };
  if (auto v = after("text:")) return Variant(valueOf(*v));
  if (auto v = after("path:")) return Variant(fromUtf8(*v));
  if (auto v = after("int:")) return Variant(Variant(valueOf(*v)).toLong());
  if (auto v = after("num:")) return Variant(Variant(valueOf(*v)).toDouble());
  if (auto v = after("bool:")) return Variant(Variant(valueOf(*v)).toBool());
  if (auto v = after("lines:")) {
    std::string bytes = readInput(*v);
    std::vector<Text> lines = split(valueOf(bytes), u"\n");
    if (!lines.empty() && lines.back().empty()) lines.pop_back();
    return Variant::textArray(std::move(lines));
  }
  Text t = valueOf(a);
  if (equalsNoCase(t, u"true")) return Variant(true);
  if (equalsNoCase(t, u"false")) return Variant(false);
  if (auto d = parseNumericText(t); d && t.find_first_of(u"&eEdD ") == Text::npos) {
    if (*d == double(int32_t(*d)) && t.find(u'.') == Text::npos) return Variant(int32_t(*d));
    return Variant(*d);
  }
  return Variant(t);
}

void printResult(const Variant& v) {
  if (!v.isArray()) {
    if (!v.isEmpty()) printValue(v.toText());
    return;
  }
  for (const Variant& e : v.array().items)
    printResult(e);
}

int call(Context& c) {
  Text name = valueArg(c, 0, "NAME");
  std::vector<Variant> args;
  for (size_t i = 1; i < c.args.size(); ++i)
    args.push_back(parseArgument(c.args[i]));
  std::vector<Variant> before = args;
  Variant result = c.kvn.CallByName(name, args);
  if (libraryFailed()) return 1;  // its error line is out; a failed call has no result
  printResult(result);
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == before[i]) continue;
    std::printf("[%zu] ", i + 1);  // a by-reference argument the operation changed
    printResult(args[i]);
  }
  return 0;
}

int operations(Context&) {
  for (const Text& name : CallTable::instance().names())
    printValue(name);
  return 0;
}

const CommandRegistrar kCall{
    {"",
     "call",
     "NAME [ARG...]",
     "call any public operation by name and print its result",
     call,
     {},
     "Arguments: whole numbers pass as Long, other numbers as Double, true/false as Boolean,\n"
     "the rest as text (bytes). text:, path: (a UTF-8 file name), int:, num:, bool: force a kind;\n"
     "lines:FILE passes the file's lines as an array (lines:- for standard input). A by-reference\n"
     "argument the operation changed is printed after the result as [N] VALUE."},
    {"", "operations", "", "list the operations that call answers to", operations},
};

}  // namespace
}  // namespace zrk::cli
