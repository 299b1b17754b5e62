// The processor's vector level, found once.
#include "platform/text/VectorLevel.h"

#include <algorithm>
#include <atomic>

namespace zrk::platform {
namespace {

VectorLevel offered() {
#if defined(__x86_64__)
  // The processor table may not be filled yet when this runs during static initialisation.
  __builtin_cpu_init();
  // The 512-bit loops use byte permutes (VBMI) beside the byte and word operations (BW).
  if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi"))
    return VectorLevel::Avx512;
  if (__builtin_cpu_supports("avx2")) return VectorLevel::Avx2;
#endif
  return VectorLevel::Plain;
}

std::atomic<VectorLevel>& current() {
  static std::atomic<VectorLevel> level{offered()};
  return level;
}

}  // namespace

VectorLevel vectorLevel() {
  return current().load(std::memory_order_relaxed);
}

void useVectorLevel(VectorLevel level) {
  current().store(std::min(level, offered()), std::memory_order_relaxed);
}

}  // namespace zrk::platform
