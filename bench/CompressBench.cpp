// String compression, base64 and the packed INI form against zlib, memcpy, and zlib with a plain
// byte-level base64 and the same durable writes.
#include <libdeflate.h>

#include <cstring>
#include <filesystem>

#include "BenchSupport.h"
#include "platform/text/CodePage.h"
#include "profiles/Base64.h"

namespace zrk::bench {
namespace {

// 1 MiB of word-like text (a fixed pseudo-random walk over a small vocabulary), as bytes and
// as the characters the library takes.
const std::string& textBytes() {
  static const std::string bytes = [] {
    static const char* words[] = {"server", "player", "map",  "port",  "admin", "max",
                                  "round",  "kick",   "ban",  "vote",  "team",  "score",
                                  "=",      "1",      "true", "27960", "\r\n",  "[Game]"};
    std::string s;
    uint32_t x = 12345;
    while (s.size() < kMiB) {
      x = x * 1103515245u + 12345u;
      s += words[(x >> 16) % (sizeof words / sizeof *words)];
      s += ' ';
    }
    s.resize(kMiB);
    return s;
  }();
  return bytes;
}

const Text& text() {
  static const Text t = platform::fromAnsi(textBytes());
  return t;
}

void Op_CompressString(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.CompressString(text()));
  setBytes(state, kMiB);
}
BENCHMARK(Op_CompressString)
    ->Name("Op/CompressString")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void Floor_CompressString(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(zlibCompress(textBytes()));
  setBytes(state, kMiB);
}
BENCHMARK(Floor_CompressString)
    ->Name("Floor/CompressString")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void Op_DecompressString(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text packed = kvn.CompressString(text());
  if (kvn.DecompressString(packed, int32_t(kMiB)) != text()) {
    state.SkipWithError("the text does not come back");
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.DecompressString(packed, int32_t(kMiB)));
  setBytes(state, kMiB);
}
BENCHMARK(Op_DecompressString)
    ->Name("Op/DecompressString")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void Floor_DecompressString(benchmark::State& state) {
  FileBytes packed = zlibCompress(textBytes());
  for (auto _ : state)
    benchmark::DoNotOptimize(zlibUncompress(packed.view(), kMiB));
  setBytes(state, kMiB);
}
BENCHMARK(Floor_DecompressString)
    ->Name("Floor/DecompressString")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// libdeflate alone on the same stream, into the same kind of buffer: what DecompressString's
// expansion can come down to.
void Limit_DecompressString(benchmark::State& state) {
  FileBytes packed = zlibCompress(textBytes());
  libdeflate_decompressor* d = libdeflate_alloc_decompressor();
  for (auto _ : state) {
    auto out = std::make_unique_for_overwrite<char[]>(kMiB);
    if (libdeflate_zlib_decompress(d, packed.data.get(), packed.size, out.get(), kMiB, nullptr) !=
        LIBDEFLATE_SUCCESS) {
      state.SkipWithError("libdeflate failed");
    }
    benchmark::DoNotOptimize(out.get());
  }
  libdeflate_free_decompressor(d);
  setBytes(state, kMiB);
}
BENCHMARK(Limit_DecompressString)
    ->Name("Limit/DecompressString")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// 1 MiB of every byte value, as characters of the code page.
const Text& binary() {
  static const Text t = platform::fromAnsi(pseudoRandomBytes(kMiB, 7));
  return t;
}

const Text& encoded() {
  static const Text t = Base64Encode(binary());
  return t;
}

void Op_Base64Encode(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(Base64Encode(binary()));
  setBytes(state, int64_t(binary().size()));
}
BENCHMARK(Op_Base64Encode)->Name("Op/Base64Encode")->UseRealTime();

void Op_Base64Decode(benchmark::State& state) {
  if (Base64Decode(encoded()) != binary()) state.SkipWithError("the bytes do not come back");
  for (auto _ : state)
    benchmark::DoNotOptimize(Base64Decode(encoded()));
  setBytes(state, int64_t(encoded().size()));
}
BENCHMARK(Op_Base64Decode)->Name("Op/Base64Decode")->UseRealTime();

// The floor of both: one memcpy of the input as the library holds it, into a buffer kept
// between rounds.
void copyFloor(benchmark::State& state, const Text& input) {
  Text out(input.size(), u'\0');
  for (auto _ : state) {
    std::memcpy(out.data(), input.data(), input.size() * sizeof(char16_t));
    benchmark::ClobberMemory();
  }
  setBytes(state, int64_t(input.size()));
}
BENCHMARK_CAPTURE(copyFloor, encode, binary())->Name("Floor/Base64Encode")->UseRealTime();
BENCHMARK_CAPTURE(copyFloor, decode, encoded())->Name("Floor/Base64Decode")->UseRealTime();

// The packed INI form, both ways: CompressBINI replaces the packed file and removes the plain
// one, DecompressBINI writes the plain one back, each replacement fsyncing file and folder.
void Op_CompressBINI(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  std::string dir = scratchDir() + "/bini";
  std::filesystem::create_directories(dir);
  writeScratch("bini/server.ini", textBytes());
  Text plain = fromUtf8(dir + "/server.ini");
  Text packed = fromUtf8(dir + "/server.bini");
  for (auto _ : state) {
    kvn.CompressBINI(plain);
    if (!kvn.DecompressBINI(packed)) state.SkipWithError("DecompressBINI failed");
  }
  setBytes(state, kMiB);
}
BENCHMARK(Op_CompressBINI)
    ->Name("Op/CompressBINI+DecompressBINI")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The same files and work on bytes: read, compress, encode, replace durably, remove the plain
// file; then read, decode, expand, replace durably.
void Floor_CompressBINI(benchmark::State& state) {
  std::string dir = scratchDir() + "/bini-floor";
  std::filesystem::create_directories(dir);
  std::string plain = writeScratch("bini-floor/server.ini", textBytes());
  std::string packed = dir + "/server.bini";
  for (auto _ : state) {
    packPlainly(plain, packed);
    unpackPlainly(packed, plain);
  }
  setBytes(state, kMiB);
}
BENCHMARK(Floor_CompressBINI)
    ->Name("Floor/CompressBINI+DecompressBINI")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
