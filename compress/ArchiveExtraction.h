// ExtractArchive's two readers. The direct one walks the archive's bytes as they lie in the
// file; the number-text one rebuilds them from HexRead's number text, and gives the failures of
// an archive that cannot be read their words. Both write the same members, ask the same
// question and fail at the same step with the same failure.
#pragma once

#include <optional>

#include <zrkKVL/Text.h>

namespace zrk {
class clsKVN;
}

namespace zrk::archive {

// Nothing when the archive's bytes could not be read whole, or there are too many of them for
// the number text to be sure to hold: nothing has happened then.
std::optional<bool> extractFromBytes(const Text& archiveName, const std::optional<Text>& diffDir);

bool extractFromNumberText(clsKVN& kvn, const Text& archiveName,
                           const std::optional<Text>& diffDir);

}  // namespace zrk::archive
