// The Python module zrkkvl: the class with every operation, calls by name, the code page, the
// dialog handler, the root setter and the failure class.
#include <pybind11/eval.h>
#include <pybind11/pybind11.h>

#include <zrkKVL/DialogBackend.h>
#include <zrkKVL/GameHandle.h>
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "platform/text/CodePage.h"
#include "python/Binding.h"
#include "python/DialogHandler.h"
#include "python/Values.h"

namespace zrk::python {

namespace {

// The docstrings of what the module adds of its own, from its stub, in namespace docs.
#include "ModuleDocs.inc"

// The failure class, made in Python so that it is an ordinary exception with two fields.
constexpr const char* kFailureClass = R"(
class Failure(Exception):
    def __init__(self, number, description):
        super().__init__(number, description)
        self.number = number
        self.description = description

    def __str__(self):
        return f"Error {self.number}: {self.description}"
)";

// A call by name: the by-reference arguments given come back after the result, as the methods
// give them.
py::object callByName(Instance& self, py::handle name, py::args args) {
  return translated([&]() -> py::object {
    clsKVN& kvn = self.kvn();
    Text op = textOf(name);
    std::vector<Variant> values;
    for (py::handle a : args)
      values.push_back(variantOf(a));
    Variant result;
    {
      py::gil_scoped_release unlocked;
      result = kvn.CallByName(op, values);
    }
    auto slots = byReferenceSlots().find(lowerCase(op));
    if (slots == byReferenceSlots().end() || slots->second.empty()) return pythonOf(result);
    py::list out;
    out.append(pythonOf(result));
    for (size_t i : slots->second)
      out.append(i < values.size() ? pythonOf(values[i]) : py::none());
    return py::tuple(out);
  });
}

void addButtonCodes(py::module_& m) {
  namespace mb = platform::mb;
  for (auto [name, code] : {std::pair{"OKOnly", mb::OKOnly},
                            {"OKCancel", mb::OKCancel},
                            {"AbortRetryIgnore", mb::AbortRetryIgnore},
                            {"YesNoCancel", mb::YesNoCancel},
                            {"YesNo", mb::YesNo},
                            {"RetryCancel", mb::RetryCancel},
                            {"Critical", mb::Critical},
                            {"Question", mb::Question},
                            {"Exclamation", mb::Exclamation},
                            {"Information", mb::Information},
                            {"OK", mb::OK},
                            {"Cancel", mb::Cancel},
                            {"Abort", mb::Abort},
                            {"Retry", mb::Retry},
                            {"Ignore", mb::Ignore},
                            {"Yes", mb::Yes},
                            {"No", mb::No}}) {
    m.attr(name) = code;
  }
}

}  // namespace
}  // namespace zrk::python

PYBIND11_MODULE(zrkkvl, m) {
  using namespace zrk;
  using namespace zrk::python;
  m.doc() = docs::zrkkvl;
  m.attr("__version__") = std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor) +
                          "." + std::to_string(kVersionRevision);

  py::exec(kFailureClass, m.attr("__dict__"));
  m.attr("Failure").attr("__module__") = "zrkkvl";
  m.attr("Failure").attr("__doc__") = docs::Failure;
  setFailureType(m.attr("Failure"));
  addButtonCodes(m);

  m.def(
      "to_bytes",
      [](py::handle text) {
        return translated([&] { return py::bytes(platform::toAnsi(textOf(text))); });
      },
      py::arg("text"), docs::to_bytes);
  m.def(
      "from_bytes",
      [](py::bytes data) { return strOf(platform::fromAnsi(std::string_view(data))); },
      py::arg("data"), docs::from_bytes);
  m.def("set_dialog_handler", &setDialogHandler, py::arg("handler"), docs::set_dialog_handler);
  m.def(
      "set_root_path",
      [](py::object root) {
        translated([&] {
          // A path object (pathlib) counts as its text.
          SetRootPath(textOf(py::module_::import("os").attr("fspath")(root)));
          return py::none();
        });
      },
      py::arg("root"), docs::set_root_path);
  m.def(
      "CloseGameHandle",
      [](int32_t handle) {
        py::gil_scoped_release unlocked;
        return CloseGameHandle(handle);
      },
      py::arg("pHwnd"), docs::CloseGameHandle);
  m.def(
      "_call_names",
      [] {
        py::list names;
        for (const Text& n : CallTable::instance().names())
          names.append(strOf(n));
        return names;
      },
      "The names the library answers to in calls by name.");

  py::class_<Instance> cls(m, "clsKVN", docs::clsKVN);
  cls.def(py::init([] {
    py::gil_scoped_release unlocked;
    return std::make_unique<Instance>();
  }));
  cls.def("call", &callByName, py::arg("name"), docs::clsKVN_call);
#include "Methods.inc"

  // A handler left set would outlive the interpreter in the library's backend.
  py::module_::import("atexit").attr("register")(m.attr("set_dialog_handler"), py::none());
}
