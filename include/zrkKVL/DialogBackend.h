// The dialog backend: how the library shows message boxes, forms, tooltips and help. A host
// program replaces it with setDialogBackend.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <zrkKVL/Export.h>
#include <zrkKVL/Text.h>

namespace zrk::platform {

// Button sets and answers of the message box.
namespace mb {
inline constexpr int32_t OKOnly = 0, OKCancel = 1, AbortRetryIgnore = 2, YesNoCancel = 3, YesNo = 4,
                         RetryCancel = 5;
inline constexpr int32_t Critical = 16, Question = 32, Exclamation = 48, Information = 64;
inline constexpr int32_t OK = 1, Cancel = 2, Abort = 3, Retry = 4, Ignore = 5, Yes = 6, No = 7;
}  // namespace mb

// Screen measures: twips (1/1440 inch) at 96 dots per inch.
inline constexpr int32_t kTwipsPerPixel = 15;
// The screen assumed where none can be measured: 1024 pixels wide.
inline constexpr int32_t kDefaultScreenWidthTwips = 1024 * kTwipsPerPixel;

// A plain form holding one multi-line text box with a vertical scroll bar. Positions and sizes
// are twips; colours are 0xRRGGBB.
struct FormLayout {
  Text caption;
  int32_t left = 0, top = 0, width = 0, height = 0;  // the whole form, frame included
  int32_t clientWidth = 0, clientHeight = 0;
  int32_t boxLeft = 0, boxTop = 0, boxWidth = 0, boxHeight = 0;  // the text box in the client area
  uint32_t backColour = 0xFFFFFF, foreColour = 0x000000;
  Text fontName;
  double fontPoints = 0;
  int32_t fontWeight = 400;
};

// A form on screen, shown without waiting for it to close; the user may close it at any time.
class ZRK_API TextWindow {
 public:
  virtual ~TextWindow() = default;
  // Replaces the text of the text box.
  virtual void setText(TextView text) = 0;
  // False once the user has closed the window.
  virtual bool isOpen() = 0;
};

// One tool of a tooltip window: the control it belongs to and its tip.
struct ToolTipTool {
  uint32_t flags = 0;
  int32_t owner = 0;  // the window that holds the control, 0 when the control is a handle itself
  int32_t id = 0;     // the control's handle
  Text text;
};

// A tooltip window: owned by a form, with a maximum tip width in pixels (-1: none) and its tools.
struct ToolTipWindow {
  int32_t handle = 0;
  int32_t owner = 0;
  int32_t instance = 0;
  uint32_t style = 0;
  int32_t maxTipWidth = -1;
  std::vector<ToolTipTool> tools;
  bool destroyed = false;
};

class ZRK_API DialogBackend {
 public:
  virtual ~DialogBackend() = default;
  // Shows title and text with the buttons of `buttons`, blocks until answered, gives the answer.
  virtual int32_t messageBox(TextView text, int32_t buttons, TextView title) = 0;

  // The screen's width in twips.
  virtual int32_t screenWidthTwips() { return kDefaultScreenWidthTwips; }
  // Shows a form with `text` in its text box and returns at once. The default keeps the text
  // and shows nothing.
  virtual std::shared_ptr<TextWindow> showTextWindow(const FormLayout& layout, TextView text);
  // A tooltip window was made, changed or destroyed; a backend that can show tips on the host's
  // controls follows it here. The default does nothing.
  virtual void toolTipChanged(const ToolTipWindow& tip);
  // Opens topic `topic` of the help file `file`; shows nothing when either is missing. The
  // default does nothing.
  virtual void showHelp(TextView file, TextView topic);
  // Runs the host's pending events once, without blocking: the library calls it on each round of
  // its waits (about every 10 ms while a report is awaited or a built-in message box is open), on
  // the thread that waits, so that the host's timers and its own calls go on meanwhile. A call of
  // the library made from here is a call of its own: a failure in it is logged and gets its own
  // dialog and report. The default does nothing.
  virtual void processEvents();
};

// The backend in use. Until a host sets another: the desktop one when a display and its dialog
// tool are there, else the terminal one.
ZRK_API std::shared_ptr<DialogBackend> dialogBackend();
ZRK_API void setDialogBackend(std::shared_ptr<DialogBackend> backend);

}  // namespace zrk::platform
