// Path resolution: both separators, case-insensitive match of existing names.
#include "platform/files/Paths.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>

#include <zrkKVL/Failure.h>

namespace zrk::platform {
namespace {

bool exists(const std::string& p) {
  struct stat st;
  return ::lstat(p.c_str(), &st) == 0;
}

// The entry of `dir` whose name equals `name` without regard to case, or "" if none does.
std::string findNoCase(const std::string& dir, TextView name) {
  DIR* d = ::opendir(dir.empty() ? "." : dir.c_str());
  if (!d) return {};
  std::string found;
  while (dirent* e = ::readdir(d)) {
    if (equalsNoCase(textOfNativeName(e->d_name), name)) {
      found = e->d_name;
      break;
    }
  }
  ::closedir(d);
  return found;
}

// The path as written, with "/" for every separator.
std::string asWritten(TextView path) {
  std::string out = nativeName(path);
  std::replace(out.begin(), out.end(), '\\', '/');
  return out;
}

// Resolves component by component, matching a missing one without regard to case.
std::string walkPath(TextView path) {
  std::string out;
  size_t i = 0;
  if (!path.empty() && isSeparator(path[0])) out.push_back('/'), i = 1;
  bool resolving = true;
  while (i <= path.size()) {
    size_t j = i;
    while (j < path.size() && !isSeparator(path[j]))
      ++j;
    TextView comp = path.substr(i, j - i);
    std::string written = nativeName(comp);
    std::string candidate = out + written;
    if (resolving && !comp.empty() && comp != u"." && comp != u".." && !exists(candidate)) {
      std::string match = findNoCase(out.empty() ? "." : out, comp);
      if (match.empty()) {
        resolving = false;
      } else {
        candidate = out + match;
      }
    }
    out = std::move(candidate);
    if (j < path.size()) out += '/';
    i = j + 1;
  }
  return out;
}

}  // namespace

bool isSeparator(char16_t c) {
  return c == u'/' || c == u'\\';
}

std::string nativeName(TextView name) {
  if (name.find(u'\0') != TextView::npos) throw Failure(err::BadFileNameOrNumber);
  std::string native = toUtf8(name);
  if (fromUtf8(native) != name) throw Failure(err::BadFileNameOrNumber);
  return native;
}

Text textOfNativeName(std::string_view native) {
  return fromUtf8(native);
}

std::string nativePath(TextView path) {
  return ResolvedPath::of(path).native;
}

// When the whole path exists as written, so does every folder on the way (the kernel walked
// them all), and the walk would give the path as written: it is skipped.
ResolvedPath ResolvedPath::of(TextView path) {
  ResolvedPath r;
  r.native = asWritten(path);
  if (::stat(r.native.c_str(), &r.st) == 0) {
    r.found = true;
    return r;
  }
  std::string walked = walkPath(path);
  if (walked != r.native) {
    r.native = std::move(walked);
    r.found = ::stat(r.native.c_str(), &r.st) == 0;
  }
  return r;
}

Text parentOf(TextView path) {
  size_t k = path.find_last_of(u"/\\");
  if (k == TextView::npos) return Text();
  if (k == 0) return Text(path.substr(0, 1));
  return Text(path.substr(0, k));
}

Text fileNameOf(TextView path) {
  size_t k = path.find_last_of(u"/\\");
  return Text(k == TextView::npos ? path : path.substr(k + 1));
}

bool isEntryName(TextView name, TextView alsoRefused) {
  return !name.empty() && name != u"." && name != u".." &&
         name.find_first_of(TextView(u"/\\\0", 3)) == TextView::npos &&
         name.find_first_of(alsoRefused) == TextView::npos;
}

}  // namespace zrk::platform
