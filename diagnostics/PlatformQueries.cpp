// Small queries about the platform: which operating system this is, where programs are
// installed, and the platform id.
#include "diagnostics/PlatformQueries.h"

#include <cstring>
#include <memory>
#include <optional>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "platform/system/SystemInfo.h"

namespace zrk {
namespace diagnostics {
constexpr size_t kPathBufferSize = 260;

namespace {

// Whether the first instance's product name holds `what`; false when the query can't be made.
bool productNameContains(TextView what) {
  bool result = false;
  std::optional<platform::OperatingSystemRecord> os;
  if (!trapSilently([&] { os = platform::queryOperatingSystem(); }) || !os) return false;
  trapSilently([&] {
    Text product = trimBlanks(os->Name.substr(0, os->Name.find(u'|')));
    result = lowerCase(std::move(product)).find(what) != Text::npos;
  });
  return result;
}

}  // namespace

int32_t GetPlatformId() {
  platform::OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = sizeof info;
  std::memset(info.szCSDVersion, ' ', sizeof info.szCSDVersion);
  platform::GetVersionExA(info);
  return int32_t(info.dwPlatformId);
}

}  // namespace diagnostics

bool clsKVN::IsVista() {
  return diagnostics::productNameContains(u"vista");
}

bool clsKVN::IsWindows7() {
  return diagnostics::productNameContains(u"windows 7");
}

Text clsKVN::GetProgramFilesFolder(int32_t oHwnd) {
  Text result;
  MethodFrame frame(u"GetProgramFilesFolder");
  frame.run([&] {
    frame.line(2);
    std::shared_ptr<platform::ITEMIDLIST> list;
    if (platform::SHGetSpecialFolderLocation(oHwnd, platform::CSIDL_PROGRAM_FILES, list) != 0) {
      return;
    }
    frame.line(3);
    std::string buffer(diagnostics::kPathBufferSize, ' ');
    if (!platform::SHGetPathFromIDListA(list.get(), buffer.data())) return;
    frame.line(4);
    result = fromUtf8(buffer.substr(0, buffer.find('\0')));
  });
  return result;
}

static const CallRegistrar kPlatformQueryCalls{
    {u"IsVista", calls::method<&clsKVN::IsVista>},
    {u"IsWindows7", calls::method<&clsKVN::IsWindows7>},
    {u"GetProgramFilesFolder", calls::method<&clsKVN::GetProgramFilesFolder>},
};

}  // namespace zrk
