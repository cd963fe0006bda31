#include "interpreter.hpp"

namespace zorvel::python {

py::object callFunction(py::handle function, py::handle argument) {
  PyObject* const result = stayingAtTheEnd(
      [&] { return PyObject_CallFunctionObjArgs(function.ptr(), argument.ptr(), nullptr); });
  if (result == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(result);
}

void throwIfInterrupted() {
  callPython([] {
    if (stayingAtTheEnd(PyErr_CheckSignals) != 0) throw py::error_already_set();
  });
}

void checkSignals(int /*descriptor*/) { throwIfInterrupted(); }

}  // namespace zorvel::python
