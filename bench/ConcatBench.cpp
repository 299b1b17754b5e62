// 10^6 and 10^7 appends of a short piece into the growing buffer, against a reserved
// std::u16string: the time per append stays flat when appending is amortised O(1).
#include "BenchSupport.h"

namespace zrk::bench {
namespace {

void Op_ConcatStr(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text piece = u"abc";
  const int64_t appends = state.range(0);
  for (auto _ : state) {
    Text buf;
    int32_t len = 0;
    for (int64_t i = 0; i < appends; ++i)
      kvn.ConcatStr(buf, len, piece);
    benchmark::DoNotOptimize(buf.data());
  }
  state.counters["items"] = double(appends);
}
BENCHMARK(Op_ConcatStr)
    ->Name("Op/ConcatStr")
    ->Arg(1'000'000)
    ->Arg(10'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void Floor_ConcatStr(benchmark::State& state) {
  Text piece = u"abc";
  const int64_t appends = state.range(0);
  for (auto _ : state) {
    std::u16string buf;
    buf.reserve(size_t(appends) * piece.size());
    for (int64_t i = 0; i < appends; ++i)
      buf += piece;
    benchmark::DoNotOptimize(buf.data());
  }
  state.counters["items"] = double(appends);
}
BENCHMARK(Floor_ConcatStr)
    ->Name("Floor/ConcatStr")
    ->Arg(1'000'000)
    ->Arg(10'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
