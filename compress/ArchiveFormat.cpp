// Length-list entries, substring cuts, member-name checks and the words of the archive.
#include "compress/ArchiveFormat.h"

#include <algorithm>
#include <string>

#include <zrkKVL/Failure.h>
#include "files/TextOps.h"
#include "platform/text/CodePage.h"

namespace zrk::archive {

std::string lengthListEntry(int64_t recordLength) {
  std::string digits = std::to_string(recordLength);
  if (digits.size() > 9) throw Failure(err::Overflow);
  return std::to_string(digits.size()) + digits;
}

namespace {

int hexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return -1;
}

// A piece read as hexadecimal. The one or two digits that the reader writes are taken directly,
// since an archive has millions of them; anything else goes through the numeric-text test.
int32_t hexPieceValue(TextView piece) {
  int hi = hexDigit(piece[0]), lo = piece.size() == 2 ? hexDigit(piece[1]) : 0;
  if (piece.size() == 1 && hi >= 0) return hi;
  if (piece.size() == 2 && hi >= 0 && lo >= 0) return hi * 16 + lo;
  return files::numberFromText(u"&H" + Text(piece));
}

}  // namespace

Text bytesFromHexText(TextView numbers) {
  // The characters are collected as they come; the growing buffer's sizes are kept beside them
  // so that its failures strike at the same piece and its spare blanks end the result.
  Text buf;
  buf.reserve(numbers.size() / 2 + 1);
  files::BufferGrowth growth(0, 0);
  for (size_t start = 0; start < numbers.size();) {
    size_t slash = std::min(numbers.find(u'/', start), numbers.size());
    if (slash > start) {
      int32_t value = hexPieceValue(numbers.substr(start, slash - start));
      if (value < 0 || value > 255) throw Failure(err::InvalidCall);
      growth.add(1);
      buf.push_back(platform::fromAnsiByte(static_cast<unsigned char>(value)));
    }
    start = slash + 1;
  }
  buf.resize(growth.size(), u' ');
  return buf;
}

namespace {

// 1-based cuts with the interface's checks, for text and bytes alike.
template <class View>
View midOf(View s, int64_t start, int64_t count) {
  if (start < 1 || count < 0) throw Failure(err::InvalidCall);
  if (start > int64_t(s.size())) return View();
  return s.substr(size_t(start - 1),
                  size_t(std::min<int64_t>(count, int64_t(s.size()) - start + 1)));
}

template <class View>
View leftOf(View s, int64_t count) {
  if (count < 0) throw Failure(err::InvalidCall);
  return s.substr(0, size_t(std::min<int64_t>(count, int64_t(s.size()))));
}

template <class View>
View rightOf(View s, int64_t count) {
  if (count < 0) throw Failure(err::InvalidCall);
  if (count >= int64_t(s.size())) return s;
  return s.substr(s.size() - size_t(count));
}

template <class View>
int64_t positionIn(View s, typename View::value_type c, int64_t from) {
  size_t k = s.find(c, size_t(from - 1));
  return k == View::npos ? 0 : int64_t(k) + 1;
}

}  // namespace

int64_t position(TextView s, char16_t c, int64_t from) {
  return positionIn(s, c, from);
}

int64_t position(std::string_view s, char c, int64_t from) {
  return positionIn(s, c, from);
}

Text mid(TextView s, int64_t start, int64_t count) {
  return Text(midOf(s, start, count));
}

Text left(TextView s, int64_t count) {
  return Text(leftOf(s, count));
}

Text right(TextView s, int64_t count) {
  return Text(rightOf(s, count));
}

std::string_view mid(std::string_view s, int64_t start, int64_t count) {
  return midOf(s, start, count);
}

std::string_view left(std::string_view s, int64_t count) {
  return leftOf(s, count);
}

std::string_view right(std::string_view s, int64_t count) {
  return rightOf(s, count);
}

int32_t numberFromBytes(std::string_view s) {
  constexpr size_t kPlainDigits = 9;  // below 10^9: always inside the 32-bit range
  if (!s.empty() && s.size() <= kPlainDigits &&
      std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    int32_t n = 0;
    for (char c : s)
      n = n * 10 + (c - '0');
    return n;
  }
  return files::numberFromText(platform::fromAnsi(s));
}

Text damagedRecordName(TextView base, int32_t count, bool first) {
  return Text(base) + (first ? u"_File" : u"File") + decimal(count) + u".txt";
}

Text damagedArchiveQuestion(TextView archiveName) {
  return u"File Name: " + Text(archiveName) +
         u"\r\n\r\nThe compressed file you are trying to extract appears to be damaged!"
         u"\r\n\r\nThe ZRK can still attempt to extract the files, but the original file names "
         u"will be lost \r\nand the ZRK will assign names to the files in the folowing format: "
         u"[Archivename][Filenumber].txt\r\n\r\nDo you wish to continue?";
}

}  // namespace zrk::archive
