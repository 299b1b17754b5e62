// Stand-ins for the window services the library calls: tooltip windows made and driven by
// messages, owned by the caller's form, and the help viewer. What they show goes to the dialog
// backend.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <zrkKVL/Text.h>
#include "platform/desktop/Dialogs.h"

namespace zrk::platform {

inline constexpr std::string_view kToolTipClass = "tooltips_class32";

inline constexpr uint32_t TTS_ALWAYSTIP = 1;
inline constexpr uint32_t TTF_IDISHWND = 1, TTF_SUBCLASS = 16;

inline constexpr uint32_t TTM_UPDATETIPTEXTA = 1036;
inline constexpr uint32_t TTM_SETMAXTIPWIDTH = 1048;
inline constexpr uint32_t TTM_ADDTOOLW = 1074;
inline constexpr uint32_t TTM_ENUMTOOLSW = 1082;

inline constexpr int32_t HH_DISPLAY_TOPIC = 0;

struct RECT {
  int32_t left = 0, top = 0, right = 0, bottom = 0;
};

// The tool record of the tooltip messages, in its first form (40 bytes on the original
// platform). lpszText points to UTF-16 text for the messages ending in W and to ANSI bytes for
// those ending in A.
struct TOOLINFO {
  uint32_t cbSize = 0;
  uint32_t uFlags = 0;
  int32_t hwnd = 0;
  int32_t uId = 0;
  RECT rect;
  int32_t hinst = 0;
  const void* lpszText = nullptr;
};
inline constexpr uint32_t kToolInfoSize = 40;

// Makes a window of a known class ("tooltips_class32"); gives its handle, or 0 for any other
// class. The window belongs to `parent` and goes with it.
int32_t CreateWindowExA(uint32_t exStyle, std::string_view className, const char* windowName,
                        uint32_t style, int32_t x, int32_t y, int32_t width, int32_t height,
                        int32_t parent, int32_t menu, int32_t instance, void* param);

// Sends a message to a tooltip window; gives the message's result (0 for an unknown window or
// message). lParam carries a number or the address of a TOOLINFO, as the message wants.
intptr_t SendMessageA(int32_t hwnd, uint32_t message, intptr_t wParam, intptr_t lParam);
inline intptr_t SendMessageA(int32_t hwnd, uint32_t message, intptr_t wParam, TOOLINFO* info) {
  return SendMessageA(hwnd, message, wParam, reinterpret_cast<intptr_t>(info));
}

// Destroys a window and every window it owns. A host calls it for its own form when the form
// goes, so that the form's tips go with it. False when nothing of ours had that handle.
bool DestroyWindow(int32_t hwnd);
bool IsWindow(int32_t hwnd);

// A tooltip window as it stands now.
std::optional<ToolTipWindow> toolTipWindow(int32_t hwnd);

// Opens a help file at a topic through the dialog backend. Only HH_DISPLAY_TOPIC is known;
// `data` is the topic's ANSI text. Gives 0, as no viewer window of ours is made.
int32_t HtmlHelpA(int32_t caller, TextView file, int32_t command, const char* data);

}  // namespace zrk::platform
