// A program outside the project that meets a reported failure: it reads a file that does not
// exist and says how the call came back.
#include <cstdio>

#include <zrkKVL/clsKVN.h>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  zrk::clsKVN kvn;
  try {
    zrk::Text text = kvn.ReadFileToString(zrk::fromUtf8(argv[1]));
    std::printf("returned '%s'\n", zrk::toUtf8(text).c_str());
  } catch (const zrk::Failure& f) {
    std::printf("failure %d\n", f.number());
  }
  kvn.Unload();
  return 0;
}
