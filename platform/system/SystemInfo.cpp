// System queries over /etc/os-release, uname and a fixed map of shell folders.
#include "platform/system/SystemInfo.h"

#include <langinfo.h>
#include <locale.h>
#include <sys/utsname.h>

#include <cctype>
#include <climits>
#include <cstring>
#include <fstream>
#include <mutex>

namespace zrk::platform {
namespace {

constexpr int32_t E_INVALIDARG = int32_t(0x80070057);

struct Seams {
  std::mutex mutex;
  std::optional<uint32_t> platformId;
  std::optional<std::string> osReleaseFile;
  std::optional<std::string> kernelRelease;
  std::function<std::optional<std::string>(int32_t, int32_t)> shellFolders;
};

Seams& seams() {
  static Seams s;
  return s;
}

template <class T>
T seam(T Seams::*member) {
  Seams& s = seams();
  std::lock_guard lock(s.mutex);
  return s.*member;
}

// A shell value: quotes removed, backslash escapes resolved.
std::string unquote(std::string_view v) {
  if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front()) {
    v = v.substr(1, v.size() - 2);
  }
  std::string out;
  for (size_t i = 0; i < v.size(); ++i) {
    if (v[i] == '\\' && i + 1 < v.size()) ++i;
    out += v[i];
  }
  return out;
}

// The leading "a.b.c" of a release text.
std::string dottedNumbers(const std::string& release) {
  size_t end = 0;
  while (end < release.size() && (std::isdigit(static_cast<unsigned char>(release[end])) ||
                                  (release[end] == '.' && end + 1 < release.size() &&
                                   std::isdigit(static_cast<unsigned char>(release[end + 1]))))) {
    ++end;
  }
  return release.substr(0, end);
}

uint32_t numberAt(const std::string& dotted, size_t part) {
  size_t at = 0;
  for (size_t i = 0; i < part; ++i) {
    at = dotted.find('.', at);
    if (at == std::string::npos) return 0;
    ++at;
  }
  uint64_t n = 0;
  for (; at < dotted.size() && dotted[at] != '.' && n <= UINT32_MAX; ++at)
    n = n * 10 + (dotted[at] - '0');
  return n <= UINT32_MAX ? uint32_t(n) : 0;
}

std::optional<std::string> defaultFolder(int32_t, int32_t folder) {
  if (folder == CSIDL_PROGRAM_FILES) return "/opt";
  return std::nullopt;
}

}  // namespace

int32_t GetVersionExA(OSVERSIONINFOA& info) {
  if (info.dwOSVersionInfoSize != sizeof(OSVERSIONINFOA)) return 0;
  std::string dotted = dottedNumbers(kernelRelease());
  info.dwMajorVersion = numberAt(dotted, 0);
  info.dwMinorVersion = numberAt(dotted, 1);
  info.dwBuildNumber = numberAt(dotted, 2);
  info.dwPlatformId = seam(&Seams::platformId).value_or(VER_PLATFORM_WIN32_NT);
  info.szCSDVersion[0] = '\0';  // no service pack
  return 1;
}

std::optional<std::string> osReleaseValue(std::string_view key) {
  std::optional<std::string> file = seam(&Seams::osReleaseFile);
  std::ifstream in(file ? *file : "/etc/os-release");
  if (!in && !file) in.open("/usr/lib/os-release");
  if (!in) return std::nullopt;
  for (std::string line; std::getline(in, line);) {
    if (line.size() > key.size() && line.compare(0, key.size(), key) == 0 &&
        line[key.size()] == '=') {
      return unquote(std::string_view(line).substr(key.size() + 1));
    }
  }
  return std::nullopt;
}

std::optional<OperatingSystemRecord> queryOperatingSystem() {
  std::optional<std::string> pretty = osReleaseValue("PRETTY_NAME");
  if (!pretty) pretty = osReleaseValue("NAME");
  if (!pretty) {
    if (!osReleaseValue("ID")) return std::nullopt;  // no description at all
    pretty = "Linux";
  }
  OperatingSystemRecord r;
  r.Name = fromUtf8(*pretty) + u"|/";
  r.Version = fromUtf8(kernelRelease());
  return r;
}

std::string kernelRelease() {
  if (auto r = seam(&Seams::kernelRelease)) return *r;
  utsname u;
  return ::uname(&u) == 0 ? u.release : "";
}

std::string machineName() {
  utsname u;
  return ::uname(&u) == 0 ? u.machine : "";
}

Text decimalMark() {
  locale_t numeric = ::newlocale(LC_NUMERIC_MASK, "", locale_t(0));
  if (!numeric) return u".";
  Text mark = fromUtf8(::nl_langinfo_l(RADIXCHAR, numeric));
  ::freelocale(numeric);
  return mark.empty() ? Text(u".") : mark;
}

int32_t SHGetSpecialFolderLocation(int32_t ownerWindow, int32_t folder,
                                   std::shared_ptr<ITEMIDLIST>& list) {
  auto source = seam(&Seams::shellFolders);
  std::optional<std::string> path =
      source ? source(ownerWindow, folder) : defaultFolder(ownerWindow, folder);
  if (!path) return E_INVALIDARG;
  list = std::make_shared<ITEMIDLIST>(ITEMIDLIST{*path});
  return 0;
}

int32_t SHGetPathFromIDListA(const ITEMIDLIST* list, char* buffer) {
  if (!list || list->path.size() >= 260) return 0;
  std::memcpy(buffer, list->path.c_str(), list->path.size() + 1);
  return 1;
}

void setPlatformIdOverride(std::optional<uint32_t> id) {
  std::lock_guard lock(seams().mutex);
  seams().platformId = id;
}

void setOsReleaseFile(std::optional<std::string> path) {
  std::lock_guard lock(seams().mutex);
  seams().osReleaseFile = std::move(path);
}

void setKernelReleaseOverride(std::optional<std::string> release) {
  std::lock_guard lock(seams().mutex);
  seams().kernelRelease = std::move(release);
}

void setShellFolderSource(std::function<std::optional<std::string>(int32_t, int32_t)> source) {
  std::lock_guard lock(seams().mutex);
  seams().shellFolders = std::move(source);
}

}  // namespace zrk::platform
