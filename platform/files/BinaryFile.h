// The binary open of the runtime: read and write at byte positions under a free file number.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>
#include "platform/files/FileIO.h"

namespace zrk::platform {

// Opens for reading and writing, making a missing file and keeping an existing one as it is; a
// file that refuses writing is opened for reading. 52 empty name, 75 a folder or a file that is
// not a regular one, 76 no such folder.
class BinaryFile {
 public:
  explicit BinaryFile(TextView path);
  // Fills `into` from the 1-based `position`; bytes past the end of the file stay as they were.
  void readAt(int64_t position, std::string& into);
  // Writes the bytes at the 1-based `position`.
  void writeAt(int64_t position, std::string_view bytes);
  // Closes now, reporting a lost write.
  void close() { handle_.close(); }

 private:
  FileNumber number_;
  std::string path_;  // native, for the fault seam
  FileHandle handle_;
};

}  // namespace zrk::platform
