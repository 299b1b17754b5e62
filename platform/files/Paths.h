// The one path resolver: caller paths with "\" or "/" to native paths, names matched without
// regard to case.
#pragma once

#include <sys/stat.h>

#include <string>

#include <zrkKVL/Text.h>

namespace zrk::platform {

inline constexpr char16_t kSep = u'/';

bool isSeparator(char16_t c);

// The one conversion of a name (a file or folder name, or a whole path) to the system's bytes:
// UTF-8, each character U+DC80 to U+DCFF going out as the byte it stands for (see fromUtf8), so
// that any name read from the system comes back to it unchanged. Failure 52 (bad file name) for
// a text the system cannot be given exactly, before anything is opened: one holding a NUL, which
// the system would take for the name's end, or one that is not what its own bytes read back as
// (a lone surrogate, stray-byte characters that together spell UTF-8), so that no two texts
// name one file.
std::string nativeName(TextView name);
// The text of a name the system gives (a folder's entry, a process's executable); never fails.
Text textOfNativeName(std::string_view native);

// The native (UTF-8) path for `path`, through nativeName. Each component that does not exist as
// written resolves to an existing entry of its folder that differs only in case; the rest stays as
// written.
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

// Whether `name` can be one entry of a folder and reach nothing outside it: not empty, not "."
// or "..", without a separator ("/" or "\") or a NUL (at which the system would cut it short).
// Names from different sources share this one check; `alsoRefused` holds the characters that
// one source cannot hold in its names besides (a profile name is also an INI section head, which
// a line end or a "]" would break), while an archive member's name needs no more.
bool isEntryName(TextView name, TextView alsoRefused = {});

}  // namespace zrk::platform
