// Closing a process handle that clsKVN::AttachToGame gave out: the class has no method for it.
// Plug-ins that bind late reach it by name, "CloseGameHandle".
#pragma once

#include <cstdint>

namespace zrk {

// Releases `pHwnd`; false if it was no open handle.
bool CloseGameHandle(int32_t pHwnd);

}  // namespace zrk
