// Where a module (the executable or a library) of a process lies, from its memory map.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/process/ProcessMaps.h"

namespace zrk::process {

// Whether a mapping's file is `name`: its full path when `name` holds a "/", its file name
// otherwise. A file removed since it was mapped matches without the " (deleted)" mark.
bool isModule(const platform::MemoryMapping& mapping, std::string_view name);

// The mapping where module `name` is loaded: the lowest mapping of its file from the file's
// first byte, where its header lies; its start is the load address. Nothing when no such
// mapping exists.
std::optional<platform::MemoryMapping> moduleMapping(
    const std::vector<platform::MemoryMapping>& mappings, std::string_view name);

// Where the symbol with the value `symbol` lies in memory, for a module loaded at `base` whose
// file's first byte belongs at `fileBase` in the file's own layout.
uint64_t loadedAddress(uint64_t base, uint64_t fileBase, uint64_t symbol);

}  // namespace zrk::process
