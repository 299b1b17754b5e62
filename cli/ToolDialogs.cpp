// Failure dialogs as error lines, and answers given in advance.
#include "cli/ToolDialogs.h"

#include <cstdio>
#include <vector>

#include "cli/Command.h"
#include "core/mdlKVN.h"
#include "platform/desktop/DesktopDialogs.h"

namespace zrk::cli {

int32_t ToolDialogs::messageBox(TextView text, int32_t buttons, TextView title) {
  int32_t set = buttons & 7;
  if (answer_ && (set == platform::mb::YesNo || set == platform::mb::YesNoCancel)) return *answer_;
  if (mdlKVN::state().handlingDepth == 0) return inner_->messageBox(text, buttons, title);
  // The failure message's lines: line number, "Error N: ...", the library, the function.
  std::vector<Text> lines = split(text, u"\r\n");
  Text function = lines.size() > 3 ? lines[3].substr(lines[3].find(u' ') + 1) : Text();
  printError(toUtf8(lines.size() > 1 ? lines[1] : text) + " (in " + toUtf8(function) + ")");
  failed_ = true;
  return platform::mb::OK;
}

bool ToolDialogs::showsWindows() const {
  return dynamic_cast<const platform::DesktopDialogs*>(inner_.get()) != nullptr;
}

ToolDialogs& toolDialogs() {
  static std::shared_ptr<ToolDialogs> dialogs = [] {
    auto d = std::make_shared<ToolDialogs>(platform::dialogBackend());
    platform::setDialogBackend(d);
    return d;
  }();
  return *dialogs;
}

bool libraryFailed() {
  return toolDialogs().failed();
}

}  // namespace zrk::cli
