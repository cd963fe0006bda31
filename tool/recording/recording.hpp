#ifndef ZORVEL_TOOL_RECORDING_RECORDING_HPP
#define ZORVEL_TOOL_RECORDING_RECORDING_HPP

#include <cstdint>
#include <ku/clock.hpp>
#include <optional>
#include <string>
#include <variant>
#include <zv/person_observation.hpp>

#include "recording/json_line.hpp"
#include "recording/line_reader.hpp"

namespace zorvel {

using Time = ku::SystemClock::time_point;

/// A recording's times lie within so much of the epoch, on either side.
constexpr Time::duration latestTime{std::int64_t{1} << 62};

/// The time from one to the other. That from the first to the last that a recording may hold is one
/// nanosecond too long for 64 bits, and held to them.
inline Time::duration between(Time from, Time to) {
  Time::rep difference = 0;
  if (__builtin_sub_overflow(to.time_since_epoch().count(), from.time_since_epoch().count(),
                             &difference)) {
    return from < to ? Time::duration::max() : Time::duration::min();
  }
  return Time::duration(difference);
}

struct Observation {
  std::int32_t person;
  ZV::PersonObservation fields;
};
struct NotSeen {
  std::int32_t person;
};
struct Remove {
  std::int32_t person;
};
struct StartRecording {
  std::int32_t person;
  std::string scope;
  std::int32_t samples;
};
struct StopRecording {
  std::int32_t person;
  std::string scope;
};
struct Movement {};
struct Activity {
  float value;
};

/// One line of a recording, without the header.
struct Event {
  Time time;
  std::variant<Observation, NotSeen, Remove, StartRecording, StopRecording, Movement, Activity>
      what;
};

/// What a line without `time` is.
enum class MissingTime {
  Error,
  Now,  ///< the line happens as it is read
};

/// Reads a recording, line by line in constant memory. docs/recording-format.md says what one
/// holds.
class RecordingReader {
 public:
  /// Opens the file; "-" is standard input. Throws Failure when that fails.
  explicit RecordingReader(const std::string& name, MissingTime missingTime = MissingTime::Error)
      : _lines(name), _missingTime(missingTime) {}

  /// The next event; none at the end. Throws BadLine, with file and line, when the line is not as
  /// the format wants it, and Failure when reading fails.
  std::optional<Event> next();

  const LineReader& lines() const { return _lines; }

  /// The `source` of the header, once it was read; empty without one.
  const std::string& source() const { return _source; }

 private:
  std::optional<Event> readLine();
  void readHeader(JsonObject& line);

  LineReader _lines;
  MissingTime _missingTime;
  std::string _text;
  JsonLine _json;
  std::string _source;
  bool _started = false;
};

}  // namespace zorvel

#endif
