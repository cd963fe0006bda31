#ifndef ZORVEL_RECORDING_RECORDING_READER_HPP
#define ZORVEL_RECORDING_RECORDING_READER_HPP

#include <optional>
#include <string>

#include "recording/event.hpp"
#include "recording/json_line.hpp"
#include "recording/line_reader.hpp"

namespace zorvel {

/// What a line without `time` means.
enum class MissingTime {
  Error,
  Now,  ///< the event happens when it is read
};

/// Reads a recording, line by line in constant memory. docs/recording-format.md describes the
/// format.
class RecordingReader {
 public:
  /// Opens the file as a LineReader does. Throws Failure when that fails.
  explicit RecordingReader(const std::string& name, const WaitForInput& waitForInput = {},
                           MissingTime missingTime = MissingTime::Error)
      : _lines(name, waitForInput), _missingTime(missingTime) {}

  /// The next event; none at the end. Throws BadLine, with file and line, when a line does not
  /// follow the format, and Failure when reading fails.
  std::optional<Event> next();

  const LineReader& lines() const { return _lines; }

  /// The header's `source`, once it has been read; empty if there is none.
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
