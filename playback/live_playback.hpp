#ifndef ZORVEL_PLAYBACK_LIVE_PLAYBACK_HPP
#define ZORVEL_PLAYBACK_LIVE_PLAYBACK_HPP

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <zv/observation_guard.hpp>

#include "inspection/findings.hpp"
#include "playback/playback.hpp"

namespace zorvel {

/// Warns of readings that are far from the clock, once for each person, field and consequence.
class FarReadings {
 public:
  /// Takes a warning without its line's place.
  using Warn = std::function<void(const std::string&)>;

  explicit FarReadings(Warn warn) : _warn(std::move(warn)) {}

  /// Of readings that are too old to be remembered. That a face or a distance is used all the same
  /// is easily taken for a fault of the estimator.
  void warnOfOld(const Observation& observation);
  /// Of readings from the future that are used.
  void warnOfFuture(const Observation& observation);
  /// Of a reading from the future that was left out.
  void warnOfLeftOut(const ZV::ObservationGuard::RemovedField& field, std::int32_t person);

  void forget(std::int32_t person) { _warned.erase(person); }
  void rename(const Rename& rename);
  void forgetEverybody() { _warned.clear(); }

 private:
  void warnOfFuture(std::int32_t person, std::string_view field, double seconds,
                    std::string_view consequence);
  void warnOnce(std::int32_t person, std::string_view field, const std::string& time,
                std::string_view consequence);

  Warn _warn;
  std::map<std::int32_t, std::set<std::pair<std::string_view, std::string_view>>> _warned;
};

struct LiveOptions {
  /// How far readings may be ahead of the clock; none where the clock is that of the lines, and all
  /// are used.
  std::optional<Time::duration> ahead;
  /// Whoever was not observed for longer is removed; without it, nobody.
  std::optional<Time::duration> forget;
  Forces forces = Forces::Unwatched;
};

/// Plays events as they happen, without end: keeps out what lies in the future, forgets people who
/// have gone, and warns of what looks wrong. The clock is the calling thread's.
class LivePlayback {
 public:
  /// `warn` gets a sentence for each thing that looks wrong with the event that is being played,
  /// `played` each event that was played: those given, after the guard, and the removals of people
  /// whom the playback forgets.
  LivePlayback(const LiveOptions& options, const FarReadings::Warn& warn, EventSink played);

  /// Plays an event that came in the line of that number. Throws what the library throws.
  Row play(Event event, std::uint64_t line);

  /// Removes whoever was not observed for too long. Every event does so, too.
  void forgetUnseen();

  /// As Playback::save.
  std::vector<Restore> save() const { return _playback.save(); }

  /// How many readings the guard left out.
  std::uint64_t leftOut() const { return _leftOut; }
  /// At the end, what looks wrong, but in no single line.
  std::vector<Finding> findings() const;

 private:
  void refuseFuture(const Event& event) const;
  void keepFutureOut(Event& event);
  void noteSeen(const Event& event);
  void forget(std::int32_t person);
  void inspect(const Event& event, std::uint64_t line);

  LiveOptions _options;
  FarReadings::Warn _warn;
  EventSink _played;
  std::optional<ZV::ObservationGuard> _guard;
  Playback _playback;
  FarReadings _farReadings;
  std::uint64_t _leftOut = 0;
  RecordingFacts _facts;
  /// When each known person was last observed, or came to be known.
  std::map<std::int32_t, Time> _lastSeen;
};

}  // namespace zorvel

#endif
