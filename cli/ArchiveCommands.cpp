// archive: pack text files into an archive and write them back out.
#include <stdlib.h>

#include <cstdio>
#include <filesystem>

#include <zrkKVL/DialogBackend.h>
#include "cli/Command.h"
#include "cli/ToolDialogs.h"
#include "platform/CodePage.h"
#include "platform/Paths.h"

namespace zrk::cli {
namespace {

namespace fs = std::filesystem;

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
  Text archive = pathArg(c, 0, "ARCHIVE");
  std::vector<Text> elements;
  for (size_t i = 1; i < c.args.size(); ++i)
    elements.push_back(elementOf(c.args[i]));
  return c.kvn.MakeArchive(Variant::textArray(std::move(elements)), archive) ? 0 : 1;
}

// A fresh folder inside `folder` that only this run uses.
fs::path scratchFolderIn(const fs::path& folder) {
  std::string tmpl = (folder / ".zrkkvl-extract-XXXXXX").string();
  if (!::mkdtemp(tmpl.data())) {
    throw ToolError{"archive extract: cannot write in " + quotePath(fromUtf8(folder.string()))};
  }
  return tmpl;
}

// Moves each extracted file from `scratch` into `folder`; an existing file stays unless `force`.
// Gives false when a file was left out.
bool moveInto(const fs::path& scratch, const fs::path& folder, bool force) {
  bool all = true;
  for (const auto& entry : fs::directory_iterator(scratch)) {
    fs::path target = folder / entry.path().filename();
    if (!force && fs::exists(fs::symlink_status(target))) {
      std::fprintf(stderr, "zrkkvl: archive extract: %s exists, not replaced (use --force)\n",
                   quotePath(fromUtf8(target.string())).c_str());
      all = false;
      continue;
    }
    fs::rename(entry.path(), target);  // replaces a file or link standing there, never follows it
  }
  return all;
}

int extract(Context& c) {
  if (c.has("yes") && c.has("no")) throw UsageError{"archive extract: --yes or --no, not both"};
  if (c.has("yes") || c.has("no")) {
    toolDialogs().answerQuestions(c.has("yes") ? platform::mb::Yes : platform::mb::No);
  }
  Text archive = pathArg(c, 0, "ARCHIVE");
  if (!fs::is_regular_file(platform::nativePath(archive))) {
    throw ToolError{"archive extract: no archive " + quotePath(archive)};
  }
  Text folderText = c.args.size() > 1 ? pathArg(c, 1, "DIR") : platform::parentOf(archive);
  fs::path folder = platform::nativePath(folderText.empty() ? Text(u".") : folderText);
  if (!fs::is_directory(folder))
    throw ToolError{"archive extract: no folder " + quotePath(folderText)};

  fs::path scratch = scratchFolderIn(folder);
  bool extracted = false, moved = false;
  try {
    extracted = c.kvn.ExtractArchive(archive, fromUtf8(scratch.string()));
    moved = moveInto(scratch, folder, c.has("force"));
  } catch (...) {
    fs::remove_all(scratch);
    throw;
  }
  fs::remove_all(scratch);
  return extracted && moved ? 0 : 1;
}

const CommandRegistrar kArchive{
    {"archive", "make", "ARCHIVE FILE...", "pack the files, each under its own name", make},
    {"archive",
     "extract",
     "ARCHIVE [DIR]",
     "write the files out into DIR (beside the archive by default)",
     extract,
     {{"force", nullptr, "replace files that exist"},
      {"yes", nullptr, "write damaged records out without asking"},
      {"no", nullptr, "skip damaged records without asking"}},
     "Each file comes back with a CR LF added at its end (archive make leaves one off, so a file\n"
     "that ends in CR LF round-trips exactly). An existing file is not replaced without --force;\n"
     "each one left is named on stderr and the exit status is 1. Before the first damaged record\n"
     "the tool asks whether to write damaged records out; without a terminal and without --yes,\n"
     "the answer is No."},
};

}  // namespace
}  // namespace zrk::cli
