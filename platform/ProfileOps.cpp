// The INI engine: a line-oriented reader and an in-place editor that keeps every byte it need
// not change.
#include "platform/ProfileOps.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/CodePage.h"
#include "platform/FileIO.h"
#include "platform/Paths.h"
#include "platform/SafeFile.h"

namespace zrk::platform {
namespace {

using Bytes = std::string_view;

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

Bytes trim(Bytes s) {
  while (!s.empty() && isBlank(s.front()))
    s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back()))
    s.remove_suffix(1);
  return s;
}

unsigned char fold(unsigned char c) {
  if (c >= 'a' && c <= 'z') return c - 32;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
  if (c == 0x9A || c == 0x9C || c == 0x9E) return c - 0x10;
  if (c == 0xFF) return 0x9F;
  return c;
}

bool sameName(Bytes a, Bytes b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return fold(static_cast<unsigned char>(x)) == fold(static_cast<unsigned char>(y));
         });
}

struct Line {
  enum class Kind { Blank, Comment, Section, Key, Other };
  Kind kind;
  size_t begin, end, next;  // content [begin, end), next line at `next`
  Bytes name;               // section or key name, trimmed
  Bytes value;              // key value, trimmed
  Bytes text;               // the whole content, trimmed
};

Line classify(Bytes all, size_t begin, size_t end, size_t next) {
  Line l{Line::Kind::Other, begin, end, next, {}, {}, trim(all.substr(begin, end - begin))};
  Bytes t = l.text;
  if (t.empty()) {
    l.kind = Line::Kind::Blank;
  } else if (t.front() == ';') {
    l.kind = Line::Kind::Comment;
  } else if (t.front() == '[') {
    size_t close = t.find(']');
    if (close != Bytes::npos) l.kind = Line::Kind::Section, l.name = trim(t.substr(1, close - 1));
  } else if (size_t eq = t.find('='); eq != Bytes::npos) {
    l.kind = Line::Kind::Key;
    l.name = trim(t.substr(0, eq));
    l.value = trim(t.substr(eq + 1));
  }
  return l;
}

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

// Where the first line after the header of section `name` starts, found by jumping from one
// "[" at the start of a line to the next, so the lines between are not looked at.
std::optional<size_t> sectionBody(Bytes all, Bytes name) {
  for (size_t at = 0; (at = all.find('[', at)) != Bytes::npos; ++at) {
    size_t begin = at;
    while (begin > 0 && isBlank(all[begin - 1]))
      --begin;
    if (begin > 0 && all[begin - 1] != '\r' && all[begin - 1] != '\n') continue;
    std::optional<size_t> body;
    forEachLine(
        all,
        [&](const Line& l) {
          if (l.kind == Line::Kind::Section && sameName(l.name, name)) body = l.next;
          return false;
        },
        begin);
    if (body) return body;
  }
  return std::nullopt;
}

std::vector<Line> parseLines(Bytes all) {
  std::vector<Line> lines;
  forEachLine(all, [&](const Line& l) {
    lines.push_back(l);
    return true;
  });
  return lines;
}

// Calls fn(line) for each line of the first section named `name` until it gives false; gives
// whether the section exists.
template <class Fn>
bool forEachLineOfSection(Bytes all, Bytes name, Fn&& fn) {
  std::optional<size_t> body = sectionBody(all, name);
  if (!body) return false;
  forEachLine(
      all, [&](const Line& l) { return l.kind != Line::Kind::Section && fn(l); }, *body);
  return true;
}

// Index range [first, last) of the first section named `name`, header at first - 1.
struct SectionRange {
  size_t header, first, last;
};

std::optional<SectionRange> findSection(const std::vector<Line>& lines, Bytes name) {
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].kind != Line::Kind::Section || !sameName(lines[i].name, name)) continue;
    size_t j = i + 1;
    while (j < lines.size() && lines[j].kind != Line::Kind::Section)
      ++j;
    return SectionRange{i, i + 1, j};
  }
  return std::nullopt;
}

std::optional<size_t> findKey(const std::vector<Line>& lines, const SectionRange& s, Bytes key) {
  for (size_t i = s.first; i < s.last; ++i) {
    if (lines[i].kind == Line::Kind::Key && sameName(lines[i].name, key)) return i;
  }
  return std::nullopt;
}

Bytes unquote(Bytes v) {
  if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front()) {
    return v.substr(1, v.size() - 2);
  }
  return v;
}

std::optional<std::string> readProfileFile(TextView file) {
  if (file.empty()) return std::nullopt;
  try {
    return readAllBytes(file);
  } catch (const Failure&) {
    return std::nullopt;
  }
}

// Copies a value into the buffer, cut to size - 1 characters, NUL behind it.
int32_t putValue(Bytes value, Text& buffer, int32_t size) {
  if (size <= 0) return 0;
  size_t n = std::min(value.size(), size_t(size - 1));
  for (size_t i = 0; i < n; ++i)
    buffer[i] = fromAnsiByte(static_cast<unsigned char>(value[i]));
  buffer[n] = u'\0';
  return int32_t(n);
}

// Copies entries each ended by NUL plus a closing NUL; cut to two NULs and size - 2 when the
// list does not fit.
int32_t putList(const std::vector<std::string>& entries, Text& buffer, int32_t size) {
  if (size <= 0) return 0;
  std::string all;
  for (const auto& e : entries)
    all.append(e).push_back('\0');
  if (size < 2) {
    buffer[0] = u'\0';
    return 0;
  }
  if (all.size() + 1 >= size_t(size)) {
    for (int32_t i = 0; i < size - 2; ++i)
      buffer[i] = fromAnsiByte(static_cast<unsigned char>(all[i]));
    buffer[size - 2] = buffer[size - 1] = u'\0';
    return size - 2;
  }
  for (size_t i = 0; i < all.size(); ++i)
    buffer[i] = fromAnsiByte(static_cast<unsigned char>(all[i]));
  buffer[all.size()] = u'\0';
  return int32_t(all.size());
}

std::string lineText(const Line& l) {
  if (l.kind != Line::Kind::Key) return std::string(l.text);
  return std::string(l.name) + "=" + std::string(l.value);
}

// The file with the replacement of bytes [from, to) by `with`.
std::string spliced(Bytes all, size_t from, size_t to, Bytes with) {
  std::string out;
  out.reserve(all.size() + with.size());
  out.append(all.substr(0, from)).append(with).append(all.substr(to));
  return out;
}

// The line end of new lines: a file whose first line ends in a lone LF gets LF, every other
// file CR LF.
Bytes lineEndOf(Bytes all) {
  size_t k = all.find_first_of("\r\n");
  return k != Bytes::npos && all[k] == '\n' ? Bytes("\n") : Bytes("\r\n");
}

bool endsInLineEnd(Bytes all) {
  return !all.empty() && (all.back() == '\r' || all.back() == '\n');
}

std::optional<std::string> edited(Bytes all, Bytes section, const std::string* key,
                                  const std::string* value) {
  std::vector<Line> lines = parseLines(all);
  auto sec = findSection(lines, section);
  const std::string eol(lineEndOf(all));
  if (!key) {  // delete the section with its keys
    if (!sec) return std::nullopt;
    size_t to = sec->last < lines.size() ? lines[sec->last].begin : all.size();
    return spliced(all, lines[sec->header].begin, to, {});
  }
  if (!sec) {
    if (!value) return std::nullopt;
    std::string tail;
    if (!all.empty() && !endsInLineEnd(all)) tail += eol;
    tail.append("[").append(section).append("]").append(eol);
    tail.append(*key).append("=").append(*value).append(eol);
    return std::string(all) + tail;
  }
  auto at = findKey(lines, *sec, *key);
  if (!value) {
    if (!at) return std::nullopt;
    return spliced(all, lines[*at].begin, lines[*at].next, {});
  }
  if (at) {
    const Line& l = lines[*at];
    return spliced(all, l.begin, l.end, std::string(l.name) + "=" + *value);
  }
  size_t after = sec->header;
  for (size_t i = sec->first; i < sec->last; ++i) {
    if (lines[i].kind == Line::Kind::Key) after = i;
  }
  const Line& l = lines[after];
  std::string insert = (l.next == l.end ? eol : "") + *key + "=" + *value + eol;
  return spliced(all, l.next, l.next, insert);
}

// Whether a write can be read back and adds no line of its own: no line end anywhere, no "]"
// in a section name, a key that the reader takes for a key (no "=", not empty, not a comment
// or a section head).
bool writableNames(Bytes section, const std::string* key, const std::string* value) {
  auto holdsLineEnd = [](Bytes s) { return s.find_first_of("\r\n") != Bytes::npos; };
  if (holdsLineEnd(section) || section.find(']') != Bytes::npos) return false;
  if (value && holdsLineEnd(*value)) return false;
  if (!key) return true;
  Bytes k = trim(*key);
  return !holdsLineEnd(k) && k.find('=') == Bytes::npos && !k.empty() && k.front() != ';' &&
         k.front() != '[';
}

}  // namespace

int32_t GetPrivateProfileStringA(const Text* section, const Text* key, TextView def, Text& buffer,
                                 int32_t size, TextView file) {
  std::string content = readProfileFile(file).value_or(std::string());
  if (!section) {
    std::vector<std::string> names;
    forEachLine(content, [&](const Line& l) {
      if (l.kind == Line::Kind::Section) names.emplace_back(l.name);
      return true;
    });
    return putList(names, buffer, size);
  }
  if (!key) {
    std::vector<std::string> names;
    std::string sectionBytes = toAnsi(*section);
    forEachLineOfSection(content, trim(sectionBytes), [&](const Line& l) {
      if (l.kind == Line::Kind::Key) names.emplace_back(l.name);
      return true;
    });
    return putList(names, buffer, size);
  }
  std::string defBytes = toAnsi(def);
  Bytes value = defBytes;
  while (!value.empty() && isBlank(value.back()))
    value.remove_suffix(1);
  std::string sectionBytes = toAnsi(*section), keyBytes = toAnsi(*key);
  Bytes s = trim(sectionBytes), k = trim(keyBytes);
  if (!s.empty() && !k.empty()) {
    forEachLineOfSection(content, s, [&](const Line& l) {
      if (l.kind != Line::Kind::Key || !sameName(l.name, k)) return true;
      value = unquote(l.value);
      return false;
    });
  }
  return putValue(value, buffer, size);
}

int32_t GetPrivateProfileSectionA(TextView section, Text& buffer, int32_t size, TextView file) {
  auto content = readProfileFile(file);
  if (!content) return 0;
  std::vector<std::string> entries;
  std::string sectionBytes = toAnsi(section);
  bool found = forEachLineOfSection(*content, trim(sectionBytes), [&](const Line& l) {
    if (l.kind == Line::Kind::Key || l.kind == Line::Kind::Other) entries.push_back(lineText(l));
    return true;
  });
  return found ? putList(entries, buffer, size) : 0;
}

bool WritePrivateProfileStringA(const Text* section, const Text* key, const Text* value,
                                TextView file) {
  if (!section || file.empty()) return false;
  std::string s = toAnsi(*section), k = key ? toAnsi(*key) : std::string(),
              v = value ? toAnsi(*value) : std::string();
  if (!writableNames(s, key ? &k : nullptr, value ? &v : nullptr)) return false;
  // Names are matched and written as the reader finds them: without the blanks round them.
  std::string name(trim(s)), keyName(trim(k));
  std::string path = followFinalLink(nativePath(file));
  // Another writer's read-modify-replace of a file of this folder waits for ours to end.
  FolderLock lock(folderOfPath(path));
  std::string all;
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) {
    try {
      all = readNativeBytes(path);
    } catch (const Failure&) {
      return false;
    }
  }
  auto result = edited(all, name, key ? &keyName : nullptr, value ? &v : nullptr);
  if (!result) return true;  // nothing to change
  return replaceFileAtomically(path, *result);
}

}  // namespace zrk::platform
