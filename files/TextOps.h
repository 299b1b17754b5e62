// Text work shared by the file and text helpers: the growing buffer and numbers read from
// text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>

namespace zrk::files {

// The longest a growing buffer gets: its count is 32-bit signed.
inline constexpr int64_t kMaxBufferLength = std::numeric_limits<int32_t>::max();

// Adds `n` blanks behind the text, copied in blocks. When the text must move, it gets room for
// four times its new size; a large growth asks for huge pages.
void appendBlanks(Text& buf, size_t n);

// Copies the characters of `from` to `to`.
void copyChars(char16_t* to, TextView from);

// The growing buffer's growth by the new fill level `fill` in blanks; failure 7 when the
// buffer would leave the 32-bit range.
void growBuffer(Text& buf, int64_t fill);

// Appends `add` to the growing buffer `buf` whose first `len` characters are in use. When the
// piece does not fit, the buffer grows by the whole new fill level (len + size of `add`) in
// blanks, so a long text costs amortised constant work per piece. Failure 6 when the fill level
// leaves the 32-bit range, 5 when `len` is negative. Inline, as callers append millions of
// short pieces.
inline void appendToBuffer(Text& buf, int32_t& len, TextView add) {
  int64_t fill = int64_t(len) + int64_t(add.size());
  if (fill > kMaxBufferLength) throw Failure(err::Overflow);
  if (fill > int64_t(buf.size())) growBuffer(buf, fill);
  if (len < 0) throw Failure(err::InvalidCall);  // the overwrite would start before position 1
  // The buffer now holds the piece; an empty piece at a full buffer writes nothing. A short
  // piece is copied by hand, cheaper than a library call.
  char16_t* out = buf.data() + len;
  if (add.size() <= 8) {
    for (char16_t c : add)
      *out++ = c;
  } else {
    copyChars(out, add);
  }
  len = int32_t(fill);
}

// The growing buffer's bookkeeping without its characters: the fill level and the size that
// appendToBuffer grows the buffer to, with its failures at the same piece. A long run of pieces
// can then be written into one buffer of the final size instead of growing it piece by piece.
class BufferGrowth {
 public:
  BufferGrowth(size_t size, int32_t len) : size_(int64_t(size)), len_(len) {}
  // What appending a piece of `n` characters does to the sizes, failures included. Inline, as
  // it runs once per piece over millions of pieces.
  void add(size_t n) {
    int64_t fill = int64_t(len_) + int64_t(n);
    if (fill > kMaxBufferLength) throw Failure(err::Overflow);
    if (fill > size_) {
      if (size_ + fill > kMaxBufferLength) throw Failure(err::OutOfMemory);
      size_ += fill;
    }
    if (len_ < 0) throw Failure(err::InvalidCall);
    len_ = int32_t(fill);
  }
  size_t size() const { return size_t(size_); }
  int32_t len() const { return len_; }

 private:
  int64_t size_;
  int32_t len_;
};

// The whole number a text gives, as the interface converts text to a 32-bit number: failure 13
// when it is not numeric, 6 when it is out of range.
int32_t numberFromText(TextView s);

}  // namespace zrk::files
