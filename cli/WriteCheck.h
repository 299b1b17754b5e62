// Checks of writes that the library skips without a failure (a missing folder, a read-only file):
// the tool notices them and fails naming the path.
#pragma once

#include <string>

#include <zrkKVL/Text.h>

namespace zrk::cli {

// What identifies a file's content on disk: a rewritten file changes at least one of these.
struct FileStamp {
  bool exists = false;
  unsigned long long device = 0, inode = 0, size = 0;
  long long modifiedNs = 0;
  bool operator==(const FileStamp&) const = default;
};
FileStamp stampOf(TextView path);

// Why `path` cannot be written, as a short phrase ("folder does not exist", "file is
// read-only", ...); "not written" when nothing explains it.
std::string whyNotWritable(TextView path);

// The ToolError for a write of `command` that did not happen.
[[noreturn]] void failWrite(const char* command, TextView path);

}  // namespace zrk::cli
