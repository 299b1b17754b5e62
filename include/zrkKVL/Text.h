// Text on the library's interface: 16-bit characters, as the component's strings.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <zrkKVL/Export.h>

namespace zrk {

using Text = std::u16string;
using TextView = std::u16string_view;

// Plain ASCII to Text, for literals built at run time.
ZRK_API Text ascii(std::string_view s);

// Decimal form of a whole number, no padding.
ZRK_API Text decimal(int64_t n);

// Every occurrence of `what` replaced by `with`, compared exactly.
ZRK_API Text replaceAll(TextView in, TextView what, TextView with);

// The parts between the separators, compared exactly; an empty text gives no parts.
ZRK_API std::vector<Text> split(TextView in, TextView separator);

// Spaces taken off both ends.
ZRK_API Text trimBlanks(TextView s);

// Letters lower-cased (every capital of the ANSI code page); everything else unchanged.
ZRK_API Text lowerCase(TextView s);

// Equality without regard to case (ASCII and Latin-1 letters).
ZRK_API bool equalsNoCase(TextView a, TextView b);

// UTF-16 <-> UTF-8, for file names, process names and the terminal. The bytes of a name need
// not be UTF-8: each byte that does not belong to a well-formed UTF-8 sequence (0x80 to 0xFF)
// becomes a character of its own, U+DC80 to U+DCFF (the lone low surrogate 0xDC00 + byte), and
// such a character becomes its byte again. So fromUtf8 never loses a byte, toUtf8(fromUtf8(b))
// is b for any bytes b, and two different names never give one text. A lone surrogate outside
// that range goes out as its three-byte form.
ZRK_API std::string toUtf8(TextView s);
ZRK_API Text fromUtf8(std::string_view s);

// The character that stands for a byte outside UTF-8, and the test for one.
inline constexpr char16_t strayByteCharacter(unsigned char byte) {
  return char16_t(0xDC00 + byte);
}
inline constexpr bool isStrayByteCharacter(char16_t c) {
  return c >= 0xDC80 && c <= 0xDCFF;
}

}  // namespace zrk
