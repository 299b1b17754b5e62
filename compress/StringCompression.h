// The zlib helpers behind CompressString and DecompressString that other readers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::compression {

// The longest text a zlib stream of `streamLength` bytes can expand to: a bound for a length
// read from a file, which may be damaged or made up.
int32_t maxExpandedLength(size_t streamLength);

// What the stream expands to in the work buffer for `origSize`, or nothing when zlib could not
// expand it whole (damaged, cut short, or larger than the buffer).
std::optional<Text> expandWhole(const Text& stream, int32_t origSize);

// The same on bytes, one byte per character.
std::optional<std::string> expandWhole(std::string_view stream, int32_t origSize);

// The stream that CompressString makes of the same characters, on bytes.
std::string compressBytes(std::string_view bytes);

}  // namespace zrk::compression
