// Extraction of many small members: the time per member stays flat as the folder fills, since
// no member's name is looked for by a scan of the whole folder.
#include <filesystem>
#include <map>

#include <zrkKVL/Variant.h>
#include "BenchSupport.h"

namespace zrk::bench {
namespace {

// An archive of `count` members of a few bytes each, written once per count.
const std::string& smallMembersArchive(int64_t count) {
  static std::map<int64_t, std::string> files;
  auto [it, fresh] = files.try_emplace(count);
  if (fresh) {
    VariantArray members;
    for (int64_t i = 0; i < count; ++i) {
      std::string name = "member" + std::to_string(i) + ".txt";
      members.items.emplace_back(fromUtf8(std::to_string(name.size()) + "|" + name + "text"));
    }
    it->second = scratchDir() + "/small" + std::to_string(count) + ".zrk";
    library().MakeArchive(Variant(std::move(members)), fromUtf8(it->second));
  }
  return it->second;
}

// Each round extracts into a fresh folder, so every member is a new file.
void Op_ExtractSmallMembers(benchmark::State& state) {
  clsKVN& kvn = library();
  Text archive = fromUtf8(smallMembersArchive(state.range(0)));
  int round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::string out =
        scratchDir() + "/many" + std::to_string(state.range(0)) + "_" + std::to_string(round++);
    std::filesystem::create_directories(out);
    state.ResumeTiming();
    benchmark::DoNotOptimize(kvn.ExtractArchive(archive, fromUtf8(out)));
    state.PauseTiming();
    std::filesystem::remove_all(out);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Op_ExtractSmallMembers)
    ->Name("Op/ExtractSmallMembers")
    ->Arg(2000)
    ->Arg(8000)
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
