// The process's dialog backend: the desktop's where a display and a dialog program are found,
// else the terminal, until the program sets its own.
#include <memory>
#include <mutex>

#include <zrkKVL/DialogBackend.h>
#include "platform/desktop/DesktopDialogs.h"
#include "platform/desktop/Dialogs.h"

namespace zrk::platform {

namespace {
std::mutex gBackendMutex;
std::shared_ptr<DialogBackend> gBackend;
}  // namespace

std::shared_ptr<DialogBackend> dialogBackend() {
  std::lock_guard lock(gBackendMutex);
  if (!gBackend) {
    if (DesktopDialogs::available()) {
      gBackend = std::make_shared<DesktopDialogs>();
    } else {
      gBackend = std::make_shared<TerminalDialogs>();
    }
  }
  return gBackend;
}

void setDialogBackend(std::shared_ptr<DialogBackend> backend) {
  std::lock_guard lock(gBackendMutex);
  gBackend = std::move(backend);
}

}  // namespace zrk::platform
