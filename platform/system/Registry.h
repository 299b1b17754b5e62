// Read-only stand-in for the machine part of the registry, with the calls of the ANSI interface.
// It holds one key per processor, "HARDWARE\DESCRIPTION\System\CentralProcessor\<n>", with
// ProcessorNameString and VendorIdentifier (text) and ~MHz (32-bit number) from /proc/cpuinfo,
// on every architecture: the model line where there is one, else the Arm core named from its
// numbers; the speed from cpufreq where /proc/cpuinfo has none.
#pragma once

#include <cstdint>
#include <string_view>

namespace zrk::platform {

using HKEY = uint32_t;
inline constexpr HKEY HKEY_LOCAL_MACHINE = 0x80000002u;

inline constexpr int32_t ERROR_SUCCESS = 0;
inline constexpr int32_t ERROR_FILE_NOT_FOUND = 2;
inline constexpr int32_t ERROR_INVALID_HANDLE = 6;
inline constexpr int32_t ERROR_MORE_DATA = 234;

inline constexpr uint32_t REG_SZ = 1;
inline constexpr uint32_t REG_DWORD = 4;

// Opens `subKey` (ANSI, "\"-separated, any case) below `root`; *result is 0 unless it succeeds.
int32_t RegOpenKeyA(HKEY root, std::string_view subKey, HKEY* result);

// Type and data of value `name` (any case). Without `data`, gives type and size alone; with it,
// `*size` must hold the data (a text's size counts its closing NUL), else ERROR_MORE_DATA.
int32_t RegQueryValueExA(HKEY key, std::string_view name, uint32_t* type, uint8_t* data,
                         uint32_t* size);

int32_t RegCloseKey(HKEY key);

}  // namespace zrk::platform
