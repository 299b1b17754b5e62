// Benchmark helpers.
#include "BenchSupport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/desktop/Dialogs.h"

namespace zrk::bench {
namespace {

[[noreturn]] void die(const char* what, const std::string& path) {
  std::perror((std::string(what) + " " + path).c_str());
  std::exit(2);
}

void writeAll(int fd, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    ssize_t w = ::write(fd, bytes.data(), bytes.size());
    if (w <= 0) die("write", path);
    bytes.remove_prefix(size_t(w));
  }
}

}  // namespace

const std::string& scratchDir() {
  static const std::string dir = [] {
    std::string tmpl = (std::filesystem::temp_directory_path() / "zrkkvl-bench-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) die("mkdtemp", tmpl);
    std::atexit([] { std::filesystem::remove_all(scratchDir()); });
    return tmpl;
  }();
  return dir;
}

std::string writeScratch(const std::string& name, std::string_view bytes) {
  std::string path = scratchDir() + "/" + name;
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) die("open", path);
  writeAll(fd, bytes, path);
  ::close(fd);
  return path;
}

std::string pseudoRandomBytes(size_t n, uint32_t seed) {
  std::string b(n, '\0');
  for (char& c : b) {
    seed = seed * 1664525u + 1013904223u;
    c = char(seed >> 24);
  }
  return b;
}

Variant textArray(std::vector<Text> texts) {
  VariantArray array;
  array.items.resize(texts.size());
  for (size_t i = 0; i < texts.size(); ++i)
    array.items[i] = Variant(std::move(texts[i]));
  return Variant(std::move(array));
}

namespace {

platform::ScriptedDialogs& dialogs() {
  static const std::shared_ptr<platform::ScriptedDialogs> backend = [] {
    auto d = std::make_shared<platform::ScriptedDialogs>();
    platform::setDialogBackend(d);
    return d;
  }();
  return *backend;
}

}  // namespace

clsKVN& library() {
  thread_local std::unique_ptr<clsKVN> kvn = [] {
    dialogs();
    return std::make_unique<clsKVN>();
  }();
  return *kvn;
}

DialogWatch::DialogWatch(benchmark::State& state)
    : state_(state), before_(dialogs().shown().size()) {}

DialogWatch::~DialogWatch() {
  std::vector<platform::ScriptedDialogs::Shown> shown = dialogs().shown();
  if (shown.size() <= before_) return;
  // The message on one line, for the table.
  std::string text = toUtf8(shown.back().text);
  for (size_t at; (at = text.find_first_of("\r\n")) != std::string::npos;)
    text.replace(at, text.find_first_not_of("\r\n", at) - at, "; ");
  state_.SkipWithError(("the library reported: " + text).c_str());
}

bool quickRun() {
  return std::getenv("ZRK_BENCH_QUICK") != nullptr;
}

void sizedMiB(benchmark::internal::Benchmark* b) {
  b->Arg(1)->Arg(10);
  if (!quickRun()) b->Arg(100);
  b->UseRealTime()->Unit(benchmark::kMillisecond);
}

void setBytes(benchmark::State& state, int64_t bytesPerIteration) {
  state.counters["bytes"] = double(bytesPerIteration);
}

FileBytes readOnce(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) die("open", path);
  struct stat st;
  if (::fstat(fd, &st) != 0) die("fstat", path);
  FileBytes out{std::make_unique_for_overwrite<char[]>(size_t(st.st_size)), size_t(st.st_size)};
  size_t got = 0;
  while (got < out.size) {
    ssize_t n = ::read(fd, out.data.get() + got, out.size - got);
    if (n <= 0) die("read", path);
    got += size_t(n);
  }
  ::close(fd);
  return out;
}

void replaceDurably(const std::string& path, std::string_view bytes) {
  std::string tmp = path + ".tmp";
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) die("open", tmp);
  writeAll(fd, bytes, tmp);
  if (::fsync(fd) != 0) die("fsync", tmp);
  ::close(fd);
  if (::rename(tmp.c_str(), path.c_str()) != 0) die("rename", path);
  int dir =
      ::open(std::filesystem::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir < 0 || ::fsync(dir) != 0) die("fsync folder of", path);
  ::close(dir);
}

}  // namespace zrk::bench
