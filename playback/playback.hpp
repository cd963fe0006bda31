#ifndef ZORVEL_PLAYBACK_PLAYBACK_HPP
#define ZORVEL_PLAYBACK_PLAYBACK_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ku/clock.hpp>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>
#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/social_graph.hpp>

#include "recording/failure.hpp"
#include "recording/known_people.hpp"
#include "recording/recording_cut.hpp"
#include "recording/recording_reader.hpp"

namespace zorvel {

/// Something that holds or not for the valence, the attention and the ease, in this order.
using OfValues = std::array<bool, 3>;

/// The state of a person after a cycle.
struct StateRow {
  std::int32_t person;
  ZV::ValueConfidence<float> valence;
  int mood;
  ZV::ValueConfidence<int> cycleMood;
  ZV::ValueConfidence<float> attention;
  ZV::BodyLanguageEase ease;
  /// What moved the person in the cycle, in order; empty unless forces are watched.
  std::vector<ZV::Force> forces;
  /// Whether something measured moved the value in the cycle. Else it stayed or fell back to 0.
  OfValues isMeasured{};

  // Of a row of a recording.

  /// Since second 0.
  Time::duration since{};
  bool isSeen = true;
  /// 1 for the first stretch of cycles under that id, one more after each removal that ends one, or
  /// renaming to another id.
  std::int32_t visit = 1;
  /// Whether something measured moved the value in this visit, no more than a second ago. Where it
  /// did not, charts say "not measured" in place of a line that falls back to 0.
  OfValues isKnown{};
};

enum class Forces { Unwatched, Watched };

/// The row of a person's present state.
StateRow stateRow(const ZV::Person& person, std::vector<ZV::Force> forces = {});

/// A scope that was closed.
struct ScopeRow {
  std::int32_t person;
  std::string scope;
  std::string label;
  std::size_t samples;
  /// Of the valences, weighted by their confidences, as the label is made of them; NaN without
  /// samples or when all confidences are 0.
  float meanValence;
  float meanConfidence;
  /// The mean valence in double precision.
  double exactMeanValence;

  // Of a row of a recording.

  /// Since second 0; none for a scope that was not open.
  std::optional<Time::duration> begin{};
  Time::duration end{};
  /// The person's stretch of cycles in which it was closed, or else the next, as in a StateRow.
  std::int32_t visit = 1;
};

/// The room after an activity measurement.
struct AmbianceRow {
  float agitation;
  float calm;
};

/// What came of an event, if anything.
using Row = std::variant<std::monostate, StateRow, ScopeRow, AmbianceRow>;

/// Plays events into the library: a graph of persons, a recorder for each, one room. The clock is
/// the calling thread's.
class Playback {
 public:
  explicit Playback(Forces forces) : _watchesForces(forces == Forces::Watched) {}
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;

  /// Throws what the library throws; what the event did before stays done.
  Row play(const Event& event);
  /// The present state of everybody, and last of the room.
  std::vector<Restore> save() const;

 private:
  Row play(const Observation& observation);
  Row play(const NotSeen& notSeen);
  Row play(const Remove& remove);
  Row play(const Restore& restore);
  Row play(const Rename& rename);
  Row play(const StartRecording& start);
  Row play(const StopRecording& stop);
  Row play(const Movement& movement);
  Row play(const Activity& activity);
  /// One cycle of a person, who is added if unknown.
  Row cycle(std::int32_t id, const std::function<void(ZV::Person&)>& change);
  void observe(const ZV::Force& force);
  void record(const ZV::Person& person);

  bool _watchesForces;
  // Of the current cycle.
  std::vector<ZV::Force> _forces;
  OfValues _isMeasured{};
  ZV::SocialGraph _graph;
  std::map<std::int32_t, ZV::ZVEmotionRecorder> _recorders;
  ZV::AmbianceState _room;
};

/// Gives rows their place in the recording.
class RecordingRows {
 public:
  /// To be called for each event, with the time at which it was played and what it gave.
  void place(Time secondZero, Time time, const Event& event, Row& row);

 private:
  struct Visit {
    std::int32_t number = 1;
    bool isEnded = false;
    /// When something measured last moved each value.
    std::array<std::optional<Time>, std::tuple_size_v<OfValues>> measured{};

    /// The number of the stretch that a cycle now belongs to.
    std::int32_t current() const { return isEnded ? number + 1 : number; }
  };

  void follow(const Rename& rename);

  std::map<std::int32_t, Visit> _visits;
  /// For the starts of open scopes.
  KnownPeople _people;
};

/// A playback on a clock of its own, which the events set and which never runs backwards.
class ClockedPlayback {
 public:
  explicit ClockedPlayback(Forces forces) : _playback(forces) {}

  /// As Playback::play.
  Row play(const Event& event);
  std::vector<Restore> save() const { return _playback.save(); }
  Time now() { return _clock.now(); }

 private:
  ku::SimulatedClock _clock{Time::min()};
  Playback _playback;
};

/// For a cut that begins with everybody's state; the playback must outlive it.
StateKeeper keeperOf(ClockedPlayback& playback);

/// Where the events of a recording come from.
struct EventSource {
  /// Gives the next event, or none at the end; may throw.
  std::function<std::optional<Event>()> next;
  /// Gives the moment of second 0; called when there has been an event.
  std::function<Time()> secondZero;
};
using UseOfRow = std::function<void(Time, const Event&, const Row&)>;

/// Plays events on a clock that its events set and that never runs backwards. After each
/// event it calls `use` with the clock's time and what came of the event. Returns what ended it
/// early, if anything did; everything up to there has been passed to `use`. Stops after the first
/// event that is later than `until` after second 0. Throws what `use` throws, and what the
/// source throws that is not a std::exception.
std::optional<Failure> playAll(const EventSource& source, Forces forces, const UseOfRow& use,
                               Time::duration until = Time::duration::max());

/// Plays a whole recording. What ended it early has the place of the line.
std::optional<Failure> playAll(RecordingReader& recording, Forces forces, const UseOfRow& use,
                               Time::duration until = Time::duration::max());

}  // namespace zorvel

#endif
