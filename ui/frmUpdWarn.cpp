// The update warning form: its load step, its text box and its window.
#include "ui/frmUpdWarn.h"

#include <initializer_list>

#include "core/mdlKVN.h"

namespace zrk::ui {
namespace {

Text join(std::initializer_list<TextView> pieces) {
  Text all;
  for (TextView p : pieces)
    all += p;
  return all;
}

}  // namespace

Text frmUpdWarn::InstructionText() {
  return join({u"To Update the ZRK's Core Compnents, click on the ", u"\"Updates\"",
               u" Tab, then click the ", u"\"Update ZRK\"", u"button to check for updates.",
               u" Once the ZRK has found updates, click the ", u"\"Get Updates\"", u" button",
               u" to download the updates, then restart the ZRK to install them.", u"\r\n\r\n",
               u"To Update the ZRK's Plugins, click on the ", u"\"Plugins\"",
               u" Tab, then click the ", u"\"Check Plugins\"", u"button to check for updates.",
               u" Once the ZRK has found updates, click the ", u"\"Get Updates\"", u" button",
               u" to download the updates, then restart the ZRK to install them."});
}

Text frmUpdWarn::OpeningText() {
  return join({u"Some of the ZRKV3 files need to be updated!\r\n", u"\r\n",
               u"If the following files are not updated, then you may experience problems \r\n",
               u"with these files and other files that rely on them.\r\n", u"\r\n", u"Files:"});
}

frmUpdWarn::~frmUpdWarn() = default;

void frmUpdWarn::Load() {
  noticeClose();
  if (loaded_) return;
  loaded_ = true;
  Form_Load();
}

void frmUpdWarn::Form_Load() {
  top_ = 100;
  left_ = platform::dialogBackend()->screenWidthTwips() - Width - 100;
  howTo_ = InstructionText();
  text_ = OpeningText();
}

void frmUpdWarn::Show() {
  Load();
  if (window_) return;
  window_ = platform::dialogBackend()->showTextWindow(layout(), text_);
}

void frmUpdWarn::noticeClose() {
  if (window_ && !window_->isOpen()) {
    window_.reset();
    loaded_ = false;
  }
}

bool frmUpdWarn::Loaded() {
  noticeClose();
  return loaded_;
}

bool frmUpdWarn::Visible() {
  noticeClose();
  return window_ != nullptr;
}

Text& frmUpdWarn::HowToStr() {
  Load();
  return howTo_;
}

Text frmUpdWarn::txtInfo() {
  Load();
  return text_;
}

void frmUpdWarn::setTxtInfo(TextView text) {
  Load();
  text_ = Text(text);
  if (window_) window_->setText(text_);
}

int32_t frmUpdWarn::Top() {
  Load();
  return top_;
}

int32_t frmUpdWarn::Left() {
  Load();
  return left_;
}

platform::FormLayout frmUpdWarn::layout() const {
  platform::FormLayout l;
  l.caption = Text(kCaption);
  l.left = left_;
  l.top = top_;
  l.width = Width;
  l.height = Height;
  l.clientWidth = kClientWidth;
  l.clientHeight = kClientHeight;
  l.boxLeft = kBoxLeft;
  l.boxTop = kBoxTop;
  l.boxWidth = kBoxWidth;
  l.boxHeight = kBoxHeight;
  l.backColour = kBackColour;
  l.foreColour = kForeColour;
  l.fontName = u"Tahoma";
  l.fontPoints = 8.25;
  l.fontWeight = 400;
  return l;
}

// Main loads the form hidden on every thread that starts the library.
const mdlKVN::StartupStep kLoadUpdWarn{[](mdlKVN::State& s) {
  s.UpdWarn = std::make_shared<frmUpdWarn>();
  s.UpdWarn->Load();
}};

}  // namespace zrk::ui
