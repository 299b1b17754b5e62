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

// The failure class, made in Python so that it is an ordinary exception with two fields.
constexpr const char* kFailureClass = R"(
class Failure(Exception):
    """A failure of an operation that does not trap its own: the runtime's number and words."""

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
  m.doc() =
      "zrkKVL from Python: INI settings, packed profiles, zlib strings and archives, file and "
      "text helpers, game memory, process lists, logs and reports, through one class, clsKVN.";
  m.attr("__version__") = std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor) +
                          "." + std::to_string(kVersionRevision);

  py::exec(kFailureClass, m.attr("__dict__"));
  m.attr("Failure").attr("__module__") = "zrkkvl";
  setFailureType(m.attr("Failure"));
  addButtonCodes(m);

  m.def(
      "to_bytes",
      [](py::handle text) {
        return translated([&] { return py::bytes(platform::toAnsi(textOf(text))); });
      },
      py::arg("text"),
      "The bytes of a byte-holding text (one character per byte, the library's code page); a "
      "character outside the code page becomes b\"?\".");
  m.def(
      "from_bytes",
      [](py::bytes data) { return strOf(platform::fromAnsi(std::string_view(data))); },
      py::arg("data"),
      "The byte-holding text of the bytes: one character per byte, through the library's code "
      "page, as file contents, zlib strings and process memory cross.");
  m.def("set_dialog_handler", &setDialogHandler, py::arg("handler"),
        "Answers the library's message boxes with handler(text, buttons, title), which gives the "
        "button pressed (OK, Cancel, Yes, ...); None from it, or an exception, takes the answer "
        "that changes nothing. set_dialog_handler(None) gives the library's own dialogs back. "
        "Forms, help and tooltips stay with the library's own dialogs.");
  m.def(
      "set_root_path",
      [](py::object root) {
        translated([&] {
          // A path object (pathlib) counts as its text.
          SetRootPath(textOf(py::module_::import("os").attr("fspath")(root)));
          return py::none();
        });
      },
      py::arg("root"),
      "Chooses the installation root for the program (ROOT: its ErrorLog.txt and settings), "
      "after the environment variable ZRKKVL_ROOT and before the main program's tree and the "
      "per-user root: call it before the thread's first instance. A thread already started "
      "keeps its RootPath (the settings and help it reads); the two logs look their path up at "
      "each write and follow the new choice. An empty text forgets the choice.");
  m.def(
      "CloseGameHandle",
      [](int32_t handle) {
        py::gil_scoped_release unlocked;
        return CloseGameHandle(handle);
      },
      py::arg("pHwnd"), "Releases a handle AttachToGame gave; False if it was no open handle.");
  m.def(
      "_call_names",
      [] {
        py::list names;
        for (const Text& n : CallTable::instance().names())
          names.append(strOf(n));
        return names;
      },
      "The names the library answers to in calls by name.");

  py::class_<Instance> cls(
      m, "clsKVN",
      "The library: every operation is a method of the same name and argument order. An "
      "instance is used on the thread that made it; each thread keeps its own library "
      "state, and Unload releases it. Each method's last words say how it meets a "
      "failure: \"Reports\" traps it, writes it to ErrorLog.txt in the root, shows the "
      "\"DLL Error!\" dialog and gives the empty result; \"Silent\" swallows it; "
      "\"Steps over\" goes on with the next step; \"Throws\" raises Failure with the "
      "runtime's number and words. Byte-holding text (file contents, zlib strings, "
      "process memory) is str of one character per byte: see to_bytes and from_bytes.");
  cls.def(py::init([] {
    py::gil_scoped_release unlocked;
    return std::make_unique<Instance>();
  }));
  cls.def("call", &callByName, py::arg("name"),
          "Calls an operation or public variable by name (any case), as plug-ins that bind late "
          "do. An operation with by-reference arguments gives (result, its by-reference "
          "arguments as left). An unknown name raises Failure 438, a wrong argument count 449 or "
          "450.");
#include "Methods.inc"

  // A handler left set would outlive the interpreter in the library's backend.
  py::module_::import("atexit").attr("register")(m.attr("set_dialog_handler"), py::none());
}
