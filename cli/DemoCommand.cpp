// demo: the main job on a throwaway installation root that needs nothing else, run as the tool
// commands an admin would type.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/Command.h"

namespace zrk::cli {
namespace {

// Runs one registered command as if typed, echoing it first.
int runCommand(Context& c, std::vector<std::string> words) {
  std::string shown = "$ zrkkvl";
  for (const auto& w : words)
    shown += " " + (w.find(' ') == std::string::npos ? w : "'" + w + "'");
  std::printf("\n%s\n", shown.c_str());
  std::fflush(stdout);
  for (const Command& command : commands()) {
    size_t used = *command.family ? 2 : 1;
    if (words.size() < used || words[0] != (*command.family ? command.family : command.name) ||
        (used == 2 && words[1] != command.name)) {
      continue;
    }
    Context sub{std::vector<std::string>(words.begin() + long(used), words.end()), c.kvn, c.root};
    int rc = command.run(sub);
    std::fflush(stdout);
    return rc;
  }
  throw UsageError{"demo: no command " + words[0]};
}

std::string throwawayRoot() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "zrkkvl-demo-XXXXXX").string();
  if (!::mkdtemp(tmpl.data())) throw UsageError{"cannot make a temporary folder"};
  return tmpl;
}

int demo(Context& c) {
  std::string root = c.root.empty() ? throwawayRoot() : toUtf8(c.root);
  std::string profiles = root + "/profiles/servers.bini", config = root + "/settings/config.ini";
  std::string work = root + "/adminlogs";
  std::printf("zrkKVL %s, installation root %s\n", toUtf8(c.kvn.dllVersion(u"")).c_str(),
              root.c_str());
  const std::vector<std::string> profile = {
      "--name",  "Alpha",       "--path",      "/usr/bin/true",
      "--game",  "q3",          "--game-text", "Quake 3",
      "--stats", "PlayerStats", "--host",      "127.0.0.1",
      "--port",  "27960",       "--url",       "http://127.0.0.1/upload"};
  auto with = [](std::vector<std::string> head, const std::vector<std::string>& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
  };
  int rc = 0;
  rc |= runCommand(c, {"call", "reqFolders", root});
  rc |= runCommand(c, {"ini", "set", config, "Settings", "ReportErrors", "0"});
  rc |= runCommand(c, with({"profile", "validate", profiles}, profile));
  rc |= runCommand(c, with({"profile", "save", profiles, root}, profile));
  rc |= runCommand(c, {"bini", "test", profiles});
  rc |= runCommand(c, {"file", "hex", profiles});
  rc |= runCommand(c, {"bini", "unpack", profiles});
  rc |= runCommand(c, {"ini", "section", root + "/profiles/servers.ini", "Alpha"});
  rc |= runCommand(c, {"bini", "pack", root + "/profiles/servers.ini"});
  rc |= runCommand(c, {"file", "write", work + "/a.txt", "hello"});
  rc |= runCommand(c, {"file", "write", work + "/b.txt", "world"});
  rc |= runCommand(c, {"archive", "make", work + "/logs.zar", work + "/a.txt", work + "/b.txt"});
  std::filesystem::create_directories(work + "/out");
  rc |= runCommand(c, {"archive", "extract", work + "/logs.zar", work + "/out"});
  rc |= runCommand(c, {"file", "read", work + "/out/b.txt"});
  return rc;
}

const CommandRegistrar kDemo{
    {"", "demo", "", "run the main job on a throwaway installation root", demo},
};

}  // namespace
}  // namespace zrk::cli
