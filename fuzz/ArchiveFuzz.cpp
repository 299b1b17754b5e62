// ExtractArchive on an archive of any bytes, into a throwaway folder. Stored names go into the
// path unchanged, so writes through ".." are refused to keep the run inside its root.
#include "FuzzSupport.h"
#include "platform/Dialogs.h"
#include "platform/SysCalls.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk;
  using namespace zrk::platform;
  auto& h = fuzz::Harness::get();
  h.reset(mb::Yes);  // damaged records are written too
  static const bool armed = [] {
    for (auto call : {faults::Call::OpenWrite, faults::Call::MakeFolder, faults::Call::Remove,
                      faults::Call::Rename})
      faults::add({call, "..", EACCES});
    return true;
  }();
  (void)armed;
  h.writeInput("a.arc", data, size);
  try {
    h.kvn().ExtractArchive(h.text("in/a.arc"), h.text("out"));
  } catch (const Failure&) {
  }
  return 0;
}
