// Where one extraction puts the archive's members: the output folder, the stored names that are
// refused, and the damaged records with the one question before the first of them. Members go
// into place as they come (see ExtractionFolder): all written before the question is asked, or
// before a failure ends the walk, are in place by then.
#pragma once

#include <optional>
#include <string_view>

#include <zrkKVL/Text.h>
#include "compress/ArchiveExtraction.h"
#include "platform/files/ExtractionFolder.h"

namespace zrk::archive {

class MemberOutput {
 public:
  // The folder is `diffDir` when given and not empty, else the folder that holds the archive.
  MemberOutput(const Text& archiveName, const std::optional<Text>& diffDir,
               const MemberRules& rules);

  // Writes `line` (the content and its line end) as the member `name`. A name that would leave
  // the output folder (empty, ".", "..", holding "/", "\" or NUL, which covers an absolute one)
  // is refused and reported, and nothing is written anywhere.
  void writeNamed(const Text& name, std::string_view line);

  // Counts a damaged record and writes `line` (the whole element and its line end) under the
  // archive's base name. Before the first one the user is asked; false when the answer is not
  // Yes, and nothing is written then.
  bool writeDamaged(std::string_view line);

  // Puts the written members in place and reports those that could not be.
  void flush();

 private:
  void write(const Text& name, std::string_view line);

  Text archiveName_;
  Text folder_;
  const MemberRules& rules_;
  platform::ExtractionFolder out_;
  int32_t damaged_ = 0;
  bool agreed_ = false;
};

}  // namespace zrk::archive
