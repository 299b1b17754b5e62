// demo: the main job on a throwaway installation root that needs nothing else.
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "cli/Command.h"

namespace zrk::cli {
namespace {

int demo(Context& c) {
  Text root = c.root;
  if (root.empty()) {
    std::string tmpl = (std::filesystem::temp_directory_path() / "zrkkvl-demo-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw UsageError{"cannot make a temporary folder"};
    root = fromUtf8(tmpl);
  }
  std::printf("zrkKVL %s\n", toUtf8(c.kvn.dllVersion(u"")).c_str());
  std::printf("installation root: %s\n", toUtf8(root).c_str());
  c.kvn.reqFolders(root);
  Text config = root + u"/settings/config.ini";
  c.kvn.WriteIniKey(u"Settings", u"ReportErrors", u"0", config);
  c.kvn.WriteIniKey(u"Settings", u"Language", u"English", config);
  std::printf("settings/config.ini:\n");
  Variant lines = c.kvn.ReadFile(config);
  for (int32_t i = 0; i < lines.array().upperBound(); ++i) {
    std::printf("  %s\n", toUtf8(lines.array().at(i).toText()).c_str());
  }
  std::printf("ReportErrors = %s\n",
              toUtf8(c.kvn.GetIniKey(u"Settings", u"ReportErrors", config)).c_str());
  return 0;
}

const CommandRegistrar kDemo{
    {"", "demo", "", "run the main job on a throwaway installation root", demo},
};

}  // namespace
}  // namespace zrk::cli
