#ifndef ZORVEL_RECORDING_RECORDING_READER_HPP
#define ZORVEL_RECORDING_RECORDING_READER_HPP

#include <optional>
#include <string>
#include <string_view>

#include "recording/event_reader.hpp"
#include "recording/line_reader.hpp"

namespace zorvel {

/// A line of a recording, as it is there.
struct RecordingLine {
  /// What comes before the first line, if this is it.
  std::string_view byteOrderMark;
  /// With the line end.
  std::string bytes;
  /// None on the header or a blank line.
  std::optional<Event> event;
};

/// Reads a recording from a file, line by line in constant memory.
class RecordingReader {
 public:
  /// Opens the file as a LineReader does. Throws Failure when that fails.
  explicit RecordingReader(const std::string& name, const WaitForInput& waitForInput = {},
                           MissingTime missingTime = MissingTime::Error)
      : _lines(name, waitForInput), _events(missingTime) {}

  /// The next event; none at the end. Throws BadLine, with file and line, when a line does not
  /// follow the format, and Failure when reading fails.
  std::optional<Event> next();

  /// The same for the next line; false at the end.
  bool next(RecordingLine& line);

  const LineReader& lines() const { return _lines; }
  const std::string& source() const { return _events.source(); }
  std::optional<Time> origin() const { return _events.origin(); }

  /// The moment from which all seconds of the recording count: its origin, or else its first event.
  /// Known once that has been read.
  Time secondZero() const { return _secondZero.value_or(Time()); }

 private:
  std::optional<Event> readEvent();

  LineReader _lines;
  EventReader _events;
  std::string _text;
  std::optional<Time> _secondZero;
};

}  // namespace zorvel

#endif
