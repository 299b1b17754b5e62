// The one path resolver: caller paths with "\" or "/" to native paths, names matched without
// regard to case.
#pragma once

#include <sys/stat.h>

#include <string>

#include <zrkKVL/Text.h>

namespace zrk::platform {

inline constexpr char16_t kSep = u'/';

bool isSeparator(char16_t c);

// The native (UTF-8) path for `path`. Each component that does not exist as written resolves to
// an existing entry of its folder that differs only in case; the rest stays as written.
std::string nativePath(TextView path);

// A caller's path resolved once together with what stat (links followed) says of it, so that a
// test for the file and the use of it share one lookup. A path that exists as written costs
// one stat; only a path that does not is walked folder by folder.
struct ResolvedPath {
  std::string native;
  bool found = false;  // whether stat succeeded; `st` holds its answer
  struct stat st {};

  static ResolvedPath of(TextView path);
  bool isFolder() const { return found && S_ISDIR(st.st_mode); }
};

// Parent folder of a path as the caller wrote it (no trailing separator), "" when it has none.
Text parentOf(TextView path);
// Last component of a path.
Text fileNameOf(TextView path);

}  // namespace zrk::platform
