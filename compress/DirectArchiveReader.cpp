// The archive walked as the bytes of the file, read once: the list and the records are views
// into those bytes, and every stream expands into one buffer that is kept from record to record.
#include <algorithm>
#include <limits>
#include <string>

#include "compress/ArchiveExtraction.h"
#include "compress/ArchiveMembers.h"
#include "compress/ArchiveWalk.h"
#include "platform/files/FileIO.h"

namespace zrk::archive {
namespace {

// Up to this many bytes the number text of the file (at most three characters a byte) and the
// buffer it grows in stay inside the 32-bit range, so reading it could not have failed.
constexpr size_t kLargestDirectRead = size_t(std::numeric_limits<int32_t>::max()) / 6;

// The archive's bytes in pages of their own; nothing when the file cannot be read so.
bool readWhole(std::optional<platform::FileImage>& file, const Text& archiveName) {
  try {
    file.emplace(archiveName);
  } catch (...) {
    return false;
  }
  return !file->bytes().empty() && file->bytes().size() <= kLargestDirectRead;
}

}  // namespace

std::optional<bool> extractFromBytes(const Text& archiveName, const std::optional<Text>& diffDir,
                                     const MemberRules& rules) {
  std::optional<platform::FileImage> file;
  if (!readWhole(file, archiveName)) return std::nullopt;
  RecordWalk walk(file->bytes());
  MemberOutput out(archiveName, diffDir, rules);
  while (walk.next()) {
    if (walk.intact()) {
      RecordWalk::Member member = walk.member();
      out.writeNamed(member.name, walk.lineFrom(member.contentFrom));
    } else if (!out.writeDamaged(walk.lineFrom(0))) {
      return false;
    }
  }
  out.flush();
  return true;
}

}  // namespace zrk::archive
