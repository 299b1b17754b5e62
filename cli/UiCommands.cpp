// ui: the message box, the update warning and help from the command line.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "cli/Command.h"
#include "cli/ToolDialogs.h"
#include "core/mdlKVN.h"
#include "platform/desktop/Dialogs.h"
#include "platform/system/Clock.h"
#include "ui/frmUpdWarn.h"

namespace zrk::cli {
namespace {

// Line breaks typed as "\n" or given as they are become CR LF, the library's line end.
Text withLineEnds(const std::string& s) {
  Text t = replaceAll(fromUtf8(s), u"\\n", u"\n");
  return replaceAll(replaceAll(t, u"\r\n", u"\n"), u"\n", u"\r\n");
}

int msgbox(Context& c) {
  Text text = withLineEnds(arg(c, 0, "TEXT"));
  int32_t buttons = 0;
  if (c.args.size() > 1) {
    char* end = nullptr;
    buttons = int32_t(std::strtol(c.args[1].c_str(), &end, 10));
    if (c.args[1].empty() || *end) throw UsageError{"BUTTONS is a number: " + c.args[1]};
  }
  Text title = c.args.size() > 2 ? fromUtf8(c.args[2]) : Text(u"zrkkvl");
  int32_t answer = mdlKVN::ShowMessageBox(text, buttons, title);
  std::printf("%s %d\n", platform::answerName(answer), answer);
  return 0;
}

// While the desktop shows the warning, the tool stays until the user closes it: the window ends
// with the tool.
void waitWhileShown() {
  if (!toolDialogs().showsWindows()) return;
  auto form = mdlKVN::state().UpdWarn;
  while (form && form->Visible())
    platform::sleepMs(200);
}

int warn(Context& c) {
  for (const auto& names : c.args)
    c.kvn.UpdateWarning(withLineEnds(names));
  if (!::isatty(STDIN_FILENO)) {
    for (std::string line; readInputLine(line);)
      c.kvn.UpdateWarning(withLineEnds(line));
  }
  waitWhileShown();
  return 0;
}

int help(Context& c) {
  c.kvn.ShowHelp(pathArg(c, 0, "FILE"), c.args.size() > 1 ? fromUtf8(c.args[1]) : Text());
  return 0;
}

const CommandRegistrar kUi{
    {"ui", "msgbox", "TEXT [BUTTONS [TITLE]]",
     "show a message box (button code as a number) and print the answer", msgbox},
    {"ui", "warn", "[FILES...]",
     "show the update warning, one call per argument and per line of standard input", warn},
    {"ui", "help", "FILE [PAGE]", "open a help file below the installation root at a page", help},
};

}  // namespace
}  // namespace zrk::cli
