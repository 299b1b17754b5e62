// Prints the installation root the library derives from where it was loaded.
#include <cstdio>

#include <zrkKVL/clsKVN.h>
#include "core/mdlKVN.h"

int main() {
  zrk::clsKVN kvn;
  std::printf("%s\n", zrk::toUtf8(zrk::mdlKVN::state().RootPath).c_str());
  kvn.Unload();
  return 0;
}
