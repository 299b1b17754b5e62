// Base64 over bytes: eight groups at a time where the processor has AVX2, through tables for the
// rest. The text forms read and write 16-bit characters directly; only the encoder's input and the
// decoder's output cross the code page.
#include "profiles/Base64.h"

#include <algorithm>
#include <array>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <zrkKVL/Failure.h>
#include "platform/text/CodePage.h"
#include "platform/text/VectorLevel.h"

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

// A character as the decoder's table sees it: every character above 0xFF is outside the
// alphabet, as 0xFF is, and "=" stays itself.
inline unsigned char tableIndex(char c) {
  return static_cast<unsigned char>(c);
}
inline unsigned char tableIndex(char16_t c) {
  return c > 0xFF ? 0xFF : static_cast<unsigned char>(c);
}

// The four characters of each group of three bytes.
template <class Char>
void encodeGroups(const Tables& t, const unsigned char* in, size_t groups, Char* out) {
  for (size_t g = 0; g < groups; ++g, in += 3, out += 4) {
    uint32_t n = (uint32_t(in[0]) << 16) | (uint32_t(in[1]) << 8) | in[2];
    const auto& high = t.pairs[n >> 12];
    const auto& low = t.pairs[n & 4095];
    out[0] = Char(high[0]);
    out[1] = Char(high[1]);
    out[2] = Char(low[0]);
    out[3] = Char(low[1]);
  }
}

// The three bytes of each group of four characters; the bits of all groups together, so that
// the caller learns whether any group opened with a character outside the alphabet.
template <class Char>
uint32_t decodeGroups(const Tables& t, const Char* in, size_t groups, char* out) {
  uint32_t seen = 0;
  for (size_t g = 0; g < groups; ++g, in += 4, out += 3) {
    uint32_t w = t.shares[0][tableIndex(in[0])] | t.shares[1][tableIndex(in[1])] |
                 t.shares[2][tableIndex(in[2])] | t.shares[3][tableIndex(in[3])];
    seen |= w;
    out[0] = char(w);
    out[1] = char(w >> 8);
    out[2] = char(w >> 16);
  }
  return seen;
}

#if defined(__x86_64__)

#define ZRK_AVX2 __attribute__((target("avx2")))

bool haveAvx2() {
  return platform::vectorLevel() >= platform::VectorLevel::Avx2;
}

ZRK_AVX2 inline void store32(char* out, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), v);
}
ZRK_AVX2 inline void store32(char16_t* out, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                      _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 16),
                      _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
}

ZRK_AVX2 inline __m256i load32(const char* in) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
}
// A character above 0xFF saturates to 0xFF, or from 0x8000 (negative as a signed number) to 0:
// outside the alphabet either way, as the character is.
ZRK_AVX2 inline __m256i load32(const char16_t* in) {
  __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
  __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 16));
  return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
}

// Eight groups at a time: 24 bytes to 32 characters. Each half of the register takes 12 bytes,
// spread to the four 6-bit values of each group by shifts done as multiplications, and the
// values become characters by adding the offset of their range of the alphabet. Returns how many
// groups it encoded; the plain loop does the rest.
template <class Char>
ZRK_AVX2 size_t encodeBlocks(const unsigned char* in, size_t groups, Char* out) {
  const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                          1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
  // Offsets of the ranges: 26-51 "a"-"z", 52-61 "0"-"9", 62 "+", 63 "/", 0-25 "A"-"Z".
  const __m256i offsets =
      _mm256_setr_epi8(71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 65, 0, 0, 71, -4, -4,
                       -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 65, 0, 0);
  size_t g = 0;
  // Each load reads 16 bytes for the 12 it uses, so a block needs 4 bytes behind it.
  for (; (g + 8) * 3 + 4 <= groups * 3; g += 8) {
    const unsigned char* p = in + g * 3;
    __m256i v = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12)), 1);
    v = _mm256_shuffle_epi8(v, spread);
    __m256i ac = _mm256_mulhi_epu16(_mm256_and_si256(v, _mm256_set1_epi32(0x0FC0FC00)),
                                    _mm256_set1_epi32(0x04000040));
    __m256i bd = _mm256_mullo_epi16(_mm256_and_si256(v, _mm256_set1_epi32(0x003F03F0)),
                                    _mm256_set1_epi32(0x01000010));
    __m256i values = _mm256_or_si256(ac, bd);
    // The range of each value as an index into the offsets: 1-12 for 52-63, 13 for 0-25, 0 else.
    __m256i range = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
    __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    range = _mm256_or_si256(range, _mm256_and_si256(upper, _mm256_set1_epi8(13)));
    store32(out + g * 4, _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, range)));
  }
  return g;
}

// Eight groups at a time: 32 characters to 24 bytes, when all 32 are in the alphabet. A block
// with any other character is decoded by the plain loop, which knows the value 64. Returns the
// groups done, all of them but fewer than eight at the end.
//
// A character is looked up by its two halves: each high half (0-F) has one bit for the low halves
// that are not in the alphabet beside it, so a character is outside when the bits of its halves
// meet. Its value is the character plus the offset of its range, found by the high half; "/"
// shares its high half with "+" and is told apart by one comparison.
template <class Char>
ZRK_AVX2 size_t decodeBlocks(const Tables& t, const Char* in, size_t groups, char* out,
                             uint32_t& seen) {
  const __m256i outsideLow =
      _mm256_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B,
                       0x1B, 0x1B, 0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                       0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
  const __m256i outsideHigh =
      _mm256_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10,
                       0x10, 0x10, 0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10,
                       0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
  // By high half, "/" at 1: "/" +16, "+" +19, digits +4, capitals -65, small letters -71.
  const __m256i offsets =
      _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 19, 4, -65,
                       -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m256i gather = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2,
                                          1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  const __m256i halfMask = _mm256_set1_epi8(0x0F);
  size_t g = 0;
  for (; g + 8 <= groups; g += 8) {
    __m256i c = load32(in + g * 4);
    __m256i high = _mm256_and_si256(_mm256_srli_epi32(c, 4), halfMask);
    __m256i outside =
        _mm256_and_si256(_mm256_shuffle_epi8(outsideLow, _mm256_and_si256(c, halfMask)),
                         _mm256_shuffle_epi8(outsideHigh, high));
    if (!_mm256_testz_si256(outside, outside)) {
      seen |= decodeGroups(t, in + g * 4, 8, out + g * 3);
      continue;
    }
    __m256i slash = _mm256_cmpeq_epi8(c, _mm256_set1_epi8('/'));
    __m256i values = _mm256_add_epi8(c, _mm256_shuffle_epi8(offsets, _mm256_add_epi8(high, slash)));
    // Two values to 12 bits, two of those to 24, then the three bytes of each group in order.
    __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    __m256i words = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    // Each half holds 12 bytes in its first three words; the 24 go together, and exactly they
    // are stored.
    __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words, gather),
                                                _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    char* o = out + g * 3;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(o + 16), _mm256_extracti128_si256(bytes, 1));
  }
  return g;
}

#undef ZRK_AVX2

#else

bool haveAvx2() {
  return false;
}
template <class Char>
size_t encodeBlocks(const unsigned char*, size_t, Char*) {
  return 0;
}
template <class Char>
size_t decodeBlocks(const Tables&, const Char*, size_t, char*, uint32_t&) {
  return 0;
}

#endif

// The characters of `n` bytes into `out`, which holds (n + 2) / 3 * 4 of them.
template <class Char>
void encodeInto(const unsigned char* in, size_t n, Char* out) {
  const Tables& t = tables();
  const size_t groups = n / 3;
  size_t g = haveAvx2() ? encodeBlocks(in, groups, out) : 0;
  encodeGroups(t, in + g * 3, groups - g, out + g * 4);
  if (size_t rest = n % 3) {  // the last group, zero-filled, its missing bytes shown as "="
    unsigned char last[3] = {in[n - rest], rest == 2 ? in[n - 1] : (unsigned char)0, 0};
    Char* o = out + groups * 4;
    encodeGroups(t, last, 1, o);
    o[3] = Char('=');
    if (rest == 1) o[2] = Char('=');
  }
}

// The bytes of whole groups into `out`, three for each; the bits of all groups together.
template <class Char>
uint32_t decodeInto(const Char* in, size_t groups, char* out) {
  const Tables& t = tables();
  uint32_t seen = 0;
  size_t g = haveAvx2() ? decodeBlocks(t, in, groups, out, seen) : 0;
  return seen | decodeGroups(t, in + g * 4, groups - g, out + g * 3);
}

// The decoder's failures before anything is decoded: a text of 1 to 3 characters has no room
// for its output.
void checkDecodable(size_t length) {
  if (length > 0 && length < 4) throw Failure(err::SubscriptOutOfRange);
}

// The decoder's failures once the whole groups are decoded, and then the length of the result
// with the padded bytes dropped, which only the last two characters decide.
template <class Char>
size_t decodedLength(std::basic_string_view<Char> text, uint32_t seen) {
  const size_t n = text.size();
  if (n == 0) return 0;
  if (seen & kFirstOverflows) throw Failure(err::Overflow);
  // A group of 2 or 3 characters left over runs past the end of both arrays.
  if (n % 4 >= 2) throw Failure(err::SubscriptOutOfRange);
  if (text[n - 2] == Char('=')) return n / 4 * 3 - 2;
  if (text[n - 1] == Char('=')) return n / 4 * 3 - 1;
  return n / 4 * 3;
}

}  // namespace

std::string base64EncodeBytes(std::string_view bytes) {
  std::string out((bytes.size() + 2) / 3 * 4, '\0');
  encodeInto(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), out.data());
  return out;
}

std::string base64DecodeBytes(std::string_view text) {
  checkDecodable(text.size());
  std::string out(text.size() / 4 * 3, '\0');
  uint32_t seen = decodeInto(text.data(), text.size() / 4, out.data());
  out.resize(decodedLength(text, seen));
  return out;
}

// The bytes of the text cross the code page once, a piece at a time through a buffer that stays
// in the processor's cache; the alphabet's characters need no crossing.
constexpr size_t kPieceGroups = 1024;

Text Base64Encode(TextView bytes) {
  constexpr size_t kPiece = 3 * kPieceGroups;
  Text out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  unsigned char piece[kPiece];
  char16_t chars[4 * kPieceGroups];
  for (size_t at = 0; at < bytes.size(); at += kPiece) {
    TextView part = bytes.substr(at, kPiece);
    platform::toAnsiInto(part, piece);
    encodeInto(piece, part.size(), chars);
    out.append(chars, (part.size() + 2) / 3 * 4);
  }
  return out;
}

Text Base64Decode(TextView text) {
  checkDecodable(text.size());
  const size_t groups = text.size() / 4;
  Text out;
  out.reserve(groups * 3);
  char piece[3 * kPieceGroups];
  char16_t chars[3 * kPieceGroups];
  uint32_t seen = 0;
  for (size_t g = 0; g < groups; g += kPieceGroups) {
    size_t count = std::min(kPieceGroups, groups - g);
    seen |= decodeInto(text.data() + g * 4, count, piece);
    platform::fromAnsiInto(std::string_view(piece, count * 3), chars);
    out.append(chars, count * 3);
  }
  out.resize(decodedLength(text, seen));
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
