// The memory map of a process opened through the handle table: where its executable, its
// libraries and its other mappings lie.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process/ProcessHandles.h"

namespace zrk::platform {

// One mapping as the system lists it; `path` is empty for anonymous memory and may be a name
// in brackets ("[heap]", "[stack]") or a file's path, " (deleted)" added when it was removed.
struct MemoryMapping {
  uint64_t start = 0;
  uint64_t end = 0;
  std::string permissions;  // "r-xp"
  uint64_t offset = 0;      // where in the file the mapping begins
  std::string path;
};

// The mappings of the process behind `process`, lowest address first; nothing when the handle
// is no open process handle with query rights, the process has ended, or its map is hidden from us.
std::optional<std::vector<MemoryMapping>> ReadProcessMappings(HANDLE process);

// One line of the system's map; nothing when it is not one.
std::optional<MemoryMapping> parseMappingLine(std::string_view line);

}  // namespace zrk::platform
