#include "exceptions.hpp"

#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "conversions.hpp"
#include "interpreter.hpp"
#include "parts.hpp"

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

py::object asException(const std::optional<Failure>& failure) {
  return failure ? exceptionOf(*failure) : py::none();
}

py::list warningsOf(const std::vector<Finding>& findings) {
  py::list warnings;
  for (const Finding& finding : findings) {
    if (finding.isWarning) warnings.append(finding.text);
  }
  return warnings;
}

void addExceptions(py::module_& module) {
  static const py::exception<Failure> error(module, "DataError", PyExc_ValueError);
  dataError = error.ptr();
  error.attr("__doc__") =
      "Something is wrong with the data. The text names the place; so do `file`, `line` (from 1) "
      "and `key`, the path to a value or the name of a column, each None where it is not known. "
      "`results` is what came of everything before it, if anything did.";
  for (const char* part : {"file", "line", "key", "results"}) error.attr(part) = py::none();
  py::register_exception_translator(&translate);
}

}  // namespace zorvel::python
