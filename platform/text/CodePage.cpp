// Windows-1252 as Windows converts it: 0x80-0x9F hold the page's extra characters, and its five
// unassigned bytes map to the C1 controls of the same value, so all 256 bytes round-trip.
//
// Whole strings are converted 32 or 64 at a time where the processor has AVX2 or AVX-512: every
// byte becomes the character of the same value (and every character its low byte), and only where
// that is wrong, for bytes 0x80-0x9F and characters from 0x80 to 0x9F or above 0xFF, a lookup in
// registers gives the right one. The plain loops convert the rest, and everything on other
// processors.
#include "platform/text/CodePage.h"

#include <array>

#include "platform/text/VectorLevel.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace zrk::platform {
namespace {

constexpr char16_t kHigh[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80-87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88-8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90-97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98-9F
};

// The byte of every character, built once: the character's own value below 0x80 and from 0xA0
// to 0xFF, the page's byte for its extra characters, "?" for everything else.
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

// The byte's character as a local function: the whole-string loops inline it, which they could
// not do with the exported one in a shared library.
inline char16_t charOfByte(unsigned char b) {
  return (b >= 0x80 && b < 0xA0) ? kHigh[b - 0x80] : b;
}

#if defined(__x86_64__)

#define ZRK_AVX2 __attribute__((target("avx2")))
#define ZRK_AVX512 __attribute__((target("avx512f,avx512bw,avx512vbmi")))

// A lookup of 32 entries for each byte of `index` (0-31): the low half of the table answers
// indexes 0-15, the high half 16-31.
ZRK_AVX2 inline __m256i lookup32(__m256i low, __m256i high, __m256i index) {
  return _mm256_blendv_epi8(_mm256_shuffle_epi8(low, index), _mm256_shuffle_epi8(high, index),
                            _mm256_slli_epi16(index, 3));
}

ZRK_AVX2 inline __m256i broadcast16(const unsigned char* table) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table)));
}

// The page's extra characters split into their low and high bytes, each half as one register
// repeated in both lanes.
struct WideBytes {
  __m256i lowA, lowB, highA, highB;
};

ZRK_AVX2 inline WideBytes wideBytes() {
  static const auto halves = [] {
    std::array<unsigned char, 64> h{};
    for (int i = 0; i < 32; ++i) {
      h[size_t(i)] = static_cast<unsigned char>(kHigh[i]);
      h[size_t(32 + i)] = static_cast<unsigned char>(kHigh[i] >> 8);
    }
    return h;
  }();
  return {broadcast16(&halves[0]), broadcast16(&halves[16]), broadcast16(&halves[32]),
          broadcast16(&halves[48])};
}

// 32 bytes at a time: the bytes 0x80-0x9F take their characters from two 32-entry lookups, all
// others widen as they are. Returns how many bytes it converted (a multiple of 32).
ZRK_AVX2 size_t widenBlocksAvx2(const unsigned char* in, size_t n, char16_t* out) {
  const WideBytes wide = wideBytes();
  // As signed numbers, 0x80-0x9F are exactly the bytes below 0xA0's value -96.
  const __m256i c1End = _mm256_set1_epi8(static_cast<char>(0xA0));
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    __m256i c1 = _mm256_cmpgt_epi8(c1End, v);
    __m256i index = _mm256_and_si256(v, _mm256_set1_epi8(0x1F));
    __m256i low = _mm256_blendv_epi8(v, lookup32(wide.lowA, wide.lowB, index), c1);
    __m256i high = _mm256_and_si256(lookup32(wide.highA, wide.highB, index), c1);
    // The unpacks work within each half: bytes 0-7 and 16-23, then 8-15 and 24-31.
    __m256i first = _mm256_unpacklo_epi8(low, high), second = _mm256_unpackhi_epi8(low, high);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                        _mm256_permute2x128_si256(first, second, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i + 16),
                        _mm256_permute2x128_si256(first, second, 0x31));
  }
  return i;
}

// The 32 characters that have a byte of 0x80-0x9F, each in a slot of its own under a
// multiplicative hash, as the low five bits of their byte. A character is the slot's one when the
// byte widens back to it.
constexpr uint16_t kHashFactor = 0x03D9;
constexpr int kHashShift = 10;  // 64 slots

constexpr unsigned slotOf(char16_t c) {
  return uint16_t(c * kHashFactor) >> kHashShift;
}

constexpr bool slotsAreDistinct() {
  uint64_t used = 0;
  for (char16_t c : kHigh) {
    if ((used >> slotOf(c)) & 1) return false;
    used |= uint64_t(1) << slotOf(c);
  }
  return true;
}
static_assert(slotsAreDistinct(), "every character of 0x80-0x9F needs a slot of its own");

// A lookup of 64 entries for each byte of `index` (0-63).
ZRK_AVX2 inline __m256i lookup64(const __m256i (&table)[4], __m256i index) {
  __m256i lower = lookup32(table[0], table[1], index);
  __m256i upper = lookup32(table[2], table[3], index);
  return _mm256_blendv_epi8(lower, upper, _mm256_slli_epi16(index, 2));
}

ZRK_AVX2 inline void slotTable(__m256i (&table)[4]) {
  static const auto slots = [] {
    std::array<unsigned char, 64> s{};
    for (int i = 0; i < 32; ++i)
      s[slotOf(kHigh[i])] = static_cast<unsigned char>(i);
    return s;
  }();
  for (int k = 0; k < 4; ++k)
    table[k] = broadcast16(&slots[size_t(16 * k)]);
}

// Two vectors of 16-bit values packed to one of bytes. The pack works within each half, so the
// bytes come in the order of the quarters 0, 2, 1, 3 until `inOrder` puts them back.
ZRK_AVX2 inline __m256i packBytes(__m256i a, __m256i b) {
  return _mm256_packus_epi16(a, b);
}
ZRK_AVX2 inline __m256i inOrder(__m256i packed) {
  return _mm256_permute4x64_epi64(packed, 0xD8);
}

// 32 characters at a time: those of their own byte narrow as they are; every other one gives the
// byte of its hash slot when that byte widens back to it, "?" otherwise. All work on the packed
// order; only the result is put back in place.
ZRK_AVX2 size_t narrowBlocksAvx2(const char16_t* in, size_t n, unsigned char* out) {
  const WideBytes wide = wideBytes();
  __m256i slots[4];
  slotTable(slots);
  const __m256i lowByte = _mm256_set1_epi16(0x00FF);
  const __m256i factor = _mm256_set1_epi16(short(kHashFactor));
  const __m256i c1End = _mm256_set1_epi8(static_cast<char>(0xA0));
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i + 16));
    __m256i low = packBytes(_mm256_and_si256(a, lowByte), _mm256_and_si256(b, lowByte));
    __m256i high = packBytes(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8));
    // A character is its own byte when it is below 0x100 and outside 0x80-0x9F.
    __m256i asIs = _mm256_andnot_si256(_mm256_cmpgt_epi8(c1End, low),
                                       _mm256_cmpeq_epi8(high, _mm256_setzero_si256()));
    if (_mm256_movemask_epi8(asIs) != -1) {
      __m256i slot = packBytes(_mm256_srli_epi16(_mm256_mullo_epi16(a, factor), kHashShift),
                               _mm256_srli_epi16(_mm256_mullo_epi16(b, factor), kHashShift));
      __m256i index = lookup64(slots, slot);
      __m256i known =
          _mm256_and_si256(_mm256_cmpeq_epi8(lookup32(wide.lowA, wide.lowB, index), low),
                           _mm256_cmpeq_epi8(lookup32(wide.highA, wide.highB, index), high));
      __m256i byte = _mm256_or_si256(index, _mm256_set1_epi8(static_cast<char>(0x80)));
      __m256i fixed = _mm256_blendv_epi8(_mm256_set1_epi8('?'), byte, known);
      low = _mm256_blendv_epi8(fixed, low, asIs);
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), inOrder(low));
  }
  return i;
}

// A lookup of 64 entries for each byte of `index`. (The zero-masked form with every lane kept is
// the plain permute; the unmasked one trips a false uninitialised warning in g++ 12.)
ZRK_AVX512 inline __m512i permute64(__m512i table, __m512i index) {
  return _mm512_maskz_permutexvar_epi8(~__mmask64(0), index, table);
}

// The same 64 characters at a time with byte permutes: one gathers the low bytes of two
// registers, one the high bytes, and a 64-entry lookup is a single instruction.
ZRK_AVX512 size_t narrowBlocksAvx512(const char16_t* in, size_t n, unsigned char* out) {
  struct Tables {
    unsigned char lowBytes[64], highBytes[64], slots[64] = {}, low[64] = {}, high[64] = {};
    Tables() {
      for (int k = 0; k < 64; ++k) {
        lowBytes[k] = static_cast<unsigned char>(2 * k);
        highBytes[k] = static_cast<unsigned char>(2 * k + 1);
      }
      for (int i = 0; i < 32; ++i) {
        slots[slotOf(kHigh[i])] = static_cast<unsigned char>(i);
        low[i] = static_cast<unsigned char>(kHigh[i]);
        high[i] = static_cast<unsigned char>(kHigh[i] >> 8);
      }
    }
  };
  static const Tables t;
  const __m512i lowBytes = _mm512_loadu_si512(t.lowBytes),
                highBytes = _mm512_loadu_si512(t.highBytes);
  const __m512i slots = _mm512_loadu_si512(t.slots), lowOf = _mm512_loadu_si512(t.low),
                highOf = _mm512_loadu_si512(t.high);
  const __m512i factor = _mm512_set1_epi16(short(kHashFactor));
  const __m512i c1End = _mm512_set1_epi8(static_cast<char>(0xA0));
  size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    __m512i a = _mm512_loadu_si512(in + i), b = _mm512_loadu_si512(in + i + 32);
    __m512i low = _mm512_permutex2var_epi8(a, lowBytes, b);
    __m512i high = _mm512_permutex2var_epi8(a, highBytes, b);
    // A character is its own byte when it is below 0x100 and outside 0x80-0x9F.
    __mmask64 asIs =
        _mm512_cmpeq_epi8_mask(high, _mm512_setzero_si512()) & ~_mm512_cmplt_epi8_mask(low, c1End);
    if (asIs != ~__mmask64(0)) {
      __m512i slot = _mm512_permutex2var_epi8(
          _mm512_srli_epi16(_mm512_mullo_epi16(a, factor), kHashShift), lowBytes,
          _mm512_srli_epi16(_mm512_mullo_epi16(b, factor), kHashShift));
      __m512i index = permute64(slots, slot);
      __mmask64 known = _mm512_cmpeq_epi8_mask(permute64(lowOf, index), low) &
                        _mm512_cmpeq_epi8_mask(permute64(highOf, index), high);
      __m512i byte = _mm512_or_si512(index, _mm512_set1_epi8(static_cast<char>(0x80)));
      low = _mm512_mask_blend_epi8(asIs, _mm512_mask_blend_epi8(known, _mm512_set1_epi8('?'), byte),
                                   low);
    }
    _mm512_storeu_si512(out + i, low);
  }
  return i;
}

#undef ZRK_AVX2
#undef ZRK_AVX512

size_t widenBlocks(const unsigned char* in, size_t n, char16_t* out) {
  return vectorLevel() >= VectorLevel::Avx2 ? widenBlocksAvx2(in, n, out) : 0;
}

size_t narrowBlocks(const char16_t* in, size_t n, unsigned char* out) {
  switch (vectorLevel()) {
    case VectorLevel::Avx512:
      return narrowBlocksAvx512(in, n, out);
    case VectorLevel::Avx2:
      return narrowBlocksAvx2(in, n, out);
    case VectorLevel::Plain:
      break;
  }
  return 0;
}

#else

size_t widenBlocks(const unsigned char*, size_t, char16_t*) {
  return 0;
}

size_t narrowBlocks(const char16_t*, size_t, unsigned char*) {
  return 0;
}

#endif

}  // namespace

char16_t fromAnsiByte(unsigned char b) {
  return charOfByte(b);
}

unsigned char toAnsiByte(char16_t c) {
  return byteTable()[c];
}

void fromAnsiInto(std::string_view bytes, char16_t* out) {
  const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
  size_t i = widenBlocks(in, bytes.size(), out);
  for (; i < bytes.size(); ++i)
    out[i] = charOfByte(in[i]);
}

Text fromAnsi(std::string_view bytes) {
  Text out(bytes.size(), u'\0');
  fromAnsiInto(bytes, out.data());
  return out;
}

void toAnsiInto(TextView text, unsigned char* out) {
  const auto& table = byteTable();
  size_t i = narrowBlocks(text.data(), text.size(), out);
  for (; i < text.size(); ++i)
    out[i] = table[text[i]];
}

std::string toAnsi(TextView text) {
  std::string out(text.size(), '\0');
  toAnsiInto(text, reinterpret_cast<unsigned char*>(out.data()));
  return out;
}

}  // namespace zrk::platform
