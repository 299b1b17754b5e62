// A folder that takes many files by name, as an archive's members come out: names are matched
// without regard to case through an index of the folder built once, and each file is written
// whole by the writers' rules, relative to the open folder, with no link followed. Files go into
// place as the extraction goes, a few at a time: the new contents wait as unnamed files (nothing
// of them is left on disk by a kill), are made durable together with one sync, and are then each
// linked under a new name or renamed over an old file, so that each one is its old content or its
// new one, whole. The folder itself is synced by flush(): a crash before it may lose names put in
// place since, never a content.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>
#include "platform/files/SafeFile.h"

namespace zrk::platform {

class ExtractionFolder {
 public:
  // The folder as the caller names it; it is opened at the first write.
  explicit ExtractionFolder(TextView folder);
  // Puts what is still waiting in place; failures are dropped (see flush()).
  ~ExtractionFolder();
  ExtractionFolder(const ExtractionFolder&) = delete;
  ExtractionFolder& operator=(const ExtractionFolder&) = delete;

  // What writeFile() does where a file of the name (without regard to case) stands now, as a
  // file, a folder or a link: replaces it, or keeps it and writes nothing.
  enum class Existing { Replace, Keep };

  // Writes `bytes` as the whole new content of the file `name` (a single component); it is in
  // place at the latest when the batch it waits in is full, or at flush(). A file whose name
  // differs only in case is replaced under its own name; a symbolic link standing there is
  // replaced by a regular file. Failures as for any whole-file write. False when a file was
  // kept.
  bool writeFile(TextView name, std::string_view bytes, Existing existing = Existing::Replace);

  // Whether writeFile() has taken a file of this name (without regard to case).
  bool wrote(TextView name) const;

  // Puts every written file in place and syncs the folder; gives the names that could not be
  // put in place, with their failures.
  std::vector<std::pair<Text, Failure>> flush();

  // A batch holds at most kBatchFiles files and no more than a kDescriptorShare-th of the
  // open-file limit (each waiting file holds a descriptor), or kBatchBytes.
  static constexpr size_t kBatchFiles = 256;
  static constexpr size_t kDescriptorShare = 4;
  static constexpr size_t kBatchBytes = size_t(16) << 20;  // bytes waiting at most

 private:
  // The name on disk for `name` (whose lower case is `lower`): as written when it exists or
  // nothing matches, else the entry that differs only in case.
  std::string entryFor(TextView name, const Text& lower);
  void open();
  size_t batchFiles() const;
  void dropWaiting(const std::string& entry);
  // Puts the waiting files in place, leaving the folder's sync to flush().
  void putWaiting();

  static constexpr size_t kSyncOneByOne = 4;  // up to this many files are synced one by one

  struct Waiting {
    Text name;          // as the caller gave it
    std::string entry;  // its name on disk
    std::unique_ptr<FileReplacement> file;
  };
  int syncWaiting(const std::vector<Waiting>& batch) const;

  Text folder_;
  std::string native_;
  std::optional<FolderHandle> handle_;
  struct Entry {
    std::string name;      // on disk
    bool written = false;  // by writeFile()
  };
  std::unordered_map<Text, Entry> index_;  // by lower-case name
  std::vector<Waiting> waiting_;
  size_t batchFiles_ = kBatchFiles;  // for this process's open-file limit
  size_t waitingBytes_ = 0;
  std::vector<std::pair<Text, Failure>> failed_;  // names not put in place, since flush()
  bool unsynced_ = false;                         // names put in place since the folder's sync
};

}  // namespace zrk::platform
