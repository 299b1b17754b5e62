// Huge pages for large fresh memory: one fault per 2 MiB in place of one per 4 KiB.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace zrk::platform {

inline constexpr size_t kHugePageSize = size_t(2) << 20;

// How much of one buffer asks for huge pages. Where free memory is fragmented, the kernel
// compacts it to make each huge page on first touch; a buffer of gigabytes asked to be huge then
// stalls for seconds, while its first quarter-gigabyte still comes at once. The rest of a larger
// buffer takes ordinary pages, which cost the same on every run.
inline constexpr size_t kHugePageBudget = size_t(256) << 20;

// Asks for huge pages on the 2 MiB-aligned part of [p, p + bytes), up to the budget, before it
// is first written. Only a hint: where the system gives none, the memory works as before.
inline void adviseHugePages(void* p, size_t bytes) {
  bytes = bytes < kHugePageBudget ? bytes : kHugePageBudget;
  uintptr_t begin = (reinterpret_cast<uintptr_t>(p) + kHugePageSize - 1) & ~(kHugePageSize - 1);
  uintptr_t end = (reinterpret_cast<uintptr_t>(p) + bytes) & ~(kHugePageSize - 1);
  if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace zrk::platform
