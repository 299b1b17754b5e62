// The archive walked as the bytes of the file, read once: the list and the records are views
// into those bytes, and every stream expands into one buffer that is kept from record to record.
#include <algorithm>
#include <limits>
#include <string>

#include "compress/ArchiveExtraction.h"
#include "compress/ArchiveFormat.h"
#include "compress/ArchiveMembers.h"
#include "compress/StringCompression.h"
#include "platform/CodePage.h"
#include "platform/FileIO.h"

namespace zrk::archive {
namespace {

// Up to this many bytes the number text of the file (at most three characters a byte) and the
// buffer it grows in stay inside the 32-bit range, so reading it could not have failed.
constexpr size_t kLargestDirectRead = size_t(std::numeric_limits<int32_t>::max()) / 6;

// The bytes without the blanks at both ends, as the rebuilt text is trimmed.
std::string_view trimBlanks(std::string_view s) {
  size_t b = s.find_first_not_of(' ');
  if (b == std::string_view::npos) return {};
  return s.substr(b, s.find_last_not_of(' ') - b + 1);
}

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
  const std::string_view image = trimBlanks(file->bytes());

  // The magic is skipped unread: the list lies between the first two separators.
  int64_t p1 = position(image, kSeparatorByte) + 1;
  int64_t p2 = position(image, kSeparatorByte, p1);
  const std::string_view lengths = mid(image, p1, p2 - p1);
  const std::string_view records = mid(image, p2 + 1, int64_t(image.size()));

  MemberOutput out(archiveName, diffDir, rules);
  compression::WorkBuffer buffer;
  int64_t recordPos = 1;
  const int64_t listLength = int64_t(lengths.size());
  for (int64_t i = 1; i <= listLength;) {
    int32_t digits = numberFromBytes(mid(lengths, i, 1));
    int32_t recordLength = numberFromBytes(mid(lengths, i + 1, digits));
    std::string_view record = mid(records, recordPos, recordLength);

    int64_t s = position(record, kSeparatorByte);
    int32_t elementLength = numberFromBytes(left(record, s - 1));
    std::string_view stream = mid(record, s + 1, int64_t(record.size()));
    // No stream expands beyond the cap, so capping a length read from a damaged file changes
    // nothing for a good stream and keeps a bad one from asking for gigabytes.
    int32_t origSize = std::min(elementLength, compression::maxExpandedLength(stream.size()));
    std::string_view element = buffer.expand(stream, origSize).bytes;

    int64_t bar = position(element, '|');
    if (bar >= 1 && bar <= 11) {
      int32_t nameLength = numberFromBytes(left(element, bar - 1));
      Text name = platform::fromAnsi(mid(element, bar + 1, nameLength));
      size_t content = right(element, int64_t(element.size()) - nameLength - bar).size();
      out.writeNamed(name, buffer.lineFrom(element.size() - content, element.size()));
    } else if (!out.writeDamaged(buffer.lineFrom(0, element.size()))) {
      return false;
    }

    recordPos += recordLength;
    if (recordPos > std::numeric_limits<int32_t>::max()) throw Failure(err::Overflow);
    i += digits + 1;
  }
  out.flush();
  return true;
}

}  // namespace zrk::archive
