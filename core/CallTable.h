// Calls by name: one table from operation names (any case) to adapters that turn Variant
// arguments into a method call and write by-reference arguments back.
#pragma once

#include <initializer_list>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Variant.h>

namespace zrk {

class clsKVN;

using CallFn = Variant (*)(clsKVN&, Dispatch::CallKind, std::vector<Variant>&);

class CallTable {
 public:
  static CallTable& instance();
  void add(TextView name, CallFn fn);
  // Replaces an entry (or removes it, for nullptr) and gives the one it held; for tests and hosts
  // that stand in for an operation.
  CallFn replace(TextView name, CallFn fn);
  CallFn find(TextView name) const;
  std::vector<Text> names() const;
};

// Subsystems register their operations with a static instance of this. The names are string
// literals: the table keeps them as they are until the first call by name.
struct CallRegistrar {
  CallRegistrar(std::initializer_list<std::pair<TextView, CallFn>> entries);
};

// A FailureInfo as an object with Number and Description, for calls by name.
Variant failureObject(const FailureInfo& info);
FailureInfo failureFromObject(const Variant& v);

namespace calls {

// How one parameter type is taken from, and written back to, its Variant (null when omitted).
template <class P>
struct Param;

template <class T>
T fromVariant(const Variant& v);
template <>
inline Text fromVariant<Text>(const Variant& v) {
  return v.toText();
}
template <>
inline int32_t fromVariant<int32_t>(const Variant& v) {
  return v.toLong();
}
template <>
inline int16_t fromVariant<int16_t>(const Variant& v) {
  return v.toInteger();
}
template <>
inline bool fromVariant<bool>(const Variant& v) {
  return v.toBool();
}
template <>
inline double fromVariant<double>(const Variant& v) {
  return v.toDouble();
}
template <>
inline Variant fromVariant<Variant>(const Variant& v) {
  return v;
}
template <>
inline FailureInfo fromVariant<FailureInfo>(const Variant& v) {
  return failureFromObject(v);
}

inline const Variant& required(const Variant* v) {
  if (!v) throw Failure(err::ArgumentNotOptional);
  return *v;
}

template <class T>
struct Param {  // by value
  using Store = T;
  static Store load(Variant* v) { return fromVariant<T>(required(v)); }
  static T&& pass(Store& s) { return std::move(s); }
  static void writeBack(Store&, Variant*) {}
};

template <class T>
struct Param<T&> {  // by reference
  using Store = T;
  static Store load(Variant* v) { return fromVariant<T>(required(v)); }
  static T& pass(Store& s) { return s; }
  static void writeBack(Store& s, Variant* v) { *v = Variant(s); }
};

// Stands for an object argument whose value holds none: every use fails as taking the object from
// that value fails, so the method's own frame reports it at the first step that touches it.
class NoObject : public Dispatch {
 public:
  explicit NoObject(int32_t number) : number_(number) {}
  int32_t number() const { return number_; }
  Variant invoke(TextView, CallKind, std::vector<Variant>&) override { throw Failure(number_); }

 private:
  int32_t number_;
};

template <>
struct Param<Dispatch&> {  // an object
  struct Store {
    Dispatch* object = nullptr;
    std::optional<NoObject> none;
  };
  static Store load(Variant* v) {
    const Variant& value = required(v);
    Store s;
    try {
      s.object = &value.object();
    } catch (const Failure& f) {
      s.none.emplace(f.number());
    }
    return s;
  }
  static Dispatch& pass(Store& s) { return s.object ? *s.object : *s.none; }
  static void writeBack(Store&, Variant*) {}
};

template <class T>
struct Param<std::optional<T>> {  // optional by value
  using Store = std::optional<T>;
  static Store load(Variant* v) {
    if (!v) return std::nullopt;
    return fromVariant<T>(*v);
  }
  static Store&& pass(Store& s) { return std::move(s); }
  static void writeBack(Store&, Variant*) {}
};

template <class T>
struct Param<T*> {  // optional by reference
  using Store = std::optional<T>;
  static Store load(Variant* v) {
    if (!v) return std::nullopt;
    return fromVariant<T>(*v);
  }
  static T* pass(Store& s) { return s ? &*s : nullptr; }
  static void writeBack(Store& s, Variant* v) {
    if (v && s) *v = Variant(*s);
  }
};

template <class R, class... P, size_t... I>
Variant invokeMethod(clsKVN& self, R (clsKVN::*method)(P...), std::vector<Variant>& args,
                     std::index_sequence<I...>) {
  if (args.size() > sizeof...(P)) throw Failure(err::WrongArgumentCount);
  auto arg = [&](size_t i) { return i < args.size() ? &args[i] : nullptr; };
  std::tuple<typename Param<P>::Store...> stores{Param<P>::load(arg(I))...};
  auto writeBack = [&] { (Param<P>::writeBack(std::get<I>(stores), arg(I)), ...); };
  // A method that fails keeps what it already did to its by-reference arguments.
  try {
    if constexpr (std::is_void_v<R>) {
      (self.*method)(Param<P>::pass(std::get<I>(stores))...);
      writeBack();
      return Variant();
    } else {
      R result = (self.*method)(Param<P>::pass(std::get<I>(stores))...);
      writeBack();
      return Variant(std::move(result));
    }
  } catch (...) {
    writeBack();
    throw;
  }
}

// The adapter for a method.
template <auto Method>
Variant method(clsKVN& self, Dispatch::CallKind, std::vector<Variant>& args) {
  return [&]<class R, class... P>(R (clsKVN::*m)(P...)) {
    return invokeMethod(self, m, args, std::index_sequence_for<P...>{});
  }(Method);
}

// The adapter for a public variable: read without arguments, write with one.
template <auto Member>
Variant variable(clsKVN& self, Dispatch::CallKind kind, std::vector<Variant>& args) {
  auto& field = self.*Member;
  using T = std::remove_reference_t<decltype(field)>;
  if (kind == Dispatch::CallKind::Let || args.size() == 1) {
    if (args.size() != 1) throw Failure(err::WrongArgumentCount);
    field = fromVariant<T>(args[0]);
    return Variant();
  }
  if (!args.empty()) throw Failure(err::WrongArgumentCount);
  return Variant(field);
}

}  // namespace calls

}  // namespace zrk
