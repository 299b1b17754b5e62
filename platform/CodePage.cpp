// Windows-1252 as Windows converts it: 0x80-0x9F hold the page's extra characters, and its five
// unassigned bytes map to the C1 controls of the same value, so all 256 bytes round-trip.
#include "platform/CodePage.h"

#include <array>

namespace zrk::platform {
namespace {

constexpr char16_t kHigh[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80-87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88-8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90-97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98-9F
};

// Reverse map for the characters of 0x80-0x9F that are not their own byte value.
unsigned char reverseHigh(char16_t c) {
  for (int i = 0; i < 32; ++i) {
    if (kHigh[i] == c) return static_cast<unsigned char>(0x80 + i);
  }
  return '?';
}

// The conversions as local functions: the whole-string loops inline them, which they could not
// do with the exported ones in a shared library.
inline char16_t charOfByte(unsigned char b) {
  return (b >= 0x80 && b < 0xA0) ? kHigh[b - 0x80] : b;
}

inline unsigned char byteOfChar(char16_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<unsigned char>(c);
  return reverseHigh(c);
}

}  // namespace

char16_t fromAnsiByte(unsigned char b) {
  return charOfByte(b);
}

unsigned char toAnsiByte(char16_t c) {
  return byteOfChar(c);
}

Text fromAnsi(std::string_view bytes) {
  Text out(bytes.size(), u'\0');
  for (size_t i = 0; i < bytes.size(); ++i)
    out[i] = charOfByte(static_cast<unsigned char>(bytes[i]));
  return out;
}

std::string toAnsi(TextView text) {
  std::string out(text.size(), '\0');
  for (size_t i = 0; i < text.size(); ++i)
    out[i] = static_cast<char>(byteOfChar(text[i]));
  return out;
}

}  // namespace zrk::platform
