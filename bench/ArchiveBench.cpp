// Archives of 1, 10 and 100 MiB of members, made and extracted, in MB/s of member bytes; and
// the extraction of many small members, whose time per member stays flat as the folder fills.
#include <libdeflate.h>
#include <zlib.h>

#include <filesystem>
#include <map>
#include <memory>

#include <zrkKVL/Variant.h>
#include "BenchSupport.h"
#include "platform/text/CodePage.h"

namespace zrk::bench {
namespace {

// `mib` members of 1 MiB each: printable, barely compressible characters, each member a little
// different. An element is the name's length, "|", the name, then the content.
const Variant& members(int64_t mib) {
  static std::map<int64_t, Variant> made;
  auto [it, fresh] = made.try_emplace(mib);
  if (fresh) {
    std::vector<Text> items;
    std::string bytes = pseudoRandomBytes(kMiB, 2);
    for (char& c : bytes)
      c = char(' ' + (static_cast<unsigned char>(c) % 94));
    for (int64_t i = 0; i < mib; ++i) {
      std::string name = "m" + std::to_string(i) + ".txt";
      bytes[size_t(i) % bytes.size()] = 'a';
      items.push_back(fromUtf8(std::to_string(name.size()) + "|" + name) +
                      platform::fromAnsi(bytes));
    }
    it->second = textArray(std::move(items));
  }
  return it->second;
}

// One member's content as the archive stores it: the bytes of members(1)'s element.
const std::string& memberBytes() {
  static const std::string bytes = platform::toAnsi(members(1).array().at(0).toText());
  return bytes;
}

// The archive of members(mib), made once per size.
const std::string& archiveFile(int64_t mib) {
  static std::map<int64_t, std::string> files;
  auto [it, fresh] = files.try_emplace(mib);
  if (fresh) {
    it->second = scratchDir() + "/arch" + std::to_string(mib) + ".zrk";
    if (!library().MakeArchive(members(mib), fromUtf8(it->second))) std::abort();
    std::filesystem::create_directories(scratchDir() + "/out" + std::to_string(mib));
  }
  return it->second;
}

// Each round writes every member again over the files of the round before.
void Op_ExtractArchive(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text name = fromUtf8(archiveFile(state.range(0)));
  Text out = fromUtf8(scratchDir() + "/out" + std::to_string(state.range(0)));
  for (auto _ : state) {
    if (!kvn.ExtractArchive(name, out)) state.SkipWithError("ExtractArchive failed");
  }
  setBytes(state, state.range(0) * int64_t(kMiB));
}

// Each round replaces the archive file. The caller's copy of the members is made outside the
// timed part and moved in, as a caller with no further use of them would.
void Op_MakeArchive(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  const Variant& input = members(state.range(0));
  Text name = fromUtf8(scratchDir() + "/made" + std::to_string(state.range(0)) + ".zrk");
  for (auto _ : state) {
    state.PauseTiming();
    Variant copy = input;
    state.ResumeTiming();
    if (!kvn.MakeArchive(std::move(copy), name)) state.SkipWithError("MakeArchive failed");
  }
  setBytes(state, state.range(0) * int64_t(kMiB));
}

BENCHMARK(Op_ExtractArchive)->Name("Op/ExtractArchive")->Apply(sizedMiB);
BENCHMARK(Op_MakeArchive)->Name("Op/MakeArchive")->Apply(sizedMiB);

// What zlib alone does with one member: the ceiling of MakeArchive (deflate at the default
// level, which the stored streams must match byte for byte) and what ExtractArchive's inflate
// would cost through zlib alone.
void Limit_Deflate(benchmark::State& state) {
  const std::string& in = memberBytes();
  uLongf bound = compressBound(uLong(in.size()));
  std::unique_ptr<Bytef[]> out(new Bytef[bound]);
  for (auto _ : state) {
    uLongf n = bound;
    if (compress(out.get(), &n, reinterpret_cast<const Bytef*>(in.data()), uLong(in.size())) !=
        Z_OK) {
      state.SkipWithError("compress failed");
    }
    benchmark::DoNotOptimize(out.get());
  }
  setBytes(state, int64_t(in.size()));
}

void Limit_Inflate(benchmark::State& state) {
  const std::string& in = memberBytes();
  uLongf packedSize = compressBound(uLong(in.size()));
  std::unique_ptr<Bytef[]> packed(new Bytef[packedSize]);
  compress(packed.get(), &packedSize, reinterpret_cast<const Bytef*>(in.data()), uLong(in.size()));
  std::unique_ptr<Bytef[]> out(new Bytef[in.size()]);
  for (auto _ : state) {
    uLongf n = uLongf(in.size());
    if (uncompress(out.get(), &n, packed.get(), packedSize) != Z_OK)
      state.SkipWithError("uncompress failed");
    benchmark::DoNotOptimize(out.get());
  }
  setBytes(state, int64_t(in.size()));
}

// libdeflate alone on the same member: the ceiling of ExtractArchive's expansion.
void Limit_InflateLibdeflate(benchmark::State& state) {
  const std::string& in = memberBytes();
  uLongf packedSize = compressBound(uLong(in.size()));
  std::unique_ptr<Bytef[]> packed(new Bytef[packedSize]);
  compress(packed.get(), &packedSize, reinterpret_cast<const Bytef*>(in.data()), uLong(in.size()));
  std::unique_ptr<Bytef[]> out(new Bytef[in.size()]);
  libdeflate_decompressor* d = libdeflate_alloc_decompressor();
  for (auto _ : state) {
    if (libdeflate_zlib_decompress(d, packed.get(), packedSize, out.get(), in.size(), nullptr) !=
        LIBDEFLATE_SUCCESS) {
      state.SkipWithError("libdeflate failed");
    }
    benchmark::DoNotOptimize(out.get());
  }
  libdeflate_free_decompressor(d);
  setBytes(state, int64_t(in.size()));
}

BENCHMARK(Limit_Deflate)->Name("Limit/Deflate")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Limit_Inflate)->Name("Limit/Inflate")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Limit_InflateLibdeflate)
    ->Name("Limit/InflateLibdeflate")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// An archive of `count` members of a few bytes each, written once per count.
const std::string& smallMembersArchive(int64_t count) {
  static std::map<int64_t, std::string> files;
  auto [it, fresh] = files.try_emplace(count);
  if (fresh) {
    std::vector<Text> items;
    for (int64_t i = 0; i < count; ++i) {
      std::string name = "member" + std::to_string(i) + ".txt";
      items.push_back(fromUtf8(std::to_string(name.size()) + "|" + name + "text"));
    }
    it->second = scratchDir() + "/small" + std::to_string(count) + ".zrk";
    library().MakeArchive(textArray(std::move(items)), fromUtf8(it->second));
  }
  return it->second;
}

// Each round extracts into a new folder, so every member is a new file. No folder is removed
// before the process ends: a file system that has just freed inodes passes them over while it
// allocates, which would time the removal, not the extraction.
void Op_ExtractSmallMembers(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text archive = fromUtf8(smallMembersArchive(state.range(0)));
  static int round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::string out =
        scratchDir() + "/many" + std::to_string(state.range(0)) + "_" + std::to_string(round++);
    std::filesystem::create_directories(out);
    state.ResumeTiming();
    if (!kvn.ExtractArchive(archive, fromUtf8(out))) state.SkipWithError("ExtractArchive failed");
  }
  state.counters["items"] = double(state.range(0));
}
BENCHMARK(Op_ExtractSmallMembers)
    ->Name("Op/ExtractSmallMembers")
    ->Arg(2000)
    ->Arg(8000)
    ->Iterations(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
