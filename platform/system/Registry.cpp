// The registry stand-in: keys built from /proc/cpuinfo when opened, under numbered handles.
#include "platform/system/Registry.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <zrkKVL/Text.h>
#include "platform/system/SystemQuery.h"
#include "platform/text/CodePage.h"

namespace zrk::platform {
namespace {

struct Value {
  uint32_t type;
  std::string bytes;  // REG_SZ: the ANSI text with its NUL; REG_DWORD: four little-endian bytes
};
using Key = std::map<std::string, Value>;  // value names folded to lower case

std::string folded(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
  }
  return out;
}

Value textValue(std::string_view utf8) {
  return {REG_SZ, toAnsi(fromUtf8(utf8)) + '\0'};
}

Value dwordValue(uint32_t v) {
  std::string b(4, '\0');
  for (int i = 0; i < 4; ++i)
    b[size_t(i)] = char(v >> (8 * i));
  return {REG_DWORD, b};
}

std::string trimmed(std::string s) {
  size_t a = s.find_first_not_of(" \t"), b = s.find_last_not_of(" \t");
  return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

// One "processor" block of /proc/cpuinfo: its fields by name, and its number.
struct CpuBlock {
  std::string number;
  std::map<std::string, std::string> fields;
  const std::string* field(const char* name) const {
    auto it = fields.find(name);
    return it == fields.end() || it->second.empty() ? nullptr : &it->second;
  }
};

// The blocks of /proc/cpuinfo. Lines before the first block, and the machine-wide lines that
// some architectures put after the last one ("Hardware", "Model"), go to every block that lacks
// them.
std::vector<CpuBlock> cpuBlocks(const std::string& text) {
  std::vector<CpuBlock> blocks;
  std::map<std::string, std::string> shared;
  std::istringstream in(text);
  std::string line;
  bool blank = true;
  while (std::getline(in, line)) {
    size_t colon = line.find(':');
    if (colon == std::string::npos) {
      blank = trimmed(line).empty();
      continue;
    }
    std::string field = trimmed(line.substr(0, colon)), value = trimmed(line.substr(colon + 1));
    if (field == "processor") {
      blocks.push_back({value, {}});
    } else if (blocks.empty() || blank) {
      shared.emplace(field, value);
      continue;
    } else {
      blocks.back().fields.emplace(field, value);
    }
    blank = false;
  }
  for (auto& b : blocks)
    b.fields.insert(shared.begin(), shared.end());
  return blocks;
}

// Arm cores by implementer and part, as /proc/cpuinfo numbers them.
struct ArmCore {
  unsigned implementer, part;
  const char* name;
};
constexpr ArmCore kArmCores[] = {
    {0x41, 0xd03, "Cortex-A53"},   {0x41, 0xd04, "Cortex-A35"},  {0x41, 0xd05, "Cortex-A55"},
    {0x41, 0xd07, "Cortex-A57"},   {0x41, 0xd08, "Cortex-A72"},  {0x41, 0xd09, "Cortex-A73"},
    {0x41, 0xd0a, "Cortex-A75"},   {0x41, 0xd0b, "Cortex-A76"},  {0x41, 0xd0c, "Neoverse-N1"},
    {0x41, 0xd0d, "Cortex-A77"},   {0x41, 0xd40, "Neoverse-V1"}, {0x41, 0xd41, "Cortex-A78"},
    {0x41, 0xd44, "Cortex-X1"},    {0x41, 0xd46, "Cortex-A510"}, {0x41, 0xd47, "Cortex-A710"},
    {0x41, 0xd48, "Cortex-X2"},    {0x41, 0xd49, "Neoverse-N2"}, {0x41, 0xd4f, "Neoverse-V2"},
    {0x41, 0xd80, "Cortex-A520"},  {0x41, 0xd81, "Cortex-A720"}, {0x61, 0x022, "M1 Icestorm"},
    {0x61, 0x023, "M1 Firestorm"}, {0xc0, 0xac3, "Ampere-1"},
};
struct ArmVendor {
  unsigned implementer;
  const char* name;
};
constexpr ArmVendor kArmVendors[] = {
    {0x41, "ARM"}, {0x42, "Broadcom"}, {0x43, "Cavium"}, {0x48, "HiSilicon"}, {0x4e, "NVIDIA"},
    {0x50, "APM"}, {0x51, "Qualcomm"}, {0x61, "Apple"},  {0x6d, "Microsoft"}, {0xc0, "Ampere"},
};

std::string hexText(unsigned v, int digits) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%0*x", digits, v);
  return buf;
}

// "ARM Cortex-A72" from the implementer and part numbers of an Arm core.
std::optional<std::string> armCoreName(const CpuBlock& b) {
  const std::string *implementer = b.field("CPU implementer"), *part = b.field("CPU part");
  if (!implementer || !part) return std::nullopt;
  unsigned i = unsigned(std::strtoul(implementer->c_str(), nullptr, 0));
  unsigned p = unsigned(std::strtoul(part->c_str(), nullptr, 0));
  std::string vendor = "CPU implementer " + hexText(i, 2);
  for (const auto& v : kArmVendors) {
    if (v.implementer == i) vendor = v.name;
  }
  for (const auto& c : kArmCores) {
    if (c.implementer == i && c.part == p) return vendor + " " + c.name;
  }
  return vendor + " part " + hexText(p, 3);
}

// The processor's name: the model line where the architecture has one (x86 "model name", MIPS
// "cpu model", PowerPC "cpu", RISC-V "uarch"), else the Arm core by its numbers, else the line
// that older Arm kernels print above the blocks.
std::optional<std::string> processorName(const CpuBlock& b) {
  for (const char* f : {"model name", "cpu model", "cpu", "uarch"}) {
    if (const std::string* v = b.field(f)) return *v;
  }
  if (auto arm = armCoreName(b)) return arm;
  if (const std::string* v = b.field("Processor")) return *v;
  return std::nullopt;
}

// The processor's speed in MHz: "cpu MHz" (x86), "clock" (PowerPC, "2200.000000MHz"), else the
// highest speed of its cpufreq policy, given there in kHz.
std::optional<uint32_t> processorMHz(const CpuBlock& b) {
  for (const char* f : {"cpu MHz", "clock"}) {
    if (const std::string* v = b.field(f))
      return uint32_t(std::llround(std::strtod(v->c_str(), nullptr)));
  }
  std::string cpu = "/sys/devices/system/cpu/cpu" + b.number + "/cpufreq/";
  for (const char* f : {"cpuinfo_max_freq", "scaling_max_freq"}) {
    if (auto kHz = readSystemFile(cpu + f)) {
      if (!trimmed(*kHz).empty())
        return uint32_t(std::llround(std::strtod(kHz->c_str(), nullptr) / 1000));
    }
  }
  return std::nullopt;
}

// The key of one processor block of /proc/cpuinfo.
Key processorKey(const CpuBlock& b) {
  Key key;
  if (auto name = processorName(b)) key["processornamestring"] = textValue(*name);
  if (const std::string* vendor = b.field("vendor_id"))
    key["vendoridentifier"] = textValue(*vendor);
  if (auto mhz = processorMHz(b)) key["~mhz"] = dwordValue(*mhz);
  return key;
}

std::optional<Key> openKey(std::string_view subKey) {
  const std::string prefix = "hardware\\description\\system\\centralprocessor\\";
  std::string path = folded(subKey);
  if (path.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  std::string number = path.substr(prefix.size());
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  auto text = readSystemFile("/proc/cpuinfo");
  if (!text) return std::nullopt;
  std::vector<CpuBlock> blocks = cpuBlocks(*text);
  size_t n = std::strtoul(number.c_str(), nullptr, 10);
  if (n >= blocks.size()) return std::nullopt;
  // Only the processor asked for: the others' speeds may each cost reads in /sys.
  return processorKey(blocks[n]);
}

std::mutex gMutex;
std::map<HKEY, Key> gOpen;
HKEY gNext = 0x100;

}  // namespace

int32_t RegOpenKeyA(HKEY root, std::string_view subKey, HKEY* result) {
  *result = 0;
  if (root != HKEY_LOCAL_MACHINE) return ERROR_INVALID_HANDLE;
  auto key = openKey(subKey);
  if (!key) return ERROR_FILE_NOT_FOUND;
  std::lock_guard lock(gMutex);
  *result = gNext++;
  gOpen[*result] = std::move(*key);
  return ERROR_SUCCESS;
}

int32_t RegQueryValueExA(HKEY key, std::string_view name, uint32_t* type, uint8_t* data,
                         uint32_t* size) {
  std::lock_guard lock(gMutex);
  auto k = gOpen.find(key);
  if (k == gOpen.end()) return ERROR_INVALID_HANDLE;
  auto v = k->second.find(folded(name));
  if (v == k->second.end()) return ERROR_FILE_NOT_FOUND;
  const Value& value = v->second;
  if (type) *type = value.type;
  uint32_t room = size ? *size : 0;
  if (size) *size = uint32_t(value.bytes.size());
  if (!data) return ERROR_SUCCESS;
  if (room < value.bytes.size()) return ERROR_MORE_DATA;
  std::memcpy(data, value.bytes.data(), value.bytes.size());
  return ERROR_SUCCESS;
}

int32_t RegCloseKey(HKEY key) {
  std::lock_guard lock(gMutex);
  return gOpen.erase(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

}  // namespace zrk::platform
