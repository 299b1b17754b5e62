// The benchmark runner; `--peak-memory OP FILE` instead measures one call's peak memory.
#include <benchmark/benchmark.h>

#include <cstring>

#include "PeakMemory.h"

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], zrk::bench::kPeakMemoryFlag) == 0) {
    return zrk::bench::runPeakMemoryChild(argc, argv);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
