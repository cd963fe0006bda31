#include "recording/recording_reader.hpp"

#include "recording/failure.hpp"

namespace zorvel {

std::optional<Event> RecordingReader::next() {
  while (_lines.next(_text)) {
    try {
      if (auto event = _events.read(_text)) return event;
    } catch (const JsonError& error) {
      throw BadLine(_lines.place() + error.what(),
                    {_lines.name(), _lines.lineNumber(), error.key(), 0});
    }
  }
  return std::nullopt;
}

}  // namespace zorvel
