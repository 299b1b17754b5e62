// Dates, times, the process list and the hexadecimal dump rows of the diagnostics records.
#include "diagnostics/DiagnosticText.h"

#include <cstdio>

#include "platform/text/CodePage.h"

namespace zrk::diagnostics {

Text dateText(const std::tm& t) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
  return ascii(buf);
}

Text timeText(const std::tm& t) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", t.tm_hour, t.tm_min, t.tm_sec);
  return ascii(buf);
}

std::optional<Text> joinedProcessNames(const Variant& list) {
  if (!list.isArray() || list.array().upperBound() <= 0) return std::nullopt;
  const VariantArray& a = list.array();
  Text joined;
  for (int32_t i = a.lowerBound; i <= a.upperBound(); ++i) {
    if (i > a.lowerBound) joined += u"|";
    joined += a.at(i).toText();
  }
  return joined;
}

Text dumpBlock(TextView title, TextView source) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  Text block = Text(title) + u"\r\n";
  for (size_t i = 0; i < source.size(); ++i) {
    if (i > 0 && i % 30 == 0) block += u"\r\n";
    unsigned char code = platform::toAnsiByte(source[i]);
    block += u' ';
    block += char16_t(kHex[code >> 4]);
    block += char16_t(kHex[code & 15]);
  }
  return block;
}

}  // namespace zrk::diagnostics
