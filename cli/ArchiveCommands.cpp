// archive: pack text files into an archive and write them back out.
#include <sys/stat.h>

#include <cstdio>
#include <map>

#include <zrkKVL/DialogBackend.h>
#include "cli/Command.h"
#include "cli/ToolDialogs.h"
#include "compress/ArchiveExtraction.h"
#include "platform/files/FileIO.h"
#include "platform/files/Paths.h"
#include "platform/text/CodePage.h"

namespace zrk::cli {
namespace {

// The element for one file: name length, bar, name, content. Extraction puts a CR LF behind
// every file, so one at the end of the content is left out here and the round trip is exact.
Text elementOf(const Text& path) {
  std::string bytes = platform::readAllBytes(path);
  if (bytes.size() >= 2 && bytes.compare(bytes.size() - 2, 2, "\r\n") == 0)
    bytes.resize(bytes.size() - 2);
  Text name = platform::fileNameOf(path);
  return decimal(int64_t(name.size())) + u"|" + name + platform::fromAnsi(bytes);
}

// The operands that cannot become members: a folder or another file that is not a regular one
// (a FIFO would block, a device never end), or a second file whose name (without
// regard to case, as extraction matches names) one before it has already. None is written then.
void refuseUnpackable(const std::vector<Text>& files) {
  std::map<Text, Text> byName;  // lower-case member name to its first operand
  for (const Text& file : files) {
    platform::ResolvedPath p = platform::ResolvedPath::of(file);
    if (!p.found) throw ToolError{"archive make: no file " + quotePath(file)};
    if (p.isFolder()) throw ToolError{"archive make: " + quotePath(file) + " is a folder"};
    if (!S_ISREG(p.st.st_mode)) {
      throw ToolError{"archive make: " + quotePath(file) + " is not a regular file"};
    }
    auto [first, fresh] = byName.emplace(lowerCase(platform::fileNameOf(file)), file);
    if (!fresh) {
      throw ToolError{"archive make: " + quotePath(first->second) + " and " + quotePath(file) +
                      " have one member name; nothing written"};
    }
  }
}

int make(Context& c) {
  Text archive = pathArg(c, 0, "ARCHIVE");
  std::vector<Text> files;
  for (size_t i = 1; i < c.args.size(); ++i)
    files.push_back(pathArg(c, i, "FILE"));
  refuseUnpackable(files);
  std::vector<Text> elements;
  for (const Text& file : files)
    elements.push_back(elementOf(file));
  return c.kvn.MakeArchive(Variant::textArray(std::move(elements)), archive) ? 0 : 1;
}

int extract(Context& c) {
  if (c.has("yes") && c.has("no")) throw UsageError{"archive extract: --yes or --no, not both"};
  if (c.has("yes") || c.has("no")) {
    toolDialogs().answerQuestions(c.has("yes") ? platform::mb::Yes : platform::mb::No);
  }
  Text archive = existingFile(c, 0, "ARCHIVE");
  Text folder = c.args.size() > 1 ? pathArg(c, 1, "DIR") : platform::parentOf(archive);
  if (folder.empty()) folder = u".";
  if (!platform::ResolvedPath::of(folder).isFolder()) {
    throw ToolError{"archive extract: no folder " + quotePath(folder)};
  }
  // Members go straight into place by the library's rules; without --force a file that stands
  // there under any case of the member's name stays.
  bool all = true;
  archive::MemberRules rules;
  rules.keepExisting = !c.has("force");
  rules.notice = [&](const Text& name, archive::MemberRules::Event event) {
    all = false;
    std::string shownName = quotePath(folder + u"/" + name);
    if (event == archive::MemberRules::Event::Kept) {
      printError("archive extract: " + shownName + " exists, not replaced (use --force)");
    } else {
      printError("archive extract: member " + shownName +
                 " comes twice in the archive; the later one stands");
    }
  };
  bool extracted = archive::extract(c.kvn, archive, folder, rules);
  return extracted && all ? 0 : 1;
}

const CommandRegistrar kArchive{
    {"archive", "make", "ARCHIVE FILE...",
     "pack the files, each under its own name (no folders, no two of one name)", make},
    {"archive",
     "extract",
     "ARCHIVE [DIR]",
     "write the files out into DIR (beside the archive by default)",
     extract,
     {{"force", nullptr, "replace files that exist (keeping their owner, mode and links)"},
      {"yes", nullptr, "answer Yes: write damaged records out under numbered names"},
      {"no", nullptr, "answer No: stop at the first damaged record, writing nothing after it"}},
     "Each file comes back with a CR LF added at its end (archive make leaves one off, so a file\n"
     "that ends in CR LF round-trips exactly). Each member goes into place as it comes, by the\n"
     "library's rules. An existing file (names matched without regard to case) is not replaced\n"
     "without --force; each one left, and each member name met twice, is named on stderr and the\n"
     "exit status is 1. Member names that would leave DIR (empty, \".\", \"..\", holding \"/\",\n"
     "\"\\\" or NUL) are refused. Before the first damaged record the tool asks whether to go on;\n"
     "without a terminal and without --yes, the answer is No."},
};

}  // namespace
}  // namespace zrk::cli
