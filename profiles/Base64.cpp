// Table-driven base64 over bytes; the text forms cross the code page once on each side.
#include "profiles/Base64.h"

#include <array>
#include <cstring>

#include <zrkKVL/Failure.h>
#include "platform/CodePage.h"

namespace zrk {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned kOutside = 64;  // every byte outside the alphabet, "=" among them

// A decoded group packed as three bytes in a word: byte k of the group in bits 8k to 8k+7. The
// first character's value 64 cannot fit its byte; it sets this bit instead.
constexpr uint32_t kFirstOverflows = 1u << 24;

// The encoder's table gives the two characters of each 12-bit half of a group; the decoder's
// tables give each character's share of the packed group, one table per place in the group. A
// value of 64 lands exactly where the decoding arithmetic puts it: bit 2 of the first byte from
// the second character, bit 4 of the second byte from the third, bit 6 of the third byte from the
// fourth.
struct Tables {
  std::array<std::array<char, 2>, 4096> pairs;
  std::array<std::array<uint32_t, 256>, 4> shares;

  Tables() {
    for (unsigned n = 0; n < 4096; ++n)
      pairs[n] = {kAlphabet[n >> 6], kAlphabet[n & 63]};
    std::array<unsigned, 256> value;
    value.fill(kOutside);
    for (unsigned i = 0; i < 64; ++i)
      value[static_cast<unsigned char>(kAlphabet[i])] = i;
    for (unsigned b = 0; b < 256; ++b) {
      uint32_t v = value[b];
      shares[0][b] = v == kOutside ? kFirstOverflows : v << 2;
      shares[1][b] = (v >> 4) | ((v & 15) << 12);
      shares[2][b] = ((v >> 2) << 8) | ((v & 3) << 22);
      shares[3][b] = v << 16;
    }
  }
};

const Tables& tables() {
  static const Tables t;
  return t;
}

// The four characters of each group of three bytes.
void encodeGroups(const Tables& t, const unsigned char* in, size_t groups, char* out) {
  for (size_t g = 0; g < groups; ++g, in += 3, out += 4) {
    uint32_t n = (uint32_t(in[0]) << 16) | (uint32_t(in[1]) << 8) | in[2];
    std::memcpy(out, t.pairs[n >> 12].data(), 2);
    std::memcpy(out + 2, t.pairs[n & 4095].data(), 2);
  }
}

inline uint32_t decodeGroup(const Tables& t, const unsigned char* in) {
  return t.shares[0][in[0]] | t.shares[1][in[1]] | t.shares[2][in[2]] | t.shares[3][in[3]];
}

// The three bytes of each group of four characters; the bits of all groups together, so that
// the caller learns whether any group opened with a character outside the alphabet.
uint32_t decodeGroups(const Tables& t, const unsigned char* in, size_t groups, char* out) {
  uint32_t seen = 0;
  for (size_t g = 0; g < groups; ++g, in += 4, out += 3) {
    uint32_t w = decodeGroup(t, in);
    seen |= w;
    out[0] = char(w);
    out[1] = char(w >> 8);
    out[2] = char(w >> 16);
  }
  return seen;
}

}  // namespace

std::string base64EncodeBytes(std::string_view bytes) {
  const size_t n = bytes.size();
  if (n == 0) return std::string();
  const Tables& t = tables();
  std::string out((n + 2) / 3 * 4, '\0');
  const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
  encodeGroups(t, in, n / 3, out.data());
  if (size_t rest = n % 3) {  // the last group, zero-filled, its missing bytes shown as "="
    unsigned char last[3] = {in[n - rest], rest == 2 ? in[n - 1] : (unsigned char)0, 0};
    char* o = out.data() + out.size() - 4;
    encodeGroups(t, last, 1, o);
    o[3] = '=';
    if (rest == 1) o[2] = '=';
  }
  return out;
}

std::string base64DecodeBytes(std::string_view text) {
  const size_t n = text.size();
  if (n == 0) return std::string();
  if (n < 4) throw Failure(err::SubscriptOutOfRange);  // the output array cannot be made
  std::string out(n / 4 * 3, '\0');
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  if (decodeGroups(tables(), in, n / 4, out.data()) & kFirstOverflows) throw Failure(err::Overflow);
  // A group of 2 or 3 characters left over runs past the end of both arrays.
  if (n % 4 >= 2) throw Failure(err::SubscriptOutOfRange);
  if (text[n - 2] == '=') {
    out.resize(out.size() - 2);
  } else if (text[n - 1] == '=') {
    out.resize(out.size() - 1);
  }
  return out;
}

// Characters outside the code page narrow to "?" or to bytes above 0x7F, all outside the
// alphabet as they were, and "=" narrows to itself alone, so the decoder's rules hold on bytes.
Text Base64Encode(TextView bytes) {
  return platform::fromAnsi(base64EncodeBytes(platform::toAnsi(bytes)));
}

Text Base64Decode(TextView text) {
  return platform::fromAnsi(base64DecodeBytes(platform::toAnsi(text)));
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
