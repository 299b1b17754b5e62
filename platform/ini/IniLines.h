// The INI engine's reading rules, shared by its reads and its edits: a file's lines and what
// each is, names compared without regard to case, and names as the reader finds them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::platform::ini {

using Bytes = std::string_view;

struct Line {
  enum class Kind { Blank, Comment, Section, Key, Other };
  Kind kind;
  size_t begin, end, next;  // content [begin, end), next line at `next`
  Bytes name;               // section or key name, trimmed
  Bytes value;              // key value, trimmed
  Bytes text;               // the whole content, trimmed
};

// What the line [begin, end) of `all` is; the next line starts at `next`.
Line classify(Bytes all, size_t begin, size_t end, size_t next);

// A UTF-8 byte-order mark at the start of a file (as some editors save one) is no part of its
// first line: the lines begin behind it, and edits leave it where it stands.
constexpr Bytes kByteOrderMark = "\xEF\xBB\xBF";

size_t firstLineStart(Bytes all);

// Calls fn(line) for each line from `pos` until it gives false. CR LF, a lone CR and a lone LF
// all end a line.
template <class Fn>
void forEachLine(Bytes all, Fn&& fn, size_t pos = 0) {
  const char* data = all.data();
  size_t size = all.size();
  while (pos < size) {
    size_t end = pos;
    while (end < size && data[end] != '\r' && data[end] != '\n')
      ++end;
    size_t next = end;
    if (end < size) next += (data[end] == '\r' && end + 1 < size && data[end + 1] == '\n') ? 2 : 1;
    if (!fn(classify(all, pos, end, next))) return;
    pos = next;
  }
}

// Whether two names are one for the reader: equal but for letter case in the code page.
bool sameName(Bytes a, Bytes b);

// A section or key name a caller gives, in the file's code page and without the blanks round
// it, as the reader finds names in the file.
std::string nameBytes(TextView name);

// The first section named `name` whose head's "[" stands at `from` or later: its head line, and
// where the next section's head starts.
struct SectionSpan {
  Line head;
  size_t end;
};

std::optional<SectionSpan> findSection(Bytes all, Bytes name, size_t from = 0);

}  // namespace zrk::platform::ini
