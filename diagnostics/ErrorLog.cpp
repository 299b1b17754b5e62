// LogError: one record per failure at the end of the installation's error log.
#include "diagnostics/ErrorLog.h"

#include <vector>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "diagnostics/DiagnosticText.h"
#include "platform/files/FileIO.h"
#include "platform/files/FileSystemObject.h"
#include "platform/system/Clock.h"
#include "platform/system/LibraryFolder.h"
#include "profiles/Base64.h"

namespace zrk {
namespace diagnostics {

Text errorLogPath() {
  return mdlKVN::RootPathFromFolder(platform::libraryFolder()) + u"/ErrorLog.txt";
}

std::vector<Text> recordLines(const ErrorRecord& r) {
  const Text dashesStart(39, u'-'), dashesEnd(40, u'-');
  return {dashesStart + u" Error Start " + dashesStart,
          u"Date: " + r.date,
          u"Time: " + r.time,
          u"File: " + r.location,
          u"Function: " + r.function,
          u"Error Line: " + decimal(r.line),
          u"Error No.: " + decimal(r.failure.Number),
          u"Error Desc.: " + r.failure.Description,
          r.errorDump,
          r.systemDump.value_or(Text()),
          dashesEnd + u" Error End " + dashesEnd,
          u"\r\n\r\n"};
}

}  // namespace diagnostics

void clsKVN::LogError(Text ErrLoc, Text ErrFunc, FailureInfo ErrObj, int32_t ErrLine) {
  noTrap([&] {
    diagnostics::ErrorRecord record;
    record.failure = ErrObj;
    record.date = diagnostics::dateText(platform::localNow());
    record.time = diagnostics::timeText(platform::localNow());
    record.location = ErrLoc;
    record.function = ErrFunc;
    record.line = ErrLine;
    Text path = diagnostics::errorLogPath();
    platform::FileSystemObject& fso = mdlKVN::SharedFileSystem();
    if (!fso.FileExists(path)) fso.CreateTextFile(path, true);
    record.errorDump = diagnostics::dumpBlock(u"Error Dump:", Base64Encode(GetUIDStr()));
    // By name on this object, so the process list stays a late-bound dependency.
    std::vector<Variant> args{Variant(Text())};
    Variant processes = CallByName(u"GetRunningProcesses", args);
    if (auto names = diagnostics::joinedProcessNames(processes)) {
      record.systemDump = diagnostics::dumpBlock(u"System Dump:", *names);
    }
    platform::OutputFile out(path, platform::OutputFile::Mode::Append);
    for (const Text& line : diagnostics::recordLines(record))
      out.printLine(line);
    out.close();
  });
}

static const CallRegistrar kErrorLogCalls{
    {u"LogError", calls::method<&clsKVN::LogError>},
};

}  // namespace zrk
