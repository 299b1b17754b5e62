// Number texts: the growing buffer's sizes walked first, then every piece written in one pass.
#include "files/NumberText.h"

#include <algorithm>
#include <cstring>

#include <zrkKVL/Failure.h>
#include "files/TextOps.h"
#include "platform/FileIO.h"
#include "platform/HugePages.h"

namespace zrk::files {
namespace {

// "n/" for every byte value: the characters padded with blanks to four, so that one 8-byte
// store writes any piece, and the piece's own length.
struct PieceTable {
  char16_t chars[256][4];
  uint8_t length[256];

  explicit PieceTable(int radix) {
    const char* digits = "0123456789ABCDEF";
    for (int b = 0; b < 256; ++b) {
      char16_t piece[4] = {u' ', u' ', u' ', u' '};
      int n = 0;
      for (int v = b; v > 0 || n == 0; v /= radix)
        ++n;
      for (int v = b, i = n - 1; i >= 0; v /= radix, --i)
        piece[i] = char16_t(digits[v % radix]);
      piece[n] = u'/';
      std::memcpy(chars[b], piece, sizeof piece);
      length[b] = uint8_t(n + 1);
    }
  }

  TextView piece(unsigned char b) const { return {chars[b], length[b]}; }
};

const PieceTable& pieceTable(int radix) {
  static const PieceTable decimalTable(10), hexTable(16);
  return radix == 16 ? hexTable : decimalTable;
}

// The growing buffer's sizes after a piece for each byte.
void walkPieces(BufferGrowth& growth, std::string_view bytes, const PieceTable& t) {
  for (unsigned char b : bytes)
    growth.add(t.length[b]);
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

// Results this large are worth huge pages.
constexpr size_t kLargeResultBytes = size_t(8) << 20;
// Input bytes written per step: their text is still in the cache when written over.
constexpr size_t kStretch = 16384;
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
  if (size * sizeof(char16_t) >= kLargeResultBytes) {
    platform::adviseHugePages(out.data(), out.capacity() * sizeof(char16_t));
  }
  // The string is grown over a stretch by blanks and written over at once, so each character
  // reaches memory once; the file's pages behind the stretch go back as the text grows.
  for (size_t at = 0; at < bytes.size(); at += kStretch) {
    std::string_view part = bytes.substr(at, kStretch);
    size_t start = out.size();
    out.resize(std::min(start + 4 * part.size(), size));
    char16_t* end = writePieces(out.data() + start, part, t);
    out.resize(size_t(end - out.data()));
    if ((at + part.size()) % kReleaseEvery == 0) file.release(at + part.size());
  }
  out.resize(size, u' ');
  return out;
}

void appendNumberText(Text& buf, int32_t& len, std::string_view bytes, int radix) {
  const PieceTable& t = pieceTable(radix);
  BufferGrowth growth(buf.size(), len);
  try {
    walkPieces(growth, bytes, t);
  } catch (const Failure&) {
    for (unsigned char b : bytes)
      appendToBuffer(buf, len, t.piece(b));
    return;
  }
  buf.resize(growth.size(), u' ');
  writePieces(buf.data() + len, bytes, t);
  len = growth.len();
}

}  // namespace zrk::files
