// Benchmark helpers.
#include "BenchSupport.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/Dialogs.h"

namespace zrk::bench {

const std::string& scratchDir() {
  static const std::string dir = [] {
    std::string tmpl = (std::filesystem::temp_directory_path() / "zrkkvl-bench-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) std::abort();
    std::atexit([] { std::filesystem::remove_all(scratchDir()); });
    return tmpl;
  }();
  return dir;
}

std::string writeScratch(const std::string& name, const std::string& bytes) {
  std::string path = scratchDir() + "/" + name;
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

std::string readWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  std::string bytes(size_t(in.tellg()), '\0');
  in.seekg(0);
  in.read(bytes.data(), std::streamsize(bytes.size()));
  return bytes;
}

clsKVN& library() {
  thread_local std::unique_ptr<clsKVN> kvn = [] {
    platform::setDialogBackend(std::make_shared<platform::ScriptedDialogs>());
    return std::make_unique<clsKVN>();
  }();
  return *kvn;
}

}  // namespace zrk::bench
