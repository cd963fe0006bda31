#ifndef ZV_TESTS_SIMULATED_PERSON_HPP
#define ZV_TESTS_SIMULATED_PERSON_HPP

#include <boost/weak_ptr.hpp>
#include <cmath>
#include <functional>
#include <future>
#include <iomanip>
#include <sstream>

#include "memory/person_memory_private.hpp"
#include "state/person_state_private.hpp"
#include "tests/fill_observation.hpp"
#include "zv/zorvel.hpp"

// Literals of nine digits are floats. The comment beside them either works them out or names an
// EXPRESSION for which `tests/tool/recalculate.py --evaluate EXPRESSION` prints them.

namespace ZV {

using boost::chrono::milliseconds;
using Time = ku::SystemClock::time_point;

inline float above(float number) { return std::nextafter(number, INFINITY); }
inline float below(float number) { return std::nextafter(number, -INFINITY); }

/// Milliseconds after an arbitrary start, far from the clock's zero.
inline Time at(std::int64_t time) { return Time(milliseconds(1'000'000'000'000 + time)); }

template <typename T>
Timestamped<T> seen(std::int64_t time, const T& value) {
  return {at(time), value};
}

template <typename T>
PersonObservation only(boost::optional<Timestamped<T>> PersonObservation::*field, int time,
                       const T& value) {
  PersonObservation observation;
  observation.*field = seen(time, value);
  return observation;
}

/// The parts separated by blanks, floats to their last digit.
template <typename... Parts>
std::string textOf(const Parts&... parts) {
  std::ostringstream stream;
  stream << std::setprecision(9);
  ((stream << parts << ' '), ...);
  return stream.str().substr(0, stream.str().size() - 1);
}

/// The text of the Error that the operation throws; empty when it throws none.
template <typename Error, typename Operation>
std::string errorOf(Operation operation) {
  try {
    operation();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

/// How often a text is flushed while it is written.
template <typename T>
int flushesOf(const T& value) {
  struct : std::stringbuf {
    int sync() override { return ++flushes, 0; }
    int flushes = 0;
  } buffer;
  std::ostream(&buffer) << value;
  return buffer.flushes;
}

/// Whether the operation has not ended after a while, and so waits for a lock.
inline bool isWaiting(const std::future<void>& operation) {
  return operation.wait_for(std::chrono::milliseconds(30)) == std::future_status::timeout;
}

template <typename Operation>
std::future<void> begin(Operation operation) {
  return std::async(std::launch::async, operation);
}

/// A clock that is in place while it lives. A function gives the time of each reading.
struct ScriptedClock : ku::Clock {
  explicit ScriptedClock(std::function<Time(int)> answers) : script(std::move(answers)) {}
  Time now() override { return script(readings++); }
  std::function<Time(int reading)> script;
  int readings = 0;
  ku::ClockScope scope{*this};
};

template <boost::shared_ptr<PersonStatePrivate> PersonState::*record>
struct Watching {
  friend boost::weak_ptr<PersonStatePrivate> recordOf(const PersonState& s) { return s.*record; }
};
template struct Watching<&PersonState::_state>;  // may name a private member
boost::weak_ptr<PersonStatePrivate> recordOf(const PersonState& state);

template <boost::mutex AmbianceState::*mutex>
struct Holding {
  friend boost::mutex& mutexOf(AmbianceState& state) { return state.*mutex; }
};
template struct Holding<&AmbianceState::mutex>;  // may name a private member
boost::mutex& mutexOf(AmbianceState& state);

/// A person on a clock that the test sets.
struct SimulatedPerson {
  explicit SimulatedPerson(const PersonState& start = PersonState()) { person.personState = start; }

  PersonStatePrivate& state() const { return person.personState._record(); }

  /// Valence and its confidence, the same for this cycle alone, attention and its confidence.
  std::string numbers() const {
    const auto& s = state();
    return textOf(s.valence.value, s.valence.confidence, s.unsmoothedValence.value,
                  s.unsmoothedValence.confidence, s.attention.value, s.attention.confidence);
  }

  ku::SimulatedClock clock{at(0)};
  ku::ClockScope scope{clock};
  Person person{1};
};

/// An observation with every field but the height.
inline PersonObservation allChannelsAt(int time) {
  auto all =
      zorvel::filledObservation(at(time), [](const auto& /*kind*/, auto& number) { number = {}; });
  all.height.reset();
  all.lookingAtRobot->value = true;
  all.distance->value = 1.25f;
  all.asrEmotion->value = 0.75f;
  all.contextEmotion->value = ContextEmotion(1, 10);
  return all;
}

}  // namespace ZV

#endif
