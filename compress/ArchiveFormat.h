// The archive's byte-level pieces: length-list entries, the record walk's cuts, member names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::archive {

// The byte between the magic, the length list and the records, and inside each record.
inline constexpr char16_t kSeparator = u'\x10';
inline constexpr char kSeparatorByte = '\x10';
inline constexpr std::string_view kMagic = "ZRKArch";

// One length-list entry: the digit count of `recordLength`, then its digits. Failure 6 for a
// record too long to be told in one digit's worth of digits.
std::string lengthListEntry(int64_t recordLength);

// The characters whose byte values the hexadecimal pieces between "/" give, built in a growing
// buffer (spare blanks behind the used part); empty pieces are skipped.
Text bytesFromHexText(TextView numbers);

// 1-based substring operations with the interface's checks: a negative count or a start below 1
// is failure 5; counts beyond the end give what there is.
Text mid(TextView s, int64_t start, int64_t count);
Text left(TextView s, int64_t count);
Text right(TextView s, int64_t count);
// 1-based position of the first `c` at or after the 1-based `from`; 0 when there is none.
int64_t position(TextView s, char16_t c, int64_t from = 1);
int64_t position(std::string_view s, char c, int64_t from = 1);
// The same cuts over bytes, as views.
std::string_view mid(std::string_view s, int64_t start, int64_t count);
std::string_view left(std::string_view s, int64_t count);
std::string_view right(std::string_view s, int64_t count);

// The whole number that bytes give as text, as files::numberFromText gives it for their
// characters: up to nine plain digits are read directly, anything else goes the text's way.
int32_t numberFromBytes(std::string_view s);

// The file name for the n-th damaged record: base + "_File" + n + ".txt" for the first that the
// user agreed to, base + "File" + n + ".txt" for the later ones.
Text damagedRecordName(TextView base, int32_t count, bool first);

// The question put before the first damaged record is written.
Text damagedArchiveQuestion(TextView archiveName);

}  // namespace zrk::archive
