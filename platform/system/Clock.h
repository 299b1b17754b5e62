// Tick count, sleep and local time: seams, so that long waits and clocks are tested without
// waiting.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>

namespace zrk::platform {

// Milliseconds since boot, suspended time included, wrapping at 2^32, as the platform's tick
// count.
uint32_t tickCount();
// Blocks the calling thread for `ms` milliseconds.
void sleepMs(uint32_t ms);
// The local date and time now.
std::tm localNow();

// Test seams: replace a source (an empty function restores the real one).
void setTickSource(std::function<uint32_t()> source);
void setSleeper(std::function<void(uint32_t)> sleeper);
void setLocalClock(std::function<std::tm()> clock);

}  // namespace zrk::platform
