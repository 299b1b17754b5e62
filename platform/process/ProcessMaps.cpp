// The memory map read from /proc/PID/maps, kept only when the process outlived the read.
#include "platform/process/ProcessMaps.h"

#include <charconv>
#include <fstream>
#include <sstream>

#include "platform/process/Process.h"
#include "platform/process/ProcessObject.h"

namespace zrk::platform {
namespace {

// The next field up to a blank, the blanks after it skipped.
std::string_view nextField(std::string_view& rest) {
  size_t blank = rest.find(' ');
  std::string_view field = rest.substr(0, blank);
  rest.remove_prefix(blank == std::string_view::npos ? rest.size() : blank);
  while (!rest.empty() && rest.front() == ' ')
    rest.remove_prefix(1);
  return field;
}

bool parseHex(std::string_view s, uint64_t& value) {
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value, 16);
  return !s.empty() && ec == std::errc() && end == s.data() + s.size();
}

}  // namespace

std::optional<MemoryMapping> parseMappingLine(std::string_view line) {
  // start-end perms offset dev inode [path]
  MemoryMapping m;
  std::string_view rest = line;
  std::string_view range = nextField(rest), perms = nextField(rest), offset = nextField(rest);
  std::string_view device = nextField(rest), inode = nextField(rest);
  size_t dash = range.find('-');
  if (dash == std::string_view::npos || !parseHex(range.substr(0, dash), m.start) ||
      !parseHex(range.substr(dash + 1), m.end) || perms.size() != 4 ||
      !parseHex(offset, m.offset) || device.find(':') == std::string_view::npos || inode.empty()) {
    return std::nullopt;
  }
  m.permissions = perms;
  m.path = rest;
  return m;
}

std::optional<std::vector<MemoryMapping>> ReadProcessMappings(HANDLE process) {
  auto p = HandleTable::instance().get<ProcessObject>(process);
  if (!p || !(p->access & PROCESS_QUERY_INFORMATION)) return std::nullopt;
  std::ifstream in("/proc/" + std::to_string(p->pid) + "/maps");
  std::stringstream whole;
  whole << in.rdbuf();
  if (!in || !p->alive()) return std::nullopt;
  std::vector<MemoryMapping> mappings;
  for (std::string line; std::getline(whole, line);) {
    if (auto m = parseMappingLine(line)) mappings.push_back(std::move(*m));
  }
  return mappings;
}

}  // namespace zrk::platform
