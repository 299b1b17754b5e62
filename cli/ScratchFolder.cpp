// Scratch folders of the commands that work on copies.
#include "cli/ScratchFolder.h"

#include <cstdlib>
#include <filesystem>

#include "cli/Command.h"

namespace zrk::cli {

namespace fs = std::filesystem;

ScratchFolder::ScratchFolder(const std::string& command, const std::string& purpose) {
  std::string tmpl = (fs::temp_directory_path() / ("zrkkvl-" + purpose + "-XXXXXX")).string();
  if (!::mkdtemp(tmpl.data())) throw ToolError{command + ": cannot make a temporary folder"};
  path_ = tmpl;
}

ScratchFolder::~ScratchFolder() {
  if (kept_) return;
  std::error_code ec;
  fs::remove_all(path_, ec);
}

}  // namespace zrk::cli
