// The one way the library shows dialogs: a backend a host program can replace.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "core/Text.h"

namespace zrk::platform {

// Button sets and answers of the message box.
namespace mb {
inline constexpr int32_t OKOnly = 0, OKCancel = 1, AbortRetryIgnore = 2, YesNoCancel = 3, YesNo = 4,
                         RetryCancel = 5;
inline constexpr int32_t Critical = 16, Question = 32, Exclamation = 48, Information = 64;
inline constexpr int32_t OK = 1, Cancel = 2, Abort = 3, Retry = 4, Ignore = 5, Yes = 6, No = 7;
}  // namespace mb

// The answers a button code offers, in order; the first is the default.
std::vector<int32_t> buttonsOf(int32_t code);
// "OK", "Cancel", "Yes", ... for an answer.
const char* answerName(int32_t answer);

class DialogBackend {
 public:
  virtual ~DialogBackend() = default;
  // Shows title and text with the buttons of `buttons`, blocks until answered, gives the answer.
  virtual int32_t messageBox(TextView text, int32_t buttons, TextView title) = 0;
};

// Answers given in advance (the default answer when none is left); records every dialog.
class ScriptedDialogs : public DialogBackend {
 public:
  struct Shown {
    Text text;
    int32_t buttons;
    Text title;
  };
  void answer(int32_t a);
  std::vector<Shown> shown() const;
  int32_t messageBox(TextView text, int32_t buttons, TextView title) override;

 private:
  mutable std::mutex mutex_;
  std::deque<int32_t> answers_;
  std::vector<Shown> shown_;
};

// Prints the dialog to standard error and reads the answer from the terminal; without a
// terminal it takes the default answer.
class TerminalDialogs : public DialogBackend {
 public:
  int32_t messageBox(TextView text, int32_t buttons, TextView title) override;
};

// The backend in use (a terminal one until a host sets another).
std::shared_ptr<DialogBackend> dialogBackend();
void setDialogBackend(std::shared_ptr<DialogBackend> backend);

}  // namespace zrk::platform
