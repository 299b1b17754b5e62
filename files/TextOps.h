// Text work shared by the file and text helpers: the growing buffer, blank trimming,
// lower-casing and number texts.
#pragma once

#include <cstdint>
#include <string_view>

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
  // What appending a piece of `n` characters does to the sizes, failures included.
  void add(size_t n);
  size_t size() const { return size_t(size_); }
  int32_t len() const { return len_; }

 private:
  int64_t size_;
  int32_t len_;
};

// Appends each byte as its number and "/" to the growing buffer: decimal for radix 10,
// upper-case hexadecimal for radix 16, no leading zeros.
void appendNumberText(Text& buf, int32_t& len, std::string_view bytes, int radix);

// The whole number a text gives, as the interface converts text to a 32-bit number: failure 13
// when it is not numeric, 6 when it is out of range.
int32_t numberFromText(TextView s);

}  // namespace zrk::files
