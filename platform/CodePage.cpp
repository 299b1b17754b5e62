// Windows-1252 as Windows converts it: 0x80-0x9F hold the page's extra characters, and its five
// unassigned bytes map to the C1 controls of the same value, so all 256 bytes round-trip.
//
// Whole strings are converted sixteen at a time: every byte becomes the character of the same
// value (and every character its low byte), and only the few places where that is wrong, bytes
// 0x80-0x9F and characters from 0x80 to 0x9F or above 0xFF, are fixed up afterwards.
#include "platform/CodePage.h"

#include <array>
#include <bit>

#if defined(__SSE2__)
#include <emmintrin.h>
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

#if defined(__SSE2__)

// The bytes from `in` that widen to characters of their own value, sixteen at a time; returns how
// many it converted (a multiple of 16), the rest being left to the plain loop.
size_t widenBlocks(const unsigned char* in, size_t n, char16_t* out) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i c1End = _mm_set1_epi8(static_cast<char>(0xA0));
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(v, zero));
    // As signed numbers, 0x80-0x9F are exactly the bytes below 0xA0's value -96.
    unsigned fix = unsigned(_mm_movemask_epi8(_mm_cmplt_epi8(v, c1End)));
    for (; fix != 0; fix &= fix - 1) {
      size_t j = i + size_t(std::countr_zero(fix));
      out[j] = kHigh[in[j] - 0x80];
    }
  }
  return i;
}

// The characters whose byte is their own low byte: below 0x100 and outside 0x80-0x9F.
inline __m128i narrowsAsIs(__m128i c) {
  const __m128i zero = _mm_setzero_si128();
  __m128i below100 = _mm_cmpeq_epi16(_mm_and_si128(c, _mm_set1_epi16(short(0xFF00))), zero);
  __m128i inC1 =
      _mm_cmpeq_epi16(_mm_and_si128(c, _mm_set1_epi16(short(0xFFE0))), _mm_set1_epi16(0x0080));
  return _mm_andnot_si128(inC1, below100);
}

// The characters from `in` to bytes, sixteen at a time; the count as for widenBlocks.
size_t narrowBlocks(const char16_t* in, size_t n, unsigned char* out) {
  const __m128i lowByte = _mm_set1_epi16(0x00FF);
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + 8));
    __m128i bytes = _mm_packus_epi16(_mm_and_si128(a, lowByte), _mm_and_si128(b, lowByte));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), bytes);
    __m128i asIs = _mm_packs_epi16(narrowsAsIs(a), narrowsAsIs(b));
    unsigned fix = ~unsigned(_mm_movemask_epi8(asIs)) & 0xFFFFu;
    if (fix == 0) continue;
    const auto& table = byteTable();
    for (; fix != 0; fix &= fix - 1) {
      size_t j = i + size_t(std::countr_zero(fix));
      out[j] = table[in[j]];
    }
  }
  return i;
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

Text fromAnsi(std::string_view bytes) {
  const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
  Text out(bytes.size(), u'\0');
  for (size_t i = widenBlocks(in, bytes.size(), out.data()); i < bytes.size(); ++i)
    out[i] = charOfByte(in[i]);
  return out;
}

std::string toAnsi(TextView text) {
  std::string out(text.size(), '\0');
  auto* o = reinterpret_cast<unsigned char*>(out.data());
  const auto& table = byteTable();
  for (size_t i = narrowBlocks(text.data(), text.size(), o); i < text.size(); ++i)
    o[i] = table[text[i]];
  return out;
}

}  // namespace zrk::platform
