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

// The byte of every character, built once: the character's own value below 0x80 and from 0xA0
// to 0xFF, the page's byte for its extra characters, "?" for everything else. One lookup per
// character keeps the conversion of byte-holding text (compressed streams) free of searches.
const std::array<unsigned char, 65536>& byteTable() {
  static const auto table = [] {
    std::array<unsigned char, 65536> t;
    t.fill('?');
    for (unsigned c = 0; c <= 0xFF; ++c) {
      if (c < 0x80 || c >= 0xA0) t[c] = static_cast<unsigned char>(c);
    }
    for (int i = 0; i < 32; ++i)
      t[kHigh[i]] = static_cast<unsigned char>(0x80 + i);
    return t;
  }();
  return table;
}

// The byte's character as a local function: the whole-string loop inlines it, which it could not
// do with the exported one in a shared library.
inline char16_t charOfByte(unsigned char b) {
  return (b >= 0x80 && b < 0xA0) ? kHigh[b - 0x80] : b;
}

}  // namespace

char16_t fromAnsiByte(unsigned char b) {
  return charOfByte(b);
}

unsigned char toAnsiByte(char16_t c) {
  return byteTable()[c];
}

Text fromAnsi(std::string_view bytes) {
  Text out(bytes.size(), u'\0');
  for (size_t i = 0; i < bytes.size(); ++i)
    out[i] = charOfByte(static_cast<unsigned char>(bytes[i]));
  return out;
}

std::string toAnsi(TextView text) {
  const auto& table = byteTable();
  std::string out(text.size(), '\0');
  for (size_t i = 0; i < text.size(); ++i)
    out[i] = static_cast<char>(table[text[i]]);
  return out;
}

}  // namespace zrk::platform
