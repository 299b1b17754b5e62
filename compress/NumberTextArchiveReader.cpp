// The archive rebuilt from HexRead's number text, character by character, and walked as text.
#include <algorithm>
#include <limits>
#include <string>

#include <zrkKVL/clsKVN.h>
#include "compress/ArchiveExtraction.h"
#include "compress/ArchiveFormat.h"
#include "compress/ArchiveMembers.h"
#include "compress/StringCompression.h"
#include "files/TextOps.h"
#include "platform/text/CodePage.h"

namespace zrk::archive {
namespace {

// The archive's bytes as characters, rebuilt from its hexadecimal number text.
Text readImage(clsKVN& kvn, const Text& archiveName) {
  Text numbers = trimBlanks(kvn.HexRead(archiveName));
  return trimBlanks(bytesFromHexText(numbers));
}

std::string withLineEnd(TextView text) {
  return platform::toAnsi(text) + "\r\n";
}

}  // namespace

bool extractFromNumberText(clsKVN& kvn, const Text& archiveName, const std::optional<Text>& diffDir,
                           const MemberRules& rules) {
  Text image = readImage(kvn, archiveName);

  // The magic is skipped unread: the list lies between the first two separators.
  int64_t p1 = position(image, kSeparator) + 1;
  int64_t p2 = position(image, kSeparator, p1);
  const Text lengths = mid(image, p1, p2 - p1);
  const Text records = mid(image, p2 + 1, int64_t(image.size()));

  MemberOutput out(archiveName, diffDir, rules);
  int64_t recordPos = 1;
  const int64_t listLength = int64_t(lengths.size());
  for (int64_t i = 1; i <= listLength;) {
    int32_t digits = files::numberFromText(mid(lengths, i, 1));
    int32_t recordLength = files::numberFromText(mid(lengths, i + 1, digits));
    Text record = mid(records, recordPos, recordLength);

    int64_t s = position(record, kSeparator);
    int32_t elementLength = files::numberFromText(left(record, s - 1));
    Text stream = mid(record, s + 1, int64_t(record.size()));
    // No stream expands beyond the cap, so capping a length read from a damaged file changes
    // nothing for a good stream and keeps a bad one from asking for gigabytes.
    int32_t origSize = std::min(elementLength, compression::maxExpandedLength(stream.size()));
    Text element = kvn.DecompressString(std::move(stream), origSize);

    int64_t bar = position(element, u'|');
    if (bar >= 1 && bar <= 11) {
      int32_t nameLength = files::numberFromText(left(element, bar - 1));
      Text name = mid(element, bar + 1, nameLength);
      Text content = right(element, int64_t(element.size()) - nameLength - bar);
      out.writeNamed(name, withLineEnd(content));
    } else if (!out.writeDamaged(withLineEnd(element))) {
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
