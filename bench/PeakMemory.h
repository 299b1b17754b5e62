// Peak memory of one library call, measured in a fresh process so that no heap left by other
// benchmarks hides or adds to it.
//
// The benchmark binary runs itself as `zrk_bench --peak-memory OP FILE`: that process starts the
// library, notes its resident size, resets the high-water mark (`5` into /proc/self/clear_refs),
// makes the one call, and prints the rise of VmHWM above the noted size and the bytes of the
// result (characters times their size).
#pragma once

#include <cstdint>
#include <string>

namespace zrk::bench {

constexpr const char* kPeakMemoryFlag = "--peak-memory";

struct PeakMemory {
  int64_t growthBytes = 0;
  int64_t resultBytes = 0;
};

PeakMemory measurePeakInChild(const std::string& op, const std::string& path);

// The measuring process's side: argv is {program, flag, OP, FILE}. Returns the exit status.
int runPeakMemoryChild(int argc, char** argv);

}  // namespace zrk::bench
