// Start-up, release and the failure report, over this thread's shared state.
#include "core/mdlKVN.h"

#include <vector>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "platform/Dialogs.h"
#include "platform/FileSystemObject.h"
#include "platform/LibraryFolder.h"

namespace zrk::mdlKVN {
namespace {

// The sub-path of the installation root where the library lies.
constexpr TextView kLibrarySubPath = u"/dlls/Main Functions DLL";

std::vector<void (*)(State&)>& startupSteps() {
  static std::vector<void (*)(State&)> steps;
  return steps;
}

Variant callMainObject(TextView name, std::vector<Variant> args) {
  std::shared_ptr<clsKVN> main = state().MainObject;  // kept alive through re-entrant calls
  if (!main) throw Failure(err::ObjectNotSet);
  return main->CallByName(name, args);
}

void logFailure(TextView text, const FailureInfo& failure, int32_t line) {
  State& s = state();
  bool outer = s.writingLog;
  s.writingLog = true;
  try {
    callMainObject(u"LogError", {Variant(Text(u"zrkKVL.dll")), Variant(Text(text)),
                                 failureObject(failure), Variant(line)});
  } catch (...) {
    s.writingLog = outer;
    throw;
  }
  s.writingLog = outer;
}

Variant reportRecord(const Text& number, const Text& description, TextView text, int32_t line) {
  VariantArray rec;
  rec.items = {Variant(number),
               Variant(description),
               Variant(u"zrkKVL.dll " + decimal(kVersionMajor) + u"." + decimal(kVersionMinor) +
                       u"." + decimal(kVersionRevision)),
               Variant(Text(text)),
               Variant(Text(u"False")),
               Variant(line)};
  return Variant(std::move(rec));
}

struct DepthGuard {
  explicit DepthGuard(State& s) : s_(s) { ++s_.handlingDepth; }
  ~DepthGuard() { --s_.handlingDepth; }
  State& s_;
};

}  // namespace

State& state() {
  thread_local State s;
  return s;
}

platform::FileSystemObject& SharedFileSystem() {
  State& s = state();
  if (!s.SharedFileSystem) s.SharedFileSystem = std::make_shared<platform::FileSystemObject>();
  return *s.SharedFileSystem;
}

Text RootPathFromFolder(TextView libraryFolder) {
  return replaceAll(libraryFolder, kLibrarySubPath, u"");
}

void Main() {
  State& s = state();
  s.RootPath = RootPathFromFolder(platform::libraryFolder());
  s.MainObject = std::make_shared<clsKVN>();
  for (auto step : startupSteps())
    step(s);
  callMainObject(u"SetUIDStr", {});
}

StartupStep::StartupStep(void (*step)(State&)) {
  startupSteps().push_back(step);
}

void ReleaseLibrary() {
  State& s = state();
  s.RootPath.clear();
  s.SharedFileSystem.reset();
  s.MainObject.reset();
}

Text FailureMessage(const FailureInfo& failure, int32_t line, TextView text) {
  return u"Error Line: " + decimal(line) + u"\r\nError " + decimal(failure.Number) + u": " +
         failure.Description + u"\r\nDLL: zrkKVL.dll\r\nFunction/Sub: " + Text(text);
}

void HandleFailure(TextView text, FailureInfo failure, int32_t line) {
  State& s = state();
  Text message = FailureMessage(failure, line, text);
  Text number = decimal(failure.Number), description = failure.Description;
  if (s.handlingDepth > 0) {
    // A failure while another is being handled: its record only, and none while the outer one
    // writes its own, so a failing report or log ends instead of calling itself again.
    if (!s.writingLog) logFailure(text, failure, line);
    return;
  }
  DepthGuard guard(s);
  logFailure(text, failure, line);
  Text settings = s.RootPath + u"/settings/config.ini";
  Text setting = callMainObject(u"GetIniKey", {Variant(Text(u"Settings")),
                                               Variant(Text(u"ReportErrors")), Variant(settings)})
                     .toText();
  Text reportLine = u"Error Report Sent: No";
  if (setting == u"1") {
    std::vector<Variant> args{reportRecord(number, description, text, line)};
    bool sent = callMainObject(u"SendErrorReport", std::move(args)).toBool();
    reportLine = sent ? u"Error Report Sent: Yes" : u"Error Report Sent: Failed!";
  }
  ShowMessageBox(message + u"\r\n\r\n" + reportLine, 0, u"DLL Error!");
}

int32_t ShowMessageBox(TextView text, int32_t buttons, TextView title) {
  return platform::dialogBackend()->messageBox(text, buttons, title);
}

}  // namespace zrk::mdlKVN
