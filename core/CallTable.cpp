// The calls-by-name table and the library object's answer to a call by name.
#include "core/CallTable.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <shared_mutex>

#include <zrkKVL/clsKVN.h>

namespace zrk {
namespace {

Text folded(TextView name) {
  Text k(name);
  for (auto& c : k) {
    if (c >= u'a' && c <= u'z') c -= 32;
  }
  return k;
}

struct Table {
  std::shared_mutex mutex;
  // What the subsystems register at load time, entered into `entries` at the first use, so
  // that a program that calls nothing by name builds no map.
  std::vector<std::pair<TextView, CallFn>> pending;
  std::map<Text, std::pair<Text, CallFn>> entries;  // folded name -> (name, adapter)
};

Table& table() {
  static Table t;
  return t;
}

// The entries with every pending registration in; the caller holds the table's lock alone.
std::map<Text, std::pair<Text, CallFn>>& entered() {
  Table& t = table();
  for (const auto& [name, fn] : t.pending)
    t.entries[folded(name)] = {Text(name), fn};
  t.pending.clear();
  return t.entries;
}

// A failure's two fields as a late-bound object.
class FailureObject : public Dispatch {
 public:
  explicit FailureObject(FailureInfo info) : info_(std::move(info)) {}
  Variant invoke(TextView name, CallKind kind, std::vector<Variant>& args) override {
    bool let = kind == CallKind::Let || args.size() == 1;
    if (equalsNoCase(name, u"Number")) {
      if (let) info_.Number = args.at(0).toLong();
      return let ? Variant() : Variant(info_.Number);
    }
    if (equalsNoCase(name, u"Description")) {
      if (let) info_.Description = args.at(0).toText();
      return let ? Variant() : Variant(info_.Description);
    }
    throw Failure(err::NoSuchMember);
  }

 private:
  FailureInfo info_;
};

}  // namespace

CallTable& CallTable::instance() {
  static CallTable t;
  return t;
}

void CallTable::add(TextView name, CallFn fn) {
  std::unique_lock lock(table().mutex);
  entered()[folded(name)] = {Text(name), fn};
}

CallFn CallTable::replace(TextView name, CallFn fn) {
  std::unique_lock lock(table().mutex);
  auto& entries = entered();
  auto it = entries.find(folded(name));
  CallFn old = it == entries.end() ? nullptr : it->second.second;
  if (fn) {
    entries[folded(name)] = {Text(name), fn};
  } else if (it != entries.end()) {
    entries.erase(it);
  }
  return old;
}

CallFn CallTable::find(TextView name) const {
  auto lookup = [&](const std::map<Text, std::pair<Text, CallFn>>& entries) {
    auto it = entries.find(folded(name));
    return it == entries.end() ? nullptr : it->second.second;
  };
  {
    std::shared_lock lock(table().mutex);
    if (table().pending.empty()) return lookup(table().entries);
  }
  std::unique_lock lock(table().mutex);
  return lookup(entered());
}

std::vector<Text> CallTable::names() const {
  std::unique_lock lock(table().mutex);
  std::vector<Text> out;
  for (const auto& [key, entry] : entered())
    out.push_back(entry.first);
  return out;
}

CallRegistrar::CallRegistrar(std::initializer_list<std::pair<TextView, CallFn>> entries) {
  std::unique_lock lock(table().mutex);
  table().pending.insert(table().pending.end(), entries.begin(), entries.end());
}

Variant failureObject(const FailureInfo& info) {
  return Variant(std::shared_ptr<Dispatch>(std::make_shared<FailureObject>(info)));
}

FailureInfo failureFromObject(const Variant& v) {
  Dispatch& obj = v.object();
  return FailureInfo{getProperty(obj, u"Number").toLong(),
                     getProperty(obj, u"Description").toText()};
}

Variant clsKVN::invoke(TextView name, CallKind kind, std::vector<Variant>& args) {
  CallFn fn = CallTable::instance().find(name);
  if (!fn) throw Failure(err::NoSuchMember);
  return mapExceptions([&] { return fn(*this, kind, args); });
}

Variant clsKVN::CallByName(TextView name, std::vector<Variant>& args) {
  return invoke(name, CallKind::Method, args);
}

}  // namespace zrk
