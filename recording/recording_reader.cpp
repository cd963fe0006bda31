#include "recording/recording_reader.hpp"

#include "recording/failure.hpp"

namespace zorvel {

std::optional<Event> RecordingReader::next() {
  while (_lines.next(_text)) {
    if (auto event = readEvent()) return event;
  }
  return std::nullopt;
}

bool RecordingReader::next(RecordingLine& line) {
  if (!_lines.next(_text)) return false;
  line.byteOrderMark = _lines.lineNumber() == 1 ? _lines.byteOrderMark() : "";
  line.bytes = _text;
  if (_lines.isWhole()) line.bytes += '\n';
  line.event = readEvent();
  return true;
}

std::optional<Event> RecordingReader::readEvent() {
  try {
    auto event = _events.read(_text);
    if (event && !_secondZero) _secondZero = origin().value_or(event->time);
    return event;
  } catch (const JsonError& error) {
    throw BadLine(_lines.place() + error.what(),
                  {_lines.name(), _lines.lineNumber(), error.key(), 0});
  }
}

}  // namespace zorvel
