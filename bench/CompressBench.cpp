// String compression, base64 and the packed INI form against zlib, memcpy and zlib + base64.
#include <zlib.h>

#include <cstring>
#include <filesystem>

#include "BenchSupport.h"
#include "platform/CodePage.h"
#include "profiles/Base64.h"

namespace zrk::bench {
namespace {

constexpr size_t kMiB = 1 << 20;

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

void setBytes(benchmark::State& state, size_t n) {
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(n));
}

std::string zlibCompress(const std::string& in) {
  uLongf n = compressBound(uLong(in.size()));
  std::string out(n, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &n, reinterpret_cast<const Bytef*>(in.data()),
           uLong(in.size()));
  out.resize(n);
  return out;
}

std::string zlibUncompress(const std::string& in, size_t size) {
  std::string out(size, '\0');
  uLongf n = uLongf(size);
  uncompress(reinterpret_cast<Bytef*>(out.data()), &n, reinterpret_cast<const Bytef*>(in.data()),
             uLong(in.size()));
  out.resize(n);
  return out;
}

void Op_CompressString(benchmark::State& state) {
  clsKVN& kvn = library();
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.CompressString(text()));
  setBytes(state, kMiB);
}
BENCHMARK(Op_CompressString)->Name("Op/CompressString")->Unit(benchmark::kMillisecond);

void Floor_CompressString(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(zlibCompress(textBytes()));
  setBytes(state, kMiB);
}
BENCHMARK(Floor_CompressString)->Name("Floor/CompressString")->Unit(benchmark::kMillisecond);

void Op_DecompressString(benchmark::State& state) {
  clsKVN& kvn = library();
  Text packed = kvn.CompressString(text());
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.DecompressString(packed, int32_t(kMiB)));
  setBytes(state, kMiB);
}
BENCHMARK(Op_DecompressString)->Name("Op/DecompressString")->Unit(benchmark::kMillisecond);

void Floor_DecompressString(benchmark::State& state) {
  std::string packed = zlibCompress(textBytes());
  for (auto _ : state)
    benchmark::DoNotOptimize(zlibUncompress(packed, kMiB));
  setBytes(state, kMiB);
}
BENCHMARK(Floor_DecompressString)->Name("Floor/DecompressString")->Unit(benchmark::kMillisecond);

// 1 MiB of every byte value, as characters of the code page.
const Text& binary() {
  static const Text t = [] {
    std::string b(kMiB, '\0');
    uint32_t x = 7;
    for (char& c : b) {
      x = x * 1664525u + 1013904223u;
      c = char(x >> 24);
    }
    return platform::fromAnsi(b);
  }();
  return t;
}

void Op_Base64Encode(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(Base64Encode(binary()));
  setBytes(state, kMiB);
}
BENCHMARK(Op_Base64Encode)->Name("Op/Base64Encode");

void Op_Base64Decode(benchmark::State& state) {
  Text encoded = Base64Encode(binary());
  for (auto _ : state)
    benchmark::DoNotOptimize(Base64Decode(encoded));
  setBytes(state, kMiB);
}
BENCHMARK(Op_Base64Decode)->Name("Op/Base64Decode");

// The floor of both: copying the same characters once.
void copyFloor(benchmark::State& state) {
  Text out(binary().size(), u'\0');
  for (auto _ : state) {
    std::memcpy(out.data(), binary().data(), binary().size() * sizeof(char16_t));
    benchmark::ClobberMemory();
  }
  setBytes(state, kMiB);
}
BENCHMARK(copyFloor)->Name("Floor/Base64Encode");
BENCHMARK(copyFloor)->Name("Floor/Base64Decode");

// The packed INI form: pack a 1 MiB INI, then unpack it again.
void Op_CompressBINI(benchmark::State& state) {
  clsKVN& kvn = library();
  std::string dir = scratchDir() + "/bini";
  std::filesystem::create_directories(dir);
  Text plain = fromUtf8(dir + "/server.ini");
  for (auto _ : state) {
    writeScratch("bini/server.ini", textBytes());
    kvn.CompressBINI(plain);
    kvn.DecompressBINI(fromUtf8(dir + "/server.bini"));
  }
  setBytes(state, kMiB);
}
BENCHMARK(Op_CompressBINI)->Name("Op/CompressBINI+DecompressBINI")->Unit(benchmark::kMillisecond);

// zlib and base64 over the same text, both ways, with the files read and written.
void Floor_CompressBINI(benchmark::State& state) {
  for (auto _ : state) {
    std::string path = writeScratch("floor.ini", textBytes());
    std::string packed = zlibCompress(readWhole(path));
    Text encoded = Base64Encode(platform::fromAnsi(packed));
    std::string packedPath = writeScratch("floor.bini", platform::toAnsi(encoded));
    std::string back = platform::toAnsi(Base64Decode(platform::fromAnsi(readWhole(packedPath))));
    benchmark::DoNotOptimize(writeScratch("floor.ini", zlibUncompress(back, kMiB)));
  }
  setBytes(state, kMiB);
}
BENCHMARK(Floor_CompressBINI)
    ->Name("Floor/CompressBINI+DecompressBINI")
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
