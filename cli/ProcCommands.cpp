// proc: running processes, their memory maps and reads from their memory from the command line.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include <zrkKVL/GameHandle.h>
#include "cli/Command.h"
#include "cli/CommandLine.h"
#include "platform/process/Process.h"
#include "platform/process/ProcessAccess.h"
#include "platform/process/ProcessMaps.h"
#include "process/AddressText.h"
#include "process/ProcessEnumeration.h"

namespace zrk::cli {
namespace {

// A whole number in decimal or with a 0x prefix, kept to its low 32 bits; a usage error else.
int32_t number32(const Context& c, size_t index, const char* what) {
  const std::string& s = arg(c, index, what);
  char* end = nullptr;
  errno = 0;
  long long v = std::strtoll(s.c_str(), &end, 0);
  if (s.empty() || *end != '\0' || errno != 0 || v < INT32_MIN || v > int64_t(UINT32_MAX)) {
    throw UsageError{std::string(what) + " is not a 32-bit number: " + s};
  }
  return int32_t(uint32_t(v));
}

// Any 64-bit address, in hex with 0x or in decimal; a usage error else.
int64_t address64(const Context& c, size_t index) {
  const std::string& s = arg(c, index, "ADDRESS");
  std::optional<uint64_t> a = process::parseAddress(s);
  if (!a) throw UsageError{"ADDRESS is not a 64-bit address (0x... or decimal): " + s};
  return int64_t(*a);
}

// A handle of process PID, closed when it goes; says on stderr why the process can't be read.
class Attached {
 public:
  explicit Attached(Context& c) : pid_(number32(c, 0, "PID")) {
    handle_ = c.kvn.AttachToGame(pid_);
    if (!handle_) {
      std::string why = platform::whyUnreadable(uint32_t(pid_));
      std::fprintf(stderr, "zrkkvl: cannot read process %d%s%s\n", pid_, why.empty() ? "" : ": ",
                   why.c_str());
    }
  }
  ~Attached() {
    if (handle_) CloseGameHandle(handle_);
  }
  Attached(const Attached&) = delete;
  Attached& operator=(const Attached&) = delete;
  int32_t handle() const { return handle_; }

 private:
  int32_t pid_;
  int32_t handle_ = 0;
};

// Opens process PID, prints what `read` takes from ADDRESS in it, and closes the process. The
// library's reads cannot tell a failed read from memory that holds zeros, so the first `needed`
// bytes are read once beforehand: when they cannot be, the read fails with a message.
template <class Read>
int readFrom(Context& c, size_t needed, Read read) {
  int64_t address = address64(c, 1);
  Attached process(c);
  if (!process.handle()) return 1;
  char probe[4];
  size_t got = 0;
  platform::ReadProcessMemory(platform::HANDLE(uint32_t(process.handle())), uint64_t(address),
                              probe, needed, &got);
  if (got < needed) {
    std::fprintf(stderr, "zrkkvl: %s: cannot read memory at %s in process %s\n",
                 commandName(c.command).c_str(), c.args[1].c_str(), c.args[0].c_str());
    return 1;
  }
  printValue(read(process.handle(), address));
  return 0;
}

// A mapping as the system's map writes it, without the device and inode.
void printMapping(const platform::MemoryMapping& m) {
  std::printf("%08" PRIx64 "-%08" PRIx64 " %s %08" PRIx64 "%s%s\n", m.start, m.end,
              m.permissions.c_str(), m.offset, m.path.empty() ? "" : " ", m.path.c_str());
}

int list(Context& c) {
  Variant v = c.kvn.GetRunningProcesses();
  if (!v.isArray()) return 1;
  const VariantArray& a = v.array();
  for (int32_t i = a.lowerBound; i <= a.upperBound(); ++i) {
    Text name = a.at(i).isEmpty() ? Text() : a.at(i).toText();
    if (!name.empty()) printPath(name);
  }
  return 0;
}

int find(Context& c) {
  Text path = pathArg(c, 0, "PATH");
  if (path.empty()) throw UsageError{"PATH is empty"};
  std::vector<int32_t> ids = process::processIdsNamed(path);
  for (int32_t id : ids)
    printValue(decimal(id));
  return ids.empty() ? 1 : 0;
}

int running(Context& c) {
  return answer(c.kvn.ProcessRunning(number32(c, 0, "PID")));
}

// A string needs its first byte; whatever follows is read as far as the memory goes.
int readStr(Context& c) {
  return readFrom(c, 1, [&](int32_t h, int64_t address) { return c.kvn.ReadStr64(h, address); });
}

int readLong(Context& c) {
  return readFrom(
      c, 4, [&](int32_t h, int64_t address) { return decimal(c.kvn.ReadLong64(h, address)); });
}

int maps(Context& c) {
  Attached process(c);
  if (!process.handle()) return 1;
  auto mappings = platform::ReadProcessMappings(uint32_t(process.handle()));
  if (!mappings) {
    std::fprintf(stderr, "zrkkvl: the map of process %s cannot be read\n", c.args[0].c_str());
    return 1;
  }
  for (const platform::MemoryMapping& m : *mappings)
    printMapping(m);
  return 0;
}

int base(Context& c) {
  Text name = pathArg(c, 1, "NAME");
  Attached process(c);
  if (!process.handle()) return 1;
  int64_t address = c.kvn.GetModuleBase(process.handle(), name);
  if (!address) {
    std::fprintf(stderr, "zrkkvl: no module %s in process %s\n", c.args[1].c_str(),
                 c.args[0].c_str());
    return 1;
  }
  std::printf("0x%" PRIx64 "\n", uint64_t(address));
  return 0;
}

int symbol(Context& c) {
  Text module = pathArg(c, 1, "MODULE"), name = pathArg(c, 2, "SYMBOL");
  Attached process(c);
  if (!process.handle()) return 1;
  int64_t address = c.kvn.GetSymbolAddress(process.handle(), module, name);
  if (!address) {
    std::fprintf(stderr, "zrkkvl: no symbol %s in module %s of process %s\n", c.args[2].c_str(),
                 c.args[1].c_str(), c.args[0].c_str());
    return 1;
  }
  std::printf("0x%" PRIx64 "\n", uint64_t(address));
  return 0;
}

const CommandRegistrar kProc{
    {"proc", "list", "", "list the executables of the running processes of every user", list},
    {"proc", "find", "PATH", "print the id of every process running the executable PATH", find},
    {"proc", "running", "PID", "tell whether process PID runs, whoever runs it", running},
    {"proc", "read-str", "PID ADDRESS",
     "print the string at ADDRESS (0x hex or decimal, 64 bits) in process PID", readStr},
    {"proc", "read-long", "PID ADDRESS",
     "print the 32-bit number at ADDRESS (0x hex or decimal, 64 bits) in process PID", readLong},
    {"proc", "maps", "PID", "print the memory map of process PID: start-end, rights, offset, file",
     maps},
    {"proc", "base", "PID NAME",
     "print the load address of module NAME (file name or full path) in process PID", base},
    {"proc", "symbol", "PID MODULE SYMBOL",
     "print the address of variable or function SYMBOL of module MODULE in process PID", symbol},
};

}  // namespace
}  // namespace zrk::cli
