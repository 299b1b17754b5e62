// The user-interface aids: the update warning, tooltips and help.
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "platform/desktop/Windows.h"
#include "platform/text/CodePage.h"
#include "ui/frmUpdWarn.h"

namespace zrk {
namespace {

constexpr int32_t kMaxTipWidth = 240;  // pixels; makes the tip wrap

ui::frmUpdWarn& updateWarningForm() {
  mdlKVN::State& s = mdlKVN::state();
  if (!s.UpdWarn) s.UpdWarn = std::make_shared<ui::frmUpdWarn>();
  return *s.UpdWarn;
}

}  // namespace

void clsKVN::UpdateWarning(Text fNames) {
  noTrap([&] {
    ui::frmUpdWarn& form = updateWarningForm();
    Text present = form.txtInfo();
    Text howTo = form.HowToStr();
    form.setTxtInfo(present + u"\r\n" + fNames + u"\r\n\r\n" + howTo);
    form.Show();
  });
}

void clsKVN::CreateToolTip(int32_t FrmHwnd, int32_t AppInst, int32_t CtrlHwnd, Text strText) {
  MethodFrame frame(u"CreateToolTip");
  frame.run([&] {
    using namespace platform;
    frame.line(1);
    int32_t tip = CreateWindowExA(0, kToolTipClass, nullptr, TTS_ALWAYSTIP, 0, 0, 0, 0, FrmHwnd, 0,
                                  AppInst, nullptr);
    frame.line(2);
    if (tip <= 0) return;
    frame.line(3);
    TOOLINFO info;
    info.cbSize = kToolInfoSize;
    info.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
    info.hwnd = 0;
    info.uId = CtrlHwnd;
    info.lpszText = strText.c_str();
    SendMessageA(tip, TTM_SETMAXTIPWIDTH, 0, kMaxTipWidth);
    SendMessageA(tip, TTM_ADDTOOLW, 0, &info);
    SendMessageA(tip, TTM_ENUMTOOLSW, 1, &info);
    std::string ansi = toAnsi(strText);
    info.lpszText = ansi.c_str();
    SendMessageA(tip, TTM_UPDATETIPTEXTA, 0, &info);
  });
}

void clsKVN::ShowHelp(Text hFile, Text hPage) {
  stepOver([&] {
    std::string page = platform::toAnsi(hPage);
    platform::HtmlHelpA(0, mdlKVN::rootPath() + u"/" + hFile, platform::HH_DISPLAY_TOPIC,
                        page.c_str());
  });
}

static const CallRegistrar kUserInterfaceCalls{
    {u"UpdateWarning", calls::method<&clsKVN::UpdateWarning>},
    {u"CreateToolTip", calls::method<&clsKVN::CreateToolTip>},
    {u"ShowHelp", calls::method<&clsKVN::ShowHelp>},
};

}  // namespace zrk
