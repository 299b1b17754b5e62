// The monitor log: one bracketed line per call beside the library's own file, with the time
// elapsed since an earlier call.
#include <limits>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/files/FileSystemObject.h"
#include "platform/system/Clock.h"
#include "platform/system/LibraryFolder.h"

namespace zrk {
namespace {

// Above this size the log is started anew.
constexpr int64_t kMonitorLogLimit = 100000;

// Milliseconds since `since` in signed 32-bit arithmetic; 0 when `since` is below 1.
int32_t elapsedSince(int32_t now, int32_t since) {
  if (since < 1) return 0;
  int64_t d = int64_t(now) - since;
  if (d < std::numeric_limits<int32_t>::min()) throw Failure(err::Overflow);
  return int32_t(d);
}

Text monitorLine(TextView func, TextView loc, TextView act, int32_t elapsed) {
  return u"[" + Text(func) + u"][" + Text(loc) + u"][" + Text(act) + u"][" + decimal(elapsed) +
         u"]";
}

}  // namespace

int32_t clsKVN::Log(Text sFunc, Text sLoc, Text sAct, std::optional<int32_t> eTime) {
  int32_t result = 0;
  MethodFrame frame(u"Log");
  frame.run([&] {
    frame.line(1);
    int32_t tick = static_cast<int32_t>(platform::tickCount());
    frame.line(2);
    platform::FileSystemObject fso;
    Text path = platform::libraryFolder() + u"/MonitorLog.txt";
    frame.line(3);
    Variant line(monitorLine(sFunc, sLoc, sAct, elapsedSince(tick, eTime.value_or(0))));
    frame.line(4);
    bool exists = fso.FileExists(path);
    if (exists && fso.GetFile(path).Size > kMonitorLogLimit) {
      fso.DeleteFile(path);
      fso.CreateTextFile(path, true);
      WriteFile(path, line);
    } else if (exists) {
      frame.line(5);
      AppendFile(path, line);
    } else {
      frame.line(6);
      fso.CreateTextFile(path, true);
      WriteFile(path, line);
    }
    frame.line(7);
    result = tick;
  });
  return result;
}

static const CallRegistrar kMonitorLogCalls{
    {u"Log", calls::method<&clsKVN::Log>},
};

}  // namespace zrk
