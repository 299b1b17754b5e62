// ExtractArchive's two readers. The direct one walks the archive's bytes as they lie in the
// file; the number-text one rebuilds them from HexRead's number text, and gives the failures of
// an archive that cannot be read their words. Both write the same members, ask the same
// question and fail at the same step with the same failure.
#pragma once

#include <functional>
#include <optional>

#include <zrkKVL/Text.h>

namespace zrk {
class clsKVN;
}

namespace zrk::archive {

// How members meet the files of the output folder. ExtractArchive replaces every file of a
// member's name, and the later of two members of one name stands. A caller that keeps existing
// files, or wants to hear of such cases, says so here.
struct MemberRules {
  enum class Event {
    Kept,      // a file of the member's name (without regard to case) stood there and stays
    Repeated,  // a member's name came a second time: the later member replaced the earlier
  };
  bool keepExisting = false;
  std::function<void(const Text& name, Event)> notice;
};

// ExtractArchive with `rules`: the two readers below, the direct one first.
bool extract(clsKVN& kvn, const Text& archiveName, const std::optional<Text>& diffDir,
             const MemberRules& rules);

// Nothing when the archive's bytes could not be read whole, or there are too many of them for
// the number text to be sure to hold: nothing has happened then.
std::optional<bool> extractFromBytes(const Text& archiveName, const std::optional<Text>& diffDir,
                                     const MemberRules& rules = {});

bool extractFromNumberText(clsKVN& kvn, const Text& archiveName, const std::optional<Text>& diffDir,
                           const MemberRules& rules = {});

}  // namespace zrk::archive
