// The one path resolver: caller paths with "\" or "/" to native paths, names matched without
// regard to case.
#pragma once

#include <string>

#include <zrkKVL/Text.h>

namespace zrk::platform {

inline constexpr char16_t kSep = u'/';

bool isSeparator(char16_t c);

// The native (UTF-8) path for `path`. Each component that does not exist as written resolves to
// an existing entry of its folder that differs only in case; the rest stays as written.
std::string nativePath(TextView path);

// Parent folder of a path as the caller wrote it (no trailing separator), "" when it has none.
Text parentOf(TextView path);
// Last component of a path.
Text fileNameOf(TextView path);

}  // namespace zrk::platform
