// Dialog backends: scripted for tests and headless hosts, terminal for the command line, and the
// choice of the default one.
#include "platform/desktop/Dialogs.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/desktop/EventPump.h"

namespace zrk::platform {

std::vector<int32_t> buttonsOf(int32_t code) {
  switch (code & 7) {
    case mb::OKCancel:
      return {mb::OK, mb::Cancel};
    case mb::AbortRetryIgnore:
      return {mb::Abort, mb::Retry, mb::Ignore};
    case mb::YesNoCancel:
      return {mb::Yes, mb::No, mb::Cancel};
    case mb::YesNo:
      return {mb::Yes, mb::No};
    case mb::RetryCancel:
      return {mb::Retry, mb::Cancel};
    default:
      return {mb::OK};
  }
}

const char* answerName(int32_t a) {
  switch (a) {
    case mb::OK:
      return "OK";
    case mb::Cancel:
      return "Cancel";
    case mb::Abort:
      return "Abort";
    case mb::Retry:
      return "Retry";
    case mb::Ignore:
      return "Ignore";
    case mb::Yes:
      return "Yes";
    case mb::No:
      return "No";
    default:
      return "?";
  }
}

namespace {

// A form nobody sees: it keeps its text and stays open.
class KeptWindow : public TextWindow {
 public:
  void setText(TextView) override {}
  bool isOpen() override { return true; }
};

}  // namespace

std::shared_ptr<TextWindow> DialogBackend::showTextWindow(const FormLayout&, TextView) {
  return std::make_shared<KeptWindow>();
}

void DialogBackend::toolTipChanged(const ToolTipWindow&) {}

void DialogBackend::showHelp(TextView, TextView) {}

void DialogBackend::processEvents() {}

// The record of one scripted form; it has its own lock, since the form may outlive the backend.
class ScriptedDialogs::ScriptedWindow : public TextWindow {
 public:
  explicit ScriptedWindow(Window w) : w_(std::move(w)) {}
  void setText(TextView text) override {
    std::lock_guard lock(mutex_);
    w_.text = Text(text);
  }
  bool isOpen() override {
    std::lock_guard lock(mutex_);
    return w_.open;
  }
  void close() {
    std::lock_guard lock(mutex_);
    w_.open = false;
  }
  Window snapshot() const {
    std::lock_guard lock(mutex_);
    return w_;
  }

 private:
  mutable std::mutex mutex_;
  Window w_;
};

void ScriptedDialogs::answer(int32_t a) {
  std::lock_guard lock(mutex_);
  answers_.push_back(a);
}

std::vector<ScriptedDialogs::Shown> ScriptedDialogs::shown() const {
  std::lock_guard lock(mutex_);
  return shown_;
}

int32_t ScriptedDialogs::messageBox(TextView text, int32_t buttons, TextView title) {
  std::lock_guard lock(mutex_);
  shown_.push_back({Text(text), buttons, Text(title)});
  if (answers_.empty()) return buttonsOf(buttons).front();
  int32_t a = answers_.front();
  answers_.pop_front();
  return a;
}

void ScriptedDialogs::setScreenWidthTwips(int32_t twips) {
  std::lock_guard lock(mutex_);
  screenWidth_ = twips;
}

int32_t ScriptedDialogs::screenWidthTwips() {
  std::lock_guard lock(mutex_);
  return screenWidth_;
}

std::shared_ptr<TextWindow> ScriptedDialogs::showTextWindow(const FormLayout& layout,
                                                            TextView text) {
  auto window = std::make_shared<ScriptedWindow>(Window{layout, Text(text), true});
  std::lock_guard lock(mutex_);
  windows_.push_back(window);
  return window;
}

std::vector<ScriptedDialogs::Window> ScriptedDialogs::windows() const {
  std::lock_guard lock(mutex_);
  std::vector<Window> all;
  for (const auto& w : windows_)
    all.push_back(w->snapshot());
  return all;
}

void ScriptedDialogs::closeWindow(size_t index) {
  std::lock_guard lock(mutex_);
  windows_.at(index)->close();
}

void ScriptedDialogs::toolTipChanged(const ToolTipWindow& tip) {
  std::lock_guard lock(mutex_);
  for (auto& t : toolTips_) {
    if (t.handle == tip.handle) {
      t = tip;
      return;
    }
  }
  toolTips_.push_back(tip);
}

std::vector<ToolTipWindow> ScriptedDialogs::toolTips() const {
  std::lock_guard lock(mutex_);
  return toolTips_;
}

void ScriptedDialogs::showHelp(TextView file, TextView topic) {
  std::lock_guard lock(mutex_);
  help_.push_back({Text(file), Text(topic)});
}

std::vector<ScriptedDialogs::Help> ScriptedDialogs::helpShown() const {
  std::lock_guard lock(mutex_);
  return help_;
}

int32_t safeAnswer(int32_t code) {
  std::vector<int32_t> choices = buttonsOf(code);
  for (int32_t a : {mb::Cancel, mb::No, mb::Abort}) {
    if (std::find(choices.begin(), choices.end(), a) != choices.end()) return a;
  }
  return choices.front();
}

namespace {

// The question a dialog asks: its last non-empty line.
std::string questionOf(TextView text) {
  std::vector<Text> lines = split(text, u"\r\n");
  auto it = std::find_if(lines.rbegin(), lines.rend(), [](const Text& l) { return !l.empty(); });
  return it == lines.rend() ? std::string() : toUtf8(*it);
}

// Reads one line typed on the terminal. While none has come, runs one pass of the thread's
// events about every 10 ms, as a message box's own loop would. False once the input has ended.
bool readAnswerLine(std::string& line) {
  line.clear();
  for (;;) {
    pollfd p{STDIN_FILENO, POLLIN, 0};
    int ready = ::poll(&p, 1, kEventTickMs);
    if (ready == 0) {
      platform::processEvents();
      continue;
    }
    if (ready < 0 && errno != EINTR) return false;
    char c;
    ssize_t n = ready < 0 ? -1 : ::read(STDIN_FILENO, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return !line.empty();
    if (c == '\n') return true;
    line += c;
  }
}

// Takes the safe answer for a question nobody can answer, and says so in one line.
int32_t answerUnattended(TextView text, int32_t buttons, TextView title, const char* why) {
  int32_t a = safeAnswer(buttons);
  std::fprintf(stderr, "[%s] \"%s\": answered %s, %s\n", toUtf8(title).c_str(),
               questionOf(text).c_str(), answerName(a), why);
  return a;
}

}  // namespace

int32_t TerminalDialogs::messageBox(TextView text, int32_t buttons, TextView title) {
  std::vector<int32_t> choices = buttonsOf(buttons);
  std::string shown = toUtf8(replaceAll(text, u"\r\n", u"\n"));
  std::fprintf(stderr, "[%s]\n%s\n", toUtf8(title).c_str(), shown.c_str());
  if (choices.size() == 1) {
    std::fprintf(stderr, "(%s)\n", answerName(choices.front()));
    return choices.front();
  }
  if (!::isatty(STDIN_FILENO)) {
    return answerUnattended(text, buttons, title, "as there is no terminal to ask");
  }
  for (;;) {
    for (size_t i = 0; i < choices.size(); ++i) {
      std::fprintf(stderr, "%s%s", i ? " / " : "", answerName(choices[i]));
    }
    std::fprintf(stderr, "? ");
    std::string line;
    if (!readAnswerLine(line)) {
      std::fprintf(stderr, "\n");
      return answerUnattended(text, buttons, title, "as the input has ended");
    }
    for (int32_t c : choices) {
      if (!line.empty() && std::toupper(static_cast<unsigned char>(line[0])) == answerName(c)[0]) {
        return c;
      }
    }
  }
}

namespace {

// A form on the terminal: printed when shown, and each addition to its text printed after.
class TerminalWindow : public TextWindow {
 public:
  explicit TerminalWindow(Text text) : text_(std::move(text)) { print(text_); }
  void setText(TextView text) override {
    bool grows = text.size() >= text_.size() && text.substr(0, text_.size()) == text_;
    print(grows ? text.substr(text_.size()) : text);
    text_ = Text(text);
  }
  bool isOpen() override { return true; }

 private:
  static void print(TextView text) {
    std::fprintf(stderr, "%s", toUtf8(replaceAll(text, u"\r\n", u"\n")).c_str());
    std::fflush(stderr);
  }
  Text text_;
};

}  // namespace

std::shared_ptr<TextWindow> TerminalDialogs::showTextWindow(const FormLayout& layout,
                                                            TextView text) {
  std::fprintf(stderr, "[%s]\n", toUtf8(layout.caption).c_str());
  return std::make_shared<TerminalWindow>(Text(text));
}

void TerminalDialogs::showHelp(TextView file, TextView topic) {
  std::fprintf(stderr, "[help] %s :: %s\n", toUtf8(file).c_str(), toUtf8(topic).c_str());
}

}  // namespace zrk::platform
