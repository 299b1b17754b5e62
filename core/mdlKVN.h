// The module: per-thread shared state, start-up, release, and the one failure report.
#pragma once

#include <cstdint>
#include <memory>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Text.h>

namespace zrk {

class clsKVN;
namespace platform {
class FileSystemObject;
}
namespace ui {
class frmUpdWarn;
}
namespace diagnostics {
class frmKVL;
}

namespace mdlKVN {

// The shared state; one copy per thread.
struct State {
  bool started = false;
  // Read through rootPath(). Start-up takes a chosen root at once and leaves one derived from
  // where the library lies to its first use, so that a program that never needs the root does
  // not look for its own file or make the per-user folders.
  Text RootPath;
  bool rootPathDue = false;
  std::shared_ptr<clsKVN> MainObject;
  std::shared_ptr<platform::FileSystemObject> SharedFileSystem;
  Text SystemInfoStr;
  // Start-up leaves the description to be made by the first GetUIDStr, so that a program that
  // never logs or reports a failure does not pay for the machine queries.
  bool systemInfoDue = false;
  std::shared_ptr<ui::frmUpdWarn> UpdWarn;
  std::shared_ptr<diagnostics::frmKVL> KVL;
  // How many HandleFailure calls are under way on this thread, of any chain.
  int handlingDepth = 0;
  // The failure chain under way: how deep HandleFailure is nested in it, at which depth of host
  // event processing it began, and whether its outer failure is writing its own log record.
  struct Chain {
    int depth = 0;
    int hostEvents = 0;
    bool writingLog = false;
  } chain;
};

// This thread's state.
State& state();

// RootPath, derived at its first use after start-up when no root was chosen.
const Text& rootPath();

// SharedFileSystem, made at first use.
platform::FileSystemObject& SharedFileSystem();

// Start-up, once per thread before the first instance is handed out.
void Main();
// A step of Main that a folder above core adds at load time (the forms Main loads hidden).
struct StartupStep {
  explicit StartupStep(void (*step)(State&));
};
// Tear-down: empties RootPath, releases SharedFileSystem and MainObject.
void ReleaseLibrary();

// Logs the failure, sends a report when the settings allow it, and shows the failure dialog.
void HandleFailure(TextView text, FailureInfo failure, int32_t line);

// The platform's message box: text, button/icon code, title; gives the button pressed.
int32_t ShowMessageBox(TextView text, int32_t buttons, TextView title);

// The four-line failure message.
Text FailureMessage(const FailureInfo& failure, int32_t line, TextView text);

// RootPath from the library's folder: every occurrence of the installed sub-path removed.
Text RootPathFromFolder(TextView libraryFolder);

}  // namespace mdlKVN
}  // namespace zrk
