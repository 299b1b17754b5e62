// Dialog backends: scripted for tests and headless hosts, terminal for the command line.
#include "platform/Dialogs.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <iostream>
#include <string>

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

int32_t TerminalDialogs::messageBox(TextView text, int32_t buttons, TextView title) {
  std::vector<int32_t> choices = buttonsOf(buttons);
  std::string shown = toUtf8(replaceAll(text, u"\r\n", u"\n"));
  std::fprintf(stderr, "[%s]\n%s\n", toUtf8(title).c_str(), shown.c_str());
  if (!::isatty(STDIN_FILENO) || choices.size() == 1) {
    std::fprintf(stderr, "(%s)\n", answerName(choices.front()));
    return choices.front();
  }
  for (;;) {
    for (size_t i = 0; i < choices.size(); ++i) {
      std::fprintf(stderr, "%s%s", i ? " / " : "", answerName(choices[i]));
    }
    std::fprintf(stderr, "? ");
    std::string line;
    if (!std::getline(std::cin, line)) return choices.front();
    for (int32_t c : choices) {
      if (!line.empty() && std::toupper(static_cast<unsigned char>(line[0])) == answerName(c)[0]) {
        return c;
      }
    }
  }
}

namespace {
std::mutex gBackendMutex;
std::shared_ptr<DialogBackend> gBackend;
}  // namespace

std::shared_ptr<DialogBackend> dialogBackend() {
  std::lock_guard lock(gBackendMutex);
  if (!gBackend) gBackend = std::make_shared<TerminalDialogs>();
  return gBackend;
}

void setDialogBackend(std::shared_ptr<DialogBackend> backend) {
  std::lock_guard lock(gBackendMutex);
  gBackend = std::move(backend);
}

}  // namespace zrk::platform
