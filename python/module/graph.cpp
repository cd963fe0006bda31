#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <ku/clock.hpp>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>
#include <zv/social_graph.hpp>

#include "conversions.hpp"
#include "fields.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "recording/event_reader.hpp"
#include "recording/recording_writer.hpp"
#include "recording/state_file.hpp"
#include "state.hpp"

namespace zorvel::python {
namespace {

/// Who watches the forces of one cycle, and how.
struct Watch {
  bool keeps = false;
  py::object observer;

  bool isOn() const { return keeps || !observer.is_none(); }
};

/// Watches the forces of a person while it lives.
class Watching {
 public:
  Watching(ZV::Person& person, const Watch& watch, std::vector<ZV::Force>& kept) : _person(person) {
    if (!watch.isOn()) return;
    _isOn = true;
    person.personState.setForceObserver([&watch, &kept](const ZV::Force& force) {
      if (watch.keeps) kept.push_back(force);
      if (!watch.observer.is_none())
        callPython([&] { callFunction(watch.observer, py::cast(force)); });
    });
  }
  Watching(const Watching&) = delete;
  Watching& operator=(const Watching&) = delete;
  ~Watching() {
    if (_isOn) _person.personState.setForceObserver({});
  }

 private:
  ZV::Person& _person;
  bool _isOn = false;
};

/// A graph in use by the calling thread, which must not use it again from within.
class InUse {
 public:
  explicit InUse(const ZV::SocialGraph& graph) {
    if (std::find(graphs.begin(), graphs.end(), &graph) != graphs.end()) {
      throw std::runtime_error("a callback must not use the graph that it is called from");
    }
    graphs.push_back(&graph);
  }
  InUse(const InUse&) = delete;
  InUse& operator=(const InUse&) = delete;
  ~InUse() { graphs.pop_back(); }

 private:
  static thread_local std::vector<const ZV::SocialGraph*> graphs;
};

thread_local std::vector<const ZV::SocialGraph*> InUse::graphs;

/// Changes a person of the graph under its lock; what the change made is the result.
template <typename Change>
State cycle(ZV::SocialGraph& graph, py::handle person, bool forces, py::object observer,
            Change change) {
  const std::int32_t id = integer32From(person, "person");
  if (!observer.is_none() && PyCallable_Check(observer.ptr()) == 0) {
    failType("observer", "must be callable");
  }
  const InUse use(graph);
  const Watch watch{forces, std::move(observer)};
  State state;
  const auto update = [&](ZV::Person& of) {
    std::vector<ZV::Force> kept;
    const Watching watching(of, watch, kept);
    change(of);
    state = {stateRow(of, std::move(kept)), watch.keeps};
  };
  withoutLock([&] { graph.update(id, [&update](ZV::Person& of) { update(of); }); });
  return state;
}

/// A person in a callback of the graph; it cannot be used afterwards, or by other threads.
class LentPerson {
 public:
  explicit LentPerson(ZV::Person& person) : _person(&person) {}
  ZV::Person& get() const {
    if (_person == nullptr || _thread != std::this_thread::get_id()) {
      throw std::runtime_error("a person can be used only in the callback that it is passed to");
    }
    return *_person;
  }
  /// Changes the person. An observer of that must not.
  template <typename Change>
  void change(Change step) {
    ZV::Person& person = get();
    if (std::exchange(_isChanging, true)) {
      throw std::runtime_error("an observer must not change the person that it observes");
    }
    struct Ending {
      bool& isChanging;
      ~Ending() { isChanging = false; }
    } const ending{_isChanging};
    withoutLock([&] { step(person); });
  }
  void giveBack() { _person = nullptr; }

 private:
  ZV::Person* _person;
  std::thread::id _thread = std::this_thread::get_id();
  bool _isChanging = false;
};

void callWith(const py::function& callback, ZV::Person& person) {
  callPython([&] {
    const auto lent = std::make_shared<LentPerson>(person);
    struct GiveBack {
      LentPerson& lent;
      ~GiveBack() { lent.giveBack(); }
    } const giveBack{*lent};
    callFunction(callback, py::cast(lent));
  });
}

std::optional<State> readPerson(const ZV::SocialGraph& graph, py::handle person) {
  const std::int32_t id = integer32From(person, "person");
  const InUse use(graph);
  std::optional<State> state;
  const auto read = [&](const ZV::Person& of) { state = State{stateRow(of), false}; };
  withoutLock([&] { graph.read(id, [&read](const ZV::Person& of) { read(of); }); });
  return state;
}

std::map<std::int32_t, State> readAll(const ZV::SocialGraph& graph) {
  const InUse use(graph);
  return withoutLock([&] {
    std::map<std::int32_t, State> states;
    for (const ZV::Person& person : graph.persons()) {
      graph.read(person.userSessionID, [&states](const ZV::Person& present) {
        states[present.userSessionID] = State{stateRow(present), false};
      });
    }
    return states;
  });
}

/// What a state file holds.
std::string saveAll(const ZV::SocialGraph& graph) {
  const InUse use(graph);
  return withoutLock([&] {
    fmt::memory_buffer text;
    for (const ZV::Person& person : graph.persons()) {
      graph.read(person.userSessionID, [&text](const ZV::Person& present) {
        appendEvent(text, {ku::SystemClock::now(),
                           Restore{SavedPerson{present.userSessionID, present.save(), {}}}});
      });
    }
    // The graph has no room; its line ends the text, so that one that was cut off is noticed.
    appendEvent(text, {ku::SystemClock::now(), Restore{}});
    return fmt::to_string(text);
  });
}

void restoreAll(ZV::SocialGraph& graph, const std::string& text) {
  const InUse use(graph);
  withoutLock([&] {
    StatesReader states;
    EventReader reader(MissingTime::Error);
    std::istringstream lines(text);
    std::vector<Restore> restores;
    int number = 0;
    try {
      for (std::string line; std::getline(lines, line);) {
        ++number;
        if (auto event = reader.read(line)) states.add(std::move(*event));
      }
      restores = states.finish();
    } catch (const JsonError& error) {
      throw py::value_error(fmt::format("state: line {}: {}", number, error.what()));
    }
    for (const Restore& restore : restores) {
      const auto* const person = std::get_if<SavedPerson>(&restore.state);
      if (person != nullptr) graph.restore(person->id, person->known);
    }
  });
}

void bindPerson(py::module_& module) {
  py::class_<LentPerson, std::shared_ptr<LentPerson>>(
      module, "Person", "A person of a graph, inside a callback of SocialGraph.update.")
      .def_property_readonly(
          "id", [](const LentPerson& lent) { return lent.get().userSessionID; },
          "The host's number of the person.")
      .def_property_readonly(
          "state",
          [](const LentPerson& lent) {
            return State{stateRow(lent.get()), false};
          },
          "The state at this moment.")
      .def(
          "update",
          [](LentPerson& lent, const TimedObservation& observation) {
            lent.change([&](ZV::Person& person) { person.update(observation.fields); });
          },
          py::arg("observation"), "One perception cycle.")
      .def(
          "not_seen",
          [](LentPerson& lent) {
            lent.change([](ZV::Person& person) { person.decreaseSinceNotSeen(); });
          },
          "One cycle in which the person was not perceived.");
}

void bindCycles(py::class_<ZV::SocialGraph>& bound) {
  const auto person = py::arg("person");
  const auto forces = py::arg("forces") = false;
  const auto observer = py::arg("observer") = py::none();
  bound
      .def(
          "update",
          [](ZV::SocialGraph& graph, py::handle id, const TimedObservation& observation,
             bool watches, py::object watcher) {
            return cycle(graph, id, watches, std::move(watcher),
                         [&](ZV::Person& of) { of.update(observation.fields); });
          },
          person, py::arg("observation"), forces, observer,
          "One perception cycle of a person, who is added if unknown. Returns the state after it. "
          "With `forces`, the state has what moved it; `observer` is called with each Force as "
          "it happens, and what it raises ends the update and is passed on.")
      .def(
          "update",
          [](ZV::SocialGraph& graph, py::handle id, const py::function& callback, bool watches,
             py::object watcher) {
            return cycle(graph, id, watches, std::move(watcher),
                         [&](ZV::Person& of) { callWith(callback, of); });
          },
          person, py::arg("callback"), forces, observer,
          "Calls back with the Person, who is added if unknown, for steps that belong together. "
          "What the callback raises is passed on; what it changed stays changed.")
      .def(
          "not_seen",
          [](ZV::SocialGraph& graph, py::handle id, bool watches, py::object watcher) {
            return cycle(graph, id, watches, std::move(watcher),
                         [](ZV::Person& of) { of.decreaseSinceNotSeen(); });
          },
          person, forces, observer,
          "One cycle in which the person was not perceived. Returns the state after it.");
}

void bindPersons(py::class_<ZV::SocialGraph>& bound) {
  const auto person = py::arg("person");
  bound
      .def(
          "remove",
          [](ZV::SocialGraph& graph, py::handle of) {
            const std::int32_t id = integer32From(of, "person");
            const InUse use(graph);
            withoutLock([&] { graph.remove(id); });
          },
          person, "Forgets a person; an unknown one is no error.")
      .def(
          "rename",
          [](ZV::SocialGraph& graph, py::handle of, py::handle other) {
            const std::int32_t id = integer32From(of, "person");
            const std::int32_t to = integer32From(other, "to");
            const InUse use(graph);
            withoutLock([&] { graph.rename(id, to); });
          },
          person, py::arg("to"),
          "The person goes on as `to`, with state and memory. Where `to` is known, the two become "
          "one, as `merge` says; an unknown person is no error.")
      .def(
          "merge",
          [](ZV::SocialGraph& graph, py::handle of, py::handle other) {
            const std::int32_t id = integer32From(of, "person");
            const std::int32_t to = integer32From(other, "to");
            const InUse use(graph);
            withoutLock([&] { graph.merge(id, to); });
          },
          person, py::arg("to"),
          "Two persons were one: `to` goes on with the memory of both and the state of the one "
          "observed last, its own if both were at the same time; the other is forgotten. Does "
          "nothing unless both are known.")
      .def("read", &readPerson, person,
           "The state of a person at this moment; None for an unknown one.")
      .def("persons", &readAll, "The states of all persons at this moment, by number.");
}

}  // namespace

void addGraph(py::module_& module) {
  bindPerson(module);

  py::class_<ZV::SocialGraph> bound(
      module, "SocialGraph",
      "The estimator: the persons that the robot tracks, by the host's number.\n\n"
      "Every method may be called from any thread, and holds the graph's one lock until it "
      "returns, callbacks included; so a callback must not use the same graph: that raises "
      "RuntimeError. Python's global lock is released while the library works: threads with "
      "graphs of their own run at once.");
  bound.def(py::init<>());
  bindCycles(bound);
  bindPersons(bound);
  bound
      .def(
          "save", &saveAll,
          "Everything that is known of all persons, as lines of a recording. A graph that restores "
          "it goes on with the same numbers. Graphs can also be pickled.")
      .def("restore", &restoreAll, py::arg("state"),
           "Inserts saved persons, in place of those with their numbers. Takes what save gives "
           "and the files of `zorvel view --state`. Raises ValueError when something is wrong with "
           "it; then nothing has changed.")
      .def(py::pickle(&saveAll, [](const std::string& state) {
        auto graph = std::make_unique<ZV::SocialGraph>();
        restoreAll(*graph, state);
        return graph;
      }));
}

}  // namespace zorvel::python
