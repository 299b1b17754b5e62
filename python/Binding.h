// Binding the class's methods and public variables: each Python argument turned into the C++
// parameter's type, the call made without the interpreter lock, the result and the by-reference
// arguments handed back.
#pragma once

#include <pybind11/pybind11.h>

#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "python/Values.h"

namespace zrk::python {

// One clsKVN, kept to the thread that made it: the library's state is per thread.
class Instance {
 public:
  Instance();
  // The library object, after checking that this is its thread (RuntimeError otherwise).
  clsKVN& kvn();

 private:
  std::unique_ptr<clsKVN> kvn_;
  std::thread::id owner_;
};

// The by-reference slots of each bound method, by lower-case name, for calls by name.
std::map<Text, std::vector<size_t>>& byReferenceSlots();

// A parameter's value from a Python argument: through the library's own Variant conversions,
// except a 64-bit address, which a Variant would round.
template <class T>
T valueOf(py::handle h) {
  if constexpr (std::is_same_v<T, int64_t>) {
    if (!py::isinstance<py::int_>(h) || py::isinstance<py::bool_>(h)) {
      double d = std::nearbyint(calls::fromVariant<double>(variantOf(h)));
      if (!(d >= -0x1p63 && d < 0x1p63)) throw Failure(err::Overflow);
      return int64_t(d);
    }
    int overflow = 0;
    long long n = PyLong_AsLongLongAndOverflow(h.ptr(), &overflow);
    if (overflow) throw Failure(err::Overflow);
    return n;
  } else {
    return calls::fromVariant<T>(variantOf(h));
  }
}

template <class T>
py::object pythonOfValue(const T& v) {
  if constexpr (std::is_same_v<T, Text>) {
    return strOf(v);
  } else if constexpr (std::is_same_v<T, Variant>) {
    return pythonOf(v);
  } else {
    return py::cast(v);
  }
}

// The value a parameter carries: T of T, T&, std::optional<T> and T*.
template <class P>
struct CarriedValue {
  using type = std::remove_pointer_t<std::remove_reference_t<P>>;
};
template <class T>
struct CarriedValue<std::optional<T>> {
  using type = T;
};

// How each kind of parameter is taken from Python and handed back; the call table's Param
// keeps it for the call and passes it to the method. None leaves out an optional one.
template <class P>
struct Slot {
  using Param = calls::Param<P>;
  using Store = typename Param::Store;
  using Value = typename CarriedValue<P>::type;
  static constexpr bool byReference = std::is_lvalue_reference_v<P> || std::is_pointer_v<P>;
  static constexpr bool optional = !std::is_same_v<Store, Value>;
  static Store load(py::handle h) {
    if constexpr (optional) {
      if (h.is_none()) return std::nullopt;
    }
    return valueOf<Value>(h);
  }
  static decltype(auto) pass(Store& s) { return Param::pass(s); }
  static py::object out(Store& s) {
    if constexpr (!byReference) {
      return py::none();
    } else if constexpr (optional) {
      return s ? pythonOfValue(*s) : py::none();
    } else {
      return pythonOfValue(s);
    }
  }
};

// A form or other object: its Variant stays alive for the call, and the call table's Param
// takes the object from it.
template <>
struct Slot<Dispatch&> {
  using Param = calls::Param<Dispatch&>;
  struct Store {
    Variant value;
    Param::Store object;
  };
  static constexpr bool byReference = false, optional = false;
  static Store load(py::handle h) {
    Store s{variantOf(h), {}};
    s.object = Param::load(&s.value);
    return s;
  }
  static Dispatch& pass(Store& s) { return Param::pass(s.object); }
  static py::object out(Store&) { return py::none(); }
};

template <class P>
auto argumentOf(const char* name) {
  if constexpr (Slot<P>::optional) {
    return py::arg_v(name, py::none(), "None");
  } else {
    return py::arg(name);
  }
}

template <size_t>
using PythonArgument = py::object;

// The result alone, or (result, by-reference arguments...) when the method has any.
template <class... P, class Stores, size_t... I>
py::object resultWith(py::object result, Stores& stores, std::index_sequence<I...>) {
  constexpr size_t byReference = (size_t(Slot<P>::byReference) + ... + 0);
  if constexpr (byReference == 0) {
    return result;
  } else {
    py::list out;
    out.append(result);
    ((Slot<P>::byReference ? out.append(Slot<P>::out(std::get<I>(stores))) : void()), ...);
    return py::tuple(out);
  }
}

template <auto Method, class Class, class R, class... P, size_t... I>
void bindMethodOf(Class& cls, const char* name, const std::array<const char*, sizeof...(P)>& names,
                  const char* doc, R (clsKVN::*)(P...), std::index_sequence<I...> seq) {
  std::vector<size_t>& slots = byReferenceSlots()[lowerCase(fromUtf8(name))];
  ((Slot<P>::byReference ? slots.push_back(I) : void()), ...);
  cls.def(
      name,
      [seq](Instance& self, PythonArgument<I>... args) -> py::object {
        return translated([&]() -> py::object {
          clsKVN& kvn = self.kvn();
          std::tuple<typename Slot<P>::Store...> stores{Slot<P>::load(args)...};
          py::object result = py::none();
          if constexpr (std::is_void_v<R>) {
            py::gil_scoped_release unlocked;
            (kvn.*Method)(Slot<P>::pass(std::get<I>(stores))...);
          } else {
            std::optional<R> value;
            {
              py::gil_scoped_release unlocked;
              value.emplace((kvn.*Method)(Slot<P>::pass(std::get<I>(stores))...));
            }
            result = pythonOfValue(*value);
          }
          return resultWith<P...>(std::move(result), stores, seq);
        });
      },
      argumentOf<P>(names[I])..., doc);
}

// Binds method `Method` under `name`, its arguments named by `names` (as many as it takes).
template <auto Method, class Class, size_t N>
void bindMethod(Class& cls, const char* name, const std::array<const char*, N>& names,
                const char* doc) {
  [&]<class R, class... P>(R (clsKVN::*m)(P...)) {
    static_assert(sizeof...(P) == N, "one name for each argument");
    bindMethodOf<Method>(cls, name, names, doc, m, std::index_sequence_for<P...>{});
  }(Method);
}

// Binds public variable `Member` as a property.
template <auto Member, class Class>
void bindVariable(Class& cls, const char* name, const char* doc) {
  using T = std::remove_reference_t<decltype(std::declval<clsKVN&>().*Member)>;
  cls.def_property(
      name, [](Instance& self) { return self.kvn().*Member; },
      [](Instance& self, py::handle value) {
        translated([&] {
          self.kvn().*Member = valueOf<T>(value);
          return py::object();
        });
      },
      doc);
}

}  // namespace zrk::python
