#ifndef ZORVEL_PYTHON_MODULE_HPP
#define ZORVEL_PYTHON_MODULE_HPP

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <boost/optional.hpp>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <zv/person_observation.hpp>

#include "recording/event.hpp"
#include "recording/failure.hpp"

namespace zorvel::python {

namespace py = pybind11;

/// An observation, with the time of those readings that are given without one.
struct TimedObservation {
  ZV::PersonObservation fields;
  boost::optional<Time> time;
};

/// Something raised in Python, on its way through code that takes every std::exception for a
/// failure of its own.
struct Raised {
  std::exception_ptr exception;
};

/// Runs `call`, with the interpreter's lock; what it raises comes as Raised.
template <typename Call>
auto callPython(Call call) {
  const py::gil_scoped_acquire lock;
  try {
    return call();
  } catch (...) {
    throw Raised{std::current_exception()};
  }
}

/// Runs `work` without the interpreter's lock; what was raised inside comes out as it was.
template <typename Work>
auto withoutLock(Work work) {
  try {
    const py::gil_scoped_release unlocked;
    return work();
  } catch (const Raised& raised) {
    std::rethrow_exception(raised.exception);
  }
}

// Numbers from Python. What is wrong is said with `place`, which names the value.

[[noreturn]] void failType(const std::string& place, std::string_view message);
[[noreturn]] void failValue(const std::string& place, std::string_view message);
std::int64_t integerFrom(py::handle object, const std::string& place);
/// A finite number in single precision.
float floatFrom(py::handle object, const std::string& place);
std::int32_t integer32From(py::handle object, const std::string& place);

// Times from Python: an aware datetime, a numpy.datetime64, nanoseconds since 1970 as an int, or
// seconds as a float. Lengths of time: a timedelta, a numpy.timedelta64, an int or a float.

Time timeFrom(py::handle object, const std::string& place);
Time::duration durationFrom(py::handle object, const std::string& place);

inline std::int64_t nanoseconds(Time time) { return time.time_since_epoch().count(); }

/// A path, as the system writes it.
std::string pathFrom(py::handle path);

/// A failure as an exception object: an OSError, or a zorvel.DataError with the place.
py::object exceptionOf(const Failure& failure);

// What the module consists of.

void addObservation(py::module_& module);
void addLive(py::module_& module);
void addRecordings(py::module_& module);

}  // namespace zorvel::python

#endif
