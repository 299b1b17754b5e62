// Text pieces shared by the error log and the error report.
#pragma once

#include <ctime>
#include <optional>

#include <zrkKVL/Text.h>
#include <zrkKVL/Variant.h>

namespace zrk::diagnostics {

// "yyyy-mm-dd" and "hh:mm:ss" (24-hour) of a local time.
Text dateText(const std::tm& t);
Text timeText(const std::tm& t);

// The process names joined with "|", when `list` is an array holding at least two entries
// (upper bound above 0); nullopt otherwise.
std::optional<Text> joinedProcessNames(const Variant& list);

// A dump block: the title line, then a blank and the two-digit (at least) upper-case ANSI code of
// each character, 30 to a row, rows separated by CR LF; no CR LF at the end.
Text dumpBlock(TextView title, TextView source);

}  // namespace zrk::diagnostics
