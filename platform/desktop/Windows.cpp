// The window table behind the tooltip and help stand-ins.
#include "platform/desktop/Windows.h"

#include <map>
#include <mutex>
#include <vector>

#include "platform/text/CodePage.h"

namespace zrk::platform {
namespace {

// Every tooltip window made and not yet destroyed, by handle; handles are never reused.
struct WindowTable {
  std::mutex mutex;
  std::map<int32_t, ToolTipWindow> windows;
  int32_t next = 0x00010002;
};

WindowTable& table() {
  static WindowTable t;
  return t;
}

Text wideText(const void* p) {
  return p ? Text(static_cast<const char16_t*>(p)) : Text();
}
Text ansiText(const void* p) {
  return p ? fromAnsi(static_cast<const char*>(p)) : Text();
}

ToolTipTool* findTool(ToolTipWindow& w, const TOOLINFO& info) {
  for (auto& t : w.tools) {
    if (t.owner == info.hwnd && t.id == info.uId) return &t;
  }
  return nullptr;
}

// Runs one message on a window (the table locked); sets `changed` when the tip changed.
intptr_t handle(ToolTipWindow& w, uint32_t message, intptr_t wParam, intptr_t lParam,
                bool& changed) {
  auto* info = reinterpret_cast<TOOLINFO*>(lParam);
  switch (message) {
    case TTM_SETMAXTIPWIDTH: {
      int32_t previous = w.maxTipWidth;
      w.maxTipWidth = int32_t(lParam);
      changed = true;
      return previous;
    }
    case TTM_ADDTOOLW:
      if (!info) return 0;
      w.tools.push_back({info->uFlags, info->hwnd, info->uId, wideText(info->lpszText)});
      changed = true;
      return 1;
    case TTM_ENUMTOOLSW: {
      if (!info || wParam < 0 || size_t(wParam) >= w.tools.size()) return 0;
      const ToolTipTool& t = w.tools[size_t(wParam)];
      info->uFlags = t.flags;
      info->hwnd = t.owner;
      info->uId = t.id;
      info->rect = RECT{};
      info->hinst = w.instance;
      return 1;
    }
    case TTM_UPDATETIPTEXTA:
      if (!info) return 0;
      if (ToolTipTool* t = findTool(w, *info)) {
        t->text = ansiText(info->lpszText);
        changed = true;
      }
      return 0;
    default:
      return 0;
  }
}

}  // namespace

int32_t CreateWindowExA(uint32_t, std::string_view className, const char*, uint32_t style, int32_t,
                        int32_t, int32_t, int32_t, int32_t parent, int32_t, int32_t instance,
                        void*) {
  if (className != kToolTipClass) return 0;
  ToolTipWindow made;
  {
    std::lock_guard lock(table().mutex);
    made.handle = table().next;
    table().next += 2;
    made.owner = parent;
    made.instance = instance;
    made.style = style;
    table().windows[made.handle] = made;
  }
  dialogBackend()->toolTipChanged(made);
  return made.handle;
}

intptr_t SendMessageA(int32_t hwnd, uint32_t message, intptr_t wParam, intptr_t lParam) {
  bool changed = false;
  intptr_t result = 0;
  ToolTipWindow now;
  {
    std::lock_guard lock(table().mutex);
    auto it = table().windows.find(hwnd);
    if (it == table().windows.end()) return 0;
    result = handle(it->second, message, wParam, lParam, changed);
    now = it->second;
  }
  if (changed) dialogBackend()->toolTipChanged(now);
  return result;
}

bool DestroyWindow(int32_t hwnd) {
  std::vector<ToolTipWindow> gone;
  {
    std::lock_guard lock(table().mutex);
    auto& windows = table().windows;
    std::vector<int32_t> doomed{hwnd};
    for (size_t i = 0; i < doomed.size(); ++i) {  // the window, what it owns, and so on down
      for (const auto& [h, w] : windows) {
        if (w.owner == doomed[i]) doomed.push_back(h);
      }
    }
    for (int32_t h : doomed) {
      auto it = windows.find(h);
      if (it == windows.end()) continue;
      it->second.destroyed = true;
      gone.push_back(it->second);
      windows.erase(it);
    }
  }
  for (const auto& w : gone)
    dialogBackend()->toolTipChanged(w);
  return !gone.empty();
}

bool IsWindow(int32_t hwnd) {
  std::lock_guard lock(table().mutex);
  return table().windows.count(hwnd) != 0;
}

std::optional<ToolTipWindow> toolTipWindow(int32_t hwnd) {
  std::lock_guard lock(table().mutex);
  auto it = table().windows.find(hwnd);
  if (it == table().windows.end()) return std::nullopt;
  return it->second;
}

int32_t HtmlHelpA(int32_t, TextView file, int32_t command, const char* data) {
  if (command != HH_DISPLAY_TOPIC) return 0;
  dialogBackend()->showHelp(file, ansiText(data));
  return 0;
}

}  // namespace zrk::platform
