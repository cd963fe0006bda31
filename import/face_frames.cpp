#include "import/face_frames.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "recording/printable.hpp"

namespace zorvel {
namespace {

constexpr double nanosecondsPerSecond = 1e9;
constexpr double secondsPerYear = 365.25 * 86400.0;

// In a film some frames are closer together than this.
constexpr double longStep = 3.0;

/// The unit that the timestamps are probably in, when no two are closer than `step` seconds.
std::string_view unitOfStep(double step) {
  if (step < 1e3) return "milliseconds";
  return step < 1e6 ? "microseconds" : "nanoseconds";
}

}  // namespace

FaceFrames::FaceFrames(const CsvReader& rows, const ImportOptions& options, const EventSink& use)
    : _rows(rows), _start(options.start), _gap(options.gap), _use(use) {}

void FaceFrames::setTime(double seconds, CsvReader::Column column) {
  const double nanoseconds = seconds * nanosecondsPerSecond;
  if (std::abs(nanoseconds) >= static_cast<double>(latestTime.count())) {
    _rows.fail(column, fmt::format("{:.6g} s is too far from the start", seconds));
  }
  const Time time = _start + Time::duration(std::llround(nanoseconds));
  if (time.time_since_epoch() < -latestTime || time.time_since_epoch() > latestTime) {
    _rows.fail(column, "is a time out of a recording's range");
  }
  if (_time && time < *_time) _rows.fail(column, "the time runs backwards");
  if (!_time) lookAtFirst(time, seconds);
  if (_time && time > *_time) {
    lookAtStep(between(*_time, time));
    endFrame(true);
  }
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
  ++_frameCount;
  const auto write = [this](const auto& what) { _use({*_time, what}); };
  for (auto entry = _persons.begin(); entry != _persons.end();) {
    auto& [id, person] = *entry;
    const bool isGone = person.lastSeen && *_time - *person.lastSeen > _gap;
    if (isGone && (person.face || isWhole)) write(Remove{id});
    if (person.face) {
      forEachReading(*person.face, [this](std::size_t field, auto& reading) {
        reading.timestamp = *_time;
        ++_readingCounts.at(field);
      });
      ++_observationCount;
      _everyone.insert(id);
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

void FaceFrames::lookAtFirst(Time time, double seconds) {
  _firstTime = time;
  const double years = seconds / secondsPerYear;
  if (_start == Time() || std::abs(years) < 1.0) return;
  _doubts.push_back(fmt::format(
      "{}the first frame is {:.1f} years from the start; for timestamps since 1970, say --start 0",
      _rows.lines().place(), years));
}

void FaceFrames::lookAtStep(Time::duration step) {
  _shortestStep = std::min(step, _shortestStep.value_or(step));
  const double years = inSeconds(step) / secondsPerYear;
  if (years < 1.0 || _hasJumped) return;
  _hasJumped = true;
  _doubts.push_back(fmt::format("{}the time jumps by {:.1f} years", _rows.lines().place(), years));
}

void FaceFrames::describe(ImportFacts& facts, bool hasTimestamps) const {
  if (!_rows.cutOffRow().empty()) {
    facts.cutOffRow = _rows.cutOffRow() + ": the last row is cut off and left out";
  }
  if (_observationCount == 0) {
    throw Failure(fmt::format("{}: gives no observation: {}{}{}", printable(_rows.lines().name()),
                              facts.rows == 0
                                  ? "it has no rows"
                                  : fmt::format("none of its rows has a face: {}", facts.noFace),
                              facts.cutOffRow.empty() ? "" : "\n", facts.cutOffRow));
  }
  facts.frames = _frameCount;
  facts.people = _everyone.size();
  facts.observations = _observationCount;
  if (_time) facts.length = between(_firstTime, *_time);
  for (ImportedField& field : facts.fields) {
    const auto kind =
        std::find_if(fieldKinds.begin(), fieldKinds.end(),
                     [&field](const FieldKind& each) { return each.name == field.name; });
    field.observations = _readingCounts.at(static_cast<std::size_t>(kind - fieldKinds.begin()));
  }
  facts.doubtfulTimes = _doubts;
  const double step = _shortestStep ? inSeconds(*_shortestStep) : 0.0;
  if (step > longStep) {
    facts.doubtfulTimes.push_back(fmt::format(
        "no two frames are less than {:.6g} s apart: {}", step,
        hasTimestamps
            ? fmt::format("are the timestamps {}, where seconds belong?", unitOfStep(step))
            : "is --fps right?"));
  }
}

}  // namespace zorvel
