// demo: the main job on a throwaway installation root that needs nothing else, run as the tool
// commands an admin would type.
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "cli/ScratchFolder.h"

namespace zrk::cli {
namespace {

namespace fs = std::filesystem;

// Runs one command as if typed, echoing it first with the root shown as $ROOT.
int step(Context& c, const std::string& root, const char* what, std::vector<std::string> words) {
  std::string shown = "$ zrkkvl";
  for (const auto& w : words) {
    std::string word = w;
    if (word.rfind(root, 0) == 0) word = "$ROOT" + word.substr(root.size());
    shown += " " + (word.find(' ') == std::string::npos ? word : "'" + word + "'");
  }
  if (*what) std::printf("\n# %s\n", what);
  std::printf("%s\n", shown.c_str());
  std::fflush(stdout);
  int rc = runWords(c.kvn, c.root, words);
  std::fflush(stdout);
  return rc;
}

int runSteps(Context& c, const std::string& root) {
  std::string profiles = root + "/profiles/servers.bini", config = root + "/settings/config.ini";
  std::string work = root + "/adminlogs";
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
  rc |= step(c, root, "the folders of an installation", {"call", "reqFolders", root});
  rc |= step(c, root, "a setting", {"ini", "set", config, "Settings", "ReportErrors", "0"});
  rc |= step(c, root, "a profile form checked", with({"profile", "validate", profiles}, profile));
  rc |= step(c, root, "and saved, packed", with({"profile", "save", profiles, root}, profile));
  rc |= step(c, root, "the saved file is packed", {"bini", "test", profiles});
  rc |= step(c, root, "unpacked again", {"bini", "unpack", profiles});
  rc |= step(c, root, "one key read back",
             {"ini", "get", root + "/profiles/servers.ini", "Alpha", "path"});
  rc |= step(c, root, "packed for the server", {"bini", "pack", root + "/profiles/servers.ini"});
  rc |= step(c, root, "two logs", {"file", "write", work + "/a.txt", "hello"});
  rc |= step(c, root, "", {"file", "write", work + "/b.txt", "world"});
  rc |= step(c, root, "put in an archive",
             {"archive", "make", work + "/logs.zar", work + "/a.txt", work + "/b.txt"});
  fs::create_directories(work + "/out");
  rc |= step(c, root, "and taken out elsewhere",
             {"archive", "extract", work + "/logs.zar", work + "/out"});
  rc |= step(c, root, "one of them read", {"file", "read", work + "/out/b.txt"});
  return rc;
}

int demo(Context& c) {
  std::optional<ScratchFolder> scratch;
  if (c.root.empty()) {
    scratch.emplace("demo", "demo");
    if (c.has("keep")) scratch->keep();
  }
  std::string root = scratch ? scratch->path() : toUtf8(c.root);
  std::printf("zrkKVL %s: one profile saved and packed, two logs archived, in $ROOT = %s\n",
              toUtf8(c.kvn.dllVersion(u"")).c_str(), root.c_str());
  int rc = runSteps(c, root);
  std::printf("\n%s\n", rc == 0 ? "Every step succeeded." : "A step failed.");
  if (!scratch || c.has("keep")) std::printf("The files are kept in %s\n", root.c_str());
  return rc;
}

const CommandRegistrar kDemo{
    {"",
     "demo",
     "",
     "run the main job on a throwaway installation root",
     demo,
     {{"keep", nullptr, "keep the throwaway root and say where it is"}},
     "With --root DIR the job runs in DIR, which is kept."},
};

}  // namespace
}  // namespace zrk::cli
