// The line writers' shared pieces: what WriteFile reports, so that a write refused before any
// file is opened is reported exactly as a failing WriteFile.
#pragma once

#include <initializer_list>
#include <string_view>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>

namespace zrk::files {

// Reports `failure` the way WriteFile reports a failure on the file `name`.
void reportWriteFailure(TextView name, FailureInfo failure);

// Replaces the file `name` with one line of bytes, the pieces in order and CR LF, exactly as
// WriteFile writes a string that holds them, failures and reports included.
void writeLine(TextView name, std::initializer_list<std::string_view> pieces);

}  // namespace zrk::files
