// Benchmark helpers.
#include "BenchSupport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <zlib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/desktop/Dialogs.h"

namespace zrk::bench {
namespace {

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

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

FileBytes zlibCompress(std::string_view in) {
  uLongf n = compressBound(uLong(in.size()));
  FileBytes out{std::make_unique_for_overwrite<char[]>(n), 0};
  compress(reinterpret_cast<Bytef*>(out.data.get()), &n, reinterpret_cast<const Bytef*>(in.data()),
           uLong(in.size()));
  out.size = n;
  return out;
}

FileBytes zlibUncompress(std::string_view in, size_t size) {
  uLongf n = uLongf(size);
  FileBytes out{std::make_unique_for_overwrite<char[]>(size), 0};
  uncompress(reinterpret_cast<Bytef*>(out.data.get()), &n,
             reinterpret_cast<const Bytef*>(in.data()), uLong(in.size()));
  out.size = n;
  return out;
}

std::string plainBase64Encode(std::string_view in) {
  std::string out((in.size() + 2) / 3 * 4, '=');
  const auto* p = reinterpret_cast<const unsigned char*>(in.data());
  char* o = out.data();
  size_t i = 0;
  for (; i + 3 <= in.size(); i += 3, o += 4) {
    uint32_t v = uint32_t(p[i]) << 16 | uint32_t(p[i + 1]) << 8 | p[i + 2];
    o[0] = kBase64Alphabet[v >> 18];
    o[1] = kBase64Alphabet[(v >> 12) & 63];
    o[2] = kBase64Alphabet[(v >> 6) & 63];
    o[3] = kBase64Alphabet[v & 63];
  }
  if (i < in.size()) {
    uint32_t v = uint32_t(p[i]) << 16 | (i + 1 < in.size() ? uint32_t(p[i + 1]) << 8 : 0);
    o[0] = kBase64Alphabet[v >> 18];
    o[1] = kBase64Alphabet[(v >> 12) & 63];
    if (i + 1 < in.size()) o[2] = kBase64Alphabet[(v >> 6) & 63];
  }
  return out;
}

std::string plainBase64Decode(std::string_view in) {
  static const std::array<uint8_t, 256> value = [] {
    std::array<uint8_t, 256> v{};
    for (uint8_t i = 0; i < 64; ++i)
      v[static_cast<unsigned char>(kBase64Alphabet[i])] = i;
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

void packPlainly(const std::string& plain, const std::string& packed) {
  FileBytes in = readOnce(plain);
  char header[16];
  std::snprintf(header, sizeof header, "%08zxBINI", in.size);
  replaceDurably(packed, header + plainBase64Encode(zlibCompress(in.view()).view()));
  std::filesystem::remove(plain);
}

void unpackPlainly(const std::string& packed, const std::string& plain) {
  FileBytes in = readOnce(packed);
  size_t size = std::strtoull(std::string(in.data.get(), 8).c_str(), nullptr, 16);
  std::string_view stream = in.view().substr(12);
  replaceDurably(plain, zlibUncompress(plainBase64Decode(stream), size).view());
}

}  // namespace zrk::bench
