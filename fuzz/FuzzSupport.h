// What the fuzz targets share: a throwaway installation root, scripted dialogs and one library
// object, so that a trapped failure neither blocks on a dialog nor writes outside that root.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <zrkKVL/Failure.h>
#include <zrkKVL/clsKVN.h>

namespace zrk::fuzz {

class Harness {
 public:
  // Made on first use; the root goes when the process ends.
  static Harness& get();

  clsKVN& kvn() { return *kvn_; }
  const std::string& root() const { return root_; }
  Text text(const std::string& name) const;

  // Writes the bytes to <root>/in/<name> and gives that path.
  std::string writeInput(const std::string& name, const uint8_t* data, size_t size) const;
  // Starts an iteration afresh: new scripted dialogs answering `answer`, no error log, empty
  // input and output folders.
  void reset(int32_t answer = 0);

 private:
  Harness();
  std::string root_;
  clsKVN* kvn_ = nullptr;
};

// The bytes as text, one character per byte through the code page.
Text ansiText(const uint8_t* data, size_t size);

}  // namespace zrk::fuzz
