// Shared set-up for the benchmarks: a throwaway folder, files of a given size, a library object
// whose failure dialogs never block, the sizes a run covers, and the plain-system-call floors
// several families share.
//
// Every benchmark measures wall time. A benchmark named "Op/X" is paired with "Floor/X" (the
// cheapest way to do the same work on the same data) and the table divides the two within one
// run. The counter "bytes" holds the input bytes of one iteration, from which the table derives
// the throughput on the same clock.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <zrkKVL/Variant.h>
#include <zrkKVL/clsKVN.h>

namespace zrk::bench {

constexpr size_t kMiB = size_t(1) << 20;

// A folder removed at exit.
const std::string& scratchDir();
std::string writeScratch(const std::string& name, std::string_view bytes);

// Bytes from a fixed linear congruential walk: the same for every run.
std::string pseudoRandomBytes(size_t n, uint32_t seed);

// An array of the texts, from index 0.
Variant textArray(std::vector<Text> texts);

// The library on this thread with scripted dialogs.
clsKVN& library();

// Marks the benchmark failed when the library showed a dialog (a failure it reports) while the
// watch lived: an operation that fails costs less and must not pass for a fast one.
class DialogWatch {
 public:
  explicit DialogWatch(benchmark::State& state);
  ~DialogWatch();

 private:
  benchmark::State& state_;
  size_t before_;
};

// Whether this is a quick run (ZRK_BENCH_QUICK set in the environment).
bool quickRun();
// Registers the sizes in MiB of a size-graded family as the argument of `b`: 1, 10 and 100, or
// 1 and 10 in a quick run; in wall time and milliseconds.
void sizedMiB(benchmark::internal::Benchmark* b);

// Wall time, with the input bytes of one iteration as the counter "bytes".
void setBytes(benchmark::State& state, int64_t bytesPerIteration);

// Bytes in a buffer left uninitialised: what one read or zlib call fills.
struct FileBytes {
  std::unique_ptr<char[]> data;
  size_t size = 0;
  std::string_view view() const { return {data.get(), size}; }
};
// Bytes read by one open, fstat and read into an uninitialised buffer.
FileBytes readOnce(const std::string& path);

// Replaces `path` the durable way: a temporary file beside it written and fsynced, renamed over
// it, and the folder fsynced.
void replaceDurably(const std::string& path, std::string_view bytes);

// zlib alone: `compress` at the default level, and `uncompress` into `size` bytes.
FileBytes zlibCompress(std::string_view in);
FileBytes zlibUncompress(std::string_view in, size_t size);

// A plain table-driven base64 of bytes, standard alphabet with "=" padding: what the packed
// form costs without character strings.
std::string plainBase64Encode(std::string_view in);
std::string plainBase64Decode(std::string_view in);

// The packed INI form done plainly, on bytes: the plain file read, compressed, encoded behind a
// 12-byte header (its size in 8 hex digits, "BINI"), the packed file replaced durably and the
// plain file removed; and back: the packed file read, decoded, expanded, the plain file replaced
// durably. The same two fsync calls a side as the library's pack and unpack.
void packPlainly(const std::string& plain, const std::string& packed);
void unpackPlainly(const std::string& packed, const std::string& plain);

}  // namespace zrk::bench
