// The address helpers on any text: URLDecode, validateUrl and isIpAdd.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  auto& h = fuzz::Harness::get();
  h.reset();
  Text text = fuzz::ansiText(data, size);
  h.kvn().URLDecode(text);
  h.kvn().validateUrl(text);
  h.kvn().isIpAdd(text);
  return 0;
}
