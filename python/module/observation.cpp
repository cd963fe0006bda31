#include <fmt/format.h>

#include <algorithm>
#include <boost/optional.hpp>
#include <optional>
#include <string>
#include <vector>

#include "conversions.hpp"
#include "fields.hpp"
#include "parts.hpp"
#include "value_class.hpp"

namespace zorvel::python {
namespace {

Time timeOf(py::handle nanoseconds) { return Time(Time::duration(nanoseconds.cast<Time::rep>())); }

TimedObservation observationOf(boost::optional<Time> time, const py::dict& fields) {
  TimedObservation made{{}, time};
  if (fields.empty()) return made;
  static const std::vector<std::string> names = fieldNames();
  const py::object self = py::cast(&made, py::return_value_policy::reference);
  for (const auto& [name, value] : fields) {
    if (std::find(names.begin(), names.end(), std::string(py::str(name))) == names.end()) {
      throw py::type_error(fmt::format("an observation has no {}", std::string(py::str(name))));
    }
    py::setattr(self, name, value);
  }
  return made;
}

/// The readings that there are, by field.
py::dict readingsOf(const TimedObservation& observation) {
  py::dict readings;
  const py::object self = py::cast(&observation, py::return_value_policy::reference);
  for (const std::string& name : fieldNames()) {
    const py::object reading = self.attr(name.c_str());
    if (!reading.is_none()) readings[name.c_str()] = reading;
  }
  return readings;
}

std::string describeReadings(const py::dict& readings) {
  std::string text = "Observation(";
  for (const auto& [name, reading] : readings) {
    text += fmt::format("{}{}={}", text.back() == '(' ? "" : ", ", std::string(py::str(name)),
                        std::string(py::repr(reading)));
  }
  return text + ")";
}

void bindReading(py::module_& module) {
  py::class_<Reading> bound(module, "Reading",
                            "A value of an observation with the time of its reading.");
  bound
      .def(py::init([](py::object value, py::handle time) {
             return Reading{std::move(value), timeFrom(time, "time")};
           }),
           py::arg("value"), py::arg("time"),
           "`value` is what the field takes. `time` is an aware datetime, a numpy.datetime64, an "
           "int of nanoseconds since 1970 or a float of seconds.")
      .def_readonly("value", &Reading::value, "The value, as plain numbers.")
      .def_property_readonly(
          "time", [](const Reading& reading) { return nanoseconds(reading.time); },
          "The time, in nanoseconds since 1970.")
      .def("__repr__", [](const Reading& reading) {
        return fmt::format("Reading({}, {})", std::string(py::repr(reading.value)),
                           nanoseconds(reading.time));
      });
  bindValue(
      bound, [](const Reading& of) { return py::make_tuple(of.value, nanoseconds(of.time)); },
      [](const py::tuple& plain) {
        return Reading{plain[0], timeOf(plain[1])};
      });
}

}  // namespace

void addObservation(py::module_& module) {
  bindReading(module);
  py::class_<TimedObservation> observation(
      module, "Observation",
      "What was perceived of one person in one perception cycle.\n\n"
      "A field that was not perceived is None. A field takes a plain value, which is read now or "
      "at the observation's `time`, or a Reading with a time of its own; what it gives is a "
      "Reading. Angles are in degrees, `distance` and `height` in metres; confidences are in "
      "[0, 1]. TypeError and ValueError name the field.");
  observation
      .def(py::init([](py::handle time, const py::kwargs& fields) {
             boost::optional<Time> of;
             if (!time.is_none()) of = timeFrom(time, "time");
             return observationOf(of, fields);
           }),
           py::kw_only(), py::arg("time") = py::none())
      .def_property(
          "time",
          [](const TimedObservation& of) -> std::optional<std::int64_t> {
            if (!of.time) return std::nullopt;
            return nanoseconds(*of.time);
          },
          [](TimedObservation& of, py::handle time) {
            of.time = time.is_none() ? boost::optional<Time>() : timeFrom(time, "time");
          },
          "The time of readings that are set without one, in nanoseconds since 1970; None for the "
          "moment in which they are set.")
      .def("__repr__", [](const TimedObservation& of) { return describeReadings(readingsOf(of)); });
  bindValue(
      observation,
      [](const TimedObservation& of) {
        std::optional<std::int64_t> time;
        if (of.time) time = nanoseconds(*of.time);
        return py::make_tuple(time, readingsOf(of));
      },
      [](const py::tuple& plain) {
        boost::optional<Time> time;
        if (!plain[0].is_none()) time = timeOf(plain[0]);
        return observationOf(time, plain[1]);
      });
  bindFields(observation);
}

}  // namespace zorvel::python
