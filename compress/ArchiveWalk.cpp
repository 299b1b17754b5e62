// The record walk over an archive's bytes, shared by extraction, listing and testing.
#include "compress/ArchiveWalk.h"

#include <algorithm>
#include <limits>

#include <zrkKVL/Failure.h>
#include "compress/ArchiveFormat.h"
#include "platform/text/CodePage.h"

namespace zrk::archive {
namespace {

// The bytes without the blanks at both ends, as the rebuilt text is trimmed.
std::string_view trimBlanks(std::string_view s) {
  size_t b = s.find_first_not_of(' ');
  if (b == std::string_view::npos) return {};
  return s.substr(b, s.find_last_not_of(' ') - b + 1);
}

}  // namespace

RecordWalk::RecordWalk(std::string_view bytes) {
  const std::string_view image = trimBlanks(bytes);
  // The magic is skipped unread: the list lies between the first two separators.
  int64_t p1 = position(image, kSeparatorByte) + 1;
  int64_t p2 = position(image, kSeparatorByte, p1);
  lengths_ = mid(image, p1, p2 - p1);
  records_ = mid(image, p2 + 1, int64_t(image.size()));
}

bool RecordWalk::next() {
  // The step past the record before: taken once that record has been dealt with.
  recordAt_ += recordLength_;
  if (recordAt_ > std::numeric_limits<int32_t>::max()) throw Failure(err::Overflow);
  listAt_ += entryLength_;
  recordLength_ = entryLength_ = 0;
  if (listAt_ > int64_t(lengths_.size())) return false;

  int32_t digits = numberFromBytes(mid(lengths_, listAt_, 1));
  int32_t recordLength = numberFromBytes(mid(lengths_, listAt_ + 1, digits));
  std::string_view record = mid(records_, recordAt_, recordLength);

  int64_t s = position(record, kSeparatorByte);
  int32_t elementLength = numberFromBytes(left(record, s - 1));
  std::string_view stream = mid(record, s + 1, int64_t(record.size()));
  // No stream expands beyond the cap, so capping a length read from a damaged file changes
  // nothing for a good stream and keeps a bad one from asking for gigabytes.
  int32_t origSize = std::min(elementLength, compression::maxExpandedLength(stream.size()));
  compression::WorkBuffer::Result expanded = buffer_.expand(stream, origSize);
  element_ = expanded.bytes;
  whole_ = expanded.whole && element_.size() == size_t(elementLength);
  bar_ = position(element_, '|');

  ++number_;
  recordLength_ = recordLength;
  entryLength_ = digits + 1;
  return true;
}

RecordWalk::Member RecordWalk::member() const {
  int32_t nameLength = numberFromBytes(left(element_, bar_ - 1));
  Text name = platform::fromAnsi(mid(element_, bar_ + 1, nameLength));
  size_t content = right(element_, int64_t(element_.size()) - nameLength - bar_).size();
  return {std::move(name), element_.size() - content};
}

std::string_view RecordWalk::lineFrom(size_t from) {
  return buffer_.lineFrom(from, element_.size());
}

}  // namespace zrk::archive
