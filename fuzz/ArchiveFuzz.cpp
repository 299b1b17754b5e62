// ExtractArchive on an archive of any bytes, into a throwaway folder, by both readers: the
// direct reader and the number-text reader must return the same, fail the same way and leave
// the same files. Stored names go into the path unchanged, so writes through ".." are refused
// to keep the run inside its root.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "FuzzSupport.h"
#include "compress/ArchiveExtraction.h"
#include "core/MethodFrame.h"
#include "platform/desktop/Dialogs.h"
#include "platform/files/SysCalls.h"

namespace {

using namespace zrk;

// What one reader gave back and left in the output folder.
struct Outcome {
  std::string result;
  std::map<std::string, std::string> files;
  bool operator==(const Outcome&) const = default;
};

template <class Extract>
Outcome run(fuzz::Harness& h, const uint8_t* data, size_t size, Extract&& extract) {
  h.reset(platform::mb::Yes);  // damaged records are written too
  h.writeInput("a.arc", data, size);
  Outcome o;
  try {
    o.result = noTrap(extract) ? "true" : "false";
  } catch (const Failure& f) {
    o.result = std::to_string(f.number());
  }
  for (const auto& e : std::filesystem::recursive_directory_iterator(h.root() + "/out")) {
    std::ifstream in(e.path(), std::ios::binary);
    o.files[e.path().string()] = {std::istreambuf_iterator<char>(in), {}};
  }
  return o;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zrk::platform;
  auto& h = fuzz::Harness::get();
  static const bool armed = [] {
    for (auto call : {faults::Call::OpenWrite, faults::Call::MakeFolder, faults::Call::Remove,
                      faults::Call::Rename})
      faults::add({call, "..", EACCES});
    return true;
  }();
  (void)armed;
  const Text archive = h.text("in/a.arc");
  const std::optional<Text> out = h.text("out");
  bool direct = true;
  Outcome viaBytes = run(h, data, size, [&] {
    std::optional<bool> r = archive::extractFromBytes(archive, out);
    direct = r.has_value();
    return r.value_or(false);
  });
  Outcome viaText =
      run(h, data, size, [&] { return archive::extractFromNumberText(h.kvn(), archive, out); });
  if (direct && !(viaBytes == viaText)) {
    std::fprintf(stderr, "the readers disagree: %s against %s, %zu files against %zu\n",
                 viaBytes.result.c_str(), viaText.result.c_str(), viaBytes.files.size(),
                 viaText.files.size());
    std::abort();
  }
  return 0;
}
