#include <fmt/format.h>

#include <algorithm>
#include <boost/thread/lock_types.hpp>
#include <ku/clock.hpp>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/social_graph.hpp>

#include "module.hpp"
#include "playback/columns.hpp"
#include "playback/playback.hpp"
#include "recording/event_reader.hpp"
#include "recording/recording_writer.hpp"
#include "recording/state_file.hpp"

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

/// A state as it was after a cycle, which later cycles leave as it is.
struct State : StateRow {
  bool isWatched = false;
};

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

void bindStates(py::module_& module) {
  bindValueConfidence<float>(module, "ValueConfidence",
                             "A value and how certain it is; unpacks like a tuple.");
  bindValueConfidence<int>(module, "LabelConfidence",
                           "A label, 1, 0 or -1, and how certain it is; unpacks like a tuple.");

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

void bindGraph(py::module_& module) {
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

  const auto person = py::arg("person");
  const auto forces = py::arg("forces") = false;
  const auto observer = py::arg("observer") = py::none();
  py::class_<ZV::SocialGraph>(
      module, "SocialGraph",
      "The estimator: the persons that the robot tracks, by the host's number.\n\n"
      "Every method may be called from any thread, and holds the graph's one lock until it "
      "returns, callbacks included; so a callback must not use the same graph: that raises "
      "RuntimeError. Python's global lock is released while the library works: threads with "
      "graphs of their own run at once.")
      .def(py::init<>())
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
          "One cycle in which the person was not perceived. Returns the state after it.")
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
      .def("persons", &readAll, "The states of all persons at this moment, by number.")
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

// --- ambiance, recorder, clock

struct Sample {
  std::int64_t time;
  ZV::ValueConfidence<float> valence;
  ZV::ValueConfidence<float> attention;
};

void bindRecorder(py::module_& module) {
  py::class_<Sample>(module, "Sample", "The state of one update in a scope.")
      .def_readonly("time", &Sample::time, "When, in nanoseconds since 1970.")
      .def_readonly("valence", &Sample::valence, "The valence of the state.")
      .def_readonly("attention", &Sample::attention, "The attention of the state.");

  using Recorder = ZV::ZVEmotionRecorder;
  py::class_<Recorder>(module, "Recorder", "What zorvel.Recorder is made of.")
      .def(py::init<>())
      .def(
          "start",
          [](Recorder& recorder, py::handle of, py::handle limit) {
            const std::string name = textFrom(of, "name");
            const std::int32_t samples = samplesFrom(limit);
            withoutLock([&] { recorder.startRecording(name, samples); });
          },
          py::arg("name"), py::arg("samples") = py::none(),
          "Opens a scope for this many updates; None for no limit. One that is open begins anew.")
      .def(
          "update",
          [](Recorder& recorder, const State& state) {
            const boost::unique_lock<boost::mutex> lock(recorder.mutex);
            recorder.update_notMutexed(
                ZV::PersonState(state.valence.value, state.valence.confidence,
                                state.attention.value, state.attention.confidence));
          },
          py::arg("state"), py::call_guard<Unlocked>(), "Adds a sample to every open scope.")
      .def("merge", &Recorder::merge, py::arg("other"), py::call_guard<Unlocked>(),
           "Takes over the scopes of another recorder, whose person turned out to be this one's. "
           "Scopes of one name become one, with the samples of both and the limit of this one's.")
      .def(
          "stop",
          [](Recorder& recorder, py::handle of) {
            const std::string name = textFrom(of, "name");
            auto [label, samples] = withoutLock([&] { return recorder.stopRecording(name); });
            std::vector<Sample> all;
            for (const auto& [time, state] : samples) {
              all.push_back({nanoseconds(time), state.personValence(), state.personAttention()});
            }
            return std::pair(std::move(label), std::move(all));
          },
          py::arg("name"),
          "Closes a scope; returns its label, \"positive\", \"negative\", \"neutral\", \"unknown\" "
          "or, when no such scope is open, \"error\", and its samples.");
}

void bindAmbiance(py::module_& module) {
  using ZV::AmbianceDescription;
  using ZV::AmbianceState;
  const auto level = [](AmbianceDescription description) {
    return
        [description](const AmbianceState& room) { return room.ambientActivityLevel(description); };
  };
  py::class_<AmbianceState>(module, "Ambiance",
                            "How agitated, and so how calm, the robot's surroundings are.")
      .def(py::init<>())
      .def(
          "update",
          [](AmbianceState& room, py::handle activity) {
            room.updateAmbiance(floatFrom(activity, "activity"));
          },
          py::arg("activity"),
          "Blends a measurement and the movements since the last call into the agitation.")
      .def("movement", &AmbianceState::incrementMovementDetected, "Counts one movement.")
      .def_property_readonly("agitation", level(AmbianceDescription::Agitation), "In [0, 1].")
      .def_property_readonly("calm", level(AmbianceDescription::Calm), "In [0, 1].");
}

/// A clock that can be in place for a thread. What is in place for a thread is a stack.
class ScopedClock {
 public:
  explicit ScopedClock(Time time) : _clock(time) {}
  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;

  ku::SimulatedClock& clock() { return _clock; }

  static void enter(const std::shared_ptr<ScopedClock>& clock) {
    inPlace.push_back({clock, std::make_unique<ku::ClockScope>(clock->_clock)});
  }
  void exit() const {
    if (inPlace.empty() || inPlace.back().clock.get() != this) {
      throw std::runtime_error(
          "the clock is not the last that this thread put in place: clocks are removed in "
          "reverse order, in the thread that put them in place");
    }
    inPlace.pop_back();
  }

 private:
  struct InPlace {
    std::shared_ptr<ScopedClock> clock;
    std::unique_ptr<ku::ClockScope> scope;
  };
  static thread_local std::vector<InPlace> inPlace;

  ku::SimulatedClock _clock;
};

thread_local std::vector<ScopedClock::InPlace> ScopedClock::inPlace;

void bindClock(py::module_& module) {
  module.def(
      "now", [] { return nanoseconds(ku::SystemClock::now()); },
      "The time that readings get: of the system, or of the SimulatedClock that is in place for "
      "this thread. In nanoseconds since 1970.");

  py::class_<ScopedClock, std::shared_ptr<ScopedClock>>(
      module, "SimulatedClock",
      "A clock that stands still where it is set. In a `with` block it takes the place of the "
      "system's for the calling thread.")
      .def(py::init([](py::handle time) {
             return std::make_shared<ScopedClock>(timeFrom(time, "time"));
           }),
           py::arg("time") = 0)
      .def(
          "set", [](ScopedClock& of, py::handle time) { of.clock().set(timeFrom(time, "time")); },
          py::arg("time"), "Moves the clock to a time, which may lie before its present one.")
      .def(
          "advance",
          [](ScopedClock& of, py::handle by) {
            const Time::duration step = durationFrom(by, "step");
            const Time::duration since = of.clock().now().time_since_epoch();
            // Both are half of what 64 bits hold at most.
            if (since + step > latestTime || since + step < -latestTime)
              failValue("step", "is out of range");
            of.clock().advance(step);
          },
          py::arg("step"),
          "Moves the clock on by a timedelta, a numpy.timedelta64, a float of seconds or an int of "
          "nanoseconds.")
      .def_property_readonly(
          "time", [](ScopedClock& of) { return nanoseconds(of.clock().now()); },
          "Where the clock stands, in nanoseconds since 1970.")
      .def("__enter__",
           [](py::object self) {
             self.cast<ScopedClock&>();  // which a bare object is not
             ScopedClock::enter(self.cast<std::shared_ptr<ScopedClock>>());
             return self;
           })
      .def("__exit__", [](const ScopedClock& of, const py::args& /*error*/) { of.exit(); });
}

}  // namespace

void addLive(py::module_& module) {
  bindStates(module);
  bindGraph(module);
  bindRecorder(module);
  bindAmbiance(module);
  bindClock(module);
}

}  // namespace zorvel::python
