// The desktop dialog backend: message boxes through zenity, the form window through Xlib, help
// opened with the browser or the desktop's viewer.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "platform/desktop/Dialogs.h"

namespace zrk::platform {

class DesktopDialogs : public DialogBackend {
 public:
  // True when a display is set ($DISPLAY) and zenity is installed.
  static bool available();

  // A zenity message dialog with one button per answer; falls back to the terminal when the
  // dialog cannot be run.
  int32_t messageBox(TextView text, int32_t buttons, TextView title) override;
  // Measured once with xdotool; the default width when that cannot be done.
  int32_t screenWidthTwips() override;
  // A plain X11 window with the form's text box and no buttons (X11TextWindow.h); where that
  // can't be made, a zenity text window moved to the form's place with xdotool. Either is fed
  // through a socket, so that later text is added while it stays where it is.
  std::shared_ptr<TextWindow> showTextWindow(const FormLayout& layout, TextView text) override;
  // Opens the help file at its topic: a file address goes to the browser, a file to xdg-open.
  void showHelp(TextView file, TextView topic) override;

 private:
  std::atomic<int32_t> screenWidth_ = 0;  // 0 until measured
};

// The zenity arguments for a message box: title, text, one button per answer, the icon.
std::vector<std::string> messageBoxArguments(TextView text, int32_t buttons, TextView title);
// The answer by what a zenity message dialog printed: a line with the label of the button
// pressed, or none when the window was closed.
int32_t messageBoxAnswer(int32_t buttons, const std::string& printed);
// What to open for a help topic: the page inside a help folder when it exists (a "#place" behind
// its name kept as the address's fragment), an HTML file as a file address at "#topic", else the
// file itself; empty when the file is missing.
std::string helpTarget(TextView file, TextView topic);

}  // namespace zrk::platform
