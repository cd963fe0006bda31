#ifndef ZORVEL_IMPORT_FACE_FRAMES_HPP
#define ZORVEL_IMPORT_FACE_FRAMES_HPP

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>
#include <zv/person_observation.hpp>

#include "import/csv_reader.hpp"
#include "import/importer.hpp"
#include "recording/event.hpp"
#include "recording/failure.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

/// Makes a recording of faces. Those of one time are a frame, which says of each known person
/// whether they are seen, not seen or gone.
class FaceFrames {
 public:
  FaceFrames(const CsvReader& rows, const ImportOptions& options, const EventSink& use);

  /// Sets the time of the faces that follow, in seconds after the start, as `column` of the present
  /// row has it; a later time ends the frame before. Faces from before the first call are of that
  /// call's time. Throws Failure when the time runs backwards or out of range.
  void setTime(double seconds, CsvReader::Column column);

  /// Adds a face to the frame; false when it has one of that person.
  bool add(std::int32_t person, const ZV::PersonObservation& face);

  /// Ends the last frame.
  void finish() { endFrame(true); }
  /// The same when the rest cannot be read: a person not in the frame may have been about to come.
  void abandon() { endFrame(false); }

  /// Reports what was made. `facts` has the rows and what the format says of them; `hasTimestamps`
  /// says that the times come from the file, not from a rate of frames. Throws Failure when no row
  /// has a face.
  void describe(ImportFacts& facts, bool hasTimestamps) const;

 private:
  struct Person {
    std::optional<Time> lastSeen;
    std::optional<ZV::PersonObservation> face;
  };

  void endFrame(bool isWhole);
  void lookAtFirst(Time time, double seconds);
  void lookAtStep(Time::duration step);

  const CsvReader& _rows;
  Time _start;
  Time::duration _gap;
  const EventSink& _use;
  std::optional<Time> _time;
  std::map<std::int32_t, Person> _persons;

  std::uint64_t _frameCount = 0;
  std::set<std::int32_t> _everyone;
  std::uint64_t _observationCount = 0;
  /// How many observations have each field.
  std::array<std::uint64_t, fieldCount> _readingCounts{};
  Time _firstTime;
  std::optional<Time::duration> _shortestStep;
  bool _hasJumped = false;
  std::vector<std::string> _doubts;
};

/// What an Importer does, for a format of files.
template <typename Format>
ImportFacts importRows(CsvReader& rows, const ImportOptions& options, const EventSink& use,
                       const std::function<void()>& onProgress) {
  Format format(rows, options);
  FaceFrames frames(rows, options, use);
  ImportFacts facts;
  try {
    onProgress();
    while (rows.next()) {
      format.readRow(frames);
      ++facts.rows;
      onProgress();
    }
  } catch (const Failure&) {
    frames.abandon();
    throw;
  }
  format.finish(frames);
  facts.noFace = Format::noFace;
  facts.fields = format.fields();
  frames.describe(facts, format.hasTimestamps());
  return facts;
}

}  // namespace zorvel

#endif
