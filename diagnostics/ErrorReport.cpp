// SendErrorReport: one failure as an HTTP POST to the report endpoint, and the wait for its answer.
#include "diagnostics/ErrorReport.h"

#include <optional>
#include <vector>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "diagnostics/DiagnosticText.h"
#include "diagnostics/frmKVL.h"
#include "platform/desktop/EventPump.h"
#include "platform/files/FileSystemObject.h"
#include "platform/files/Paths.h"
#include "platform/net/WebTransfer.h"
#include "platform/process/ElfFile.h"
#include "platform/system/Clock.h"

namespace zrk {
namespace diagnostics {
namespace {

bool isLibraryFile(const Text& name) {
  return name.size() >= 4 && name.compare(name.size() - 4, 4, u".dll") == 0;
}

// "libstats.so" or "libstats.so.2.1": the version behind ".so." (digits and points), or empty.
std::optional<Text> sharedObjectVersion(TextView name) {
  size_t so = name.rfind(u".so");
  if (so == TextView::npos || so == 0) return std::nullopt;
  TextView rest = name.substr(so + 3);
  if (rest.empty()) return Text();
  if (rest.size() < 2 || rest[0] != u'.' || rest[1] == u'.' || rest.back() == u'.') {
    return std::nullopt;
  }
  for (char16_t c : rest.substr(1)) {
    if (c != u'.' && (c < u'0' || c > u'9')) return std::nullopt;
  }
  return Text(rest.substr(1));
}

}  // namespace

bool isPluginFile(TextView name) {
  return isLibraryFile(Text(name)) || sharedObjectVersion(name).has_value();
}

Text pluginVersion(TextView folder, TextView name) {
  Text path = Text(folder) + u"/" + Text(name);
  std::optional<Text> fromName = sharedObjectVersion(name);
  if (!fromName) return mdlKVN::SharedFileSystem().GetFileVersion(path);
  if (!fromName->empty()) return *fromName;
  // A plain "x.so" takes the version of the name it was linked under.
  std::optional<std::string> soname = platform::ElfFile(platform::nativePath(path)).soname();
  if (!soname) return Text();
  return sharedObjectVersion(fromUtf8(*soname)).value_or(Text());
}

Text joinReportFields(const std::array<Text, 15>& fields) {
  Text joined = fields[0];
  for (size_t i = 1; i < fields.size(); ++i)
    joined += Text(kReportSeparator) + fields[i];
  return joined;
}

Text libraryFileList(TextView root) {
  platform::FileSystemObject& fso = mdlKVN::SharedFileSystem();
  Text list;
  Text rootFolder(root), plugins = Text(root) + u"/Plugins";
  for (const Text& name : fso.GetFolder(rootFolder).FileNames) {
    if (isLibraryFile(name))
      list += u"|" + name + u" " + fso.GetFileVersion(rootFolder + u"/" + name);
  }
  for (const Text& name : fso.GetFolder(plugins).FileNames) {
    if (isPluginFile(name)) list += u"|\\Plugins\\" + name + u" " + pluginVersion(plugins, name);
  }
  return list;
}

namespace {

// The wait's bound: kWaitTicks ticks, and as long in elapsed time, so that event passes that
// take long (a busy transfer, the host's own events) cannot stretch it.
class WaitBudget {
 public:
  WaitBudget() : start_(platform::tickCount()) {}
  // Sleeps one tick; false once the ticks or the time are used up.
  bool tick() {
    platform::sleepMs(kTickMs);
    return ++ticks_ < kWaitTicks && platform::tickCount() - start_ < kWaitTicks * kTickMs;
  }

 private:
  uint32_t start_;
  int32_t ticks_ = 0;
};

}  // namespace

void waitForAnswer(frmKVL& form) {
  WaitBudget wait;
  while (form.inetKVL.StillExecuting()) {
    if (!wait.tick()) break;
    platform::processEvents();
  }
  // An answer past the control's limit never arrives: nothing is left to wait for.
  while (!form.ResponseRecieved && !form.inetKVL.answerOverLimit()) {
    if (!wait.tick()) break;
    platform::processEvents();
  }
}

bool reportResult(const frmKVL& form) {
  if (form.inetKVL.answerOverLimit()) throw Failure(err::TypeMismatch);
  return Variant(form.ResponseResult).toBool();
}

Text reportUrl() {
  return u"http://" + platform::reportEndpointHost() + Text(kReportPath);
}

}  // namespace diagnostics

bool clsKVN::SendErrorReport(Variant& RepDat) {
  bool result = false;
  MethodFrame frame(u"SendErrorReport");
  frame.run([&] {
    try {
      std::array<Text, 15> f;
      frame.line(1);
      std::tm now = platform::localNow();
      f[0] = diagnostics::dateText(now);
      f[1] = diagnostics::timeText(now);
      frame.line(2);
      const VariantArray& rep = RepDat.array();
      f[2] = rep.at(2).toText();
      f[3] = rep.at(3).toText();
      if (rep.upperBound() > 4) f[4] = rep.at(5).toText();
      f[5] = rep.at(0).toText();
      f[6] = rep.at(1).toText();
      frame.line(3);
      f[7] = GetUIDStr();
      f[8] = u"1";
      f[9] = rep.at(4).toText();
      frame.line(4);
      std::vector<Variant> args{Variant(Text())};
      Variant processes = CallByName(u"GetRunningProcesses", args);
      f[10] = diagnostics::joinedProcessNames(processes).value_or(Text()) + u"|" +
              diagnostics::libraryFileList(mdlKVN::rootPath());
      frame.line(5);
      f[11] = decimal(ProfileCount);
      f[12] = decimal(ActiveProfiles);
      f[13] = f[0] + u" " + f[1];
      frame.line(6);
      Text record = diagnostics::joinReportFields(f);
      frame.line(7);
      diagnostics::FormHold hold;
      diagnostics::frmKVL& form = hold.form();
      form.ResponseRecieved = false;
      frame.line(8);
      form.inetKVL.Execute(diagnostics::reportUrl(), u"POST", u"Report=" + record,
                           diagnostics::kReportHeader);
      frame.line(9);
      diagnostics::waitForAnswer(form);
      frame.line(11);
      form.inetKVL.Cancel();
      frame.line(12);
      result = diagnostics::reportResult(form);
    } catch (const Failure& f) {
      // A component that cannot be made is never reported: the result stays false.
      if (f.number() != err::CantCreateObject) throw;
    }
  });
  return result;
}

static const CallRegistrar kErrorReportCalls{
    {u"SendErrorReport", calls::method<&clsKVN::SendErrorReport>},
};

}  // namespace zrk
