// ini: settings files from the command line.
#include "cli/Command.h"
#include "cli/WriteCheck.h"

namespace zrk::cli {
namespace {

// The array's texts, the last one left out when `dropLast` (the lists end in an empty entry).
void printTexts(const Variant& v, bool dropLast) {
  if (!v.isArray()) return;
  const VariantArray& a = v.array();
  for (int32_t i = a.lowerBound; i <= a.upperBound() - (dropLast ? 1 : 0); ++i)
    printValue(a.at(i).toText());
}

// Whether SECTION of FILE holds a line for KEY (names compare without regard to case).
bool hasKey(Context& c, const Text& file, const Text& section, const Text& key) {
  Variant lines = c.kvn.GetIniSection(section, file);
  if (!lines.isArray()) return false;
  for (const Variant& line : lines.array().items) {
    Text l = line.toText();
    size_t eq = l.find(u'=');
    if (eq != Text::npos && equalsNoCase(trimBlanks(l.substr(0, eq)), trimBlanks(key))) {
      return true;
    }
  }
  return false;
}

bool hasSection(Context& c, const Text& file, const Text& section) {
  Variant names = c.kvn.GetAllIniSections(file);
  if (!names.isArray()) return false;
  for (const Variant& name : names.array().items) {
    if (equalsNoCase(name.toText(), trimBlanks(section))) return true;
  }
  return false;
}

int sections(Context& c) {
  printTexts(c.kvn.GetAllIniSections(existingFile(c, 0, "FILE")), true);
  return 0;
}

int section(Context& c) {
  Variant v = c.kvn.GetIniSection(valueArg(c, 1, "SECTION"), existingFile(c, 0, "FILE"));
  if (!v.isArray()) return 1;
  printTexts(v, true);
  return 0;
}

// A missing file, section or key gives exit 1 and no output, so that an empty value and no
// value differ.
int get(Context& c) {
  Text file = pathArg(c, 0, "FILE"), sect = valueArg(c, 1, "SECTION"), key = valueArg(c, 2, "KEY");
  Text value = c.kvn.GetIniKey(sect, key, file);
  if (value.empty() && !hasKey(c, file, sect, key)) return 1;
  printValue(value);
  return 0;
}

// The value as a later read gives it back: blanks round it and one pair of quotes dropped.
Text asRead(const Text& value) {
  Text v = value;
  while (!v.empty() && (v.front() == u' ' || v.front() == u'\t'))
    v.erase(0, 1);
  while (!v.empty() && (v.back() == u' ' || v.back() == u'\t'))
    v.pop_back();
  if (v.size() >= 2 && (v.front() == u'"' || v.front() == u'\'') && v.back() == v.front()) {
    v = v.substr(1, v.size() - 2);
  }
  return v;
}

int set(Context& c) {
  Text file = pathArg(c, 0, "FILE"), sect = valueArg(c, 1, "SECTION"), key = valueArg(c, 2, "KEY");
  Text value = valueArg(c, 3, "VALUE");
  FileStamp before = stampOf(file);
  c.kvn.WriteIniKey(sect, key, value, file);
  if (writeFailedSince(before) ||
      (stampOf(file) == before && c.kvn.GetIniKey(sect, key, file) != asRead(value))) {
    failWrite("ini set", file);
  }
  return 0;
}

int clear(Context& c) {
  Text file = existingFile(c, 0, "FILE"), sect = valueArg(c, 1, "SECTION");
  c.kvn.ClearIniSection(sect, file);
  if (hasSection(c, file, sect)) failWrite("ini clear", file);
  return 0;
}

int lines(Context& c) {
  printTexts(c.kvn.ReadFile(existingFile(c, 0, "FILE")), false);
  return 0;
}

const CommandRegistrar kIni{
    {"ini", "sections", "FILE", "list the section names", sections},
    {"ini", "section", "FILE SECTION", "print a section's key=value lines", section},
    {"ini", "get", "FILE SECTION KEY",
     "print a key's value; exit 1 without output when the file, section or key is missing", get},
    {"ini", "set", "FILE SECTION KEY VALUE",
     "write a key; new lines end as the file's lines do; exit 1 if it cannot be written", set},
    {"ini", "clear", "FILE SECTION", "remove a section with its keys", clear},
    {"ini", "lines", "FILE", "print the non-empty lines as the line reader sees them", lines},
};

}  // namespace
}  // namespace zrk::cli
