// Text work shared by the file and text helpers: the growing buffer, blank trimming,
// lower-casing and number texts.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/Text.h"

namespace zrk::files {

// Appends `add` to the growing buffer `buf` whose first `len` characters are in use. When the
// piece does not fit, the buffer grows by the whole new fill level (len + size of `add`) in
// blanks, so a long text costs amortised constant work per piece. Failure 6 when the fill level
// leaves the 32-bit range, 5 when `len` is negative.
void appendToBuffer(Text& buf, int32_t& len, TextView add);

// Blanks (spaces) taken off both ends.
Text trimBlanks(TextView s);

// Letters lower-cased (ASCII and Latin-1); everything else unchanged.
Text lowerCase(TextView s);

// Appends each byte as its number and "/" to the growing buffer: decimal for radix 10,
// upper-case hexadecimal for radix 16, no leading zeros.
void appendNumberText(Text& buf, int32_t& len, std::string_view bytes, int radix);

// The whole number a text gives, as the interface converts text to a 32-bit number: failure 13
// when it is not numeric, 6 when it is out of range.
int32_t numberFromText(TextView s);

}  // namespace zrk::files
