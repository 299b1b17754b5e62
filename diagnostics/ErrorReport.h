// The error report's record, file list and wait, reached by tests directly.
#pragma once

#include <array>
#include <cstdint>

#include <zrkKVL/Text.h>
#include <zrkKVL/Variant.h>

namespace zrk::diagnostics {

class frmKVL;

inline constexpr TextView kReportSeparator = u"|*|*|";
inline constexpr TextView kReportPath = u"/zorvdev/ErrorReports.php";
inline constexpr TextView kReportHeader = u"Content-Type: application/x-www-form-urlencoded";
// The wait: at most this many ticks, each one sleep of kTickMs.
inline constexpr int32_t kWaitTicks = 5000;
inline constexpr uint32_t kTickMs = 10;

// The 15 fields joined by the separator; field 14 stays empty, so the text ends in one.
Text joinReportFields(const std::array<Text, 15>& fields);

// The library files of `root` and the plug-ins of its "Plugins" folder: "|name version" and
// "|\Plugins\name version" (that separator, as the report's readers expect it), for names ending
// in ".dll" exactly and, among the plug-ins, shared objects too.
Text libraryFileList(TextView root);

// A plug-in's file name: "x.dll", or a shared object "x.so" or "x.so.1.2" (case counts).
bool isPluginFile(TextView name);
// A plug-in's version: a shared object's from its name, else from the name it was linked under
// (SONAME); a library file's from its version record.
Text pluginVersion(TextView folder, TextView name);

// Waits for the answer in two stages sharing one tick count: while the control runs, then until
// the form has read an answer. Each tick sleeps, and every tick but the last pumps events. The
// whole wait also ends once kWaitTicks ticks' worth of time has passed.
void waitForAnswer(frmKVL& form);

// The answer as a boolean: failure 13 for one that is no boolean word or number, and for one
// longer than the control keeps.
bool reportResult(const frmKVL& form);

// "http://" + host + the report path.
Text reportUrl();

}  // namespace zrk::diagnostics
