// The line writers' shared pieces: what WriteFile reports, so that a write refused before any
// file is opened is reported exactly as a failing WriteFile.
#pragma once

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>

namespace zrk::files {

// Reports `failure` the way WriteFile reports a failure on the file `name`.
void reportWriteFailure(TextView name, FailureInfo failure);

}  // namespace zrk::files
