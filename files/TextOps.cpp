// The growing buffer, blank trimming, lower-casing and number texts.
#include "files/TextOps.h"

#include <algorithm>
#include <array>
#include <limits>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Variant.h>

namespace zrk::files {

void appendToBuffer(Text& buf, int32_t& len, TextView add) {
  int64_t fill = int64_t(len) + int64_t(add.size());
  if (fill > std::numeric_limits<int32_t>::max()) throw Failure(err::Overflow);
  if (fill > int64_t(buf.size())) {
    if (int64_t(buf.size()) + fill > std::numeric_limits<int32_t>::max()) {
      throw Failure(err::OutOfMemory);
    }
    buf.append(size_t(fill), u' ');
  }
  if (len < 0) throw Failure(err::InvalidCall);  // the overwrite would start before position 1
  // The buffer now holds the piece; an empty piece at a full buffer writes nothing.
  std::copy(add.begin(), add.end(), buf.begin() + len);
  len = int32_t(fill);
}

void BufferGrowth::add(size_t n) {
  int64_t fill = int64_t(len_) + int64_t(n);
  if (fill > std::numeric_limits<int32_t>::max()) throw Failure(err::Overflow);
  if (fill > size_) {
    if (size_ + fill > std::numeric_limits<int32_t>::max()) throw Failure(err::OutOfMemory);
    size_ += fill;
  }
  if (len_ < 0) throw Failure(err::InvalidCall);
  len_ = int32_t(fill);
}

namespace {

// "n/" for every byte value, built once.
const std::array<Text, 256>& numberPieces(int radix) {
  static const auto table = [](int r) {
    std::array<Text, 256> t;
    const char* digits = "0123456789ABCDEF";
    for (int b = 0; b < 256; ++b) {
      Text piece;
      int v = b;
      do {
        piece.insert(piece.begin(), char16_t(digits[v % r]));
        v /= r;
      } while (v > 0);
      t[size_t(b)] = piece + u"/";
    }
    return t;
  };
  static const std::array<Text, 256> decimalTable = table(10), hexTable = table(16);
  return radix == 16 ? hexTable : decimalTable;
}

}  // namespace

void appendNumberText(Text& buf, int32_t& len, std::string_view bytes, int radix) {
  const auto& pieces = numberPieces(radix);
  // The final size first, so the pieces go into one allocation; a run that fails somewhere
  // takes the piece-by-piece way, which leaves the buffer as that failure finds it.
  BufferGrowth growth(buf.size(), len);
  try {
    for (unsigned char b : bytes)
      growth.add(pieces[b].size());
  } catch (const Failure&) {
    for (unsigned char b : bytes)
      appendToBuffer(buf, len, pieces[b]);
    return;
  }
  buf.resize(growth.size(), u' ');
  char16_t* out = buf.data() + len;
  for (unsigned char b : bytes) {
    const Text& piece = pieces[b];
    out = std::copy(piece.begin(), piece.end(), out);
  }
  len = growth.len();
}

int32_t numberFromText(TextView s) {
  return Variant(Text(s)).toLong();
}

}  // namespace zrk::files
