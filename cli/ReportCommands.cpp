// report: a test error report to the endpoint, and a test record in the error log.
#include <cstdio>

#include "cli/Command.h"
#include "diagnostics/ErrorLog.h"
#include "diagnostics/ErrorReport.h"

namespace zrk::cli {
namespace {

Text description(const Context& c) {
  return c.args.empty() ? Text(u"Test report from zrkkvl") : valueArg(c, 0, "DESCRIPTION");
}

int send(Context& c) {
  VariantArray rep;
  rep.items = {Variant(Text(u"0")),
               Variant(description(c)),
               Variant(u"zrkKVL.dll " + c.kvn.dllVersion(u"")),
               Variant(Text(u"zrkkvl report send")),
               Variant(Text(u"False")),
               Variant(int32_t(0))};
  Variant repDat(std::move(rep));
  std::fprintf(stderr, "Sending to %s\n", toUtf8(diagnostics::reportUrl()).c_str());
  bool sent = c.kvn.SendErrorReport(repDat);
  if (!sent) throw ToolError{"report send: Error Report Sent: Failed!"};
  printValue(u"Error Report Sent: Yes");
  return 0;
}

int log(Context& c) {
  c.kvn.LogError(u"zrkKVL.dll", u"zrkkvl report log", FailureInfo{0, description(c)}, 0);
  printPath(diagnostics::errorLogPath());
  return 0;
}

const CommandRegistrar kReport{
    {"report", "send", "[DESCRIPTION]",
     "send a test error report (host: ZRKKVL_REPORT_HOST or the build's)", send},
    {"report", "log", "[DESCRIPTION]", "append a test record to the error log", log},
};

}  // namespace
}  // namespace zrk::cli
