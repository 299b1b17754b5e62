// The INI engine's edits: a key set or deleted, a section deleted, each in place, every other
// byte of the file kept, the file replaced once for all the edits.
#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/files/FileIO.h"
#include "platform/files/FolderLock.h"
#include "platform/files/Paths.h"
#include "platform/files/SafeFile.h"
#include "platform/ini/IniLines.h"
#include "platform/ini/ProfileOps.h"
#include "platform/text/CodePage.h"

namespace zrk::platform {
namespace {

using namespace ini;

// The line end of new lines: a file whose first line ends in a lone LF gets LF, every other
// file CR LF.
Bytes lineEndOf(Bytes all) {
  size_t k = all.find_first_of("\r\n");
  return k != Bytes::npos && all[k] == '\n' ? Bytes("\n") : Bytes("\r\n");
}

bool endsInLineEnd(Bytes all) {
  return !all.empty() && (all.back() == '\r' || all.back() == '\n');
}

// Makes one edit in the file's bytes, in place; false when it changes nothing. The search for
// the section starts at `sectionAt`, which comes back as where the section's head line starts
// when every byte before it stayed (a key set or deleted), else 0.
bool edit(std::string& file, Bytes section, const std::string* key, const std::string* value,
          size_t& sectionAt) {
  const Bytes all = file;
  auto sec = findSection(all, section, sectionAt);
  sectionAt = (sec && key) ? sec->head.begin : 0;
  const std::string eol(lineEndOf(all));
  if (!key) {  // delete the section with its keys
    if (!sec) return false;
    file.erase(sec->head.begin, sec->end - sec->head.begin);
    return true;
  }
  if (!sec) {
    if (!value) return false;
    std::string tail;
    if (all.size() > firstLineStart(all) && !endsInLineEnd(all)) tail += eol;
    tail.append("[").append(section).append("]").append(eol);
    tail.append(*key).append("=").append(*value).append(eol);
    file += tail;
    return true;
  }
  std::optional<Line> at;
  Line lastKey = sec->head;  // a new key goes behind the section's last key line
  forEachLine(
      all,
      [&](const Line& l) {
        if (l.kind == Line::Kind::Section) return false;
        if (l.kind != Line::Kind::Key) return true;
        if (sameName(l.name, *key)) at = l;
        lastKey = l;
        return !at;
      },
      sec->head.next);
  if (!value) {
    if (!at) return false;
    file.erase(at->begin, at->next - at->begin);
    return true;
  }
  if (at) {
    file.replace(at->begin, at->end - at->begin, std::string(at->name) + "=" + *value);
    return true;
  }
  file.insert(lastKey.next, (lastKey.next == lastKey.end ? eol : "") + *key + "=" + *value + eol);
  return true;
}

// Whether a write can be read back and adds no line of its own: no line end anywhere, no "]"
// in a section name, a key that the reader takes for a key (no "=", not empty, not a comment
// or a section head).
bool writableNames(Bytes section, const std::string* key, const std::string* value) {
  auto holdsLineEnd = [](Bytes s) { return s.find_first_of("\r\n") != Bytes::npos; };
  if (holdsLineEnd(section) || section.find(']') != Bytes::npos) return false;
  if (value && holdsLineEnd(*value)) return false;
  if (!key) return true;
  Bytes k = *key;  // as nameBytes gives it: without the blanks round it
  return !holdsLineEnd(k) && k.find('=') == Bytes::npos && !k.empty() && k.front() != ';' &&
         k.front() != '[';
}

// One change in the file's code page, names without the blanks round them, as the reader finds
// them; nothing when it could not be read back or would add a line of its own.
struct EditBytes {
  std::string section;
  std::optional<std::string> key, value;
};

std::optional<EditBytes> editBytes(const ProfileEdit& e) {
  if (!e.section) return std::nullopt;
  EditBytes out{nameBytes(*e.section), std::nullopt, std::nullopt};
  if (e.key) out.key = nameBytes(*e.key);
  if (e.value) out.value = toAnsi(*e.value);
  const std::string* key = out.key ? &*out.key : nullptr;
  if (!writableNames(out.section, key, out.value ? &*out.value : nullptr)) return std::nullopt;
  return out;
}

}  // namespace

bool WritePrivateProfileStringA(const Text* section, const Text* key, const Text* value,
                                TextView file) {
  const ProfileEdit edit{section, key, value};
  return writeProfileEdits({&edit, 1}, file);
}

bool writeProfileEdits(std::span<const ProfileEdit> edits, TextView file) {
  if (file.empty()) return false;
  std::vector<EditBytes> changes;
  changes.reserve(edits.size());
  for (const ProfileEdit& e : edits) {
    std::optional<EditBytes> change = editBytes(e);
    if (!change) return false;
    changes.push_back(std::move(*change));
  }
  std::string path = followFinalLink(nativePath(file));
  // Another writer's read-modify-replace of this file waits for ours to end; a profile save
  // or a pack that holds the lock already takes it again.
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
  bool changed = false;
  // A section found by one edit is sought from there by the next edit of it: no section of its
  // name stands before it, and the edits of its keys leave the bytes before it.
  size_t sectionAt = 0;
  const std::string* lastSection = nullptr;
  for (const EditBytes& c : changes) {
    if (!lastSection || !sameName(*lastSection, c.section)) sectionAt = 0;
    lastSection = &c.section;
    changed |=
        edit(all, c.section, c.key ? &*c.key : nullptr, c.value ? &*c.value : nullptr, sectionAt);
  }
  if (!changed) return true;  // nothing to change
  return replaceFileAtomically(path, all);
}

}  // namespace zrk::platform
