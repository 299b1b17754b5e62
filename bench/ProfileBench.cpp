// A profile save among 10, 100 and 1,000 stored profiles against the plain work it stands for:
// the packed file unpacked, the plain file rewritten once, packed again.
#include <cstring>
#include <filesystem>
#include <memory>

#include "BenchSupport.h"
#include "support/ProfileForm.h"

namespace zrk::bench {
namespace {

// The two paths a round saves in turn, of one length: every save changes the file, whose size
// stays.
const char* pathOfRound(int64_t round) {
  return (round & 1) ? "C:\\Games\\y.exe" : "C:\\Games\\x.exe";
}

// Stored profile `n` as the rounds save it.
test::Profile profile(int64_t n, int64_t round) {
  test::Profile p(fromUtf8("Server " + std::to_string(n)));
  p.path = fromUtf8(pathOfRound(round));
  return p;
}

// `count` stored profiles; the one saved stands in the middle.
std::string storedProfiles(int64_t count) {
  std::string all;
  for (int64_t i = 0; i < count; ++i)
    all += test::keysOf(profile(i, 0));
  return all;
}

// A folder of its own for each benchmark and size, holding the plain file of `count` profiles.
std::string profilesFolder(const std::string& kind, int64_t count) {
  std::string dir = scratchDir() + "/" + kind + std::to_string(count);
  std::filesystem::create_directories(dir + "/profiles/" + toUtf8(profile(count / 2, 0).name) +
                                      "/settings");
  writeScratch(kind + std::to_string(count) + "/profiles.ini", storedProfiles(count));
  return dir;
}

void Op_WriteProfile(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  const int64_t count = state.range(0);
  std::string dir = profilesFolder("save", count);
  kvn.CompressBINI(fromUtf8(dir + "/profiles.ini"));
  test::Profile saved = profile(count / 2, 0);
  saved.old = saved.name;
  auto form = test::formOf(saved);
  Text packed = fromUtf8(dir + "/profiles.bini"), root = fromUtf8(dir);
  int64_t round = 0;
  for (auto _ : state) {
    form->set(u"txtPath", u"Text", fromUtf8(pathOfRound(++round)));
    if (!kvn.writeProfile(*form, packed, root)) state.SkipWithError("writeProfile failed");
  }
  state.counters["items"] = double(count);
}
BENCHMARK(Op_WriteProfile)
    ->Name("Op/writeProfile")
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// Unpack, the profile's path changed in the plain file's bytes and the file replaced durably,
// pack: the same files, sizes and fsync calls.
void Floor_WriteProfile(benchmark::State& state) {
  const int64_t count = state.range(0);
  std::string dir = profilesFolder("save-floor", count);
  std::string plain = dir + "/profiles.ini", packed = dir + "/profiles.bini";
  const std::string before =
      storedProfiles(count / 2) + "[" + toUtf8(profile(count / 2, 0).name) + "]\r\npath=";
  const size_t at = before.size(), length = std::strlen(pathOfRound(0));
  packPlainly(plain, packed);
  int64_t round = 0;
  for (auto _ : state) {
    unpackPlainly(packed, plain);
    FileBytes bytes = readOnce(plain);
    std::memcpy(bytes.data.get() + at, pathOfRound(++round), length);
    replaceDurably(plain, bytes.view());
    packPlainly(plain, packed);
  }
  state.counters["items"] = double(count);
}
BENCHMARK(Floor_WriteProfile)
    ->Name("Floor/writeProfile")
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zrk::bench
