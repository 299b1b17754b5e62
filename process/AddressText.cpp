// Parsing addresses written in hex or decimal.
#include "process/AddressText.h"

#include <charconv>

namespace zrk::process {

std::optional<uint64_t> parseAddress(std::string_view text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  uint64_t value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace zrk::process
