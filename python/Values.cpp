// Values between Python and the library, and Python objects as late-bound objects.
#include "python/Values.h"

#include <cstring>
#include <limits>
#include <memory>

namespace zrk::python {
namespace {

constexpr int32_t kInvalidPropertyIndex = 381;  // the runtime's "Invalid property array index"
constexpr int32_t kAutomationError = 440;       // an object failed in a way of its own

py::object& failureType() {
  // Kept for the life of the process: the class outlives every call that raises it.
  static py::object* type = new py::object();
  return *type;
}

// The key of `dict` or the attribute of `object` called `name`, matched exactly first and then
// without regard to case, as names are matched in calls by name.
std::optional<py::object> memberName(py::handle object, TextView name) {
  py::object wanted = strOf(name);
  bool isDict = py::isinstance<py::dict>(object);
  if (isDict ? object.cast<py::dict>().contains(wanted) : py::hasattr(object, wanted)) {
    return wanted;
  }
  py::object folded = wanted.attr("casefold")();
  py::object names = isDict ? py::object(object.cast<py::dict>().attr("keys")())
                            : py::object(py::module_::import("builtins").attr("dir")(object));
  for (py::handle n : names) {
    if (py::isinstance<py::str>(n) && n.attr("casefold")().equal(folded)) {
      return py::reinterpret_borrow<py::object>(n);
    }
  }
  return std::nullopt;
}

py::object memberOf(py::handle object, py::handle name) {
  if (py::isinstance<py::dict>(object)) return object.cast<py::dict>()[name];
  return object.attr(name);
}

// A failure for a Python error raised inside a call the library made: a zrkkvl.Failure keeps
// its number and words, any other error becomes 440 with Python's words.
Failure failureOfPythonError(py::error_already_set& e) {
  if (failureType() && e.matches(failureType())) {
    py::object value = e.value();
    return Failure(value.attr("number").cast<int32_t>(), textOf(value.attr("description")));
  }
  return Failure(kAutomationError, textOf(py::str(e.value())));
}

// A Python object answering calls by name: a dict through its keys, any other object through
// its attributes. A list value taken with one argument gives that item, and a missing
// ListCount beside a List gives the list's length, as a list control answers.
class PythonObject : public Dispatch {
 public:
  explicit PythonObject(py::object object) : object_(std::move(object)) {}
  ~PythonObject() override {
    py::gil_scoped_acquire gil;
    object_ = py::object();
  }
  const py::object& object() const { return object_; }

  Variant invoke(TextView name, CallKind kind, std::vector<Variant>& args) override {
    py::gil_scoped_acquire gil;
    try {
      return kind == CallKind::Let ? let(name, args) : get(name, kind, args);
    } catch (py::error_already_set& e) {
      throw failureOfPythonError(e);
    }
  }

 private:
  Variant let(TextView name, std::vector<Variant>& args) {
    if (args.size() != 1) throw Failure(err::WrongArgumentCount);
    py::object key = memberName(object_, name).value_or(strOf(name));
    if (py::isinstance<py::dict>(object_)) {
      object_.cast<py::dict>()[key] = pythonOf(args[0]);
    } else {
      py::setattr(object_, key, pythonOf(args[0]));
    }
    return Variant();
  }

  Variant get(TextView name, CallKind kind, std::vector<Variant>& args) {
    std::optional<py::object> key = memberName(object_, name);
    if (!key) {
      std::optional<py::object> list = memberName(object_, u"List");
      if (equalsNoCase(name, u"ListCount") && list && args.empty()) {
        return Variant(int32_t(py::len(memberOf(object_, *list))));
      }
      throw Failure(err::NoSuchMember);
    }
    py::object value = memberOf(object_, *key);
    if (args.empty()) return variantOf(value);
    if (py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value)) {
      if (args.size() != 1) throw Failure(err::WrongArgumentCount);
      int32_t i = args[0].toLong();
      if (i < 0 || size_t(i) >= py::len(value)) {
        throw Failure(kInvalidPropertyIndex, u"Invalid property array index");
      }
      return variantOf(value[py::int_(i)]);
    }
    if (kind == CallKind::Method && PyCallable_Check(value.ptr())) {
      py::tuple pyArgs(args.size());
      for (size_t i = 0; i < args.size(); ++i)
        pyArgs[i] = pythonOf(args[i]);
      return variantOf(value(*pyArgs));
    }
    throw Failure(err::WrongArgumentCount);
  }

  py::object object_;
};

}  // namespace

Text textOf(py::handle s) {
  if (!py::isinstance<py::str>(s)) throw Failure(err::TypeMismatch);
  py::object utf16 = py::reinterpret_steal<py::object>(
      PyUnicode_AsEncodedString(s.ptr(), "utf-16-le", "surrogatepass"));
  if (!utf16) throw py::error_already_set();
  char* data = nullptr;
  Py_ssize_t size = 0;
  PyBytes_AsStringAndSize(utf16.ptr(), &data, &size);
  Text t(size_t(size) / 2, u'\0');
  std::memcpy(t.data(), data, t.size() * 2);
  return t;
}

py::object strOf(TextView t) {
  int byteOrder = -1;  // little-endian, as the library's characters lie in memory
  PyObject* s = PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(t.data()),
                                      Py_ssize_t(t.size() * 2), "surrogatepass", &byteOrder);
  if (!s) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(s);
}

Variant variantOf(py::handle value) {
  if (value.is_none()) return Variant();
  if (py::isinstance<py::bool_>(value)) return Variant(value.cast<bool>());
  if (py::isinstance<py::int_>(value)) {
    int overflow = 0;
    long long n = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (!overflow && n >= std::numeric_limits<int32_t>::min() &&
        n <= std::numeric_limits<int32_t>::max()) {
      return Variant(int32_t(n));
    }
    double d = PyLong_AsDouble(value.ptr());
    if (d == -1.0 && PyErr_Occurred()) {
      PyErr_Clear();
      throw Failure(err::Overflow);
    }
    return Variant(d);
  }
  if (py::isinstance<py::float_>(value)) return Variant(value.cast<double>());
  if (py::isinstance<py::str>(value)) return Variant(textOf(value));
  if (py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value)) {
    VariantArray array;
    for (py::handle item : value)
      array.items.push_back(variantOf(item));
    return Variant(std::move(array));
  }
  if (py::isinstance<py::bytes>(value) || py::isinstance<py::bytearray>(value)) {
    throw Failure(err::TypeMismatch, u"Type mismatch: bytes pass as text through from_bytes()");
  }
  return Variant(std::shared_ptr<Dispatch>(
      std::make_shared<PythonObject>(py::reinterpret_borrow<py::object>(value))));
}

py::object pythonOf(const Variant& value) {
  switch (value.kind()) {
    case Variant::Kind::Empty:
      return py::none();
    case Variant::Kind::Text:
      return strOf(value.toText());
    case Variant::Kind::Integer:
    case Variant::Kind::Long:
      return py::int_(value.toLong());
    case Variant::Kind::Double:
      return py::float_(value.toDouble());
    case Variant::Kind::Boolean:
      return py::bool_(value.toBool());
    case Variant::Kind::Array: {
      py::list list;
      for (const Variant& item : value.array().items)
        list.append(pythonOf(item));
      return list;
    }
    case Variant::Kind::Object:
      if (auto* own = dynamic_cast<PythonObject*>(&value.object())) return own->object();
      break;
  }
  throw Failure(err::TypeMismatch, u"Type mismatch: an object of the library has no Python form");
}

void setFailureType(py::object type) {
  failureType() = std::move(type);
}

void raiseFailure(const FailureInfo& info) {
  Text description = info.Description.empty() ? defaultDescription(info.Number) : info.Description;
  py::object failure = failureType()(info.Number, strOf(description));
  PyErr_SetObject(failureType().ptr(), failure.ptr());
  throw py::error_already_set();
}

}  // namespace zrk::python
