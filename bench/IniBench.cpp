// INI access against reading the file once.
#include "BenchSupport.h"

namespace zrk::bench {
namespace {

// 1000 sections of 10 keys each, about 1 MiB; the key asked for lies in the last section.
const std::string& iniFile() {
  static const std::string path = [] {
    std::string ini;
    for (int s = 0; s < 1000; ++s) {
      ini += "[Section" + std::to_string(s) + "]\r\n";
      for (int k = 0; k < 10; ++k) {
        ini += "Key" + std::to_string(k) + "=" + std::string(90, char('a' + k)) + "\r\n";
      }
    }
    return writeScratch("big.ini", ini);
  }();
  return path;
}

void Op_GetIniKey(benchmark::State& state) {
  clsKVN& kvn = library();
  Text file = fromUtf8(iniFile());
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.GetIniKey(u"Section999", u"Key9", file));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(readWhole(iniFile()).size()));
}
BENCHMARK(Op_GetIniKey)->Name("Op/GetIniKey");

void Floor_GetIniKey(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(readWhole(iniFile()));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(readWhole(iniFile()).size()));
}
BENCHMARK(Floor_GetIniKey)->Name("Floor/GetIniKey");

}  // namespace
}  // namespace zrk::bench
