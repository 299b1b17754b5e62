// archive list and archive test: an archive's members read through the extraction's own walk,
// without writing anything and without the damaged-archive question.
#include <optional>

#include <zrkKVL/Failure.h>
#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "compress/ArchiveWalk.h"
#include "platform/files/FileIO.h"
#include "platform/text/CodePage.h"

namespace zrk::cli {
namespace {

// What one record holds, as far as it can be told.
struct RecordState {
  bool whole = false;        // expanded whole, with a name and the content behind it
  std::optional<Text> name;  // the stored name, when the bar stands where a name ends
  size_t size = 0;           // the content's bytes, or all the record expanded to
};

RecordState stateOf(archive::RecordWalk& walk) {
  RecordState s{false, std::nullopt, walk.element().size()};
  if (!walk.intact()) return s;
  try {
    archive::RecordWalk::Member m = walk.member();
    s.name = m.name;
    s.size = walk.element().size() - m.contentFrom;
    s.whole = walk.expandedWhole();
  } catch (const Failure&) {  // a name length the element cannot hold
  }
  return s;
}

std::string why(const Failure& f) {
  return toUtf8(f.info().Description);
}

// Walks the archive operand, calling fn(walk) for each record. A file that cannot be read, or
// whose length list or a record cannot be cut, is a ToolError naming it; `cutRecord` says
// which record the walk stopped at, 0 before the first.
template <class Fn>
void walkArchive(const Context& c, Fn&& fn) {
  Text path = existingFile(c, 0, "ARCHIVE");
  const std::string command = commandName(c.command) + ": " + quotePath(path);
  std::optional<platform::FileImage> file;
  try {
    file.emplace(path);
  } catch (const Failure& f) {
    throw ToolError{command + ": cannot read: " + why(f)};
  }
  std::optional<archive::RecordWalk> walk;
  try {
    walk.emplace(file->bytes());
  } catch (const Failure& f) {
    throw ToolError{command + ": no archive (no length list): " + why(f)};
  }
  try {
    while (walk->next())
      fn(*walk);
  } catch (const Failure& f) {
    throw ToolError{command + ": record " + std::to_string(walk->number() + 1) +
                    " cannot be cut from the file: " + why(f)};
  }
}

// One line a record: "SIZE NAME" for a whole member, "damaged record N ..." else.
int list(Context& c) {
  walkArchive(c, [&](archive::RecordWalk& walk) {
    RecordState s = stateOf(walk);
    Text size = decimal(int64_t(s.size));
    if (s.whole) {
      printValue(size + u" " + *s.name);
    } else {
      Text record = u"damaged record " + decimal(int64_t(walk.number()));
      printValue(record + (s.name ? u": " + *s.name : Text()) + u" (" + size + u" bytes)");
    }
  });
  return 0;
}

// Silent when every record expands whole; names each damaged one on stderr and exits 1 else.
int test(Context& c) {
  const std::string where = commandName(c.command) + ": " + quotePath(pathArg(c, 0, "ARCHIVE"));
  int damaged = 0;
  walkArchive(c, [&](archive::RecordWalk& walk) {
    if (stateOf(walk).whole) return;
    ++damaged;
    printError(where + ": record " + std::to_string(walk.number()) + " is damaged");
  });
  return damaged ? 1 : 0;
}

const CommandRegistrar kArchiveListing{
    {"archive",
     "list",
     "ARCHIVE",
     "print each member's size and name, one a line; damaged records marked",
     list,
     {},
     "A member's line is its content's size in bytes (as extracted, before the CR LF that\n"
     "extraction adds), a blank and its stored name. A record that does not expand whole to a\n"
     "name and content reads \"damaged record N\", its name when it has one, and the bytes it\n"
     "expanded to. Nothing is written. A list or record that cannot be cut exits 1."},
    {"archive", "test", "ARCHIVE",
     "exit 0 when every record expands whole, 1 naming the damaged ones; writes nothing", test},
};

}  // namespace
}  // namespace zrk::cli
