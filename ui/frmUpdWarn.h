// The update warning form: a plain window with one text box, loaded hidden at start-up.
#pragma once

#include <cstdint>
#include <memory>

#include <zrkKVL/Text.h>
#include "platform/desktop/Dialogs.h"

namespace zrk::ui {

class frmUpdWarn {
 public:
  // Design-time properties, in twips and 0xRRGGBB.
  static constexpr TextView kCaption = u"WARNING!";
  static constexpr int32_t kClientWidth = 6495, kClientHeight = 3255;
  // The frame round the client area: a fixed single border and a caption bar.
  static constexpr int32_t kBorder = 4 * platform::kTwipsPerPixel;
  static constexpr int32_t kCaptionBar = 23 * platform::kTwipsPerPixel;
  static constexpr int32_t Width = kClientWidth + 2 * kBorder;
  static constexpr int32_t Height = kClientHeight + 2 * kBorder + kCaptionBar;
  static constexpr int32_t kBoxLeft = 120, kBoxTop = 120, kBoxWidth = 6255, kBoxHeight = 3015;
  static constexpr uint32_t kBackColour = 0xECE9D8, kForeColour = 0x000000;

  // The instruction text and the opening text of txtInfo.
  static Text InstructionText();
  static Text OpeningText();

  ~frmUpdWarn();

  // Loads the form without showing it; Form_Load runs. Nothing happens while it is loaded.
  void Load();
  // Shows the form without waiting and with no owner; the window stays where it is if shown.
  void Show();

  // Whether the form is loaded, and whether its window is on screen. Both notice a window that
  // the user has closed.
  bool Loaded();
  bool Visible();

  // The form's public field and its text box; touching either loads the form first.
  Text& HowToStr();
  Text txtInfo();
  void setTxtInfo(TextView text);

  int32_t Top();
  int32_t Left();

 private:
  void Form_Load();
  // Takes in a close by the user: the form is then unloaded.
  void noticeClose();
  platform::FormLayout layout() const;

  bool loaded_ = false;
  int32_t top_ = 0, left_ = 0;
  Text howTo_;
  Text text_;
  std::shared_ptr<platform::TextWindow> window_;  // set while shown
};

}  // namespace zrk::ui
