// The growing buffer and numbers read from text.
#include "files/TextOps.h"

#include <algorithm>
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

int32_t numberFromText(TextView s) {
  return Variant(Text(s)).toLong();
}

}  // namespace zrk::files
