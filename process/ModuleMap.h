// Where a module (the executable or a library) of a process lies, from its memory map.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/ProcessMaps.h"

namespace zrk::process {

// Whether a mapping's file is `name`: its full path when `name` holds a "/", its file name
// otherwise. A file removed since it was mapped matches without the " (deleted)" mark.
bool isModule(const platform::MemoryMapping& mapping, std::string_view name);

// The load address of module `name`: the lowest mapping of its file from the file's first byte,
// where its header lies. Nothing when no such mapping exists.
std::optional<uint64_t> moduleBase(const std::vector<platform::MemoryMapping>& mappings,
                                   std::string_view name);

}  // namespace zrk::process
