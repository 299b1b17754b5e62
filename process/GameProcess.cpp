// Attaching to a game's process and reading strings and numbers from its memory.
#include <cstring>

#include <zrkKVL/GameHandle.h>
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/CodePage.h"
#include "platform/Process.h"

namespace zrk {
namespace {

constexpr uint32_t kTokenAccess = platform::TOKEN_ADJUST_PRIVILEGES | platform::TOKEN_QUERY;
constexpr size_t kStringRequest = 255;

// An address crosses the interface as 32 signed bits; the upper half arrives negative.
uint64_t addressOf(int32_t add) {
  return uint32_t(add);
}
platform::HANDLE handleOf(int32_t h) {
  return uint32_t(h);
}

// The buffer up to its first byte 0, each byte a character of the code page.
Text textUpToNul(const char* bytes, size_t size) {
  return platform::fromAnsi(std::string_view(bytes, strnlen(bytes, size)));
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
  return noTrap([&] {
    char buffer[kStringRequest + 1] = {};
    platform::ReadProcessMemory(handleOf(pHwnd), addressOf(hAdd), buffer, kStringRequest, nullptr);
    return textUpToNul(buffer, sizeof buffer);
  });
}

int32_t clsKVN::ReadLong(int32_t pHwnd, int32_t add) {
  return noTrap([&] {
    unsigned char bytes[4] = {};
    platform::ReadProcessMemory(handleOf(pHwnd), addressOf(add), bytes, sizeof bytes, nullptr);
    return int32_t(uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
                   uint32_t(bytes[3]) << 24);
  });
}

bool CloseGameHandle(int32_t pHwnd) {
  return platform::CloseHandle(handleOf(pHwnd)) != 0;
}

static const CallRegistrar kGameProcessCalls{
    {u"AttachToGame", calls::method<&clsKVN::AttachToGame>},
    {u"ReadStr", calls::method<&clsKVN::ReadStr>},
    {u"ReadLong", calls::method<&clsKVN::ReadLong>},
};

}  // namespace zrk
