// Message boxes answered by a Python function, the rest of the dialogs left to the backend
// that was in use.
#pragma once

#include <pybind11/pybind11.h>

namespace zrk::python {

namespace py = pybind11;

// Makes handler(text, buttons, title) answer every message box; None gives the library's own
// dialogs back.
void setDialogHandler(py::object handler);

}  // namespace zrk::python
