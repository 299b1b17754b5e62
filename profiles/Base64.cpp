// Table-driven base64 over byte-holding strings.
#include "profiles/Base64.h"

#include <array>

#include <zrkKVL/Failure.h>
#include "platform/CodePage.h"

namespace zrk {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kOutside = 64;  // every byte outside the alphabet, "=" among them

// Every crossing of the code page as one lookup, built once from the codec: a character's byte,
// a character's value in the alphabet (64 outside it), and a byte's character.
struct Tables {
  std::array<unsigned char, 65536> byteOf;
  std::array<unsigned char, 65536> valueOf;
  std::array<char16_t, 256> charOf;
  std::array<char16_t, 64> alphabet;

  Tables() {
    std::array<unsigned char, 256> valueOfByte;
    valueOfByte.fill(kOutside);
    for (int i = 0; i < 64; ++i) {
      valueOfByte[static_cast<unsigned char>(kAlphabet[i])] = static_cast<unsigned char>(i);
      alphabet[size_t(i)] = char16_t(kAlphabet[i]);
    }
    for (size_t c = 0; c < byteOf.size(); ++c) {
      byteOf[c] = platform::toAnsiByte(char16_t(c));
      valueOf[c] = valueOfByte[byteOf[c]];
    }
    for (size_t b = 0; b < charOf.size(); ++b)
      charOf[b] = platform::fromAnsiByte(static_cast<unsigned char>(b));
  }
};

const Tables& tables() {
  static const Tables t;
  return t;
}

// The three bytes of the group at `in`; a first value that does not fit a byte overflows.
inline void decodeGroup(const Tables& t, const char16_t* in, char16_t* out) {
  unsigned d0 = t.valueOf[in[0]], d1 = t.valueOf[in[1]], d2 = t.valueOf[in[2]],
           d3 = t.valueOf[in[3]];
  unsigned first = (d0 * 4) | (d1 >> 4);
  if (first > 255) throw Failure(err::Overflow);
  out[0] = t.charOf[first];
  out[1] = t.charOf[((d1 & 15) * 16) | (d2 >> 2)];
  out[2] = t.charOf[((d2 & 3) * 64) | d3];
}

}  // namespace

Text Base64Encode(TextView bytes) {
  const size_t n = bytes.size();
  if (n == 0) return Text();
  const Tables& t = tables();
  const auto& abc = t.alphabet;
  Text out((n + 2) / 3 * 4, u'\0');
  char16_t* o = out.data();
  const char16_t* in = bytes.data();
  size_t i = 0;
  for (; i + 3 <= n; i += 3, o += 4) {
    unsigned a = t.byteOf[in[i]], b = t.byteOf[in[i + 1]], c = t.byteOf[in[i + 2]];
    o[0] = abc[a >> 2];
    o[1] = abc[((a & 3) << 4) | (b >> 4)];
    o[2] = abc[((b & 15) << 2) | (c >> 6)];
    o[3] = abc[c & 63];
  }
  if (i < n) {  // the last group, zero-filled, its missing bytes shown as "="
    unsigned a = t.byteOf[in[i]], b = i + 1 < n ? t.byteOf[in[i + 1]] : 0;
    o[0] = abc[a >> 2];
    o[1] = abc[((a & 3) << 4) | (b >> 4)];
    o[2] = i + 1 < n ? abc[(b & 15) << 2] : u'=';
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
  const Tables& t = tables();
  for (; i + 4 <= n; i += 4) {
    decodeGroup(t, text.data() + i, out.data() + i / 4 * 3);
  }
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
