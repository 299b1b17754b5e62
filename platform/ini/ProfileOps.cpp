// The INI engine's reader: the rules by which a file's lines are read, section and key lookups
// (through tables once a file is read again), and the reads of the profile operations.
#include "platform/ini/ProfileOps.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/files/FileIO.h"
#include "platform/files/FolderLock.h"
#include "platform/files/Paths.h"
#include "platform/files/SafeFile.h"
#include "platform/ini/IniLines.h"
#include "platform/ini/ProfileCache.h"
#include "platform/text/CodePage.h"

namespace zrk::platform {
namespace ini {
namespace {

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

// The code page's upper case of each byte, for comparing names.
constexpr std::array<unsigned char, 256> kFolded = [] {
  std::array<unsigned char, 256> t{};
  for (int c = 0; c < 256; ++c) {
    t[c] = (c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7) ? c - 32
           : (c == 0x9A || c == 0x9C || c == 0x9E)                         ? c - 0x10
           : c == 0xFF                                                     ? 0x9F
                                                                           : c;
  }
  return t;
}();

unsigned char fold(char c) {
  return kFolded[static_cast<unsigned char>(c)];
}

// The line starting at `begin`.
Line lineAt(Bytes all, size_t begin) {
  std::optional<Line> line;
  forEachLine(
      all,
      [&](const Line& l) {
        line = l;
        return false;
      },
      begin);
  return *line;
}

// The line whose first character other than a blank is the "[" at `head`.
Line headLine(Bytes all, size_t head) {
  size_t begin = head;
  while (begin > 0 && isBlank(all[begin - 1]))
    --begin;
  return lineAt(all, begin);
}

// Where the first "[" from `from` on stands that is the first character other than a blank
// of its line: the only places where a section head can start. npos when there is none.
size_t nextSectionHead(Bytes all, size_t from) {
  const char* data = all.data();
  const char* stop = data + all.size();
  for (const char* at = data + std::min(from, all.size());
       at < stop && (at = static_cast<const char*>(std::memchr(at, '[', size_t(stop - at))));
       ++at) {
    const char* begin = at;
    while (begin > data && isBlank(begin[-1]))
      --begin;
    if (begin == data + firstLineStart(all) || begin[-1] == '\r' || begin[-1] == '\n') {
      return size_t(at - data);
    }
  }
  return Bytes::npos;
}

// Calls fn(line) for each section head in file order until it gives false.
template <class Fn>
void forEachSectionHead(Bytes all, Fn&& fn, size_t from = 0) {
  for (size_t at = nextSectionHead(all, from); at != Bytes::npos;
       at = nextSectionHead(all, at + 1)) {
    Line l = headLine(all, at);
    if (l.kind == Line::Kind::Section && !fn(l)) return;
  }
}

// Whether the head whose "[" stands at `at` can be named `name`: behind the "[" and its blanks
// stand the name's bytes, then a blank or "]". Compared from the end, where names of one family
// tend to differ. This only sorts out the heads that need no closer look.
bool mayBeNamed(Bytes all, size_t at, Bytes name) {
  size_t from = at + 1;
  while (from < all.size() && isBlank(all[from]))
    ++from;
  if (all.size() - from <= name.size()) return false;
  char after = all[from + name.size()];
  if (after != ']' && !isBlank(after)) return false;
  for (size_t i = name.size(); i-- > 0;) {
    if (fold(all[from + i]) != fold(name[i])) return false;
  }
  return true;
}

// A name as the comparison sees it, for the lookup tables.
std::string folded(Bytes name) {
  std::string out(name);
  for (char& c : out)
    c = char(fold(c));
  return out;
}

// A file read for the first time is searched as it stands: building tables would cost more
// than the one search. From its second lookup on, the tables are built once and used.
bool usesTables(const CachedProfile& p) {
  return p.reused;
}

// Where the first line after the header of section `name` starts.
std::optional<size_t> sectionBody(CachedProfile& p, Bytes name) {
  Bytes all = p.bytes();
  if (!usesTables(p)) {
    for (size_t at = nextSectionHead(all, 0); at != Bytes::npos;
         at = nextSectionHead(all, at + 1)) {
      if (!mayBeNamed(all, at, name)) continue;
      Line l = headLine(all, at);
      if (l.kind == Line::Kind::Section && sameName(l.name, name)) return l.next;
    }
    return std::nullopt;
  }
  if (!p.sections) {
    p.sections.emplace();
    forEachSectionHead(all, [&](const Line& l) {
      p.sections->try_emplace(folded(l.name), l.next);
      return true;
    });
  }
  auto it = p.sections->find(folded(name));
  if (it == p.sections->end()) return std::nullopt;
  return it->second;
}

// The value of the first key `key` in the first section `section`, blanks trimmed.
std::optional<Bytes> keyValue(CachedProfile& p, Bytes section, Bytes key) {
  std::optional<size_t> body = sectionBody(p, section);
  if (!body) return std::nullopt;
  auto eachKey = [&](auto&& fn) {
    forEachLine(
        p.bytes(),
        [&](const Line& l) {
          if (l.kind == Line::Kind::Section) return false;
          return l.kind != Line::Kind::Key || fn(l);
        },
        *body);
  };
  std::optional<Bytes> value;
  if (!usesTables(p)) {
    eachKey([&](const Line& l) {
      if (sameName(l.name, key)) value = l.value;
      return !value;
    });
    return value;
  }
  auto [entry, made] = p.keys.try_emplace(*body);
  auto& keys = entry->second;  // a lambda may not capture a structured binding under clang 14
  if (made) {
    eachKey([&](const Line& l) {
      keys.try_emplace(folded(l.name), l.value);
      return true;
    });
  }
  auto it = keys.find(folded(key));
  if (it != keys.end()) value = it->second;
  return value;
}

// Calls fn(line) for each line of the first section named `name` until it gives false; gives
// whether the section exists.
template <class Fn>
bool forEachLineOfSection(CachedProfile& p, Bytes name, Fn&& fn) {
  std::optional<size_t> body = sectionBody(p, name);
  if (!body) return false;
  forEachLine(
      p.bytes(), [&](const Line& l) { return l.kind != Line::Kind::Section && fn(l); }, *body);
  return true;
}

}  // namespace

bool sameName(Bytes a, Bytes b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [](char x, char y) { return fold(x) == fold(y); });
}

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

size_t firstLineStart(Bytes all) {
  return all.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
}

std::string nameBytes(TextView name) {
  std::string bytes = toAnsi(name);
  Bytes kept = trim(bytes);
  size_t from = size_t(kept.data() - bytes.data());
  bytes.erase(from + kept.size());
  bytes.erase(0, from);
  return bytes;
}

std::optional<SectionSpan> findSection(Bytes all, Bytes name, size_t from) {
  std::optional<SectionSpan> span;
  forEachSectionHead(
      all,
      [&](const Line& l) {
        if (span) {
          span->end = l.begin;
          return false;
        }
        if (sameName(l.name, name)) span = SectionSpan{l, all.size()};
        return true;
      },
      from);
  return span;
}

}  // namespace ini

namespace {

using namespace ini;

Bytes unquote(Bytes v) {
  if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front()) {
    return v.substr(1, v.size() - 2);
  }
  return v;
}

// The file's content through this thread's cache; empty when it cannot be read.
LoadedProfile loadProfile(const ResolvedPath& file) {
  return ProfileCache::forThread().load(file);
}

// Entries each ended by NUL, collected until they fill a buffer of `size`: what lies beyond
// would be cut away anyway.
class NulList {
 public:
  explicit NulList(int32_t size) : size_(size) {}
  // Gives false once the list is full.
  bool add(Bytes entry) {
    all_.append(entry).push_back('\0');
    return all_.size() + 1 < size_t(std::max(size_, 0));
  }
  // Copies the entries plus a closing NUL; cut to two NULs and size - 2 when they do not fit.
  int32_t put(Text& buffer) const {
    if (size_ <= 0) return 0;
    if (size_ < 2) {
      buffer[0] = u'\0';
      return 0;
    }
    if (all_.size() + 1 >= size_t(size_)) {
      copy(Bytes(all_).substr(0, size_t(size_ - 2)), buffer);
      buffer[size_ - 2] = buffer[size_ - 1] = u'\0';
      return size_ - 2;
    }
    copy(all_, buffer);
    buffer[all_.size()] = u'\0';
    return int32_t(all_.size());
  }

 private:
  static void copy(Bytes bytes, Text& buffer) { fromAnsiInto(bytes, buffer.data()); }
  int32_t size_;
  std::string all_;
};

std::string lineText(const Line& l) {
  if (l.kind != Line::Kind::Key) return std::string(l.text);
  return std::string(l.name) + "=" + std::string(l.value);
}

// The value of `key` in `section` of `file`, or `def` without its trailing blanks; cut to
// size - 1 bytes. It views `def` or the file's content, which `p` holds for the caller.
Bytes valueOrDefault(const Text& section, const Text& key, Bytes def, int32_t size,
                     LoadedProfile& p, const ResolvedPath& file) {
  Bytes value = def;
  while (!value.empty() && isBlank(value.back()))
    value.remove_suffix(1);
  std::string s = nameBytes(section), k = nameBytes(key);
  if (!s.empty() && !k.empty()) {
    if ((p = loadProfile(file))) {
      if (auto found = keyValue(*p, s, k)) value = unquote(*found);
    }
  }
  return value.substr(0, std::min(value.size(), size_t(std::max(size, 1) - 1)));
}

}  // namespace

Text profileString(const Text& section, const Text& key, TextView def, int32_t size,
                   const ResolvedPath& file) {
  std::string defBytes = toAnsi(def);
  LoadedProfile p;
  Bytes value = valueOrDefault(section, key, defBytes, size, p, file);
  if (size <= 0) return Text();
  return fromAnsi(value);
}

int32_t GetPrivateProfileStringA(const Text* section, const Text* key, TextView def, Text& buffer,
                                 int32_t size, TextView file) {
  if (section && key) {
    if (size <= 0) return 0;
    std::string defBytes = toAnsi(def);
    LoadedProfile p;
    Bytes value = valueOrDefault(*section, *key, defBytes, size, p, ResolvedPath::of(file));
    fromAnsiInto(value, buffer.data());
    buffer[value.size()] = u'\0';
    return int32_t(value.size());
  }
  NulList list(size);
  LoadedProfile p = loadProfile(ResolvedPath::of(file));
  if (!p) return list.put(buffer);
  if (!section) {
    forEachSectionHead(p->bytes(), [&](const Line& l) { return list.add(l.name); });
    return list.put(buffer);
  }
  forEachLineOfSection(*p, nameBytes(*section), [&](const Line& l) {
    return l.kind != Line::Kind::Key || list.add(l.name);
  });
  return list.put(buffer);
}

SectionNames allSectionNames(TextView file, int64_t firstSize) {
  for (int64_t size = std::min<int64_t>(firstSize, INT32_MAX);;
       size = std::min<int64_t>(size * 2, INT32_MAX)) {
    Text buffer(size_t(size), u'\0');
    int32_t n = GetPrivateProfileStringA(nullptr, nullptr, u"", buffer, int32_t(size), file);
    bool cut = n >= size - 2;  // the list may have been cut (also by a file that grew meanwhile)
    if (!cut || size == INT32_MAX) {
      SectionNames list{{}, !cut};
      for (size_t at = 0; at < size_t(n);) {
        size_t nul = buffer.find(u'\0', at);
        list.names.push_back(buffer.substr(at, nul - at));
        at = nul + 1;
      }
      return list;
    }
  }
}

int32_t GetPrivateProfileSectionA(TextView section, Text& buffer, int32_t size, TextView file) {
  return GetPrivateProfileSectionA(section, buffer, size, ResolvedPath::of(file));
}

int32_t GetPrivateProfileSectionA(TextView section, Text& buffer, int32_t size,
                                  const ResolvedPath& file) {
  LoadedProfile p = loadProfile(file);
  if (!p) return 0;
  NulList list(size);
  bool found = forEachLineOfSection(*p, nameBytes(section), [&](const Line& l) {
    bool entry = l.kind == Line::Kind::Key || l.kind == Line::Kind::Other;
    return !entry || list.add(lineText(l));
  });
  return found ? list.put(buffer) : 0;
}

}  // namespace zrk::platform
