#ifndef ZORVEL_RECORDING_EVENT_HPP
#define ZORVEL_RECORDING_EVENT_HPP

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <ku/clock.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/person_observation.hpp>
#include <zv/saved_person.hpp>

namespace zorvel {

using Time = ku::SystemClock::time_point;

/// A recording's times lie within this much of the epoch, on either side.
constexpr Time::duration latestTime{std::int64_t{1} << 62};

/// The time from one to the other, clamped to what 64 bits hold, and never so low that it could not
/// be negated.
inline Time::duration between(Time from, Time to) {
  Time::rep difference = 0;
  if (__builtin_sub_overflow(to.time_since_epoch().count(), from.time_since_epoch().count(),
                             &difference)) {
    return from < to ? Time::duration::max() : -Time::duration::max();
  }
  return std::max(Time::duration(difference), -Time::duration::max());
}

/// The moment that much later, clamped to what 64 bits hold.
inline Time after(Time from, Time::duration duration) {
  Time::rep moment = 0;
  if (__builtin_add_overflow(from.time_since_epoch().count(), duration.count(), &moment)) {
    return duration.count() > 0 ? Time::max() : Time::min();
  }
  return Time(Time::duration(moment));
}

inline double inSeconds(Time::duration duration) {
  return static_cast<double>(duration.count()) / 1e9;
}

// The lines of a recording, each with the name of its event.

struct Observation {
  static constexpr std::string_view name = "observation";
  std::int32_t person;
  ZV::PersonObservation fields;
};
struct NotSeen {
  static constexpr std::string_view name = "not_seen";
  std::int32_t person;
};
struct Remove {
  static constexpr std::string_view name = "remove";
  std::int32_t person;
};
struct Rename {
  static constexpr std::string_view name = "rename";
  std::int32_t person;
  std::int32_t to;
};
/// A person as saved.
struct SavedPerson {
  std::int32_t id;
  ZV::SavedPerson known;
  ZV::ZVEmotionRecorder::SavedScopes scopes;
};
/// A person or the room goes on from a saved state.
struct Restore {
  static constexpr std::string_view name = "restore";
  std::variant<ZV::AmbianceState::Saved, SavedPerson> state;
};
struct StartRecording {
  static constexpr std::string_view name = "start_recording";
  /// As the number of samples: no limit.
  static constexpr std::int32_t unlimited = -1;
  std::int32_t person;
  std::string scope;
  std::int32_t samples;
};
struct StopRecording {
  static constexpr std::string_view name = "stop_recording";
  std::int32_t person;
  std::string scope;
};
struct Movement {
  static constexpr std::string_view name = "movement";
};
struct Activity {
  static constexpr std::string_view name = "activity";
  float value;
};

/// One line of a recording other than the header.
struct Event {
  using What = std::variant<Observation, NotSeen, Remove, Rename, Restore, StartRecording,
                            StopRecording, Movement, Activity>;
  Time time;
  What what;
};

/// The person whom the event restores; null when it restores nobody.
inline const SavedPerson* restoredPerson(const Event& event) {
  const auto* const restore = std::get_if<Restore>(&event.what);
  return restore == nullptr ? nullptr : std::get_if<SavedPerson>(&restore->state);
}

/// The person that the event is about, if it is about one; for a Rename, the old id.
inline std::optional<std::int32_t> personOf(const Event& event) {
  return std::visit(
      [](const auto& what) -> std::optional<std::int32_t> {
        using What = std::decay_t<decltype(what)>;
        if constexpr (std::is_same_v<What, Movement> || std::is_same_v<What, Activity>) {
          return std::nullopt;
        } else if constexpr (std::is_same_v<What, Restore>) {
          const auto* const person = std::get_if<SavedPerson>(&what.state);
          return person == nullptr ? std::nullopt : std::optional(person->id);
        } else {
          return what.person;
        }
      },
      event.what);
}

/// Whether it is one of a person's cycles.
inline bool isCycle(const Event& event) {
  return std::holds_alternative<Observation>(event.what) ||
         std::holds_alternative<NotSeen>(event.what);
}

/// The names of the events, in the order of Event::What.
constexpr std::array<std::string_view, std::variant_size_v<Event::What>> eventNames{
    Observation::name,    NotSeen::name,       Remove::name,   Rename::name,  Restore::name,
    StartRecording::name, StopRecording::name, Movement::name, Activity::name};

/// Takes events in the order in which they happen.
using EventSink = std::function<void(const Event&)>;

}  // namespace zorvel

#endif
