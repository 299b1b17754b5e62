// Base64Decode on any text, the same bytes through the byte-level decoder, and the round trip
// from bytes through Base64Encode.
#include <optional>
#include <string>

#include "FuzzSupport.h"
#include "profiles/Base64.h"

namespace {

using zrk::Text;

Text asText(const std::string& bytes) {
  return zrk::fuzz::ansiText(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// The decoded text, or the failure's number.
struct Outcome {
  int32_t failure = 0;
  Text text;
  bool operator==(const Outcome&) const = default;
};

template <class Decode>
Outcome outcome(Decode&& decode) {
  try {
    return {0, decode()};
  } catch (const zrk::Failure& f) {
    return {f.number(), Text()};
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  Text text = fuzz::ansiText(data, size);
  std::string bytes(reinterpret_cast<const char*>(data), size);
  // The text form and the byte form agree on every input, failures included.
  if (outcome([&] { return Base64Decode(text); }) !=
      outcome([&] { return asText(base64DecodeBytes(bytes)); }))
    __builtin_trap();
  Text encoded = Base64Encode(text);
  if (encoded != asText(base64EncodeBytes(bytes))) __builtin_trap();
  if (Base64Decode(encoded) != text) __builtin_trap();
  return 0;
}
