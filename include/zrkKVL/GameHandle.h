// Closing a process handle that clsKVN::AttachToGame gave out: the class itself has no way to.
#pragma once

#include <cstdint>

namespace zrk {

// Releases `pHwnd`; false if it was no open handle.
bool CloseGameHandle(int32_t pHwnd);

}  // namespace zrk
