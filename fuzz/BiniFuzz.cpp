// DecompressBINI on a packed file of any bytes.
#include <algorithm>

#include "FuzzSupport.h"

namespace {

// The size the reader takes from the field: the decimal texts of the bytes, the last byte's
// first, joined into one number, so a byte above 9 adds digits. Held at 2^40 once past it.
int64_t claimedSize(const uint8_t* data, size_t size) {
  int64_t n = 0;
  for (size_t i = 8; i-- > 0;) {
    int64_t b = i < size ? data[i] : 0;
    int64_t scale = b >= 100 ? 1000 : b >= 10 ? 100 : 10;
    n = std::min(n * scale + b, int64_t(1) << 40);
  }
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  // The output buffer is the claimed size, capped by what the stream can expand to. Past a
  // million characters a run only measures how fast that buffer is filled. A claim beyond what
  // the stream allows still runs: a lost cap shows as a finding.
  int64_t streamBytes = size > 12 ? int64_t(size - 12) * 3 / 4 : 0;
  if (std::min(claimedSize(data, size), streamBytes * 1032 + 4096) > 1000000) return -1;
  auto& h = fuzz::Harness::get();
  h.reset();
  h.writeInput("p.bini", data, size);
  Text type;
  h.kvn().DecompressBINI(h.text("in/p.bini"), &type);
  return 0;
}
