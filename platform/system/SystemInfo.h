// What the system says about itself: the version record, the operating system's product name
// and version (from os-release and uname), and the shell's special folders.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <zrkKVL/Text.h>

namespace zrk::platform {

// The version record in its ANSI form.
struct OSVERSIONINFOA {
  uint32_t dwOSVersionInfoSize = 0;
  uint32_t dwMajorVersion = 0;
  uint32_t dwMinorVersion = 0;
  uint32_t dwBuildNumber = 0;
  uint32_t dwPlatformId = 0;
  char szCSDVersion[128] = {};
};
static_assert(sizeof(OSVERSIONINFOA) == 148);

// Platform ids: 1 the family with the process snapshot only, 2 the family with module lists.
inline constexpr uint32_t VER_PLATFORM_WIN32_WINDOWS = 1;
inline constexpr uint32_t VER_PLATFORM_WIN32_NT = 2;

// Fills the record from the kernel's release ("6.1.23-x" gives 6, 1, 23) and the platform id,
// 2 unless a test chose another. Non-zero on success; a record whose size field is not 148 is
// left as it was and gives 0.
int32_t GetVersionExA(OSVERSIONINFOA& info);

// The operating system as the system's management service describes it.
struct OperatingSystemRecord {
  Text Name;     // "product|system folder": the product is os-release's PRETTY_NAME
  Text Version;  // the kernel's whole release, e.g. "6.1.0-18-amd64"
  int32_t ServicePackMajorVersion = 0;
  int32_t ServicePackMinorVersion = 0;
};
// The record, or nothing when the system's description (os-release) can't be read.
std::optional<OperatingSystemRecord> queryOperatingSystem();

// A value of os-release ("PRETTY_NAME", "VERSION_ID", ...) with its quotes removed, or nothing.
std::optional<std::string> osReleaseValue(std::string_view key);
// uname's fields: the kernel release ("6.1.0-18-amd64") and the machine ("x86_64").
std::string kernelRelease();
std::string machineName();

// The decimal mark of the user's numeric locale (LC_ALL, LC_NUMERIC, LANG, as the environment
// names it); "." where none is named or it cannot be loaded.
Text decimalMark();

// Shell folders by their ids; 38 is the program files folder, /opt here.
inline constexpr int32_t CSIDL_PROGRAM_FILES = 38;
struct ITEMIDLIST {
  std::string path;
};
// 0 on success, with `list` set; an unknown folder gives E_INVALIDARG.
int32_t SHGetSpecialFolderLocation(int32_t ownerWindow, int32_t folder,
                                   std::shared_ptr<ITEMIDLIST>& list);
// Writes the path into `buffer` (260 bytes) NUL-ended; non-zero on success.
int32_t SHGetPathFromIDListA(const ITEMIDLIST* list, char* buffer);

// Test seams: nothing (or an empty function) restores the real source.
void setPlatformIdOverride(std::optional<uint32_t> id);
void setOsReleaseFile(std::optional<std::string> path);
void setKernelReleaseOverride(std::optional<std::string> release);
// Answers a folder id (with the owner window it came with) by a path, or nothing when unknown.
void setShellFolderSource(std::function<std::optional<std::string>(int32_t, int32_t)> source);

}  // namespace zrk::platform
