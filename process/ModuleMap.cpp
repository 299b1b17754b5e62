// Finding a module's load address among a process's mappings.
#include "process/ModuleMap.h"

namespace zrk::process {
namespace {

constexpr std::string_view kDeleted = " (deleted)";

std::string_view withoutDeletedMark(std::string_view path) {
  if (path.ends_with(kDeleted)) path.remove_suffix(kDeleted.size());
  return path;
}

bool sameName(std::string_view path, std::string_view name) {
  if (name.find('/') != std::string_view::npos) return path == name;
  size_t slash = path.rfind('/');
  return slash != std::string_view::npos && path.substr(slash + 1) == name;
}

}  // namespace

bool isModule(const platform::MemoryMapping& mapping, std::string_view name) {
  if (name.empty() || mapping.path.empty() || mapping.path.front() != '/') return false;
  return sameName(mapping.path, name) || sameName(withoutDeletedMark(mapping.path), name);
}

std::optional<platform::MemoryMapping> moduleMapping(
    const std::vector<platform::MemoryMapping>& mappings, std::string_view name) {
  const platform::MemoryMapping* found = nullptr;
  for (const platform::MemoryMapping& m : mappings) {
    if (m.offset == 0 && isModule(m, name) && (!found || m.start < found->start)) found = &m;
  }
  if (!found) return std::nullopt;
  return *found;
}

uint64_t loadedAddress(uint64_t base, uint64_t fileBase, uint64_t symbol) {
  return base - fileBase + symbol;  // wraps as the loader's own arithmetic does
}

}  // namespace zrk::process
