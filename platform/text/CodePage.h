// The ANSI code page (Windows-1252): one byte <-> one 16-bit character at every crossing.
#pragma once

#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::platform {

char16_t fromAnsiByte(unsigned char b);
// A character outside the code page becomes '?'.
unsigned char toAnsiByte(char16_t c);

Text fromAnsi(std::string_view bytes);
std::string toAnsi(TextView text);

// The same into `out`, which holds one character or byte for each, for callers that convert
// piece by piece.
void fromAnsiInto(std::string_view bytes, char16_t* out);
void toAnsiInto(TextView text, unsigned char* out);

}  // namespace zrk::platform
