// Stand-in for the platform's file-system object: folder and file tests, creation, copying,
// deletion, file information. A refusal is a Failure with the runtime's number.
#pragma once

#include <cstdint>
#include <vector>

#include <zrkKVL/Text.h>
#include "platform/files/Paths.h"

namespace zrk::platform {

struct FileInfo {
  int64_t Size = 0;
  Text ParentFolderPath;
  Text Name;
  bool ReadOnly = false;
};

struct FolderInfo {
  Text Path;
  std::vector<Text> FileNames;  // the files (not folders) it holds, in name order
};

class FileSystemObject {
 public:
  bool FileExists(TextView path) const;
  // The same for a path resolved already.
  bool FileExists(const ResolvedPath& path) const;
  bool FolderExists(TextView path) const;
  // Makes one folder whose parent exists: 58 if anything holds the name, 76 without a parent.
  void CreateFolder(TextView path) const;
  // Removes the folder with all it holds; with force off a read-only item refuses (70). A link
  // at the path or inside goes as a link, never followed.
  void DeleteFolder(TextView path, bool force = false) const;
  // Copies the folder with all it holds, making the destination if missing: owner, group (where
  // the caller may set them), modes and links as links kept. Into itself: 5.
  void CopyFolder(TextView source, TextView destination, bool overwrite = true) const;
  // Moves the folder: one rename where it can be, else a copy merged into the destination and
  // the source removed. A destination that is the source in other letter case renames it to
  // the letters written. Into itself: 5; a missing source: 76.
  void MoveFolder(TextView source, TextView destination) const;
  // Removes a file: 53 if missing, 70 if read-only and not forced.
  void DeleteFile(TextView path, bool force = false) const;
  FileInfo GetFile(TextView path) const;
  FolderInfo GetFolder(TextView path) const;
  // The file's version as text, empty where it has none.
  Text GetFileVersion(TextView path) const;
  // Creates the file empty or empties it.
  void CreateTextFile(TextView path, bool overwrite = true) const;
};

}  // namespace zrk::platform
