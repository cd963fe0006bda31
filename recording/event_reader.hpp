#ifndef ZORVEL_RECORDING_EVENT_READER_HPP
#define ZORVEL_RECORDING_EVENT_READER_HPP

#include <optional>
#include <string>

#include "recording/event.hpp"
#include "recording/json_line.hpp"

namespace zorvel {

/// What a line without `time` means.
enum class MissingTime {
  Error,
  Now,  ///< the event happens when it is read
};

/// Reads the lines of one recording, wherever they come from. docs/recording-format.md describes
/// the format.
class EventReader {
 public:
  explicit EventReader(MissingTime missingTime) : _missingTime(missingTime) {}

  /// The event on the line, which is used up; none on the header or a blank line. Throws JsonError
  /// when the line does not follow the format.
  std::optional<Event> read(std::string& line);

  /// The header's `source`, once it has been read; empty if there is none.
  const std::string& source() const { return _source; }

  /// The header's `origin`, once it has been read, if there is one.
  std::optional<Time> origin() const { return _origin; }

 private:
  void readHeader(JsonObject& line);

  MissingTime _missingTime;
  JsonLine _json;
  std::string _source;
  std::optional<Time> _origin;
  bool _started = false;
};

}  // namespace zorvel

#endif
