#ifndef ZORVEL_SESSION_HPP
#define ZORVEL_SESSION_HPP

#include <cstdint>
#include <ku/clock.hpp>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <zv/ambiance_state.hpp>
#include <zv/emotion_recorder.hpp>
#include <zv/export.hpp>
#include <zv/person_observation.hpp>
#include <zv/saved_person.hpp>

/// What a host needs to keep its session: over a restart, and as a recording for the tool `zorvel`.
/// It is a library of its own, `zorvel_session`, whose interface may change with each minor
/// version.
namespace zorvel {

/// Everything that is known of the persons and the room at one moment.
///
/// Thread safety: that of a plain value.
struct SessionState {
  /// What is known of one person.
  ///
  /// Thread safety: that of a plain value.
  struct Person {
    ZV::SavedPerson known;                      ///< what ZV::Person::save gives
    ZV::ZVEmotionRecorder::SavedScopes scopes;  ///< the open ones, if the host has a recorder
  };

  std::map<std::int32_t, Person> persons;  ///< by identifier
  ZV::AmbianceState::Saved room;           ///< what ZV::AmbianceState::save gives
};

/// Writes a state into a file, as JSON lines with checksums. A file of that name is replaced,
/// whole; when writing fails, it stays as it was. `time` is the moment of the state.
///
/// Throws std::runtime_error, with the name of the file, when it cannot be written, and
/// std::bad_alloc. Thread safety: from any thread, for different files.
ZV_API void saveSession(const std::string& file, ku::SystemClock::time_point time,
                        const SessionState& state);

/// The state in a file that saveSession or `zorvel view --state` wrote; none when there is no file.
///
/// Throws std::runtime_error, with the name of the file and the line, when the file was cut off or
/// changed, is of another version, or cannot be read, and std::bad_alloc. Thread safety: from any
/// thread.
ZV_API std::optional<SessionState> loadSession(const std::string& file);

/// A recording of a session, written while it happens. Each line is written at once, so the file is
/// whole up to its last line whatever ends the process.
///
/// A replay of it gives the host's states to the bit where the clock read `time` during the whole
/// update, as under a ku::SimulatedClock; else ages differ by what the update took. After
/// ZV::ObservationGuard reported `clockSetBack`, begin a new recording: the clock of a replay never
/// runs backwards.
///
/// Each function appends one line, for what happened at `time`, which lies within 2^62 ns of the
/// epoch. It throws std::invalid_argument for what a recording cannot hold, such as a number that
/// is not finite or a text that is not UTF-8, and std::runtime_error when the line cannot be
/// written whole; in both cases the file is as it was.
///
/// Thread safety: one thread at a time.
class ZV_API SessionRecording {
 public:
  using Time = ku::SystemClock::time_point;  ///< nanoseconds since the epoch

  /// Begins the file, which must not exist yet or must be empty. `source` says what was recorded.
  /// Throws std::runtime_error when the file cannot be written.
  SessionRecording(const std::string& file, const std::string& source);
  SessionRecording(const SessionRecording&) = delete;
  SessionRecording& operator=(const SessionRecording&) = delete;
  /// Closes the file.
  ~SessionRecording();

  /// A cycle in which the person was perceived: what ZV::Person::update was given.
  void observation(Time time, std::int32_t person, const ZV::PersonObservation& observation);
  /// A cycle in which the person was not perceived: ZV::Person::decreaseSinceNotSeen.
  void notSeen(Time time, std::int32_t person);
  /// ZV::SocialGraph::remove, with the person's recorder.
  void remove(Time time, std::int32_t person);
  /// ZV::SocialGraph::rename, with the persons' recorders.
  void rename(Time time, std::int32_t from, std::int32_t to);
  /// ZV::ZVEmotionRecorder::startRecording of the person's recorder; -1 samples means no limit.
  void startRecording(Time time, std::int32_t person, const std::string& scope,
                      std::int32_t samples = -1);
  /// ZV::ZVEmotionRecorder::stopRecording of the person's recorder.
  void stopRecording(Time time, std::int32_t person, const std::string& scope);
  /// ZV::AmbianceState::incrementMovementDetected.
  void movement(Time time);
  /// ZV::AmbianceState::updateAmbiance.
  void activity(Time time, float value);
  /// The session goes on from this state: a line for each person, and one for the room.
  void restore(Time time, const SessionState& state);

 private:
  struct Private;
  std::unique_ptr<Private> _private;
};

}  // namespace zorvel

#endif
