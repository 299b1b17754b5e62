// zrkkvl: the library's operations from the command line, as git-style subcommands.
#include <getopt.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <zrkKVL/Failure.h>
#include <zrkKVL/clsKVN.h>
#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "cli/ToolDialogs.h"
#include "platform/system/LibraryFolder.h"

using namespace zrk;

namespace {

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
  cli::ToolDialogs& dialogs = cli::toolDialogs();
  clsKVN kvn;
  int rc = cli::runWords(kvn, root, words);
  kvn.Unload();
  return dialogs.failed() && rc == 0 ? 1 : rc;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return runTool(argc, argv);
  } catch (const cli::UsageError& e) {
    cli::printError(e.message);
    return 2;
  } catch (const cli::ToolError& e) {
    cli::printError(e.message);
    return 1;
  } catch (const Failure& f) {
    cli::printError("Error " + std::to_string(f.number()) + ": " + toUtf8(f.info().Description));
    return 1;
  } catch (const std::exception& e) {
    // No command ends in an abort: what the system refused is one error line.
    cli::printError(e.what());
    return 1;
  }
}
