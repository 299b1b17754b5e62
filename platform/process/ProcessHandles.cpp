// The handle table: a map from handle values to objects, under one mutex.
#include "platform/process/ProcessHandles.h"

#include <map>
#include <mutex>

#include <zrkKVL/Failure.h>

namespace zrk::platform {
namespace {

constexpr HANDLE kFirstHandle = 0x100;
constexpr HANDLE kStep = 4;  // handle values are multiples of 4, as the platform's are

struct Table {
  mutable std::mutex mutex;
  std::map<HANDLE, std::shared_ptr<HandleObject>> objects;
  HANDLE next = kFirstHandle;
};

Table& table() {
  static Table* t = new Table;  // lives to the very end, past static destructors that close
  return *t;
}

}  // namespace

HandleTable& HandleTable::instance() {
  static HandleTable instance;
  return instance;
}

HANDLE HandleTable::add(std::shared_ptr<HandleObject> object) {
  Table& t = table();
  std::lock_guard lock(t.mutex);
  // Values are used round the 32-bit range before one is given again; open ones are skipped.
  constexpr size_t kValues = (0x100000000ull - kFirstHandle) / kStep - 1;
  if (t.objects.size() >= kValues) throw Failure(err::OutOfMemory);
  while (t.objects.count(t.next)) {
    t.next += kStep;
    if (t.next < kFirstHandle || t.next == 0xFFFFFFFCu) t.next = kFirstHandle;
  }
  HANDLE h = t.next;
  t.objects.emplace(h, std::move(object));
  t.next += kStep;
  if (t.next < kFirstHandle || t.next == 0xFFFFFFFCu) t.next = kFirstHandle;
  return h;
}

std::shared_ptr<HandleObject> HandleTable::find(HANDLE h) const {
  Table& t = table();
  std::lock_guard lock(t.mutex);
  auto it = t.objects.find(h);
  return it == t.objects.end() ? nullptr : it->second;
}

bool HandleTable::close(HANDLE h) {
  std::shared_ptr<HandleObject> dropped;  // released outside the lock
  Table& t = table();
  std::lock_guard lock(t.mutex);
  auto it = t.objects.find(h);
  if (it == t.objects.end()) return false;
  dropped = std::move(it->second);
  t.objects.erase(it);
  return true;
}

size_t HandleTable::size() const {
  Table& t = table();
  std::lock_guard lock(t.mutex);
  return t.objects.size();
}

}  // namespace zrk::platform
