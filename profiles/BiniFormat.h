// The byte-level pieces of the packed text file: size digits and zero-ended byte arrays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk {

// "0"s in front of `text` up to `width` characters, and the whole cut to its leftmost `width`
// characters; a negative width is failure 5.
Text ZeroPadLeft(TextView text, int32_t width);

// The Size field's digits for a text of `length` characters; a length beyond eight digits
// would lose its high digits, so it is refused (failure 6).
Text SizeDigits(size_t length);

// The bytes before the first byte 0 (all of them when there is none), through the code page.
Text BytesToText(std::string_view bytes);

}  // namespace zrk
