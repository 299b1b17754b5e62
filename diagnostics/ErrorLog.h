// The error log: where it lies and how one record reads.
#pragma once

#include <optional>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>

namespace zrk::diagnostics {

// "/ErrorLog.txt" in the installation root worked out afresh from the library's folder.
Text errorLogPath();

// What one record holds, all text made before the file is opened.
struct ErrorRecord {
  Text date, time, location, function;
  int32_t line = 0;
  FailureInfo failure;
  Text errorDump;                  // the "Error Dump:" block
  std::optional<Text> systemDump;  // the "System Dump:" block, when the process list qualifies
};

// The record's lines as written, each to be followed by CR LF.
std::vector<Text> recordLines(const ErrorRecord& r);

}  // namespace zrk::diagnostics
