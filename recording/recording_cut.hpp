#ifndef ZORVEL_RECORDING_RECORDING_CUT_HPP
#define ZORVEL_RECORDING_RECORDING_CUT_HPP

#include <fmt/format.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "recording/joined_people.hpp"
#include "recording/known_people.hpp"
#include "recording/recording_reader.hpp"
#include "recording/replay_clock.hpp"

namespace zorvel {

/// What to cut out of a recording; times are since its second 0, on the clock of a replay.
struct CutSpan {
  /// Without it, the span begins with the recording.
  std::optional<Time::duration> from;
  /// Inclusive.
  Time::duration to = Time::duration::max();
  /// How much is kept of what comes before.
  Time::duration leadIn{0};
  /// Only what is about this person.
  std::optional<std::int32_t> person;
  /// Of each person, one observation and one cycle without being seen in each interval of this
  /// length, and every observation with a touch, with speech or with an emotion of the situation.
  std::optional<Time::duration> every;
  /// Other ids for people; the members above mean these.
  JoinedPeople people;
};

/// Follows a recording up to the start of a cut, and gives the states of that moment.
struct StateKeeper {
  EventSink play;
  std::function<std::vector<Restore>()> save;
};

/// Cuts a span out of a recording. What is kept stays as it is to the byte, but for ids; scopes and
/// people that reach over an edge are opened and closed there. A second is the same in the cut as
/// in the whole.
class RecordingCut {
 public:
  /// With a keeper, the cut begins with everybody's state; else with open scopes alone.
  RecordingCut(RecordingReader& recording, const CutSpan& span, StateKeeper keeper = {})
      : _recording(recording), _span(span), _keeper(std::move(keeper)), _joined(span.people) {}

  /// Reads a line, and appends to the text what the cut has of it; false when the cut is whole.
  /// Throws what reading throws, and Failure when there is no event in the span.
  bool next(fmt::memory_buffer& text);

 private:
  bool follow(Event& event, fmt::memory_buffer& text);
  bool join(Event& event);
  bool isWanted(const Event& event) const;
  bool isOneOfMany(const Event& event);
  Time::duration now() const { return between(_recording.secondZero(), _clock.now()); }
  void writeHead(fmt::memory_buffer& text);
  void open(fmt::memory_buffer& text);
  void openScopes(fmt::memory_buffer& text, Time begin);
  void close(fmt::memory_buffer& text) const;
  [[noreturn]] void failWithoutEvents();

  RecordingReader& _recording;
  CutSpan _span;
  StateKeeper _keeper;
  RecordingLine _line;
  JoinedPeople _joined;
  /// The lines before the first event: the header and blank ones.
  std::string _head;
  ReplayClock _clock;
  /// Those of the cut, once it has begun.
  KnownPeople _people;
  /// The last interval of each person, with and without being seen.
  std::map<std::pair<std::int32_t, bool>, Time::rep> _intervals;
  bool _hasBegun = false;
  /// Whether the last event is kept, and with it the blank lines after it.
  bool _isKept = false;
  bool _hasEvents = false;
};

}  // namespace zorvel

#endif
