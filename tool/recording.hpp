#ifndef ZORVEL_TOOL_RECORDING_HPP
#define ZORVEL_TOOL_RECORDING_HPP

#include <cstdint>
#include <ku/clock.hpp>
#include <optional>
#include <string>
#include <variant>
#include <zv/person_observation.hpp>

#include "json_line.hpp"
#include "line_reader.hpp"

namespace zorvel {

using Time = ku::SystemClock::time_point;

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
  std::variant<Observation, NotSeen, Remove, StartRecording, StopRecording, Movement, Activity> what;
};

/// Reads a recording, line by line in constant memory. docs/recording-format.md says what one holds.
class RecordingReader {
 public:
  /// Opens the file; "-" is standard input. Throws Failure when that fails.
  explicit RecordingReader(const std::string& name) : _lines(name) {}

  /// The next event; none at the end. Throws Failure, with file and line, when the line is not as
  /// the format wants it or reading fails.
  std::optional<Event> next();

  const LineReader& lines() const { return _lines; }

 private:
  std::optional<Event> readLine();

  LineReader _lines;
  std::string _text;
  JsonLine _json;
  bool _started = false;
};

}  // namespace zorvel

#endif
