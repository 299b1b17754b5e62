// proc: running processes and reads from a process's memory from the command line.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <zrkKVL/GameHandle.h>
#include "cli/Command.h"

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

// Opens process PID, prints what `read` takes from ADDRESS in it, and closes the process.
template <class Read>
int readFrom(Context& c, Read read) {
  int32_t pid = number32(c, 0, "PID"), address = number32(c, 1, "ADDRESS");
  int32_t handle = c.kvn.AttachToGame(pid);
  if (!handle) {
    std::fprintf(stderr, "zrkkvl: cannot open process %d\n", pid);
    return 1;
  }
  printLine(read(handle, address));
  CloseGameHandle(handle);
  return 0;
}

int list(Context& c) {
  Variant v = c.kvn.GetRunningProcesses();
  if (!v.isArray()) return 1;
  const VariantArray& a = v.array();
  for (int32_t i = a.lowerBound; i <= a.upperBound(); ++i) {
    Text name = a.at(i).isEmpty() ? Text() : a.at(i).toText();
    if (!name.empty()) printLine(name);
  }
  return 0;
}

int find(Context& c) {
  Text path = textArg(c, 0, "PATH");
  if (path.empty()) throw UsageError{"PATH is empty"};
  Variant id = c.kvn.GetRunningProcesses(&path);
  if (id.isEmpty()) return 1;
  printLine(id.toText());
  return 0;
}

int running(Context& c) {
  bool alive = c.kvn.ProcessRunning(number32(c, 0, "PID"));
  printLine(alive ? u"yes" : u"no");
  return alive ? 0 : 1;
}

int readStr(Context& c) {
  return readFrom(c, [&](int32_t h, int32_t address) { return c.kvn.ReadStr(h, address); });
}

int readLong(Context& c) {
  return readFrom(c,
                  [&](int32_t h, int32_t address) { return decimal(c.kvn.ReadLong(h, address)); });
}

const CommandRegistrar kProc{
    {"proc", "list", "", "list the executables of the running processes", list},
    {"proc", "find", "PATH", "print the id of the process running the executable PATH", find},
    {"proc", "running", "PID", "tell whether process PID runs", running},
    {"proc", "read-str", "PID ADDRESS", "print the string at ADDRESS in process PID", readStr},
    {"proc", "read-long", "PID ADDRESS", "print the 32-bit number at ADDRESS in process PID",
     readLong},
};

}  // namespace
}  // namespace zrk::cli
