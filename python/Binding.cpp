// The instance kept to its thread, and the by-reference slots of the bound methods.
#include "python/Binding.h"

namespace zrk::python {

Instance::Instance() : kvn_(std::make_unique<clsKVN>()), owner_(std::this_thread::get_id()) {}

clsKVN& Instance::kvn() {
  if (std::this_thread::get_id() != owner_) {
    PyErr_SetString(PyExc_RuntimeError,
                    "zrkkvl.clsKVN: an instance is used only on the thread that made it; make "
                    "one on each thread");
    throw py::error_already_set();
  }
  return *kvn_;
}

std::map<Text, std::vector<size_t>>& byReferenceSlots() {
  static std::map<Text, std::vector<size_t>> slots;
  return slots;
}

}  // namespace zrk::python
