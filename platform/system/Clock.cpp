// Real clocks behind replaceable sources.
#include "platform/system/Clock.h"

#include <mutex>
#include <thread>

namespace zrk::platform {
namespace {

std::mutex gMutex;
std::function<uint32_t()> gTicks;
std::function<void(uint32_t)> gSleeper;
std::function<std::tm()> gLocal;

template <class F>
F current(const F& f) {
  std::lock_guard lock(gMutex);
  return f;
}

}  // namespace

uint32_t tickCount() {
  if (auto f = current(gTicks)) return f();
  // Since boot, time spent suspended included, as the tick count counts it.
  timespec ts;
  ::clock_gettime(CLOCK_BOOTTIME, &ts);
  return static_cast<uint32_t>(uint64_t(ts.tv_sec) * 1000 + uint64_t(ts.tv_nsec) / 1000000);
}

void sleepMs(uint32_t ms) {
  if (auto f = current(gSleeper)) return f(ms);
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

std::tm localNow() {
  if (auto f = current(gLocal)) return f();
  std::time_t t = std::time(nullptr);
  std::tm out{};
  ::localtime_r(&t, &out);
  return out;
}

void setTickSource(std::function<uint32_t()> source) {
  std::lock_guard lock(gMutex);
  gTicks = std::move(source);
}

void setSleeper(std::function<void(uint32_t)> sleeper) {
  std::lock_guard lock(gMutex);
  gSleeper = std::move(sleeper);
}

void setLocalClock(std::function<std::tm()> clock) {
  std::lock_guard lock(gMutex);
  gLocal = std::move(clock);
}

}  // namespace zrk::platform
