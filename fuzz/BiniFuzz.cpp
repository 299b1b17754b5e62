// DecompressBINI on a packed file of any bytes.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  // The size field (one digit per byte, lowest first) sizes the output buffer, up to 99,999,999
  // characters by design; past a million a run only measures how fast that buffer is filled.
  int64_t n = 0;
  for (size_t i = 8; i-- > 0;)
    n = n * 10 + (i < size ? data[i] : 0);
  if (n > 1000000) return -1;
  auto& h = fuzz::Harness::get();
  h.reset();
  h.writeInput("p.bini", data, size);
  Text type;
  h.kvn().DecompressBINI(h.text("in/p.bini"), &type);
  return 0;
}
