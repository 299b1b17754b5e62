// A plain X11 window (class "zrkKVL") for a form with one read-only text box: no buttons of its
// own, closed with the window manager's close control (or Escape). It lives in a child process of
// its own, so it stays responsive whatever the host does, and takes more text through a socket.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/desktop/Dialogs.h"

namespace zrk::platform {

struct X11Child {
  pid_t pid = -1;
  int input = -1;  // UTF-8 text written here is added to the end of the box
};

// Starts the window's process for `layout` and waits until its window is on screen. Gives
// pid -1 when there is no display or no X library (libX11 is loaded at run time).
X11Child startX11TextWindow(const FormLayout& layout);

// The lines a text shows in a box `width` pixels wide, with `textWidth` measuring a line: broken
// at line ends (CR LF, lone CR or LF) and, where a line is too wide, after its last blank that
// fits, or inside a word that is wider than the box.
std::vector<std::string> wrapLines(std::string_view text, int width,
                                   const std::function<int(std::string_view)>& textWidth);

}  // namespace zrk::platform
