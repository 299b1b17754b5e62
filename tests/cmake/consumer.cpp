// A program outside the project that uses the installed library.
#include <cstdio>

#include <zrkKVL/clsKVN.h>

int main() {
  zrk::clsKVN kvn;
  std::printf("%s\n", zrk::toUtf8(kvn.dllVersion(u"")).c_str());
  kvn.Unload();
  return 0;
}
