#ifndef ZORVEL_PLAYBACK_EXPLAINER_HPP
#define ZORVEL_PLAYBACK_EXPLAINER_HPP

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "playback/explanation.hpp"
#include "playback/playback.hpp"
#include "playback/readings.hpp"

namespace zorvel {

/// Which part of a recording to explain; times are since its second 0.
struct ExplainedTime {
  /// Only this person.
  std::optional<std::int32_t> person;
  /// A moment, instead of the span.
  std::optional<Time::duration> at;
  Time::duration from = -Time::duration::max();
  Time::duration to = Time::duration::max();
};

/// Why a person's state moved, and when.
struct ExplainedPerson {
  Explanation why;
  std::uint64_t cycles = 0;
  Time first;
  Time last;
  bool isRemoved = false;
  /// How often the person came back after a removal, with a new state.
  std::uint64_t newStarts = 0;
};

/// Explains the last cycle of each person up to a moment, or all cycles in a span. The playback
/// must watch forces.
class Explainer {
 public:
  explicit Explainer(const ExplainedTime& explained) : _explained(explained) {}

  /// Adds an event that was played at `time`, and what it gave.
  void add(Time secondZero, Time time, const Event& event, const Row& row);
  /// To be called after the last event.
  void dropOthers();

  bool isAbout(std::int32_t person) const {
    return !_explained.person || *_explained.person == person;
  }

  const std::map<std::int32_t, ExplainedPerson>& persons() const { return _persons; }
  /// What a force of that reason came from, in the last cycle of a person.
  std::vector<FieldReadings> behind(std::int32_t person, std::string_view reason) const;
  Time secondZero() const { return _secondZero; }
  const ExplainedTime& explained() const { return _explained; }
  /// Whether the recording reaches the moment that is explained.
  bool hasReachedMoment() const {
    return _end && _explained.at && between(_secondZero, *_end) >= *_explained.at;
  }

 private:
  void follow(const Rename& rename);

  ExplainedTime _explained;
  std::map<std::int32_t, ExplainedPerson> _persons;
  std::map<std::int32_t, Readings> _readings;
  Time _secondZero;
  /// The last event so far.
  std::optional<Time> _end;
};

/// The time from one to the other, in seconds. It is rounded up, so that the moment that it names
/// includes the cycle.
std::string formatSeconds(Time from, Time to);

/// Explains a recording. `onProgress` is called after each event. Returns what ended it early, if
/// that came before a moment that is explained. Throws Failure when the recording ends before that
/// moment, or there is no cycle to explain.
std::optional<Failure> explain(RecordingReader& recording, Explainer& explainer,
                               const std::function<void()>& onProgress);

}  // namespace zorvel

#endif
