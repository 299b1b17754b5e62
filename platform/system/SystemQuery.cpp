// Machine queries over sysinfo and the PCI devices in /sys.
#include "platform/system/SystemQuery.h"

#include <dirent.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <vector>

#include <zrkKVL/Failure.h>
#include "platform/text/CodePage.h"

namespace zrk::platform {
namespace {

std::mutex gMutex;
std::optional<SystemOverride> gOverride;

std::optional<SystemOverride> currentOverride() {
  std::lock_guard lock(gMutex);
  return gOverride;
}

std::string underRoot(const std::string& absolutePath) {
  auto o = currentOverride();
  return o ? o->root + absolutePath : absolutePath;
}

std::vector<std::string> folderEntries(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) {
      if (e->d_name[0] != '.') names.emplace_back(e->d_name);
    }
    ::closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// A sysfs attribute such as "0x0300a1" as a number; 0 when absent.
uint32_t hexAttribute(const std::string& device, const char* name) {
  auto text = readSystemFile(device + "/" + name);
  return text ? uint32_t(std::strtoul(text->c_str(), nullptr, 16)) : 0;
}

struct PciDevice {
  std::string path;
  uint32_t classCode;
  bool bootVga;
};

std::optional<PciDevice> displayDevice() {
  const std::string devices = "/sys/bus/pci/devices";
  std::optional<PciDevice> found;
  for (const auto& name : folderEntries(underRoot(devices))) {
    std::string path = devices + "/" + name;
    uint32_t classCode = hexAttribute(path, "class");
    if ((classCode >> 16) != 0x03) continue;  // display controllers
    bool bootVga = hexAttribute(path, "boot_vga") == 1;
    if (!found || (bootVga && !found->bootVga)) found = PciDevice{path, classCode, bootVga};
  }
  return found;
}

std::optional<std::string> pciDatabase() {
  for (const char* p : {"/usr/share/misc/pci.ids", "/usr/share/hwdata/pci.ids"}) {
    if (auto text = readSystemFile(p)) return text;
  }
  return std::nullopt;
}

std::string hex4(uint16_t v) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "%04x", v);
  return buf;
}

}  // namespace

std::optional<std::string> readSystemFile(const std::string& absolutePath) {
  std::ifstream in(underRoot(absolutePath), std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::optional<std::array<uint8_t, 8>> totalPhysicalMemory() {
  uint64_t total;
  if (auto o = currentOverride()) {
    if (!o->totalMemory) return std::nullopt;
    total = *o->totalMemory;
  } else {
    struct sysinfo info {};
    if (::sysinfo(&info) != 0) return std::nullopt;
    total = uint64_t(info.totalram) * info.mem_unit;
  }
  std::array<uint8_t, 8> raw;
  for (int i = 0; i < 8; ++i)
    raw[size_t(i)] = uint8_t(total >> (8 * i));
  return raw;
}

std::string pciDeviceName(std::string_view database, uint16_t vendor, uint16_t device) {
  std::string vendorName, deviceName;
  std::string v = hex4(vendor), d = hex4(device);
  bool inVendor = false;
  size_t pos = 0;
  while (pos < database.size()) {
    size_t end = database.find('\n', pos);
    if (end == std::string_view::npos) end = database.size();
    std::string_view line = database.substr(pos, end - pos);
    pos = end + 1;
    if (line.empty() || line[0] == '#') continue;
    if (line[0] != '\t') {
      if (inVendor || line[0] == 'C') break;  // past our vendor, or into the device classes
      if (line.size() > 6 && line.substr(0, 4) == v && line[4] == ' ') {
        vendorName = std::string(line.substr(6));
        inVendor = true;
      }
    } else if (inVendor && line.size() > 7 && line[1] != '\t' && line.substr(1, 4) == d &&
               line[5] == ' ') {
      deviceName = std::string(line.substr(7));
      break;
    }
  }
  if (vendorName.empty()) return "Device " + v + ":" + d;
  if (deviceName.empty()) return vendorName + " Device " + d;
  return vendorName + " " + deviceName;
}

AdapterIdentifier basicDisplayAdapter() {
  AdapterIdentifier id;
  std::copy(kBasicDisplayAdapter.begin(), kBasicDisplayAdapter.end(), id.Description.begin());
  id.DeviceIdentifier.Data4[1] = 0x03;  // the display class, and nothing else known
  return id;
}

AdapterIdentifier defaultAdapterIdentifier() {
  auto dev = displayDevice();
  if (!dev) return basicDisplayAdapter();
  uint16_t vendor = uint16_t(hexAttribute(dev->path, "vendor"));
  uint16_t device = uint16_t(hexAttribute(dev->path, "device"));
  auto database = pciDatabase();
  std::string name = toAnsi(fromUtf8(database ? pciDeviceName(*database, vendor, device)
                                              : "Device " + hex4(vendor) + ":" + hex4(device)));
  AdapterIdentifier id;
  std::copy_n(name.begin(), std::min(name.size(), id.Description.size() - 1),
              id.Description.begin());
  id.DeviceIdentifier.Data1 = uint32_t(vendor) << 16 | device;
  id.DeviceIdentifier.Data2 = uint16_t(hexAttribute(dev->path, "subsystem_vendor"));
  id.DeviceIdentifier.Data3 = uint16_t(hexAttribute(dev->path, "subsystem_device"));
  id.DeviceIdentifier.Data4 = {uint8_t(hexAttribute(dev->path, "revision")),
                               uint8_t(dev->classCode >> 16),
                               uint8_t(dev->classCode >> 8),
                               uint8_t(dev->classCode),
                               0,
                               0,
                               0,
                               0};
  return id;
}

void overrideSystem(std::optional<SystemOverride> o) {
  std::lock_guard lock(gMutex);
  gOverride = std::move(o);
}

}  // namespace zrk::platform
