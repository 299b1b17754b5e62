// Values between Python and the library: str <-> Text, Python objects <-> Variant, and the
// library's failures as zrkkvl.Failure.
#pragma once

#include <pybind11/pybind11.h>

#include <zrkKVL/Failure.h>
#include <zrkKVL/Variant.h>

namespace zrk::python {

namespace py = pybind11;

// str <-> UTF-16; a lone surrogate crosses either way as itself.
Text textOf(py::handle s);
py::object strOf(TextView t);

// None is empty, bool a Boolean, int a Long (a Double past 32 bits), float a Double, str a
// Text, list and tuple an array with lower bound 0; any other object answers calls by name
// through its keys (a dict) or attributes. bytes and other unconvertible values are failure 13.
Variant variantOf(py::handle value);
// The reverse; an array becomes a list, an object the Python object it came from.
py::object pythonOf(const Variant& value);

// Sets the zrkkvl.Failure class that failures raise, once the module has made it.
void setFailureType(py::object type);
// Raises zrkkvl.Failure for the failure: the Python error is set and error_already_set thrown.
[[noreturn]] void raiseFailure(const FailureInfo& info);
// Runs `body`, letting Python's own errors through and raising every other exception as
// zrkkvl.Failure, so that nothing else of the library reaches Python.
template <class Body>
py::object translated(Body&& body) {
  FailureInfo info;
  try {
    return body();
  } catch (const py::error_already_set&) {
    throw;
  } catch (const py::builtin_exception&) {
    throw;
  } catch (...) {
    info = infoFromCurrentException();
  }
  raiseFailure(info);
}

}  // namespace zrk::python
