// Huge pages for large fresh memory: one fault per 2 MiB in place of one per 4 KiB.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace zrk::platform {

inline constexpr size_t kHugePageSize = size_t(2) << 20;

// Asks for huge pages on the 2 MiB-aligned part of [p, p + bytes), before it is first written.
// Only a hint: where the system gives none, the memory works as before.
inline void adviseHugePages(void* p, size_t bytes) {
  uintptr_t begin = (reinterpret_cast<uintptr_t>(p) + kHugePageSize - 1) & ~(kHugePageSize - 1);
  uintptr_t end = (reinterpret_cast<uintptr_t>(p) + bytes) & ~(kHugePageSize - 1);
  if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace zrk::platform
