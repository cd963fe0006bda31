#ifndef ZORVEL_PYTHON_CONVERSIONS_HPP
#define ZORVEL_PYTHON_CONVERSIONS_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pybind.hpp"
#include "recording/event.hpp"

namespace zorvel::python {

// Numbers from Python. Errors begin with `place`, which names the value.

[[noreturn]] void failType(const std::string& place, std::string_view message);
[[noreturn]] void failValue(const std::string& place, std::string_view message);
std::int64_t integerFrom(py::handle object, const std::string& place);
/// A finite number in single precision.
float floatFrom(py::handle object, const std::string& place);
std::int32_t integer32From(py::handle object, const std::string& place);
/// The number of a person; None for nobody in particular.
std::optional<std::int32_t> personFrom(py::handle object);
/// A number of samples; None for no limit.
std::int32_t samplesFrom(py::handle object);
/// A text that can be written in UTF-8.
std::string textFrom(py::handle object, const std::string& place);

// Times from Python: an aware datetime, a numpy.datetime64, nanoseconds since 1970 as an int, or
// seconds as a float. Lengths of time: a timedelta, a numpy.timedelta64, an int or a float.

Time timeFrom(py::handle object, const std::string& place);
Time::duration durationFrom(py::handle object, const std::string& place);

inline std::int64_t nanoseconds(Time time) { return time.time_since_epoch().count(); }

/// A path, as the system writes it, and the other way round.
std::string pathFrom(py::handle path);
std::vector<std::string> pathsFrom(const py::list& paths);
py::str fileName(const std::string& path);

}  // namespace zorvel::python

#endif
