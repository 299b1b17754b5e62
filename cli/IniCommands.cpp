// ini: settings files from the command line.
#include "cli/Command.h"

namespace zrk::cli {
namespace {

void printArray(const Variant& v) {
  if (!v.isArray()) return;
  const VariantArray& a = v.array();
  for (int32_t i = a.lowerBound; i <= a.upperBound(); ++i)
    printLine(a.at(i).toText());
}

int sections(Context& c) {
  Variant v = c.kvn.GetAllIniSections(textArg(c, 0, "FILE"));
  const VariantArray& a = v.array();
  for (int32_t i = 0; i < a.upperBound(); ++i)
    printLine(a.at(i).toText());  // the last is empty
  return 0;
}

int section(Context& c) {
  Variant v = c.kvn.GetIniSection(textArg(c, 1, "SECTION"), textArg(c, 0, "FILE"));
  if (!v.isArray()) return 1;
  const VariantArray& a = v.array();
  for (int32_t i = 0; i < a.upperBound(); ++i)
    printLine(a.at(i).toText());
  return 0;
}

int get(Context& c) {
  printLine(c.kvn.GetIniKey(textArg(c, 1, "SECTION"), textArg(c, 2, "KEY"), textArg(c, 0, "FILE")));
  return 0;
}

int set(Context& c) {
  c.kvn.WriteIniKey(textArg(c, 1, "SECTION"), textArg(c, 2, "KEY"), textArg(c, 3, "VALUE"),
                    textArg(c, 0, "FILE"));
  return 0;
}

int clear(Context& c) {
  Text file = textArg(c, 0, "FILE"), sect = textArg(c, 1, "SECTION");
  c.kvn.ClearIniSection(sect, file);
  return 0;
}

int lines(Context& c) {
  printArray(c.kvn.ReadFile(textArg(c, 0, "FILE")));
  return 0;
}

const CommandRegistrar kIni{
    {"ini", "sections", "FILE", "list the section names", sections},
    {"ini", "section", "FILE SECTION", "print a section's key=value lines", section},
    {"ini", "get", "FILE SECTION KEY", "print a key's value", get},
    {"ini", "set", "FILE SECTION KEY VALUE", "write a key", set},
    {"ini", "clear", "FILE SECTION", "remove a section with its keys", clear},
    {"ini", "lines", "FILE", "print the non-empty lines as the line reader sees them", lines},
};

}  // namespace
}  // namespace zrk::cli
