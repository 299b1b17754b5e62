// The tool's dialog backend: a trapped failure's dialog becomes one error line, and yes/no
// questions can be answered from the command line; every other window goes to the backend the
// platform chose (desktop or terminal).
#pragma once

#include <memory>
#include <optional>

#include "platform/desktop/Dialogs.h"

namespace zrk::cli {

class ToolDialogs : public platform::WrappingDialogs {
 public:
  using WrappingDialogs::WrappingDialogs;

  int32_t messageBox(TextView text, int32_t buttons, TextView title) override;

  // Whether its forms are windows on the desktop, which stay until the user closes them (unlike
  // the terminal's, which are printed once).
  bool showsWindows() const;

  // Every later yes/no question gets `answer` (mb::Yes or mb::No) without being shown.
  void answerQuestions(int32_t answer) { answer_ = answer; }
  // Whether a trapped failure was reported.
  bool failed() const { return failed_; }

 private:
  std::optional<int32_t> answer_;
  bool failed_ = false;
};

// The tool's backend, made and installed at the first call.
ToolDialogs& toolDialogs();

}  // namespace zrk::cli
