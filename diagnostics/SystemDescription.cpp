// The machine's description kept for error logs and reports.
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/clsKVN.h"
#include "core/mdlKVN.h"

namespace zrk {

Text clsKVN::SetUIDStr() {
  Text result;
  stepOver([&] { result = mdlKVN::state().SystemInfoStr; });
  return result;
}

Text clsKVN::GetUIDStr() {
  return noTrap([] { return mdlKVN::state().SystemInfoStr; });
}

static const CallRegistrar kDescriptionCalls{
    {u"SetUIDStr", calls::method<&clsKVN::SetUIDStr>},
    {u"GetUIDStr", calls::method<&clsKVN::GetUIDStr>},
};

}  // namespace zrk
