// ini: settings files from the command line.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "cli/WriteCheck.h"
#include "platform/files/Paths.h"
#include "platform/ini/ProfileOps.h"

namespace zrk::cli {
namespace {

// The array's texts, the last one left out when `dropLast` (the lists end in an empty entry).
void printTexts(const Variant& v, bool dropLast) {
  if (!v.isArray()) return;
  const VariantArray& a = v.array();
  for (int32_t i = a.lowerBound; i <= a.upperBound() - (dropLast ? 1 : 0); ++i)
    printValue(a.at(i).toText());
}

// Fails for a file that exists but that the caller may not read: read as missing, it would
// pass for a missing key.
void refuseUnreadable(const Context& c, const Text& path) {
  int fd = ::open(platform::nativePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd >= 0) {
    ::close(fd);
  } else if (errno != ENOENT && errno != ENOTDIR) {
    throw ToolError{commandName(c.command) + ": cannot read " + quotePath(path) + ": " +
                    std::strerror(errno)};
  }
}

// The file operand at `index`, refused when it exists but cannot be read.
Text readableFile(const Context& c, size_t index) {
  Text path = pathArg(c, index, "FILE");
  refuseUnreadable(c, path);
  return path;
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

// A key=value line of a section split at its first "=", the name without its blanks.
struct KeyLine {
  Text name, value;
};

// The key lines of SECTION in FILE, through the section reader, which cuts nothing; nothing
// when the file or the section is missing.
std::optional<std::vector<KeyLine>> keyLines(Context& c, const Text& file, const Text& section) {
  Variant lines = c.kvn.GetIniSection(section, file);
  if (!lines.isArray() || lines.array().items.empty()) return std::nullopt;
  std::vector<KeyLine> keys;
  for (const Variant& line : lines.array().items) {
    Text l = line.toText();
    size_t eq = l.find(u'=');
    if (eq != Text::npos) keys.push_back({trimBlanks(l.substr(0, eq)), l.substr(eq + 1)});
  }
  return keys;
}

// The value of the first KEY in SECTION as the engine reads it, however long; nothing when the
// file, section or key is missing.
std::optional<Text> keyValue(Context& c, const Text& file, const Text& section, const Text& key) {
  if (trimBlanks(key).empty()) return std::nullopt;
  auto keys = keyLines(c, file, section);
  if (!keys) return std::nullopt;
  for (const KeyLine& k : *keys) {
    if (equalsNoCase(k.name, trimBlanks(key))) return asRead(k.value);
  }
  return std::nullopt;
}

// Every section name of FILE, read with a list buffer that the file's own length bounds: the
// names and their NULs are never longer than their heads.
std::vector<Text> sectionNames(const Text& file) {
  int64_t length = int64_t(stampOf(file).size);
  platform::SectionNames list =
      platform::allSectionNames(file, std::max<int64_t>(length + 3, 1024));
  if (!list.whole) throw ToolError{"ini: " + quotePath(file) + " is too large"};
  return std::move(list.names);
}

bool hasSection(const Text& file, const Text& section) {
  for (const Text& name : sectionNames(file)) {
    if (equalsNoCase(name, trimBlanks(section))) return true;
  }
  return false;
}

// The file operand at `index`, which must exist and be readable.
Text existingReadableFile(const Context& c, size_t index) {
  readableFile(c, index);
  return existingFile(c, index, "FILE");
}

int sections(Context& c) {
  for (const Text& name : sectionNames(existingReadableFile(c, 0)))
    printValue(name);
  return 0;
}

int section(Context& c) {
  Variant v = c.kvn.GetIniSection(valueArg(c, 1, "SECTION"), existingReadableFile(c, 0));
  if (!v.isArray()) return 1;
  printTexts(v, true);
  return 0;
}

// A missing file, section or key gives exit 1 and no output, so that an empty value and no
// value differ. A key holding "=" is searched in the raw lines, as the library's lookup does.
// A value found shows the file readable; only a miss asks whether the file could be read.
int get(Context& c) {
  Text file = pathArg(c, 0, "FILE"), sect = valueArg(c, 1, "SECTION"), key = valueArg(c, 2, "KEY");
  std::optional<Text> value;
  if (key.find(u'=') == Text::npos) {
    value = keyValue(c, file, sect, key);
  } else if (Text raw = c.kvn.GetIniKey(sect, key, file); !raw.empty()) {
    value = std::move(raw);
  }
  if (!value) {
    refuseUnreadable(c, file);
    return 1;
  }
  printValue(*value);
  return 0;
}

// Each key name of the section once, as first written; exit 1 when there is none.
int keys(Context& c) {
  Text file = pathArg(c, 0, "FILE"), sect = valueArg(c, 1, "SECTION");
  auto lines = keyLines(c, file, sect);
  if (!lines) {
    refuseUnreadable(c, file);
    return 1;
  }
  std::vector<Text> names;
  for (const KeyLine& k : *lines) {
    bool seen = std::any_of(names.begin(), names.end(),
                            [&](const Text& n) { return equalsNoCase(n, k.name); });
    if (!seen) names.push_back(k.name);
  }
  for (const Text& name : names)
    printValue(name);
  return names.empty() ? 1 : 0;
}

// Writes through the engine, whose result says whether the write happened: a null value
// removes the key, a null key the section with its keys.
void writeEntry(const Context& c, const Text& file, const Text& section, const Text* key,
                const Text* value) {
  if (!platform::WritePrivateProfileStringA(&section, key, value, file)) {
    failWrite(commandName(c.command).c_str(), file);
  }
}

int set(Context& c) {
  Text file = readableFile(c, 0), sect = valueArg(c, 1, "SECTION"), key = valueArg(c, 2, "KEY");
  Text value = valueArg(c, 3, "VALUE");
  writeEntry(c, file, sect, &key, &value);
  return 0;
}

int unset(Context& c) {
  Text file = readableFile(c, 0), sect = valueArg(c, 1, "SECTION"), key = valueArg(c, 2, "KEY");
  if (!keyValue(c, file, sect, key)) return 1;
  writeEntry(c, file, sect, &key, nullptr);
  return 0;
}

int removeSection(Context& c) {
  Text file = readableFile(c, 0), sect = valueArg(c, 1, "SECTION");
  if (!hasSection(file, sect)) return 1;
  writeEntry(c, file, sect, nullptr, nullptr);
  return 0;
}

// As remove-section, but a section that is not there is no failure.
int clear(Context& c) {
  Text file = existingReadableFile(c, 0), sect = valueArg(c, 1, "SECTION");
  if (hasSection(file, sect)) writeEntry(c, file, sect, nullptr, nullptr);
  return 0;
}

int lines(Context& c) {
  Text file = existingReadableFile(c, 0);
  printTexts(c.kvn.ReadFile(file), false);
  return 0;
}

const CommandRegistrar kIni{
    {"ini", "sections", "FILE", "list the section names", sections},
    {"ini", "section", "FILE SECTION", "print a section's key=value lines", section},
    {"ini", "keys", "FILE SECTION",
     "list a section's key names; exit 1 when the file or section is missing or holds none", keys},
    {"ini", "get", "FILE SECTION KEY",
     "print a key's value; exit 1 without output when the file, section or key is missing", get},
    {"ini", "set", "FILE SECTION KEY VALUE",
     "write a key; new lines end as the file's lines do; exit 1 if it cannot be written", set},
    {"ini", "unset", "FILE SECTION KEY", "remove a key's line; exit 1 when there is no such key",
     unset},
    {"ini", "remove-section", "FILE SECTION",
     "remove a section with its keys; exit 1 when there is no such section", removeSection},
    {"ini", "clear", "FILE SECTION",
     "remove a section with its keys; a missing section is no failure", clear},
    {"ini", "lines", "FILE", "print the non-empty lines as the line reader sees them", lines},
};

}  // namespace
}  // namespace zrk::cli
