#ifndef ZORVEL_PYTHON_FIELDS_HPP
#define ZORVEL_PYTHON_FIELDS_HPP

#include <boost/optional.hpp>
#include <string>
#include <vector>
#include <zv/person_observation.hpp>

#include "pybind.hpp"
#include "recording/event.hpp"

namespace zorvel::python {

/// An observation, with the time of those readings that are given without one.
struct TimedObservation {
  ZV::PersonObservation fields;
  boost::optional<Time> time;
};

/// A reading of an observation: its value in plain Python, and its time.
struct Reading {
  py::object value;
  Time time;
};

/// The names of an observation's fields in Python.
std::vector<std::string> fieldNames();

/// Gives an observation a property for each of them.
void bindFields(py::class_<TimedObservation>& observation);

}  // namespace zorvel::python

#endif
