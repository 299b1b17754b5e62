// Whether a process runs, and the list of running processes, by either of two strategies: the
// snapshot walk or the id list with each process's first module.
#include "process/ProcessEnumeration.h"

#include <cstring>
#include <optional>
#include <string_view>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "diagnostics/PlatformQueries.h"
#include "platform/process/Process.h"
#include "platform/process/ProcessList.h"

namespace zrk {
namespace {

using platform::HANDLE;

// Every account may see every process and its name, so a process is opened with the query right
// alone: asking to read its memory as well would leave out the processes of other accounts.
constexpr uint32_t kQuery = platform::PROCESS_QUERY_INFORMATION;
constexpr int32_t kSnapshotStrategy = 1, kModuleStrategy = 2;

// Closes a process handle or snapshot when it goes, also after a failure.
class ScopedHandle {
 public:
  explicit ScopedHandle(HANDLE h) : h_(h) {}
  ~ScopedHandle() {
    if (h_) platform::CloseHandle(h_);
  }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;
  HANDLE get() const { return h_; }

 private:
  HANDLE h_;
};

int32_t doubled(int32_t n) {
  if (n > INT32_MAX / 2) throw Failure(err::Overflow);
  return n * 2;
}

// Walks a snapshot of the process table until `visit` asks to stop; the snapshot is closed.
template <class Visit>
void walkSnapshot(Visit&& visit) {
  ScopedHandle snapshot(platform::CreateToolhelp32Snapshot(platform::TH32CS_SNAPPROCESS, 0));
  platform::PROCESSENTRY32 entry;
  entry.dwSize = sizeof entry;
  for (int32_t more = platform::Process32First(snapshot.get(), entry); more;
       more = platform::Process32Next(snapshot.get(), entry)) {
    if (visit(entry)) break;
  }
}

Text processName(const platform::PROCESSENTRY32& entry) {
  return fromUtf8(std::string_view(entry.szExeFile, strnlen(entry.szExeFile, platform::MAX_PATH)));
}

size_t lengthOf(const Variant& v) {
  return v.isEmpty() ? 0 : v.toText().size();
}

// Gives each process's name and id to `visit`, by the strategy `platformId` selects, in the
// platform's order; a name of the module strategy is a full path, of the snapshot a file name.
// Any other id selects neither. `frame` (may be null) is told the step under way.
template <class Visit>
void walkProcesses(int32_t platformId, MethodFrame* frame, Visit&& visit) {
  auto line = [frame](int32_t n) {
    if (frame) frame->line(n);
  };
  if (platformId == kModuleStrategy) {
    line(2);
    std::vector<uint32_t> ids = process::runningProcessIds();
    line(3);
    for (platform::NamedProcess& p : platform::firstModuleNames(ids))
      visit(fromUtf8(p.name), p.pid);
  } else if (platformId == kSnapshotStrategy) {
    line(2);
    walkSnapshot([&](const platform::PROCESSENTRY32& entry) {
      visit(processName(entry), entry.th32ProcessID);
      return false;
    });
  }
}

}  // namespace

namespace process {

std::vector<uint32_t> runningProcessIds() {
  platform::ProcessTableReading reading;  // every call of the loop sees one picture
  int32_t cb = 8;
  uint32_t needed = 96;
  std::vector<uint32_t> ids;
  while (int64_t(cb) <= int64_t(needed)) {
    cb = doubled(cb);
    ids.assign(size_t(cb) / 4 + 1, 0);  // index 0 is not used
    platform::EnumProcesses(ids.data() + 1, uint32_t(cb), needed);
  }
  size_t count = needed / 4;
  return std::vector<uint32_t>(ids.begin() + 1, ids.begin() + 1 + long(count));
}

std::vector<int32_t> processIdsNamed(TextView name) {
  std::vector<int32_t> ids;
  walkProcesses(diagnostics::GetPlatformId(), nullptr, [&](const Text& found, uint32_t id) {
    if (found == name) ids.push_back(int32_t(id));
  });
  return ids;
}

void appendToResultList(VariantArray& list, Text name) {
  if (list.items.empty() || lengthOf(list.items.back()) != 0) list.items.emplace_back();
  list.items.back() = Variant(std::move(name));
}

}  // namespace process

bool clsKVN::ProcessRunning(int32_t PROC_ID) {
  bool result = false;
  MethodFrame frame(u"ProcessRunning");
  frame.run([&] {
    const uint32_t wanted = uint32_t(PROC_ID);
    int32_t platformId = diagnostics::GetPlatformId();
    if (platformId == kModuleStrategy) {
      frame.line(1);
      std::vector<uint32_t> ids = process::runningProcessIds();
      frame.line(2);
      for (uint32_t id : ids) {
        ScopedHandle h(platform::OpenProcess(kQuery, 0, id));
        if (h.get() && id == wanted) {
          result = true;
          return;
        }
      }
    } else if (platformId == kSnapshotStrategy) {
      frame.line(1);
      walkSnapshot([&](const platform::PROCESSENTRY32& entry) {
        frame.line(2);
        return result = entry.th32ProcessID == wanted;
      });
    }
  });
  return result;
}

Variant clsKVN::GetRunningProcesses(Text* ProcName) {
  Variant result;
  MethodFrame frame(u"GetRunningProcesses");
  frame.run([&] {
    const Text wanted = ProcName ? *ProcName : Text();
    const bool byName = !wanted.empty();
    frame.line(1);
    VariantArray list;
    list.items.assign(1, Variant());
    std::optional<int32_t> found;
    walkProcesses(diagnostics::GetPlatformId(), &frame, [&](Text name, uint32_t id) {
      if (!byName) {
        process::appendToResultList(list, std::move(name));
      } else if (name == wanted) {
        found = int32_t(id);  // of several matches the last one stands
      }
    });
    frame.line(4);
    result = byName ? (found ? Variant(*found) : Variant()) : Variant(std::move(list));
  });
  return result;
}

static const CallRegistrar kProcessListCalls{
    {u"ProcessRunning", calls::method<&clsKVN::ProcessRunning>},
    {u"GetRunningProcesses", calls::method<&clsKVN::GetRunningProcesses>},
};

}  // namespace zrk
