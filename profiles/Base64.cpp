// Table-driven base64 over byte-holding strings.
#include "profiles/Base64.h"

#include <array>

#include "core/Failure.h"
#include "platform/CodePage.h"

namespace zrk {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kOutside = 64;  // every byte outside the alphabet, "=" among them

constexpr std::array<unsigned char, 256> kDecodeTable = [] {
  std::array<unsigned char, 256> t{};
  t.fill(kOutside);
  for (int i = 0; i < 64; ++i)
    t[static_cast<unsigned char>(kAlphabet[i])] = static_cast<unsigned char>(i);
  return t;
}();

// One character as its byte; the common characters skip the code-page lookup.
inline unsigned char byteOf(char16_t c) {
  return (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) ? static_cast<unsigned char>(c)
                                                : platform::toAnsiByte(c);
}

inline char16_t charOf(unsigned char b) {
  return (b < 0x80 || b >= 0xA0) ? char16_t(b) : platform::fromAnsiByte(b);
}

inline unsigned d(char16_t c) {
  return kDecodeTable[byteOf(c)];
}

// The three bytes of the group at `in`; a first value that does not fit a byte overflows.
inline void decodeGroup(const char16_t* in, char16_t* out) {
  unsigned d0 = d(in[0]), d1 = d(in[1]), d2 = d(in[2]), d3 = d(in[3]);
  unsigned first = (d0 * 4) | (d1 >> 4);
  if (first > 255) throw Failure(err::Overflow);
  out[0] = charOf(static_cast<unsigned char>(first));
  out[1] = charOf(static_cast<unsigned char>(((d1 & 15) * 16) | (d2 >> 2)));
  out[2] = charOf(static_cast<unsigned char>(((d2 & 3) * 64) | d3));
}

}  // namespace

Text Base64Encode(TextView bytes) {
  const size_t n = bytes.size();
  if (n == 0) return Text();
  Text out((n + 2) / 3 * 4, u'\0');
  char16_t* o = out.data();
  size_t i = 0;
  for (; i + 3 <= n; i += 3, o += 4) {
    unsigned a = byteOf(bytes[i]), b = byteOf(bytes[i + 1]), c = byteOf(bytes[i + 2]);
    o[0] = char16_t(kAlphabet[a >> 2]);
    o[1] = char16_t(kAlphabet[((a & 3) << 4) | (b >> 4)]);
    o[2] = char16_t(kAlphabet[((b & 15) << 2) | (c >> 6)]);
    o[3] = char16_t(kAlphabet[c & 63]);
  }
  if (i < n) {  // the last group, zero-filled, its missing bytes shown as "="
    unsigned a = byteOf(bytes[i]), b = i + 1 < n ? byteOf(bytes[i + 1]) : 0;
    o[0] = char16_t(kAlphabet[a >> 2]);
    o[1] = char16_t(kAlphabet[((a & 3) << 4) | (b >> 4)]);
    o[2] = i + 1 < n ? char16_t(kAlphabet[(b & 15) << 2]) : u'=';
    o[3] = u'=';
  }
  return out;
}

Text Base64Decode(TextView text) {
  const size_t n = text.size();
  if (n == 0) return Text();
  if (n < 4) throw Failure(err::SubscriptOutOfRange);  // the output array cannot be made
  Text out(n / 4 * 3, u'\0');
  size_t i = 0;
  for (; i + 4 <= n; i += 4)
    decodeGroup(text.data() + i, out.data() + i / 4 * 3);
  // A group of 2 or 3 characters left over runs past the end of both arrays.
  if (i + 2 <= n) throw Failure(err::SubscriptOutOfRange);
  if (text[n - 2] == u'=') {
    out.resize(out.size() - 2);
  } else if (text[n - 1] == u'=') {
    out.resize(out.size() - 1);
  }
  return out;
}

Text TwoDigitHex(int32_t value) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  uint32_t v = static_cast<uint32_t>(value);
  Text hex;
  do {
    hex.insert(hex.begin(), char16_t(kDigits[v & 15]));
    v >>= 4;
  } while (v != 0);
  if (hex.size() == 1) hex.insert(hex.begin(), u'0');
  return hex;
}

}  // namespace zrk
