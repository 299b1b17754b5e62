// A 64-bit address written as text, as admins copy it from a memory map or a debugger.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zrk::process {

// "0x" and up to 16 hex digits (either case), or a decimal number up to 2^64 - 1; nothing for
// anything else, a sign included.
std::optional<uint64_t> parseAddress(std::string_view text);

}  // namespace zrk::process
