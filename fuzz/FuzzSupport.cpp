// The fuzz targets' shared harness.
#include "FuzzSupport.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "core/mdlKVN.h"
#include "platform/desktop/Dialogs.h"
#include "platform/system/LibraryFolder.h"
#include "platform/text/CodePage.h"

namespace zrk::fuzz {
namespace fs = std::filesystem;

namespace {
std::string gRootToRemove;
void removeRoot() {
  std::error_code ec;
  if (!gRootToRemove.empty()) fs::remove_all(gRootToRemove, ec);
}
}  // namespace

Harness& Harness::get() {
  static Harness* h = new Harness();  // never destroyed: targets may run until exit
  return *h;
}

Harness::Harness() {
  std::string templ = (fs::temp_directory_path() / "zrkfuzz-XXXXXX").string();
  if (!::mkdtemp(templ.data())) abort();
  root_ = templ;
  gRootToRemove = root_;
  atexit(removeRoot);
  fs::create_directories(root_ + "/dlls/Main Functions DLL");
  platform::overrideLibraryFolder(text("dlls/Main Functions DLL"));
  reset();
  kvn_ = new clsKVN();
}

Text Harness::text(const std::string& name) const {
  return fromUtf8(root_ + "/" + name);
}

std::string Harness::writeInput(const std::string& name, const uint8_t* data, size_t size) const {
  std::string path = root_ + "/in/" + name;
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
  return path;
}

void Harness::reset(int32_t answer) {
  auto dialogs = std::make_shared<platform::ScriptedDialogs>();
  if (answer) dialogs->answer(answer);
  platform::setDialogBackend(dialogs);
  std::error_code ec;
  fs::remove(root_ + "/ErrorLog.txt", ec);
  for (const char* dir : {"/in", "/out"}) {
    fs::remove_all(root_ + dir, ec);
    fs::create_directories(root_ + dir);
  }
}

Text ansiText(const uint8_t* data, size_t size) {
  return platform::fromAnsi(std::string_view(reinterpret_cast<const char*>(data), size));
}

}  // namespace zrk::fuzz
