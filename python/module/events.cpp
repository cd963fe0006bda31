#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "conversions.hpp"
#include "fields.hpp"
#include "parts.hpp"
#include "recording/event.hpp"
#include "recording/event_reader.hpp"
#include "recording/json_line.hpp"
#include "recording/recording_writer.hpp"
#include "recording/saved_state.hpp"
#include "value_class.hpp"

namespace zorvel::python {
namespace {

Event eventAt(py::handle time, Event::What what) {
  return Event{timeFrom(time, "time"), std::move(what)};
}

/// Of persons.
void bindPersonKinds(py::class_<Event>& event) {
  const auto time = py::arg("time");
  const auto person = py::arg("person");
  event
      .def_static(
          "observation",
          [](py::handle at, py::handle id, const TimedObservation& observation) {
            return eventAt(at, Observation{integer32From(id, "person"), observation.fields});
          },
          time, person, py::arg("observation"), "A cycle in which a person was perceived.")
      .def_static(
          "not_seen",
          [](py::handle at, py::handle id) {
            return eventAt(at, NotSeen{integer32From(id, "person")});
          },
          time, person, "A cycle in which a person was not perceived.")
      .def_static(
          "remove",
          [](py::handle at, py::handle id) {
            return eventAt(at, Remove{integer32From(id, "person")});
          },
          time, person, "The person is forgotten.")
      .def_static(
          "restore",
          [](py::handle at, std::string state, py::handle id) {
            std::optional<std::int32_t> of;
            if (!id.is_none()) of = integer32From(id, "person");
            try {
              JsonLine json;
              return eventAt(at, readState(json.parse(state), of));
            } catch (const JsonError& error) {
              throw py::value_error(fmt::format("state: {}", error.what()));
            }
          },
          time, py::arg("state"), py::arg("person") = py::none(),
          "The person, or without one the room, goes on from a saved state.")
      .def_static(
          "rename",
          [](py::handle at, py::handle id, py::handle other) {
            return eventAt(at, Rename{integer32From(id, "person"), integer32From(other, "to")});
          },
          time, person, py::arg("to"), "The person goes on as another number.");
}

/// Of scopes, and of the room.
void bindScopeAndRoomKinds(py::class_<Event>& event) {
  const auto time = py::arg("time");
  const auto person = py::arg("person");
  const auto scope = py::arg("scope");
  event
      .def_static(
          "start_recording",
          [](py::handle at, py::handle id, py::handle name, py::handle samples) {
            return eventAt(at, StartRecording{integer32From(id, "person"), textFrom(name, "scope"),
                                              samplesFrom(samples)});
          },
          time, person, scope, py::arg("samples") = py::none(),
          "A scope opens, for so many cycles; None for no limit.")
      .def_static(
          "stop_recording",
          [](py::handle at, py::handle id, py::handle name) {
            return eventAt(at, StopRecording{integer32From(id, "person"), textFrom(name, "scope")});
          },
          time, person, scope, "A scope closes.")
      .def_static(
          "movement", [](py::handle at) { return eventAt(at, Movement{}); }, time,
          "Something moved in the room.")
      .def_static(
          "activity",
          [](py::handle at, py::handle value) {
            return eventAt(at, Activity{floatFrom(value, "value")});
          },
          time, py::arg("value"), "A measurement of the room's activity.");
}

void bindMembers(py::class_<Event>& bound) {
  bound
      .def_property_readonly(
          "kind", [](const Event& event) { return eventNames.at(event.what.index()); },
          "The name of the event, as recordings have it.")
      .def_property_readonly(
          "time", [](const Event& event) { return nanoseconds(event.time); },
          "In nanoseconds since 1970.")
      .def_property_readonly("line", &eventLine,
                             "The event as a line of a recording, with its end.")
      .def_property_readonly("person", &personOf, "The person that it is about.")
      .def_property_readonly(
          "to",
          [](const Event& event) -> std::optional<std::int32_t> {
            const auto* rename = std::get_if<Rename>(&event.what);
            if (rename == nullptr) return std::nullopt;
            return rename->to;
          },
          "The number that a renamed person goes on as.")
      .def_property_readonly(
          "fields",
          [](const Event& event) -> std::optional<TimedObservation> {
            const auto* observation = std::get_if<Observation>(&event.what);
            if (observation == nullptr) return std::nullopt;
            return TimedObservation{observation->fields, event.time};
          },
          "A copy of what was observed.")
      .def_property_readonly(
          "scope",
          [](const Event& event) -> std::optional<std::string> {
            if (const auto* start = std::get_if<StartRecording>(&event.what)) return start->scope;
            if (const auto* stop = std::get_if<StopRecording>(&event.what)) return stop->scope;
            return std::nullopt;
          },
          "The scope that opens or closes.")
      .def_property_readonly(
          "state",
          [](const Event& event) -> std::optional<std::string> {
            const auto* restore = std::get_if<Restore>(&event.what);
            if (restore == nullptr) return std::nullopt;
            return stateText(*restore);
          },
          "The state that is restored, as JSON.")
      .def_property_readonly(
          "samples",
          [](const Event& event) -> std::optional<std::int32_t> {
            const auto* start = std::get_if<StartRecording>(&event.what);
            if (start == nullptr || start->samples < 0) return std::nullopt;
            return start->samples;
          },
          "How many cycles the scope takes.")
      .def_property_readonly(
          "value",
          [](const Event& event) -> std::optional<float> {
            const auto* activity = std::get_if<Activity>(&event.what);
            if (activity == nullptr) return std::nullopt;
            return activity->value;
          },
          "The measurement of an activity.");
}

}  // namespace

void addEvents(py::module_& module) {
  py::class_<Event> bound(
      module, "Event",
      "One line of a recording. `time` is what a Reading's may be; which of the members below an "
      "event has depends on its kind, the rest are None.");
  bindPersonKinds(bound);
  bindScopeAndRoomKinds(bound);
  bindMembers(bound);
  bound
      .def("__repr__",
           [](const Event& event) {
             const auto id = personOf(event);
             return fmt::format("<Event {} at {}{}>", eventNames.at(event.what.index()),
                                nanoseconds(event.time),
                                id ? fmt::format(" of person {}", *id) : "");
           })
      .def(py::pickle(&eventLine, [](std::string line) {
        return *EventReader(MissingTime::Error).read(line);
      }));
  bindEquality(bound, [](const Event& of) {
    const py::object self = py::cast(&of, py::return_value_policy::reference);
    py::list members;
    for (const char* name :
         {"kind", "time", "person", "to", "fields", "state", "scope", "samples", "value"}) {
      members.append(self.attr(name));
    }
    return members;
  });
}

}  // namespace zorvel::python
