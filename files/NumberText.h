// Number texts: every byte as its number and "/".
#pragma once

#include <cstdint>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::platform {
class FileImage;
}

namespace zrk::files {

// Whether the growing buffer's spare blanks stay behind a number text.
enum class SpareTail { Kept, Trimmed };

// The number text of a file's bytes, as the growing buffer builds it from empty one piece per
// byte: decimal for radix 10, upper-case hexadecimal for 16, no leading zeros. The growing
// buffer's failures strike at the same piece, before anything is built. The text is written in
// one pass into one allocation, and the file's pages are given back as they are used.
Text numberText(platform::FileImage& file, int radix, SpareTail tail);

}  // namespace zrk::files
