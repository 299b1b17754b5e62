// The registry stand-in: keys built from /proc/cpuinfo when opened, under numbered handles.
#include "platform/Registry.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include <zrkKVL/Text.h>
#include "platform/CodePage.h"
#include "platform/SystemQuery.h"

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

// One key per "processor" block of /proc/cpuinfo.
std::vector<Key> processorKeys() {
  std::vector<Key> keys;
  auto text = readSystemFile("/proc/cpuinfo");
  if (!text) return keys;
  std::istringstream in(*text);
  std::string line;
  while (std::getline(in, line)) {
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string field = trimmed(line.substr(0, colon)), value = trimmed(line.substr(colon + 1));
    if (field == "processor") {
      keys.emplace_back();
    } else if (keys.empty()) {
      continue;
    } else if (field == "model name") {
      keys.back()["processornamestring"] = textValue(value);
    } else if (field == "vendor_id") {
      keys.back()["vendoridentifier"] = textValue(value);
    } else if (field == "cpu MHz") {
      keys.back()["~mhz"] = dwordValue(uint32_t(std::llround(std::strtod(value.c_str(), nullptr))));
    }
  }
  return keys;
}

std::optional<Key> openKey(std::string_view subKey) {
  const std::string prefix = "hardware\\description\\system\\centralprocessor\\";
  std::string path = folded(subKey);
  if (path.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  std::string number = path.substr(prefix.size());
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  std::vector<Key> keys = processorKeys();
  size_t n = std::strtoul(number.c_str(), nullptr, 10);
  if (n >= keys.size()) return std::nullopt;
  return keys[n];
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
