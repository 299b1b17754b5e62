// Number texts: the growing buffer's sizes walked first, then every piece written in one pass.
#include "files/NumberText.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <zrkKVL/Failure.h>
#include "files/TextOps.h"
#include "platform/files/FileIO.h"
#include "platform/files/HugePages.h"

namespace zrk::files {
namespace {

// "n/" for every byte value: the characters padded with blanks to four, so that one 8-byte
// store writes any piece, and the piece's own length.
struct PieceTable {
  char16_t chars[256][4];
  uint8_t length[256];
  // The smallest values with two and with three digits (256: none).
  int twoDigits, threeDigits;

  explicit PieceTable(int radix) : twoDigits(radix), threeDigits(std::min(radix * radix, 256)) {
    const char* digits = "0123456789ABCDEF";
    for (int b = 0; b < 256; ++b) {
      char16_t piece[4] = {u' ', u' ', u' ', u' '};
      int n = 1 + (b >= twoDigits) + (b >= threeDigits);
      for (int v = b, i = n - 1; i >= 0; v /= radix, --i)
        piece[i] = char16_t(digits[v % radix]);
      piece[n] = u'/';
      std::memcpy(chars[b], piece, sizeof piece);
      length[b] = uint8_t(n + 1);
    }
  }
};

const PieceTable& pieceTable(int radix) {
  static const PieceTable decimalTable(10), hexTable(16);
  return radix == 16 ? hexTable : decimalTable;
}

constexpr size_t kBlock = 256;

// The length of a block's pieces, counted by comparisons the compiler turns into vector code.
uint32_t blockLength(const unsigned char* b, const PieceTable& t) {
  uint32_t sum = 0;
  for (size_t i = 0; i < kBlock; ++i)
    sum += 2u + (b[i] >= t.twoDigits) + (b[i] >= t.threeDigits);
  return sum;
}

// The growing buffer's sizes after a piece for each byte. A block that fits in the buffer as it
// is moves the fill level at once; one that makes it grow, or fail, goes piece by piece.
void walkPieces(BufferGrowth& growth, std::string_view bytes, const PieceTable& t) {
  const unsigned char* b = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* end = b + bytes.size();
  for (; end - b >= ptrdiff_t(kBlock); b += kBlock) {
    uint32_t n = blockLength(b, t);
    if (int64_t(growth.len()) + n <= int64_t(growth.size())) {
      growth.add(n);
    } else {
      for (size_t i = 0; i < kBlock; ++i)
        growth.add(t.length[b[i]]);
    }
  }
  for (; b < end; ++b)
    growth.add(t.length[*b]);
}

// Writes the pieces of `bytes` from `out`, which has room for exactly them; gives their end. A
// piece is at least two characters, so the blanks of a four-character store land in the next
// piece's room and are overwritten; only the last piece is copied at its own length.
char16_t* writePieces(char16_t* out, std::string_view bytes, const PieceTable& t) {
  if (bytes.empty()) return out;
  const unsigned char* b = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* last = b + bytes.size() - 1;
  for (; b < last; ++b) {
    std::memcpy(out, t.chars[*b], sizeof t.chars[*b]);
    out += t.length[*b];
  }
  std::memcpy(out, t.chars[*last], t.length[*last] * sizeof(char16_t));
  return out + t.length[*last];
}

// Input bytes whose pieces are staged at a time: small enough that the staging stays in the
// cache, so each character of the result reaches memory once.
constexpr size_t kStretch = 4096;
// Input bytes between two hand-backs of the file's pages.
constexpr size_t kReleaseEvery = size_t(2) << 20;

}  // namespace

Text numberText(platform::FileImage& file, int radix, SpareTail tail) {
  const PieceTable& t = pieceTable(radix);
  std::string_view bytes = file.bytes();
  BufferGrowth growth(0, 0);
  walkPieces(growth, bytes, t);
  size_t size = tail == SpareTail::Kept ? growth.size() : size_t(growth.len());

  Text out;
  out.reserve(size);
  platform::adviseHugePages(out.data(), out.capacity() * sizeof(char16_t));
  char16_t staging[4 * kStretch];
  for (size_t at = 0; at < bytes.size(); at += kStretch) {
    std::string_view part = bytes.substr(at, kStretch);
    out.append(staging, size_t(writePieces(staging, part, t) - staging));
    if ((at + part.size()) % kReleaseEvery == 0) file.release(at + part.size());
  }
  appendBlanks(out, size - out.size());
  return out;
}

}  // namespace zrk::files
