// A folder that takes many files by name, as an archive's members come out: names are matched
// without regard to case through an index of the folder built once, and each file is written
// whole by the writers' rules, relative to the open folder, with no link followed. The new
// files are made durable with one sync of the file system and then put in place together, so
// that each one is its old content or its new one, whole, without a sync per file.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>
#include "platform/SafeFile.h"

namespace zrk::platform {

class ExtractionFolder {
 public:
  // The folder as the caller names it; it is opened at the first write.
  explicit ExtractionFolder(TextView folder);
  // Puts what is still waiting in place; failures are dropped (see finish()).
  ~ExtractionFolder();
  ExtractionFolder(const ExtractionFolder&) = delete;
  ExtractionFolder& operator=(const ExtractionFolder&) = delete;

  // Writes `bytes` as the whole new content of the file `name` (a single component), in place
  // at finish(). A file whose name differs only in case is replaced under its own name; a
  // symbolic link standing there is replaced by a regular file. Failures as for any
  // whole-file write.
  void writeFile(TextView name, std::string_view bytes);

  // Puts every written file in place; gives the names that could not be, with their failures.
  std::vector<std::pair<Text, Failure>> finish();

 private:
  // The name on disk for `name`: as written when it exists or nothing matches, else the
  // entry that differs only in case.
  std::string entryFor(TextView name);
  void open();
  int syncWaiting() const;

  static constexpr size_t kSyncOneByOne = 16;  // up to this many files are synced one by one

  struct Waiting {
    Text name;          // as the caller gave it
    std::string entry;  // its name on disk
    std::string temporary;
  };

  Text folder_;
  std::string native_;
  std::optional<FolderHandle> handle_;
  std::unordered_map<Text, std::string> index_;  // lower-case name to entry
  std::vector<Waiting> waiting_;
  std::unordered_map<std::string, size_t> waitingByEntry_;  // entry to its place in waiting_
};

}  // namespace zrk::platform
