// archive: pack text files into an archive and write them back out.
#include "cli/Command.h"
#include "platform/CodePage.h"
#include "platform/Paths.h"

namespace zrk::cli {
namespace {

// The element for one file: name length, bar, name, content. Extraction puts a CR LF behind
// every file, so one at the end of the content is left out here and the round trip is exact.
Text elementOf(const std::string& path) {
  std::string bytes = readInput(path);
  if (bytes.size() >= 2 && bytes.compare(bytes.size() - 2, 2, "\r\n") == 0)
    bytes.resize(bytes.size() - 2);
  Text name = platform::fileNameOf(fromUtf8(path));
  return decimal(int64_t(name.size())) + u"|" + name + platform::fromAnsi(bytes);
}

int make(Context& c) {
  Text archive = textArg(c, 0, "ARCHIVE");
  arg(c, 1, "FILE");
  std::vector<Text> elements;
  for (size_t i = 1; i < c.args.size(); ++i)
    elements.push_back(elementOf(c.args[i]));
  return c.kvn.MakeArchive(Variant::textArray(std::move(elements)), archive) ? 0 : 1;
}

int extract(Context& c) {
  Text archive = textArg(c, 0, "ARCHIVE");
  std::optional<Text> folder;
  if (c.args.size() > 1) folder = textArg(c, 1, "DIR");
  return c.kvn.ExtractArchive(archive, folder) ? 0 : 1;
}

const CommandRegistrar kArchive{
    {"archive", "make", "ARCHIVE FILE...", "pack the files, each under its own name", make},
    {"archive", "extract", "ARCHIVE [DIR]", "write the files out (beside the archive by default)",
     extract},
};

}  // namespace
}  // namespace zrk::cli
