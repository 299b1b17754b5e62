// The base64 text of byte-holding strings, and the two-digit hex form of a number.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk {

// The standard alphabet with "=" padding and no line breaks; each character of `bytes` is one
// byte through the code page.
Text Base64Encode(TextView bytes);

// The inverse, as lenient as its table: a character outside the alphabet counts as 64. Fails
// with 9 for lengths 1 to 3 and for a last group of 2 or 3 characters, with 6 when a group opens
// with a character outside the alphabet. "=" in the last two characters drops the padded bytes.
Text Base64Decode(TextView text);

// The same two on bytes, one byte per character, for callers that hold bytes already.
std::string base64EncodeBytes(std::string_view bytes);
std::string base64DecodeBytes(std::string_view text);

// Upper-case hexadecimal, at least two digits; a negative value gives its 8 two's-complement
// digits.
Text TwoDigitHex(int32_t value);

}  // namespace zrk
