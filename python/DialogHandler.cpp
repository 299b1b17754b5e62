// A dialog backend whose message boxes a Python function answers.
#include "python/DialogHandler.h"

#include <zrkKVL/DialogBackend.h>
#include "platform/desktop/Dialogs.h"
#include "python/Values.h"

namespace zrk::python {
namespace {

class PythonDialogs : public platform::WrappingDialogs {
 public:
  PythonDialogs(std::shared_ptr<DialogBackend> own, py::object handler)
      : WrappingDialogs(std::move(own)), handler_(std::move(handler)) {}
  ~PythonDialogs() override {
    // The last reference may go at exit, after the interpreter: the function is then left.
    if (!Py_IsInitialized()) {
      handler_.release();
      return;
    }
    py::gil_scoped_acquire gil;
    handler_ = py::object();
  }

  // The handler's answer; None, an exception (reported as unraisable) or a number that is no
  // answer takes the answer that changes nothing.
  int32_t messageBox(TextView text, int32_t buttons, TextView title) override {
    py::gil_scoped_acquire gil;
    try {
      py::object answer = handler_(strOf(text), buttons, strOf(title));
      if (!answer.is_none()) return answer.cast<int32_t>();
    } catch (py::error_already_set& e) {
      e.discard_as_unraisable(handler_);
    } catch (const std::exception& e) {
      PyErr_SetString(PyExc_TypeError, e.what());
      PyErr_WriteUnraisable(handler_.ptr());
    }
    return platform::safeAnswer(buttons);
  }

 private:
  py::object handler_;
};

}  // namespace

void setDialogHandler(py::object handler) {
  if (!handler.is_none() && !PyCallable_Check(handler.ptr())) {
    throw py::type_error(
        "set_dialog_handler: the handler is called as handler(text, buttons, "
        "title), or None gives the library's own dialogs back");
  }
  std::shared_ptr<platform::DialogBackend> current = platform::dialogBackend();
  if (auto* ours = dynamic_cast<PythonDialogs*>(current.get())) current = ours->inner();
  if (handler.is_none()) {
    platform::setDialogBackend(current);
  } else {
    platform::setDialogBackend(std::make_shared<PythonDialogs>(current, std::move(handler)));
  }
}

}  // namespace zrk::python
