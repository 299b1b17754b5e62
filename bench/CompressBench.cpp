// String compression, base64 and the packed INI form against zlib, memcpy, and zlib with a plain
// byte-level base64 and the same durable writes.
#include <libdeflate.h>
#include <zlib.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "BenchSupport.h"
#include "platform/CodePage.h"
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

// Bytes in a buffer left uninitialised, as zlib writes every byte it reports.
struct Bytes {
  std::unique_ptr<char[]> data;
  size_t size = 0;
  std::string_view view() const { return {data.get(), size}; }
};

Bytes zlibCompress(std::string_view in) {
  uLongf n = compressBound(uLong(in.size()));
  Bytes out{std::make_unique_for_overwrite<char[]>(n), 0};
  compress(reinterpret_cast<Bytef*>(out.data.get()), &n, reinterpret_cast<const Bytef*>(in.data()),
           uLong(in.size()));
  out.size = n;
  return out;
}

Bytes zlibUncompress(std::string_view in, size_t size) {
  uLongf n = uLongf(size);
  Bytes out{std::make_unique_for_overwrite<char[]>(size), 0};
  uncompress(reinterpret_cast<Bytef*>(out.data.get()), &n,
             reinterpret_cast<const Bytef*>(in.data()), uLong(in.size()));
  out.size = n;
  return out;
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
  Bytes packed = zlibCompress(textBytes());
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
  Bytes packed = zlibCompress(textBytes());
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

// A plain table-driven base64 of bytes, standard alphabet with "=" padding: what the packed
// form costs without character strings.
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string plainBase64Encode(std::string_view in) {
  std::string out((in.size() + 2) / 3 * 4, '=');
  const auto* p = reinterpret_cast<const unsigned char*>(in.data());
  char* o = out.data();
  size_t i = 0;
  for (; i + 3 <= in.size(); i += 3, o += 4) {
    uint32_t v = uint32_t(p[i]) << 16 | uint32_t(p[i + 1]) << 8 | p[i + 2];
    o[0] = kAlphabet[v >> 18];
    o[1] = kAlphabet[(v >> 12) & 63];
    o[2] = kAlphabet[(v >> 6) & 63];
    o[3] = kAlphabet[v & 63];
  }
  if (i < in.size()) {
    uint32_t v = uint32_t(p[i]) << 16 | (i + 1 < in.size() ? uint32_t(p[i + 1]) << 8 : 0);
    o[0] = kAlphabet[v >> 18];
    o[1] = kAlphabet[(v >> 12) & 63];
    if (i + 1 < in.size()) o[2] = kAlphabet[(v >> 6) & 63];
  }
  return out;
}

std::string plainBase64Decode(std::string_view in) {
  static const std::array<uint8_t, 256> value = [] {
    std::array<uint8_t, 256> v{};
    for (uint8_t i = 0; i < 64; ++i)
      v[static_cast<unsigned char>(kAlphabet[i])] = i;
    return v;
  }();
  size_t pad =
      in.size() >= 2 ? size_t(in[in.size() - 1] == '=') + size_t(in[in.size() - 2] == '=') : 0;
  std::string out(in.size() / 4 * 3, '\0');
  const auto* p = reinterpret_cast<const unsigned char*>(in.data());
  char* o = out.data();
  for (size_t i = 0; i + 4 <= in.size(); i += 4, o += 3) {
    uint32_t v = uint32_t(value[p[i]]) << 18 | uint32_t(value[p[i + 1]]) << 12 |
                 uint32_t(value[p[i + 2]]) << 6 | value[p[i + 3]];
    o[0] = char(v >> 16);
    o[1] = char(v >> 8);
    o[2] = char(v);
  }
  out.resize(out.size() - pad);
  return out;
}

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
    FileBytes in = readOnce(plain);
    std::string_view inView(in.data.get(), in.size);
    std::string body = "00000000BINI" + plainBase64Encode(zlibCompress(inView).view());
    replaceDurably(packed, body);
    std::filesystem::remove(plain);
    FileBytes back = readOnce(packed);
    std::string_view stream(back.data.get() + 12, back.size - 12);
    replaceDurably(plain, zlibUncompress(plainBase64Decode(stream), in.size).view());
  }
  setBytes(state, kMiB);
}
BENCHMARK(Floor_CompressBINI)
    ->Name("Floor/CompressBINI+DecompressBINI")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
