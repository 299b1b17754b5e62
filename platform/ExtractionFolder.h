// A folder that takes many files by name, as an archive's members come out: names are matched
// without regard to case through an index of the folder built once, and each file is written
// whole by the writers' rules, relative to the open folder, with no link followed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include <zrkKVL/Text.h>
#include "platform/SafeFile.h"

namespace zrk::platform {

class ExtractionFolder {
 public:
  // The folder as the caller names it; it is opened at the first write.
  explicit ExtractionFolder(TextView folder);
  // Writes `bytes` as the whole content of the file `name` (a single component). A file whose
  // name differs only in case is replaced under its own name; a symbolic link standing there
  // is replaced by a regular file. Failures as for any whole-file write.
  void writeFile(TextView name, std::string_view bytes);

 private:
  // The name on disk for `name`: as written when it exists or nothing matches, else the
  // entry that differs only in case.
  std::string entryFor(TextView name);

  Text folder_;
  std::string native_;
  std::optional<FolderHandle> handle_;
  std::optional<std::unordered_map<Text, std::string>> index_;  // lower-case name to entry
};

}  // namespace zrk::platform
