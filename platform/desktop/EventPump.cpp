// The counted pass of the thread's event processing.
#include "platform/desktop/EventPump.h"

#include <zrkKVL/DialogBackend.h>
#include "platform/net/WebTransfer.h"

namespace zrk::platform {
namespace {

thread_local int tDepth = 0;

struct DepthScope {
  DepthScope() { ++tDepth; }
  ~DepthScope() { --tDepth; }
};

}  // namespace

void processEvents() {
  DepthScope scope;
  runTransfers();
  dialogBackend()->processEvents();
}

int hostEventDepth() {
  return tDepth;
}

}  // namespace zrk::platform
