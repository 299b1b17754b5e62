// Prints the installation root the library derives, through the public interface only: a help
// file is opened below the root, and the backend sees its full path. An argument is a root the
// program chooses with SetRootPath first.
#include <cstdio>
#include <memory>

#include <zrkKVL/DialogBackend.h>
#include <zrkKVL/clsKVN.h>

namespace {

class HelpPath : public zrk::platform::DialogBackend {
 public:
  int32_t messageBox(zrk::TextView, int32_t, zrk::TextView) override { return 1; }
  void showHelp(zrk::TextView file, zrk::TextView) override { path = zrk::Text(file); }
  zrk::Text path;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) zrk::SetRootPath(zrk::fromUtf8(argv[1]));
  auto help = std::make_shared<HelpPath>();
  zrk::platform::setDialogBackend(help);
  zrk::clsKVN kvn;
  kvn.ShowHelp(u"probe", u"");
  zrk::Text root =
      help->path.substr(0, help->path.size() - std::char_traits<char16_t>::length(u"/probe"));
  std::printf("%s\n", zrk::toUtf8(root).c_str());
  kvn.Unload();
  return 0;
}
