// zrkkvl: the library's operations from the command line, as git-style subcommands.
#include <getopt.h>

#include <cstdio>
#include <string>
#include <vector>

#include <zrkKVL/Failure.h>
#include <zrkKVL/clsKVN.h>
#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "core/mdlKVN.h"
#include "platform/Dialogs.h"
#include "platform/LibraryFolder.h"

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

std::shared_ptr<ToolDialogs> gDialogs;

constexpr option kGlobalOptions[] = {{"root", required_argument, nullptr, 'r'},
                                     {"help", no_argument, nullptr, 'h'},
                                     {"version", no_argument, nullptr, 'V'},
                                     {nullptr, 0, nullptr, 0}};

// The global options before the command; leaves optind at the command's first word. A usage
// error for an unknown one.
void parseGlobalOptions(int argc, char** argv, Text& root, bool& help, bool& version) {
  opterr = 0;
  for (int c; (c = getopt_long(argc, argv, "+:h", kGlobalOptions, nullptr)) != -1;) {
    if (c == 'r') {
      root = fromUtf8(optarg);
    } else if (c == 'h') {
      help = true;
    } else if (c == 'V') {
      version = true;
    } else if (c == ':') {
      throw cli::UsageError{std::string("option '") + argv[optind - 1] + "' needs a value"};
    } else {
      std::string name = optopt ? std::string("-") + char(optopt) : argv[optind - 1];
      throw cli::UsageError{"unknown option '" + name + "'\nTry 'zrkkvl --help'."};
    }
  }
}

int runTool(int argc, char** argv) {
  Text root;
  bool help = false, version = false;
  parseGlobalOptions(argc, argv, root, help, version);
  std::vector<std::string> words(argv + optind, argv + argc);
  if (version) {
    std::printf("zrkkvl %d.%d.%d\n", kVersionMajor, kVersionMinor, kVersionRevision);
    return 0;
  }
  if (help || (!words.empty() && words[0] == "help")) {
    if (words.size() >= 2 && cli::isFamily(words[1])) {
      cli::printFamilyHelp(stdout, words[1]);
    } else {
      cli::printToolHelp(stdout);
    }
    return 0;
  }
  if (words.empty()) {
    cli::printToolHelp(stderr);
    return 2;
  }
  // The library then takes DIR as its installation root.
  if (!root.empty()) platform::overrideLibraryFolder(root + u"/dlls/Main Functions DLL");
  gDialogs = std::make_shared<ToolDialogs>(platform::dialogBackend());
  platform::setDialogBackend(gDialogs);
  clsKVN kvn;
  int rc = cli::runWords(kvn, root, words);
  kvn.Unload();
  return gDialogs->failed && rc == 0 ? 1 : rc;
}

}  // namespace

namespace zrk::cli {
bool libraryFailed() {
  return gDialogs && gDialogs->failed;
}
}  // namespace zrk::cli

int main(int argc, char** argv) {
  try {
    return runTool(argc, argv);
  } catch (const cli::UsageError& e) {
    std::fprintf(stderr, "zrkkvl: %s\n", e.message.c_str());
    return 2;
  } catch (const cli::ToolError& e) {
    std::fprintf(stderr, "zrkkvl: %s\n", e.message.c_str());
    return 1;
  } catch (const Failure& f) {
    std::fprintf(stderr, "zrkkvl: Error %d: %s\n", f.number(),
                 toUtf8(f.info().Description).c_str());
    return 1;
  }
}
