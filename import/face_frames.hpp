#ifndef ZORVEL_IMPORT_FACE_FRAMES_HPP
#define ZORVEL_IMPORT_FACE_FRAMES_HPP

#include <cstdint>
#include <map>
#include <optional>
#include <zv/person_observation.hpp>

#include "import/csv_reader.hpp"
#include "import/import.hpp"
#include "recording/event.hpp"

namespace zorvel {

/// Makes a recording of faces. Those of one time are a frame; it tells of each person who is known,
/// whether seen, not seen or gone.
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
  /// The same when the rest cannot be read: who is not in the frame may have been about to come.
  void abandon() { endFrame(false); }

 private:
  struct Person {
    std::optional<Time> lastSeen;
    std::optional<ZV::PersonObservation> face;
  };

  void endFrame(bool isWhole);

  const CsvReader& _rows;
  Time _start;
  Time::duration _gap;
  const EventSink& _use;
  std::optional<Time> _time;
  std::map<std::int32_t, Person> _persons;
};

}  // namespace zorvel

#endif
