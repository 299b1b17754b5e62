// A private folder in the temporary folder for the time of a command.
#pragma once

#include <string>

namespace zrk::cli {

// Made as TMPDIR/zrkkvl-PURPOSE-XXXXXX, open to its owner alone, and removed with all it holds
// when it goes, unless kept.
class ScratchFolder {
 public:
  // A ToolError naming `command` when the folder cannot be made.
  ScratchFolder(const std::string& command, const std::string& purpose);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  // Leaves the folder in place when it goes.
  void keep() { kept_ = true; }

 private:
  std::string path_;
  bool kept_ = false;
};

}  // namespace zrk::cli
