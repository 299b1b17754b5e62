// The desktop dialog backend: real windows through zenity, placed and measured with xdotool,
// help opened with the desktop's viewer (xdg-open).
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "platform/Dialogs.h"

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
  // A zenity text window fed through its standard input, so that later text is added while it
  // stays where it is; moved to the form's place with xdotool when that is installed.
  std::shared_ptr<TextWindow> showTextWindow(const FormLayout& layout, TextView text) override;
  // Opens the help file, or the topic's page inside a help folder, with xdg-open.
  void showHelp(TextView file, TextView topic) override;

 private:
  std::atomic<int32_t> screenWidth_ = 0;  // 0 until measured
};

// The zenity arguments for a message box: title, text, one button per answer, the icon.
std::vector<std::string> messageBoxArguments(TextView text, int32_t buttons, TextView title);
// The answer by what a zenity message dialog printed: a line with the label of the button
// pressed, or none when the window was closed.
int32_t messageBoxAnswer(int32_t buttons, const std::string& printed);
// The file to open for a help topic: the page inside a help folder when it exists, else the file;
// empty when the file is missing.
std::string helpTarget(TextView file, TextView topic);

}  // namespace zrk::platform
