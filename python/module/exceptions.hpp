#ifndef ZORVEL_PYTHON_EXCEPTIONS_HPP
#define ZORVEL_PYTHON_EXCEPTIONS_HPP

#include <optional>
#include <vector>

#include "inspection/findings.hpp"
#include "pybind.hpp"
#include "recording/failure.hpp"

namespace zorvel::python {

/// A failure as an exception object: an OSError, or a zorvel.DataError with the place.
py::object exceptionOf(const Failure& failure);

/// A failure that comes after a part of the work comes with what the part gave: a function returns
/// it as an exception object, or None, for the caller to raise.
py::object asException(const std::optional<Failure>& failure);

py::list warningsOf(const std::vector<Finding>& findings);

}  // namespace zorvel::python

#endif
