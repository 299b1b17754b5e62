// The growing buffer and numbers read from text.
#include "files/TextOps.h"

#include <algorithm>

#include <zrkKVL/Variant.h>
#include "platform/files/HugePages.h"

namespace zrk::files {

void appendBlanks(Text& buf, size_t n) {
  static const Text block(4096, u' ');
  size_t size = buf.size() + n;
  if (size > buf.capacity()) {
    // Room for the next growth or two as well (each at least doubles the text), which then
    // write their blanks in place without moving the text; room not yet written holds no
    // memory.
    buf.reserve(std::max(size, std::min(4 * size, size_t(kMaxBufferLength))));
    platform::adviseHugePages(buf.data(), buf.capacity() * sizeof(char16_t));
  }
  for (; n > block.size(); n -= block.size())
    buf.append(block);
  buf.append(block, 0, n);
}

void copyChars(char16_t* to, TextView from) {
  std::copy(from.begin(), from.end(), to);
}

void growBuffer(Text& buf, int64_t fill) {
  if (int64_t(buf.size()) + fill > kMaxBufferLength) throw Failure(err::OutOfMemory);
  appendBlanks(buf, size_t(fill));
}

int32_t numberFromText(TextView s) {
  return Variant(Text(s)).toLong();
}

}  // namespace zrk::files
