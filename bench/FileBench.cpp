// The whole-file number readers at 1, 10 and 100 MiB in MB/s of input, and the peak memory of
// one 100 MiB read beside the size of its result.
#include <sys/mman.h>

#include <cstring>
#include <map>

#include "BenchSupport.h"
#include "PeakMemory.h"
#include "platform/files/HugePages.h"

namespace zrk::bench {
namespace {

// A binary file of `mib` MiB of every byte value, written once per size.
const std::string& binaryFile(int64_t mib) {
  static std::map<int64_t, std::string> files;
  auto [it, fresh] = files.try_emplace(mib);
  if (fresh) {
    it->second =
        writeScratch("bin" + std::to_string(mib), pseudoRandomBytes(size_t(mib) * kMiB, 1));
  }
  return it->second;
}

void Op_HexRead(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text name = fromUtf8(binaryFile(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.HexRead(name));
  setBytes(state, state.range(0) * int64_t(kMiB));
}

void Op_BinRead(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text name = fromUtf8(binaryFile(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.BinRead(name));
  setBytes(state, state.range(0) * int64_t(kMiB));
}

BENCHMARK(Op_HexRead)->Name("Op/HexRead")->Apply(sizedMiB);
BENCHMARK(Op_BinRead)->Name("Op/BinRead")->Apply(sizedMiB);

// Peak memory of one call in a fresh process (see PeakMemory.h); once, as it varies little.
void Mem_Reader(benchmark::State& state, const char* op) {
  const std::string& path = binaryFile(state.range(0));
  PeakMemory peak;
  for (auto _ : state)
    peak = measurePeakInChild(op, path);
  if (peak.resultBytes <= 0) state.SkipWithError("the measuring process failed");
  state.counters["peak_bytes"] = double(peak.growthBytes);
  state.counters["result_bytes"] = double(peak.resultBytes);
}
BENCHMARK_CAPTURE(Mem_Reader, hex, "HexRead")
    ->Name("Mem/HexRead")
    ->Arg(100)
    ->Iterations(1)
    ->Repetitions(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Mem_Reader, bin, "BinRead")
    ->Name("Mem/BinRead")
    ->Arg(100)
    ->Iterations(1)
    ->Repetitions(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The limit of a reader that writes a large result: filling memory the process never touched, in
// ordinary pages and in pages asked to be huge as the readers ask (up to their budget); 64 MiB,
// and 1400 MiB, about BinRead's result at 100 MiB, where fresh memory is slowest and least steady.
void Limit_FreshPages(benchmark::State& state, bool huge) {
  const size_t size = size_t(state.range(0)) * kMiB;
  for (auto _ : state) {
    void* p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
      state.SkipWithError("mmap failed");
      break;
    }
    if (huge) platform::adviseHugePages(p, size);
    std::memset(p, 'x', size);
    benchmark::ClobberMemory();
    ::munmap(p, size);
  }
  setBytes(state, int64_t(size));
}
BENCHMARK_CAPTURE(Limit_FreshPages, small, false)
    ->Name("Limit/FreshPages")
    ->Arg(64)
    ->Arg(1400)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Limit_FreshPages, huge, true)
    ->Name("Limit/FreshHugePages")
    ->Arg(64)
    ->Arg(1400)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
