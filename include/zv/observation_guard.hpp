#ifndef ZV_OBSERVATION_GUARD_HPP
#define ZV_OBSERVATION_GUARD_HPP

#include <boost/container/static_vector.hpp>
#include <boost/optional.hpp>
#include <ku/clock.hpp>
#include <string_view>

#include "zv/export.hpp"
#include "zv/person_observation.hpp"

namespace ZV {

/// Keeps readings that would do lasting harm away from the estimator, which takes whatever comes. A
/// NaN can make a person's values NaN for good. A reading from the future stays in the memory until
/// its time has come; after the clock was set back, that holds for every remembered reading. The
/// guard stands between the perception and Person::update:
///
///     const auto report = guard.clean(observation);
///     for (const auto& field : report.removedFields) std::cerr << field.name << '\n';
///     if (report.clockSetBack) forgetEverybody();  // with SocialGraph::remove
///     graph.update(id, [&](ZV::Person& person) { person.update(observation); });
///
/// One guard can serve all persons of a host. With a guard for each person, every one of them
/// reports that the clock was set back.
///
/// Thread safety: none of its own; each call keeps the clock's reading for the next. A copy is an
/// independent guard.
class ZV_API ObservationGuard {
 public:
  /// A difference of times.
  using Duration = ku::SystemClock::duration;

  /// Why a field was removed.
  enum class Reason {
    NotFinite = 0,  ///< one of its numbers is a NaN or an infinity, whatever its time
    Ahead = 1,      ///< its time is ahead of the clock by more than the limit
  };

  /// A field that was removed.
  ///
  /// Thread safety: that of a plain value.
  struct RemovedField {
    /// The member of PersonObservation, such as "headPosture". It stays valid until the process
    /// ends.
    std::string_view name;
    /// Why it was removed.
    Reason reason;
    /// How far its time is ahead of the clock; negative in the past.
    Duration ahead;
  };

  /// What one call found.
  ///
  /// Thread safety: that of a plain value.
  struct Report {
    /// The fields that were removed, in the order of PersonObservation's members.
    boost::container::static_vector<RemovedField, PersonObservation::fieldCount> removedFields;
    /// How far the clock is behind its reading in the previous call, when that is beyond the limit.
    /// All that is remembered then lies in the future, so every person should begin anew.
    boost::optional<Duration> clockSetBack;
  };

  /// `limit` is how far a reading may be ahead of the clock, and how far the clock may go back;
  /// exactly that far is allowed. Leave room for sensors whose clocks differ a little from the
  /// robot's. Throws std::invalid_argument for a negative limit.
  explicit ObservationGuard(Duration limit = boost::chrono::seconds(1));

  /// Removes each field with a number that is not finite or a time too far ahead of the clock, and
  /// leaves the others as they are. All of a field's numbers count, even those that the estimator
  /// never reads; finite numbers outside their range are left alone. Allocates nothing. Reads the
  /// clock once; when that throws, nothing has changed.
  [[nodiscard]] Report clean(PersonObservation& observation);

 private:
  Duration _limit;
  boost::optional<ku::SystemClock::time_point> _lastReading;
};

}  // namespace ZV

#endif
