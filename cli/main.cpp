// zrkkvl: the library's operations from the command line, as git-style subcommands.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <zrkKVL/Failure.h>
#include <zrkKVL/clsKVN.h>
#include "cli/Command.h"
#include "core/mdlKVN.h"
#include "platform/Dialogs.h"
#include "platform/LibraryFolder.h"
#include "platform/Paths.h"

using namespace zrk;

namespace {

// The failure dialog of a trapped failure becomes one line on stderr and a non-zero exit; every
// other window goes to the backend the platform chose (desktop or terminal).
class ToolDialogs : public platform::DialogBackend {
 public:
  explicit ToolDialogs(std::shared_ptr<platform::DialogBackend> inner) : inner_(std::move(inner)) {}

  int32_t messageBox(TextView text, int32_t buttons, TextView title) override {
    if (mdlKVN::state().handlingDepth == 0) return inner_->messageBox(text, buttons, title);
    std::vector<Text> lines = split(text, u"\r\n");
    Text function = lines.size() > 3 ? lines[3].substr(lines[3].find(u' ') + 1) : Text();
    std::fprintf(stderr, "zrkkvl: %s (in %s)\n", toUtf8(lines.size() > 1 ? lines[1] : text).c_str(),
                 toUtf8(function).c_str());
    failed = true;
    return platform::mb::OK;
  }
  int32_t screenWidthTwips() override { return inner_->screenWidthTwips(); }
  std::shared_ptr<platform::TextWindow> showTextWindow(const platform::FormLayout& layout,
                                                       TextView text) override {
    return inner_->showTextWindow(layout, text);
  }
  void toolTipChanged(const platform::ToolTipWindow& tip) override { inner_->toolTipChanged(tip); }
  void showHelp(TextView file, TextView topic) override { inner_->showHelp(file, topic); }

  bool failed = false;

 private:
  std::shared_ptr<platform::DialogBackend> inner_;
};

void printHelp(const char* family) {
  if (!family) {
    std::printf(
        "usage: zrkkvl [--root DIR] COMMAND [ARGS...]\n\n"
        "Options:\n  --root DIR   the installation root (default: the library's own)\n\n"
        "Commands:\n");
  }
  for (const auto& c : cli::commands()) {
    if (family && std::strcmp(family, c.family) != 0) continue;
    std::string name = *c.family ? std::string(c.family) + " " + c.name : c.name;
    std::printf("  %-22s %-28s %s\n", name.c_str(), c.usage, c.summary);
  }
}

const cli::Command* findCommand(const std::vector<std::string>& words, size_t& used) {
  for (const auto& c : cli::commands()) {
    if (!*c.family && !words.empty() && words[0] == c.name) return used = 1, &c;
    if (*c.family && words.size() >= 2 && words[0] == c.family && words[1] == c.name) {
      return used = 2, &c;
    }
  }
  return nullptr;
}

bool isFamily(const std::string& word) {
  for (const auto& c : cli::commands()) {
    if (word == c.family) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  Text root;
  if (words.size() >= 2 && words[0] == "--root") {
    root = fromUtf8(words[1]);
    words.erase(words.begin(), words.begin() + 2);
    // The library then takes DIR as its installation root.
    platform::overrideLibraryFolder(root + u"/dlls/Main Functions DLL");
  }
  if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
    printHelp(nullptr);
    return words.empty() ? 2 : 0;
  }
  size_t used = 0;
  const cli::Command* command = findCommand(words, used);
  if (!command) {
    if (isFamily(words[0])) {
      printHelp(words[0].c_str());
      return (words.size() >= 2 && words[1] == "--help") ? 0 : 2;
    }
    std::fprintf(stderr, "zrkkvl: unknown command '%s' (see zrkkvl --help)\n", words[0].c_str());
    return 2;
  }
  std::vector<std::string> args(words.begin() + long(used), words.end());
  if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
    std::printf("usage: zrkkvl %s%s%s %s\n  %s\n", command->family, *command->family ? " " : "",
                command->name, command->usage, command->summary);
    return 0;
  }
  auto dialogs = std::make_shared<ToolDialogs>(platform::dialogBackend());
  platform::setDialogBackend(dialogs);
  try {
    clsKVN kvn;
    cli::Context context{std::move(args), kvn, root};
    int rc = command->run(context);
    kvn.Unload();
    return dialogs->failed && rc == 0 ? 1 : rc;
  } catch (const cli::UsageError& e) {
    std::fprintf(stderr, "zrkkvl: %s\n", e.message.c_str());
    return 2;
  } catch (const Failure& f) {
    std::fprintf(stderr, "zrkkvl: error %d: %s\n", f.number(),
                 toUtf8(f.info().Description).c_str());
    return 1;
  }
}
