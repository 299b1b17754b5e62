// ParseIniKey on any key text, for both results it can give.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  auto& h = fuzz::Harness::get();
  h.reset();
  Text key = fuzz::ansiText(data, size);
  h.kvn().ParseIniKey(key);
  h.kvn().ParseIniKey(key, true);
  h.kvn().ParseIniKey(key, false);
  return 0;
}
