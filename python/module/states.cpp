#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "parts.hpp"
#include "playback/columns.hpp"
#include "state.hpp"
#include "value_class.hpp"

namespace zorvel::python {
namespace {

template <typename T>
void bindValueConfidence(py::module_& module, const char* name, const char* description) {
  using Pair = ZV::ValueConfidence<T>;
  py::class_<Pair> bound(module, name, description);
  bound.def_readonly("value", &Pair::value, "What was estimated.")
      .def_readonly("confidence", &Pair::confidence, "How certain that is, in [0, 1].")
      .def("__iter__",
           [](const Pair& pair) { return py::iter(py::make_tuple(pair.value, pair.confidence)); })
      .def("__repr__", [name](const Pair& pair) {
        return fmt::format("{}({}, {})", name, pair.value, pair.confidence);
      });
  bindValue(
      bound, [](const Pair& pair) { return py::make_tuple(pair.value, pair.confidence); },
      [](const py::tuple& plain) { return Pair(plain[0].cast<T>(), plain[1].cast<float>()); });
}

std::optional<std::vector<ZV::Force>> forcesOf(const State& state) {
  if (!state.isWatched) return std::nullopt;
  return state.forces;
}

/// The values of the parts, by name.
py::dict partsOf(const State& state) {
  py::dict parts;
  forEachLivePart(stateParts, [&](const auto& part) { parts[part.name] = part.value(state); });
  return parts;
}
py::dict partsOf(const ZV::Force& force) {
  py::dict parts;
  forEachLivePart(forcesColumns, [&](const auto& part) {
    parts[part.name] = part.value({0, force});
  });
  return parts;
}

py::tuple valuesOf(const py::dict& parts) { return py::tuple(parts.attr("values")()); }

State stateFrom(const py::tuple& plain) {
  static_assert(std::tuple_size_v<decltype(stateParts)> == 9,
                "a new part of a state is to be read here, too");
  State state;
  state.person = plain[0].cast<std::int32_t>();
  state.valence = plain[1].cast<ZV::ValueConfidence<float>>();
  state.mood = plain[2].cast<int>();
  state.cycleMood = plain[3].cast<ZV::ValueConfidence<int>>();
  state.attention = plain[4].cast<ZV::ValueConfidence<float>>();
  const auto ease = plain[5].cast<ZV::ValueConfidence<float>>();
  state.ease.level = ease.value;
  state.ease.confidence = ease.confidence;
  auto forces = plain[6].cast<std::optional<std::vector<ZV::Force>>>();
  state.isWatched = forces.has_value();
  if (forces) state.forces = std::move(*forces);
  return state;
}

ZV::Force forceFrom(const py::tuple& plain) {
  ZV::Force force{};
  const auto quantity = plain[0].cast<std::string>();
  while (nameOf(force.quantity) != quantity) {
    force.quantity = static_cast<ZV::Quantity>(static_cast<int>(force.quantity) + 1);
  }
  const auto reason = plain[1].cast<std::string>();
  const auto known = std::find_if(ZV::force_reasons::all.begin(), ZV::force_reasons::all.end(),
                                  [&](const ZV::ForceReason& of) { return of.name == reason; });
  if (known == ZV::force_reasons::all.end()) throw py::value_error("no reason is called " + reason);
  force.reason = known->name;
  force.target = plain[2].cast<float>();
  force.strength = plain[3].cast<float>();
  force.before = plain[4].cast<float>();
  force.after = plain[5].cast<float>();
  return force;
}

/// The numbers with three digits, as people read them.
std::string describeParts(std::string_view name, const py::dict& parts) {
  const auto number = [](py::handle value) {
    return PyFloat_Check(value.ptr()) ? fmt::format("{:.3f}", value.cast<double>())
                                      : std::string(py::repr(value));
  };
  std::string text(name);
  for (const auto& [part, value] : parts) {
    text +=
        fmt::format("{}{}=", text.size() == name.size() ? "(" : ", ", std::string(py::str(part)));
    if (py::hasattr(value, "confidence")) {
      text +=
          fmt::format("({}, {})", number(value.attr("value")), number(value.attr("confidence")));
    } else {
      text += number(value);
    }
  }
  return text + ")";
}

void bindForce(py::module_& module) {
  py::class_<ZV::Force> force(module, "Force",
                              "One change of a state: a move of `strength`, a fraction, of the "
                              "distance to a target.");
  forEachLivePart(forcesColumns, [&force](const auto& part) {
    force.def_property_readonly(
        part.name,
        [value = part.value](const ZV::Force& of) {
          return value({0, of});
        },
        part.meaning);
  });
  force.def("__repr__", [](const ZV::Force& of) { return describeParts("Force", partsOf(of)); });
  bindValue(
      force, [](const ZV::Force& of) { return valuesOf(partsOf(of)); }, &forceFrom);
}

}  // namespace

void addStates(py::module_& module) {
  bindValueConfidence<float>(module, "ValueConfidence",
                             "A value and how certain it is; unpacks like a tuple.");
  bindValueConfidence<int>(module, "LabelConfidence",
                           "A label, 1, 0 or -1, and how certain it is; unpacks like a tuple.");
  bindForce(module);

  py::class_<State> personState(
      module, "PersonState",
      "The state of a person after a cycle: plain values that stay as they are.");
  forEachLivePart(stateParts, [&personState](const auto& part) {
    personState.def_property_readonly(
        part.name, [value = part.value](const State& state) { return value(state); }, part.meaning);
  });
  personState
      .def_property_readonly(
          "forces", &forcesOf,
          "What moved the state in the cycle, in order; None unless it was asked for.")
      .def("__repr__",
           [](const State& state) { return describeParts("PersonState", partsOf(state)); })
      .def("_repr_html_", [](const State& state) {
        py::list rows;
        for (const auto& [part, value] : partsOf(state)) {
          const bool isSure = py::hasattr(value, "confidence");
          rows.append(isSure ? py::make_tuple(part, value.attr("value"), value.attr("confidence"))
                             : py::make_tuple(part, value, ""));
        }
        return py::str(py::module_::import("zorvel.html")
                           .attr("table")(py::make_tuple("", "value", "confidence"), rows));
      });
  bindValue(
      personState,
      [](const State& state) {
        return py::tuple(valuesOf(partsOf(state)) + py::make_tuple(forcesOf(state)));
      },
      &stateFrom);
}

}  // namespace zorvel::python
