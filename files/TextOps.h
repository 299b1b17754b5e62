// Text work shared by the file and text helpers: the growing buffer and numbers read from
// text.
#pragma once

#include <cstdint>
#include <limits>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>

namespace zrk::files {

// Appends `add` to the growing buffer `buf` whose first `len` characters are in use. When the
// piece does not fit, the buffer grows by the whole new fill level (len + size of `add`) in
// blanks, so a long text costs amortised constant work per piece. Failure 6 when the fill level
// leaves the 32-bit range, 5 when `len` is negative.
void appendToBuffer(Text& buf, int32_t& len, TextView add);

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
    if (fill > kMaxLength) throw Failure(err::Overflow);
    if (fill > size_) {
      if (size_ + fill > kMaxLength) throw Failure(err::OutOfMemory);
      size_ += fill;
    }
    if (len_ < 0) throw Failure(err::InvalidCall);
    len_ = int32_t(fill);
  }
  size_t size() const { return size_t(size_); }
  int32_t len() const { return len_; }

 private:
  static constexpr int64_t kMaxLength = std::numeric_limits<int32_t>::max();
  int64_t size_;
  int32_t len_;
};

// The whole number a text gives, as the interface converts text to a 32-bit number: failure 13
// when it is not numeric, 6 when it is out of range.
int32_t numberFromText(TextView s);

}  // namespace zrk::files
