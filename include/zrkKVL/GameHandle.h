// Closing a process handle that clsKVN::AttachToGame gave out: the class has no method for it.
// Plug-ins that bind late reach it by name, "CloseGameHandle".
#pragma once

#include <cstdint>

#include <zrkKVL/Export.h>

namespace zrk {

// Releases `pHwnd`; false if it was no open handle.
ZRK_API bool CloseGameHandle(int32_t pHwnd);

}  // namespace zrk
