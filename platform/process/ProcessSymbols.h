// The symbols of a module's ELF file: where a named variable or function lies in the file's
// own addresses, and where the file's first byte is meant to be loaded.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/process/ElfFile.h"
#include "platform/process/ProcessHandles.h"

namespace zrk::platform {

// The symbol `name` defined in the ELF file at `path`, from its symbol table or, in a stripped
// file, its dynamic symbols. Nothing for a file that is no ELF file, a symbol only referred to,
// or a thread-local one (its value is no address).
std::optional<ElfSymbol> findElfSymbol(const std::string& path, std::string_view name);

// The same for the file at `path` as the process behind `process` sees it (through its root
// folder, which may be a container's); nothing once the process has ended.
std::optional<ElfSymbol> findModuleSymbol(HANDLE process, const std::string& path,
                                          std::string_view name);

}  // namespace zrk::platform
