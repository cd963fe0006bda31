#include "conversions.hpp"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "interpreter.hpp"
#include "recording/time_unit.hpp"

namespace zorvel::python {
namespace {

constexpr std::int64_t second = 1'000'000'000;

std::string typeName(py::handle object) { return Py_TYPE(object.ptr())->tp_name; }

bool isNumpy(py::handle object, const char* name) { return typeName(object) == name; }

bool isBool(py::handle object) {
  return PyBool_Check(object.ptr()) || isNumpy(object, "numpy.bool_");
}

/// One in double precision: others are too coarse for a time.
bool isFloat(py::handle object) { return PyFloat_Check(object.ptr()) != 0; }

bool isInteger(py::handle object) {
  // An array has an index, too, when it has one number.
  return PyIndex_Check(object.ptr()) != 0 && !isBool(object) && !isNumpy(object, "numpy.ndarray");
}

/// A numpy.datetime64 or a numpy.timedelta64 in nanoseconds.
std::int64_t numpyNanoseconds(py::handle object, const std::string& type,
                              const std::string& place) {
  const auto countOf = [&](const char* unit) {
    return object.attr("astype")(type + unit).attr("astype")("int64").cast<std::int64_t>();
  };
  // NumPy wraps around where nanoseconds do not reach. "Not a time" is the lowest number.
  constexpr std::int64_t mostSeconds = latestTime.count() / second;
  try {
    const std::int64_t seconds = countOf("[s]");
    if (seconds == std::numeric_limits<std::int64_t>::min()) failValue(place, "is not a time");
    if (seconds <= mostSeconds && seconds >= -mostSeconds) return countOf("[ns]");
  } catch (const py::error_already_set&) {  // beyond NumPy's own range
  }
  failValue(place, "is out of range");
}

/// A timedelta, exactly.
std::int64_t timedeltaNanoseconds(py::handle delta, const std::string& place) {
  const auto days = delta.attr("days").cast<std::int64_t>();
  constexpr std::int64_t longest = 100'000;
  if (days > longest || days < -longest) failValue(place, "is out of range");
  return (days * 86'400 + delta.attr("seconds").cast<std::int64_t>()) * second +
         delta.attr("microseconds").cast<std::int64_t>() * 1'000;
}

std::int64_t secondsToNanoseconds(double seconds, const std::string& place) {
  const double count = std::nearbyint(seconds * 1e9);
  if (!(std::abs(count) <= static_cast<double>(latestTime.count()))) {
    failValue(place, "is out of range");
  }
  return static_cast<std::int64_t>(count);
}

py::object datetimeType(const char* name) { return py::module_::import("datetime").attr(name); }

std::int64_t inRange(std::int64_t count, const std::string& place) {
  if (count > latestTime.count() || count < -latestTime.count()) {
    failValue(place, "is out of range: times are from 1823 to 2116");
  }
  return count;
}

}  // namespace

void failType(const std::string& place, std::string_view message) {
  throw py::type_error(fmt::format("{}: {}", place, message));
}

void failValue(const std::string& place, std::string_view message) {
  throw py::value_error(fmt::format("{}: {}", place, message));
}

std::int64_t integerFrom(py::handle object, const std::string& place) {
  if (!isInteger(object)) {
    failType(place, "must be an integer, not " + typeName(object));
  }
  const auto number = py::reinterpret_steal<py::object>(
      stayingAtTheEnd([&] { return PyNumber_Index(object.ptr()); }));
  if (!number) {
    PyErr_Clear();
    failType(place, "must be an integer, not " + typeName(object));
  }
  int overflow = 0;
  const long long value = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
  if (overflow != 0) failValue(place, "is out of range");
  return value;
}

float floatFrom(py::handle object, const std::string& place) {
  double value = 0.0;
  if (PyFloat_CheckExact(object.ptr())) {
    value = PyFloat_AS_DOUBLE(object.ptr());
  } else {
    const bool isNumber = !isBool(object) && PyNumber_Check(object.ptr()) != 0;
    if (isNumber) value = stayingAtTheEnd([&] { return PyFloat_AsDouble(object.ptr()); });
    const bool isTooLarge = PyErr_ExceptionMatches(PyExc_OverflowError) != 0;
    if (!isNumber || (PyErr_Occurred() != nullptr && !isTooLarge)) {
      PyErr_Clear();
      failType(place, "must be a number, not " + typeName(object));
    }
    PyErr_Clear();
    if (isTooLarge) failValue(place, "is beyond the range of a 32-bit float");
  }
  const auto narrowed = static_cast<float>(value);
  if (std::isnan(narrowed)) failValue(place, "is not a number");
  if (std::isinf(narrowed)) failValue(place, "is beyond the range of a 32-bit float");
  return narrowed;
}

std::int32_t integer32From(py::handle object, const std::string& place) {
  using Limits = std::numeric_limits<std::int32_t>;
  const std::int64_t value = integerFrom(object, place);
  if (value < Limits::min() || value > Limits::max()) {
    failValue(place, fmt::format("must be from {} to {}", Limits::min(), Limits::max()));
  }
  return static_cast<std::int32_t>(value);
}

std::optional<std::int32_t> personFrom(py::handle object) {
  if (object.is_none()) return std::nullopt;
  return integer32From(object, "person");
}

std::int32_t samplesFrom(py::handle object) {
  if (object.is_none()) return StartRecording::unlimited;
  const std::int32_t samples = integer32From(object, "samples");
  if (samples < 0) failValue("samples", "must be 0 or more, or None for no limit");
  return samples;
}

std::string textFrom(py::handle object, const std::string& place) {
  if (!PyUnicode_Check(object.ptr())) failType(place, "must be a text, not " + typeName(object));
  Py_ssize_t size = 0;
  const char* const text = PyUnicode_AsUTF8AndSize(object.ptr(), &size);
  if (text == nullptr) {
    PyErr_Clear();
    failValue(place, "cannot be written in UTF-8");
  }
  return {text, static_cast<std::size_t>(size)};
}

Time timeFrom(py::handle object, const std::string& place) {
  std::int64_t count = 0;
  if (isFloat(object)) {
    count = secondsToNanoseconds(object.cast<double>(), place);
  } else if (isNumpy(object, "numpy.datetime64")) {
    count = numpyNanoseconds(object, "datetime64", place);
  } else if (isInteger(object)) {
    count = integerFrom(object, place);
    if (const auto unit = coarserUnit(count); !unit.empty()) {
      failValue(place, fmt::format("{} is a date in {}; an int is nanoseconds since 1970, and "
                                   "seconds are a float",
                                   count, unit));
    }
  } else if (py::isinstance(object, datetimeType("datetime"))) {
    if (object.attr("utcoffset")().is_none()) {
      failValue(place, "the datetime has no time zone, such as datetime.timezone.utc");
    }
    const py::object epoch = datetimeType("datetime")(
        1970, 1, 1, py::arg("tzinfo") = datetimeType("timezone").attr("utc"));
    count = timedeltaNanoseconds(object - epoch, place) +
            py::getattr(object, "nanosecond", py::int_(0)).cast<std::int64_t>();  // of pandas
  } else {
    failType(place,
             "must be a datetime, a numpy.datetime64, nanoseconds since 1970 as an int or "
             "seconds as a float, not " +
                 typeName(object));
  }
  return Time(Time::duration(inRange(count, place)));
}

Time::duration durationFrom(py::handle object, const std::string& place) {
  std::int64_t count = 0;
  if (isFloat(object)) {
    count = secondsToNanoseconds(object.cast<double>(), place);
  } else if (isNumpy(object, "numpy.timedelta64")) {
    count = numpyNanoseconds(object, "timedelta64", place);
  } else if (isInteger(object)) {
    count = integerFrom(object, place);
    constexpr std::int64_t millisecond = 1'000'000;
    if (count != 0 && std::abs(count) < millisecond) {
      failValue(place,
                fmt::format("{0} would be {0} ns; seconds are a float, such as {0}.0", count));
    }
  } else if (py::isinstance(object, datetimeType("timedelta"))) {
    count = timedeltaNanoseconds(object, place);
  } else {
    failType(place,
             "must be a timedelta, a numpy.timedelta64, nanoseconds as an int or seconds as "
             "a float, not " +
                 typeName(object));
  }
  return Time::duration(inRange(count, place));
}

std::string pathFrom(py::handle path) {
  PyObject* bytes = nullptr;
  if (stayingAtTheEnd([&] { return PyUnicode_FSConverter(path.ptr(), &bytes); }) == 0) {
    throw py::error_already_set();
  }
  const std::string name = py::reinterpret_steal<py::bytes>(bytes);
  // That name stands for standard input or output elsewhere.
  return name == "-" ? "./-" : name;
}

std::vector<std::string> pathsFrom(const py::list& paths) {
  std::vector<std::string> names;
  for (const py::handle path : paths) names.push_back(pathFrom(path));
  return names;
}

py::str fileName(const std::string& path) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size())));
}

}  // namespace zorvel::python
