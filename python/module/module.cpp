#include "module.hpp"

#include <cerrno>
#include <zv/version.hpp>

namespace zorvel::python {
namespace {

/// Kept by the module.
PyObject* dataError = nullptr;

void setError(py::handle exception) {
  PyErr_SetObject(py::type::handle_of(exception).ptr(), exception.ptr());
}

void translate(std::exception_ptr exception) {
  try {
    std::rethrow_exception(std::move(exception));
  } catch (const Raised& raised) {
    translate(raised.exception);
  } catch (py::error_already_set& error) {
    error.restore();
  } catch (const Interrupted&) {
    setError(py::reinterpret_borrow<py::object>(PyExc_OSError)(EPIPE, "Broken pipe"));
  } catch (const Failure& failure) {
    setError(exceptionOf(failure));
  }
}

/// Refuses objects of the class that `__new__` alone has made. When such a one is first used,
/// memory for its value would be asked for, and nobody would write it.
void refuseWithoutValue(py::handle type) {
  auto* const bound =
      py::detail::get_type_info(reinterpret_cast<PyTypeObject*>(type.ptr()));  // NOLINT
  if (bound == nullptr) return;
  bound->operator_new = [](std::size_t) -> void* {
    throw py::type_error("the object has no value: __init__ was not called");
  };
}

}  // namespace

py::object exceptionOf(const Failure& failure) {
  const Place& place = failure.place();
  if (place.error != 0) {
    return py::reinterpret_borrow<py::object>(PyExc_OSError)(
        place.error, std::generic_category().message(place.error), fileName(place.file));
  }
  py::object exception = py::reinterpret_borrow<py::object>(dataError)(fileName(failure.what()));
  if (!place.file.empty()) exception.attr("file") = fileName(place.file);
  if (place.line != 0) exception.attr("line") = place.line;
  if (!place.key.empty()) exception.attr("key") = place.key;
  return exception;
}

}  // namespace zorvel::python

PYBIND11_MODULE(_zorvel, module) {
  using namespace zorvel::python;
  module.doc() = "What the package zorvel is made of.";
  static const py::exception<zorvel::Failure> error(module, "DataError", PyExc_ValueError);
  dataError = error.ptr();
  error.attr("__doc__") =
      "Something is wrong with the data. The text names the place; so do `file`, `line` (from 1) "
      "and `key`, the path to a value or the name of a column, each None where it is not known. "
      "`results` is what came of everything before it, if anything did.";
  for (const char* part : {"file", "line", "key", "results"}) error.attr(part) = py::none();
  py::register_exception_translator(&translate);
  module.attr("__version__") = ZV_VERSION;
  addObservation(module);
  addLive(module);
  addRecordings(module);
  for (const auto& [name, member] : module.attr("__dict__").cast<py::dict>()) {
    if (!py::isinstance<py::type>(member)) continue;
    member.attr("__module__") = "zorvel";  // where it is to be imported from
    refuseWithoutValue(member);
  }
}
