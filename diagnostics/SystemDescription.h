// The machine description's pieces that callers and tests reach directly.
#pragma once

#include <array>
#include <cstdint>

#include <zrkKVL/Text.h>
#include <zrkKVL/Variant.h>

namespace zrk::diagnostics {

// Joins the fields of the description.
inline constexpr TextView kFieldDelimiter = u"[zorv]";

// A byte count as "1023 Bytes", "1.00 KB", "1.50 MB", "2.00 GB"; "0 Bytes" for what is no number.
Text FormatByteSize(const Variant& size);

// Eight little-endian bytes of an unsigned count as the count.
uint64_t LargeToCount(const std::array<uint8_t, 8>& raw);

// A double in the format "#0.00": at least one digit before the locale's decimal mark, two behind,
// rounded half away from zero on the number's 15-digit decimal form.
Text formatTwoDecimals(double value);

}  // namespace zrk::diagnostics
