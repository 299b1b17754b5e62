// DecompressBINI on a packed file of any bytes.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  auto& h = fuzz::Harness::get();
  h.reset();
  h.writeInput("p.bini", data, size);
  Text type;
  h.kvn().DecompressBINI(h.text("in/p.bini"), &type);
  return 0;
}
