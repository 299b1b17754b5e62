// Stand-ins for the machine queries: total memory and the default graphics adapter, read from
// their Linux equivalents. (The operating system's record is in platform/SystemInfo.h.)
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <zrkKVL/Text.h>

namespace zrk::platform {

// Total physical memory in bytes, as eight little-endian bytes; nullopt when the query fails.
std::optional<std::array<uint8_t, 8>> totalPhysicalMemory();

struct Guid {
  uint32_t Data1 = 0;
  uint16_t Data2 = 0;
  uint16_t Data3 = 0;
  std::array<uint8_t, 8> Data4{};
};

// What the graphics layer tells of an adapter: a NUL-padded ANSI description and an identifier.
struct AdapterIdentifier {
  std::array<uint8_t, 512> Description{};
  Guid DeviceIdentifier;
};

// The default graphics adapter: the PCI display device (the boot VGA one, else the first), named
// from the PCI id database when one is installed. Its identifier packs vendor and device (Data1),
// subsystem vendor (Data2), subsystem device (Data3), then revision and class code (Data4).
// A machine with no display device (a headless server, a board without PCI) answers with the
// basic display adapter, so that a description never loses the fields before the adapter.
AdapterIdentifier defaultAdapterIdentifier();

// The stand-in adapter of a machine without one: this name, no vendor, device or subsystem, and
// only the display class in its class code.
inline constexpr std::string_view kBasicDisplayAdapter = "Basic Display Adapter";
AdapterIdentifier basicDisplayAdapter();

// The adapter's name from a PCI id database text: "Vendor Device", lspci-style where unknown.
std::string pciDeviceName(std::string_view database, uint16_t vendor, uint16_t device);

// Test seam: files are read below `root` instead of "/" and the memory comes from here (none:
// the query fails); nullopt restores the real machine.
struct SystemOverride {
  std::string root;
  std::optional<uint64_t> totalMemory;
};
void overrideSystem(std::optional<SystemOverride> o);

// A file of the machine (below the override root when one is set); nullopt when unreadable.
std::optional<std::string> readSystemFile(const std::string& absolutePath);

}  // namespace zrk::platform
