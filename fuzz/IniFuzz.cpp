// The INI engine on a file of any bytes: every read path, then a write whose value must read
// back and a delete whose key must be gone.
#include "FuzzSupport.h"
#include "platform/ini/ProfileOps.h"

namespace {

using namespace zrk;
using namespace zrk::platform;

Text readKey(const Text& section, const Text& key, const Text& file) {
  Text buffer(256, u'\0');
  int32_t n = GetPrivateProfileStringA(&section, &key, u"<none>", buffer, 256, file);
  if (n < 0 || n > 255) __builtin_trap();
  return buffer.substr(0, size_t(n));
}

// Every section name of the file, read through the list.
std::vector<Text> sections(const Text& file) {
  Text buffer(4096, u'\0');
  int32_t n = GetPrivateProfileStringA(nullptr, nullptr, u"", buffer, 4096, file);
  if (n < 0 || n > 4094) __builtin_trap();
  std::vector<Text> out;
  for (const Text& s : split(buffer.substr(0, size_t(n)), TextView(u"\0", 1)))
    if (!s.empty()) out.push_back(s);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto& h = fuzz::Harness::get();
  h.reset();
  h.writeInput("f.ini", data, size);
  Text file = h.text("in/f.ini");
  for (const Text& s : sections(file)) {
    Text buffer(512, u'\0');
    int32_t n = GetPrivateProfileSectionA(s, buffer, 512, file);
    if (n < 0 || n > 511) __builtin_trap();
  }
  // A section and key chosen by the input's first bytes, so writes hit existing names too.
  Text section = u"S" + Text(1, char16_t(u'0' + (size ? data[0] % 4 : 0)));
  Text key = u"k" + Text(1, char16_t(u'a' + (size > 1 ? data[1] % 4 : 0)));
  Text value = u"v" + decimal(int64_t(size));
  readKey(section, key, file);
  if (!WritePrivateProfileStringA(&section, &key, &value, file)) __builtin_trap();
  if (readKey(section, key, file) != value) __builtin_trap();
  // A second line of the same key may remain, but not the one just written.
  if (!WritePrivateProfileStringA(&section, &key, nullptr, file)) __builtin_trap();
  if (readKey(section, key, file) == value) __builtin_trap();
  return 0;
}
