// Base64Decode on any text, and the round trip from bytes through Base64Encode.
#include "FuzzSupport.h"
#include "profiles/Base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  Text text = fuzz::ansiText(data, size);
  try {
    Base64Decode(text);
  } catch (const Failure&) {
  }
  if (Base64Decode(Base64Encode(text)) != text) __builtin_trap();
  return 0;
}
