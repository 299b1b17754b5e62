// Attaching to a game's process and reading strings and numbers from its memory.
#include <cmath>
#include <cstring>

#include <zrkKVL/GameHandle.h>
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/process/Process.h"
#include "platform/process/ProcessMaps.h"
#include "platform/process/ProcessSymbols.h"
#include "platform/text/CodePage.h"
#include "process/AddressText.h"
#include "process/ModuleMap.h"

namespace zrk {
namespace {

constexpr uint32_t kTokenAccess = platform::TOKEN_ADJUST_PRIVILEGES | platform::TOKEN_QUERY;
constexpr size_t kStringRequest = 255;

// A 32-bit address crosses the interface as signed bits; the upper half arrives negative.
uint64_t addressOf(int32_t add) {
  return uint32_t(add);
}
uint64_t addressOf(int64_t add) {
  return uint64_t(add);
}
platform::HANDLE handleOf(int32_t h) {
  return uint32_t(h);
}

// The buffer up to its first byte 0, each byte a character of the code page.
Text textUpToNul(const char* bytes, size_t size) {
  return platform::fromAnsi(std::string_view(bytes, strnlen(bytes, size)));
}

Text readString(int32_t pHwnd, uint64_t address) {
  char buffer[kStringRequest + 1] = {};
  platform::ReadProcessMemory(handleOf(pHwnd), address, buffer, kStringRequest, nullptr);
  return textUpToNul(buffer, sizeof buffer);
}

int32_t readNumber(int32_t pHwnd, uint64_t address) {
  unsigned char bytes[4] = {};
  platform::ReadProcessMemory(handleOf(pHwnd), address, bytes, sizeof bytes, nullptr);
  return int32_t(uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
                 uint32_t(bytes[3]) << 24);
}

// The mapping where module `name` of the process is loaded.
std::optional<platform::MemoryMapping> loadedModule(int32_t pHwnd, const Text& name) {
  auto mappings = platform::ReadProcessMappings(handleOf(pHwnd));
  if (!mappings) return std::nullopt;
  return process::moduleMapping(*mappings, toUtf8(name));
}

}  // namespace

// A 64-bit address by name: a number, or text in hex ("0x...") or decimal, which keeps all 64
// bits where a Double would round them.
template <>
int64_t calls::fromVariant<int64_t>(const Variant& v) {
  if (v.kind() == Variant::Kind::Text) {
    if (std::optional<uint64_t> a = process::parseAddress(toUtf8(v.toText()))) return int64_t(*a);
  }
  double d = v.toDouble();
  if (!(d >= -0x1p63 && d < 0x1p63)) throw Failure(err::Overflow);
  return int64_t(std::nearbyint(d));
}

namespace {

// By name an address comes back as a Double, which holds every user-space address exactly.
Variant moduleBaseByName(clsKVN& self, Dispatch::CallKind, std::vector<Variant>& args) {
  if (args.size() > 2) throw Failure(err::WrongArgumentCount);
  if (args.size() < 2) throw Failure(err::ArgumentNotOptional);
  return Variant(double(self.GetModuleBase(args[0].toLong(), args[1].toText())));
}

Variant symbolAddressByName(clsKVN& self, Dispatch::CallKind, std::vector<Variant>& args) {
  if (args.size() > 3) throw Failure(err::WrongArgumentCount);
  if (args.size() < 3) throw Failure(err::ArgumentNotOptional);
  return Variant(
      double(self.GetSymbolAddress(args[0].toLong(), args[1].toText(), args[2].toText())));
}

Variant closeGameHandleByName(clsKVN&, Dispatch::CallKind, std::vector<Variant>& args) {
  if (args.size() > 1) throw Failure(err::WrongArgumentCount);
  if (args.empty()) throw Failure(err::ArgumentNotOptional);
  return Variant(CloseGameHandle(args[0].toLong()));
}

}  // namespace

int32_t clsKVN::AttachToGame(int32_t hProcessID) {
  int32_t result = 0;
  platform::HANDLE token = 0;
  MethodFrame frame(u"AttachToGame");
  frame.run([&] {
    using namespace platform;
    frame.line(1);
    if (!OpenProcessToken(GetCurrentProcess(), kTokenAccess, token)) {
      frame.line(8);
      if (token) CloseHandle(token);
      return;
    }
    frame.line(2);
    TOKEN_PRIVILEGES privileges;
    if (!LookupPrivilegeValueA(u"", u"SeDebugPrivilege", privileges.Luid)) {
      frame.line(8);
      CloseHandle(token);
      return;
    }
    frame.line(3);
    privileges.PrivilegeCount = 1;
    privileges.Attributes = SE_PRIVILEGE_ENABLED;
    frame.line(4);
    AdjustTokenPrivileges(token, 0, privileges, 0, nullptr, nullptr);
    frame.line(5);
    result = int32_t(OpenProcess(PROCESS_ALL_ACCESS, 0, uint32_t(hProcessID)));
    frame.line(6);
    privileges.Attributes = 0;
    AdjustTokenPrivileges(token, 0, privileges, 0, nullptr, nullptr);
    frame.line(7);
    CloseHandle(token);
  });
  return result;
}

Text clsKVN::ReadStr(int32_t pHwnd, int32_t hAdd) {
  return noTrap([&] { return readString(pHwnd, addressOf(hAdd)); });
}

int32_t clsKVN::ReadLong(int32_t pHwnd, int32_t add) {
  return noTrap([&] { return readNumber(pHwnd, addressOf(add)); });
}

Text clsKVN::ReadStr64(int32_t pHwnd, int64_t hAdd) {
  return noTrap([&] { return readString(pHwnd, addressOf(hAdd)); });
}

int32_t clsKVN::ReadLong64(int32_t pHwnd, int64_t add) {
  return noTrap([&] { return readNumber(pHwnd, addressOf(add)); });
}

int64_t clsKVN::GetModuleBase(int32_t pHwnd, Text ModuleName) {
  return noTrap([&] {
    std::optional<platform::MemoryMapping> module = loadedModule(pHwnd, ModuleName);
    return module ? int64_t(module->start) : int64_t(0);
  });
}

int64_t clsKVN::GetSymbolAddress(int32_t pHwnd, Text ModuleName, Text SymbolName) {
  return noTrap([&] {
    std::optional<platform::MemoryMapping> module = loadedModule(pHwnd, ModuleName);
    if (!module) return int64_t(0);
    auto symbol = platform::findModuleSymbol(handleOf(pHwnd), module->path, toUtf8(SymbolName));
    if (!symbol) return int64_t(0);
    return int64_t(process::loadedAddress(module->start, symbol->fileBase, symbol->value));
  });
}

bool CloseGameHandle(int32_t pHwnd) {
  return platform::CloseHandle(handleOf(pHwnd)) != 0;
}

static const CallRegistrar kGameProcessCalls{
    {u"AttachToGame", calls::method<&clsKVN::AttachToGame>},
    {u"ReadStr", calls::method<&clsKVN::ReadStr>},
    {u"ReadLong", calls::method<&clsKVN::ReadLong>},
    {u"ReadStr64", calls::method<&clsKVN::ReadStr64>},
    {u"ReadLong64", calls::method<&clsKVN::ReadLong64>},
    {u"GetModuleBase", moduleBaseByName},
    {u"GetSymbolAddress", symbolAddressByName},
    {u"CloseGameHandle", closeGameHandleByName},
};

}  // namespace zrk
