// A profile save among 10, 100 and 1,000 stored profiles against the plain work it stands for:
// the packed file unpacked, the plain file rewritten once, packed again.
#include <cstring>
#include <filesystem>
#include <memory>

#include <zrkKVL/FormObject.h>
#include "BenchSupport.h"

namespace zrk::bench {
namespace {

// The two paths a round saves in turn, of one length: every save changes the file, whose size
// stays.
const char* pathOfRound(int64_t round) {
  return (round & 1) ? "C:\\Games\\y.exe" : "C:\\Games\\x.exe";
}

std::string profileName(int64_t n) {
  return "Server " + std::to_string(n);
}

// A profile's section as a save writes it.
std::string sectionOf(const std::string& name, const char* path) {
  return "[" + name + "]\r\npath=" + path +
         "\r\nupload=http://a/u|http://b/u\r\ngame=hl\r\nhost=127.0.0.1\r\nnll=2\r\nacs=1\r\n"
         "ara=0\r\nrbm=2\r\nasp=1\r\napt=30\r\napn=5\r\nsss=PsychoStats\r\nport=27015\r\n";
}

// `count` stored profiles; the one saved stands in the middle.
std::string storedProfiles(int64_t count) {
  std::string all;
  for (int64_t i = 0; i < count; ++i)
    all += sectionOf(profileName(i), pathOfRound(0));
  return all;
}

// A folder of its own for each benchmark and size, holding the plain file of `count` profiles.
std::string profilesFolder(const std::string& kind, int64_t count) {
  std::string dir = scratchDir() + "/" + kind + std::to_string(count);
  std::filesystem::create_directories(dir + "/profiles/" + profileName(count / 2) + "/settings");
  writeScratch(kind + std::to_string(count) + "/profiles.ini", storedProfiles(count));
  return dir;
}

std::shared_ptr<FormObject> formOf(const std::string& name) {
  auto form = std::make_shared<FormObject>();
  form->set(u"txtName", u"Text", fromUtf8(name))
      .set(u"txtOld", u"Text", fromUtf8(name))
      .set(u"cboGames", u"ToolTipText", Text(u"hl"))
      .set(u"txtSrHost", u"Text", Text(u"127.0.0.1"))
      .set(u"cboLL", u"ListIndex", int32_t(2))
      .set(u"chkAcs", u"Value", int16_t(1))
      .set(u"chkAra", u"Value", int16_t(0))
      .set(u"chkRbm", u"Value", int16_t(2))
      .set(u"chkAntiStatsPad", u"Value", int16_t(1))
      .set(u"txtPadtime", u"Text", Text(u"30"))
      .set(u"txtPadnum", u"Text", Text(u"5"))
      .set(u"cboStats", u"Text", Text(u"PsychoStats"))
      .set(u"txtGamePort", u"Text", Text(u"27015"));
  form->control(u"lstUrls").setList({u"http://a/u", u"http://b/u"});
  return form;
}

void Op_WriteProfile(benchmark::State& state) {
  clsKVN& kvn = library();
  DialogWatch watch(state);
  const int64_t count = state.range(0);
  std::string dir = profilesFolder("save", count);
  kvn.CompressBINI(fromUtf8(dir + "/profiles.ini"));
  auto form = formOf(profileName(count / 2));
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
      storedProfiles(count / 2) + "[" + profileName(count / 2) + "]\r\npath=";
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
