// The built-in dialog backends: scripted answers for tests and headless use, the terminal, and
// a base for backends that wrap another.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include <zrkKVL/DialogBackend.h>

namespace zrk::platform {

// The answers a button code offers, in order; the first is the default.
std::vector<int32_t> buttonsOf(int32_t code);
// "OK", "Cancel", "Yes", ... for an answer.
const char* answerName(int32_t answer);
// The answer that changes nothing, for a question nobody can answer: Cancel where it is offered,
// else No, else Abort; the only button of a dialog that offers one.
int32_t safeAnswer(int32_t code);

// Answers given in advance (the default answer when none is left); records every dialog.
class ScriptedDialogs : public DialogBackend {
 public:
  struct Shown {
    Text text;
    int32_t buttons;
    Text title;
  };
  // A form shown through showTextWindow, as it stands now.
  struct Window {
    FormLayout layout;
    Text text;
    bool open = true;
  };
  struct Help {
    Text file;
    Text topic;
  };

  void answer(int32_t a);
  std::vector<Shown> shown() const;
  int32_t messageBox(TextView text, int32_t buttons, TextView title) override;

  void setScreenWidthTwips(int32_t twips);
  int32_t screenWidthTwips() override;
  std::shared_ptr<TextWindow> showTextWindow(const FormLayout& layout, TextView text) override;
  // Every form shown, in the order shown.
  std::vector<Window> windows() const;
  // Closes form `index` as the user would with the window's close control.
  void closeWindow(size_t index);

  void toolTipChanged(const ToolTipWindow& tip) override;
  // Every tooltip window made, in the order made, as it stands now.
  std::vector<ToolTipWindow> toolTips() const;

  void showHelp(TextView file, TextView topic) override;
  std::vector<Help> helpShown() const;

 private:
  class ScriptedWindow;
  mutable std::mutex mutex_;
  std::deque<int32_t> answers_;
  std::vector<Shown> shown_;
  int32_t screenWidth_ = kDefaultScreenWidthTwips;
  std::vector<std::shared_ptr<ScriptedWindow>> windows_;
  std::vector<ToolTipWindow> toolTips_;
  std::vector<Help> help_;
};

// Prints the dialog to standard error and reads the answer from the terminal, running the
// thread's events while it waits. Without a terminal, or once its input has ended, it takes the
// safe answer and says so in one line.
class TerminalDialogs : public DialogBackend {
 public:
  int32_t messageBox(TextView text, int32_t buttons, TextView title) override;
  // Prints the form's caption and text, and later what is added to the text.
  std::shared_ptr<TextWindow> showTextWindow(const FormLayout& layout, TextView text) override;
  void showHelp(TextView file, TextView topic) override;
};

// A backend that answers message boxes its own way and hands every other window, and the
// host's events, to the backend it wraps.
class WrappingDialogs : public DialogBackend {
 public:
  explicit WrappingDialogs(std::shared_ptr<DialogBackend> inner) : inner_(std::move(inner)) {}
  const std::shared_ptr<DialogBackend>& inner() const { return inner_; }

  int32_t screenWidthTwips() override { return inner_->screenWidthTwips(); }
  std::shared_ptr<TextWindow> showTextWindow(const FormLayout& layout, TextView text) override {
    return inner_->showTextWindow(layout, text);
  }
  void toolTipChanged(const ToolTipWindow& tip) override { inner_->toolTipChanged(tip); }
  void showHelp(TextView file, TextView topic) override { inner_->showHelp(file, topic); }
  void processEvents() override { inner_->processEvents(); }

 protected:
  std::shared_ptr<DialogBackend> inner_;
};

}  // namespace zrk::platform
