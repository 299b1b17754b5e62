// zrkkvl: the library's operations from the command line.
#include <cstdio>

#include "core/clsKVN.h"

int main() {
  zrk::clsKVN kvn;
  std::printf("%s\n", zrk::toUtf8(kvn.dllVersion(u"")).c_str());
  return 0;
}
