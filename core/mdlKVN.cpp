// Start-up, release and the failure report, over this thread's shared state.
#include "core/mdlKVN.h"

#include <optional>
#include <vector>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "platform/desktop/Dialogs.h"
#include "platform/desktop/EventPump.h"
#include "platform/files/FileSystemObject.h"
#include "platform/ini/ProfileCache.h"
#include "platform/system/LibraryFolder.h"

namespace zrk::mdlKVN {
namespace {

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
  bool outer = s.chain.writingLog;
  s.chain.writingLog = true;
  try {
    callMainObject(u"LogError", {Variant(Text(u"zrkKVL.dll")), Variant(Text(text)),
                                 failureObject(failure), Variant(line)});
  } catch (...) {
    s.chain.writingLog = outer;
    throw;
  }
  s.chain.writingLog = outer;
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

// One failure's place in the chain: the first failure of a chain starts it (and a failure in
// code that host event processing runs starts a chain of its own); a failure inside the
// operations the chain calls joins it. The chain that was under way is back afterwards.
class ChainLink {
 public:
  explicit ChainLink(State& s) : s_(s), outer_(s.chain) {
    int hostEvents = platform::hostEventDepth();
    joined_ = s.chain.depth > 0 && s.chain.hostEvents == hostEvents;
    if (!joined_) s.chain = State::Chain{0, hostEvents, false};
    ++s.chain.depth;
    ++s.handlingDepth;
  }
  ~ChainLink() {
    --s_.handlingDepth;
    if (joined_) {
      --s_.chain.depth;
    } else {
      s_.chain = outer_;
    }
  }
  ChainLink(const ChainLink&) = delete;
  ChainLink& operator=(const ChainLink&) = delete;

  // Whether this failure arose inside the chain's own operations.
  bool joined() const { return joined_; }
  // Whether it arose while the chain's outer failure wrote its log record.
  bool duringLog() const { return joined_ && outer_.writingLog; }

 private:
  State& s_;
  State::Chain outer_;
  bool joined_ = false;
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
  return replaceAll(libraryFolder, platform::kLibrarySubPath, u"");
}

const Text& rootPath() {
  State& s = state();
  if (s.rootPathDue) {
    s.RootPath = RootPathFromFolder(platform::ownLibraryFolder());
    s.rootPathDue = false;
  }
  return s.RootPath;
}

void Main() {
  State& s = state();
  std::optional<Text> chosen = platform::chosenLibraryFolder();
  s.RootPath = chosen ? RootPathFromFolder(*chosen) : Text();
  s.rootPathDue = !chosen;
  s.MainObject = std::make_shared<clsKVN>();
  for (auto step : startupSteps())
    step(s);
  s.systemInfoDue = true;
}

StartupStep::StartupStep(void (*step)(State&)) {
  startupSteps().push_back(step);
}

void ReleaseLibrary() {
  State& s = state();
  s.RootPath.clear();
  s.rootPathDue = false;
  s.SharedFileSystem.reset();
  platform::ProfileCache::forThread().clear();
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
  ChainLink link(s);
  if (link.joined()) {
    // A failure of the chain's own logging, settings or report: logged (except while the outer
    // record is written, which would log without end) and shown, but no report, so a report
    // that can't be completed ends in false for the outer failure.
    if (!link.duringLog()) logFailure(text, failure, line);
    ShowMessageBox(message + u"\r\n\r\nError Report Sent: No", 0, u"DLL Error!");
    return;
  }
  logFailure(text, failure, line);
  Text settings = rootPath() + u"/settings/config.ini";
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
