// Whole-file readers, archive extraction and the growing buffer against their floors.
#include <filesystem>
#include <map>

#include <zrkKVL/Variant.h>
#include "BenchSupport.h"
#include "platform/CodePage.h"

namespace zrk::bench {
namespace {

constexpr size_t kMiB = 1 << 20;

std::string pseudoRandomBytes(size_t n, uint32_t seed) {
  std::string b(n, '\0');
  for (char& c : b) {
    seed = seed * 1664525u + 1013904223u;
    c = char(seed >> 24);
  }
  return b;
}

// A binary file of `mib` MiB, written once per size.
const std::string& binaryFile(int64_t mib) {
  static std::map<int64_t, std::string> files;
  auto [it, fresh] = files.try_emplace(mib);
  if (fresh) {
    it->second =
        writeScratch("bin" + std::to_string(mib), pseudoRandomBytes(size_t(mib) * kMiB, 1));
  }
  return it->second;
}

// An archive of about `mib` MiB: 1 MiB members of printable, barely compressible characters.
const std::string& archiveFile(int64_t mib) {
  static std::map<int64_t, std::string> files;
  auto [it, fresh] = files.try_emplace(mib);
  if (fresh) {
    VariantArray members;
    std::string bytes = pseudoRandomBytes(kMiB, 2);
    for (char& c : bytes)
      c = char(' ' + (static_cast<unsigned char>(c) % 94));
    // Stored compressed, a member shrinks to about 0.83 of itself.
    int64_t count = std::max<int64_t>(1, mib * 6 / 5);
    for (int64_t i = 0; i < count; ++i) {
      std::string name = "m" + std::to_string(i) + ".txt";
      bytes[size_t(i) % bytes.size()] = 'a';  // members differ
      members.items.emplace_back(fromUtf8(std::to_string(name.size()) + "|" + name) +
                                 platform::fromAnsi(bytes));
    }
    std::string path = scratchDir() + "/arch" + std::to_string(mib) + ".zrk";
    library().MakeArchive(Variant(std::move(members)), fromUtf8(path));
    std::filesystem::create_directories(scratchDir() + "/out" + std::to_string(mib));
    it->second = path;
  }
  return it->second;
}

int64_t fileSize(const std::string& path) {
  return int64_t(std::filesystem::file_size(path));
}

void Op_HexRead(benchmark::State& state) {
  clsKVN& kvn = library();
  const std::string& path = binaryFile(state.range(0));
  Text name = fromUtf8(path);
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.HexRead(name));
  state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
}

void Op_BinRead(benchmark::State& state) {
  clsKVN& kvn = library();
  const std::string& path = binaryFile(state.range(0));
  Text name = fromUtf8(path);
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.BinRead(name));
  state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
}

void Floor_ReadBinary(benchmark::State& state) {
  const std::string& path = binaryFile(state.range(0));
  for (auto _ : state)
    benchmark::DoNotOptimize(readWhole(path));
  state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
}

void Op_ExtractArchive(benchmark::State& state) {
  clsKVN& kvn = library();
  const std::string& path = archiveFile(state.range(0));
  Text name = fromUtf8(path);
  Text out = fromUtf8(scratchDir() + "/out" + std::to_string(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.ExtractArchive(name, out));
  state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
}

void Floor_ExtractArchive(benchmark::State& state) {
  const std::string& path = archiveFile(state.range(0));
  for (auto _ : state)
    benchmark::DoNotOptimize(readWhole(path));
  state.SetBytesProcessed(int64_t(state.iterations()) * fileSize(path));
}

// 1 and 10 MiB as often as the library likes; 100 MiB a fixed few times.
void sizes(benchmark::internal::Benchmark* b, const char* name) {
  b->Name(name)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
}
void bigSize(benchmark::internal::Benchmark* b, const char* name) {
  b->Name(name)->Arg(100)->Iterations(2)->Unit(benchmark::kMillisecond);
}

#define ZRK_SIZED(fn, name)                              \
  BENCHMARK(fn)->Apply([](auto* b) { sizes(b, name); }); \
  BENCHMARK(fn)->Apply([](auto* b) { bigSize(b, name); })

ZRK_SIZED(Op_HexRead, "Op/HexRead");
ZRK_SIZED(Floor_ReadBinary, "Floor/HexRead");
ZRK_SIZED(Op_BinRead, "Op/BinRead");
ZRK_SIZED(Floor_ReadBinary, "Floor/BinRead");
ZRK_SIZED(Op_ExtractArchive, "Op/ExtractArchive");
ZRK_SIZED(Floor_ExtractArchive, "Floor/ExtractArchive");

// 10^6 and 10^7 appends of a short piece into the growing buffer, against a reserved
// std::u16string; the time per append stays flat when appending is amortised O(1).

void Op_ConcatStr(benchmark::State& state) {
  clsKVN& kvn = library();
  Text piece = u"abc";
  const int64_t appends = state.range(0);
  for (auto _ : state) {
    Text buf;
    int32_t len = 0;
    for (int64_t i = 0; i < appends; ++i)
      kvn.ConcatStr(buf, len, piece);
    benchmark::DoNotOptimize(buf.data());
  }
  state.SetItemsProcessed(state.iterations() * appends);
}
BENCHMARK(Op_ConcatStr)
    ->Name("Op/ConcatStr")
    ->Arg(1'000'000)
    ->Arg(10'000'000)
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
  state.SetItemsProcessed(state.iterations() * appends);
}
BENCHMARK(Floor_ConcatStr)
    ->Name("Floor/ConcatStr")
    ->Arg(1'000'000)
    ->Arg(10'000'000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
