// What a shared object says of itself: the name (SONAME) recorded in its ELF dynamic section.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::platform {

// The SONAME of the ELF shared object at `path` ("libstats.so.2"), of either class and byte
// order; nothing for a file that can't be read, is no ELF file or records none.
std::optional<std::string> sharedObjectName(TextView path);

// The same from a file's bytes.
std::optional<std::string> sharedObjectNameOf(std::string_view elf);

}  // namespace zrk::platform
