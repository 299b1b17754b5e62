// The line reader's lines as bytes, for callers that want the file's text rather than its lines.
#pragma once

#include <optional>
#include <string>

#include <zrkKVL/Text.h>

namespace zrk {

// The file's lines as ReadFile takes them (a missing file has none, empty lines are skipped),
// each followed by CR LF: the bytes of ReadFile's lines joined with CR LF, without a Text per
// line. A failure is reported as ReadFile reports it and gives nothing, where ReadFile gives an
// empty result.
std::optional<std::string> readLinesJoined(const Text& fileStr);

}  // namespace zrk
