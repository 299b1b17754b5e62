// Symbol lookup in a process's module files.
#include "platform/process/ProcessSymbols.h"

#include "platform/process/ProcessObject.h"

namespace zrk::platform {

std::optional<ElfSymbol> findElfSymbol(const std::string& path, std::string_view name) {
  return ElfFile(path).symbol(name);
}

std::optional<ElfSymbol> findModuleSymbol(HANDLE process, const std::string& path,
                                          std::string_view name) {
  auto p = HandleTable::instance().get<ProcessObject>(process);
  if (!p || path.empty() || path.front() != '/') return std::nullopt;
  auto symbol = findElfSymbol("/proc/" + std::to_string(p->pid) + "/root" + path, name);
  if (!p->alive()) return std::nullopt;
  return symbol;
}

}  // namespace zrk::platform
