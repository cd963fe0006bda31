#include "import/face_frames.hpp"

#include <cmath>

#include "recording/observation_fields.hpp"

namespace zorvel {
namespace {

constexpr double nanosecondsPerSecond = 1e9;

}  // namespace

FaceFrames::FaceFrames(const CsvReader& rows, const ImportOptions& options, const EventSink& use)
    : _rows(rows),
      _start(options.start),
      _gap(std::llround(options.gapSeconds * nanosecondsPerSecond)),
      _use(use) {}

void FaceFrames::setTime(double seconds, CsvReader::Column column) {
  const double nanoseconds = seconds * nanosecondsPerSecond;
  if (std::abs(nanoseconds) >= static_cast<double>(latestTime.count())) {
    _rows.fail(column, "is too far from the start");
  }
  const Time time = _start + Time::duration(std::llround(nanoseconds));
  if (time.time_since_epoch() < -latestTime || time.time_since_epoch() > latestTime) {
    _rows.fail(column, "is a time out of a recording's range");
  }
  if (_time && time < *_time) _rows.fail(column, "the time runs backwards");
  if (_time && time > *_time) endFrame(true);
  _time = time;
}

bool FaceFrames::add(std::int32_t person, const ZV::PersonObservation& face) {
  auto& present = _persons[person].face;
  if (present) return false;
  present = face;
  return true;
}

void FaceFrames::endFrame(bool isWhole) {
  if (!_time) return;
  const auto write = [this](const auto& what) { _use({*_time, what}); };
  for (auto entry = _persons.begin(); entry != _persons.end();) {
    auto& [id, person] = *entry;
    const bool isGone = person.lastSeen && *_time - *person.lastSeen > _gap;
    if (isGone && (person.face || isWhole)) write(Remove{id});
    if (person.face) {
      forEachReading(*person.face,
                     [this](std::size_t /*field*/, auto& reading) { reading.timestamp = *_time; });
      write(Observation{id, *person.face});
      person.lastSeen = _time;
      person.face.reset();
    } else if (isGone) {
      entry = _persons.erase(entry);
      continue;
    } else if (isWhole) {
      write(NotSeen{id});
    }
    ++entry;
  }
}

}  // namespace zorvel
