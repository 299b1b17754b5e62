// INI access on a 1 MiB file against one open and read of it, and an INI write against the
// durable replacement of the same file.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>

#include "BenchSupport.h"

namespace zrk::bench {
namespace {

// 1100 sections of 10 keys each, just over 1 MiB; the key asked for lies in the last section.
constexpr int kSections = 1100;
constexpr const char16_t* kLastSection = u"Section1099";

const std::string& iniText() {
  static const std::string ini = [] {
    std::string s;
    for (int section = 0; section < kSections; ++section) {
      s += "[Section" + std::to_string(section) + "]\r\n";
      for (int k = 0; k < 10; ++k)
        s += "Key" + std::to_string(k) + "=" + std::string(90, char('a' + k)) + "\r\n";
    }
    return s;
  }();
  return ini;
}

const std::string& iniFile() {
  static const std::string path = writeScratch("big.ini", iniText());
  return path;
}

int64_t iniSize() {
  return int64_t(iniText().size());
}

// A new modification time for the file, outside the timed part: a lookup cannot take what it
// kept of the file from the call before, while the file's pages stay in the page cache.
void touchOutsideTiming(benchmark::State& state, const std::string& path) {
  static int64_t tick = 0;
  state.PauseTiming();
  ++tick;
  timespec times[2] = {{0, UTIME_OMIT},
                       {1'700'000'000 + tick / 1'000'000'000, tick % 1'000'000'000}};
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) state.SkipWithError("utimensat failed");
  state.ResumeTiming();
}

void Op_GetIniKeyFirst(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text file = fromUtf8(iniFile());
  if (kvn.GetIniKey(kLastSection, u"Key9", file) != Text(90, u'j')) {
    state.SkipWithError("GetIniKey does not find the key");
  }
  for (auto _ : state) {
    touchOutsideTiming(state, iniFile());
    benchmark::DoNotOptimize(kvn.GetIniKey(kLastSection, u"Key9", file));
  }
  setBytes(state, iniSize());
}
BENCHMARK(Op_GetIniKeyFirst)->Name("Op/GetIniKey/first")->UseRealTime();

void Floor_GetIniKeyFirst(benchmark::State& state) {
  for (auto _ : state) {
    touchOutsideTiming(state, iniFile());
    benchmark::DoNotOptimize(readOnce(iniFile()));
  }
  setBytes(state, iniSize());
}
BENCHMARK(Floor_GetIniKeyFirst)->Name("Floor/GetIniKey/first")->UseRealTime();

void Op_GetIniKeyRepeated(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text file = fromUtf8(iniFile());
  if (kvn.GetIniKey(kLastSection, u"Key9", file) != Text(90, u'j')) {
    state.SkipWithError("GetIniKey does not find the key");
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(kvn.GetIniKey(kLastSection, u"Key9", file));
  setBytes(state, iniSize());
}
BENCHMARK(Op_GetIniKeyRepeated)->Name("Op/GetIniKey/repeated")->UseRealTime();

void Floor_GetIniKeyRepeated(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(readOnce(iniFile()));
  setBytes(state, iniSize());
}
BENCHMARK(Floor_GetIniKeyRepeated)->Name("Floor/GetIniKey/repeated")->UseRealTime();

// Two values of one length in turn, so that every call changes the file and its size stays.
const Text& nextValue(int64_t round) {
  static const Text values[2] = {Text(90, u'x'), Text(90, u'y')};
  return values[round & 1];
}

void Op_WriteIniKey(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  Text file = fromUtf8(writeScratch("write.ini", iniText()));
  int64_t round = 0;
  for (auto _ : state)
    kvn.WriteIniKey(kLastSection, u"Key9", nextValue(round++), file);
  if (kvn.GetIniKey(kLastSection, u"Key9", file) != nextValue(round - 1)) {
    state.SkipWithError("WriteIniKey did not write the value");
  }
  setBytes(state, iniSize());
}
BENCHMARK(Op_WriteIniKey)->Name("Op/WriteIniKey")->UseRealTime()->Unit(benchmark::kMillisecond);

// Read the file, change the value's bytes, replace the file durably.
void Floor_WriteIniKey(benchmark::State& state) {
  std::string path = writeScratch("write-floor.ini", iniText());
  const size_t at = iniText().size() - 2 - 90;  // the last value, before its CR LF
  int64_t round = 0;
  for (auto _ : state) {
    FileBytes bytes = readOnce(path);
    std::fill_n(bytes.data.get() + at, 90, (round++ & 1) ? 'y' : 'x');
    replaceDurably(path, std::string_view(bytes.data.get(), bytes.size));
  }
  setBytes(state, iniSize());
}
BENCHMARK(Floor_WriteIniKey)
    ->Name("Floor/WriteIniKey")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
