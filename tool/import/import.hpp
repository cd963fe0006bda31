#ifndef ZORVEL_TOOL_IMPORT_IMPORT_HPP
#define ZORVEL_TOOL_IMPORT_IMPORT_HPP

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <zv/person_observation.hpp>

#include "import/csv_reader.hpp"
#include "recording/recording.hpp"

namespace zorvel {

struct ImportOptions {
  std::string file;
  std::string output = "-";
  Time start;
  double gapSeconds = 3.0;
  std::optional<double> framesPerSecond;
  bool mirrored = false;
  double fullIntensity = 3.0;
};

/// Make a recording of a file. They throw Failure when it cannot be read to its end.
void importOpenFace(const ImportOptions& options);
/// The options must have the frames per second.
void importPyFeat(const ImportOptions& options);

// What the file formats share. All is computed in double and narrowed when it becomes a field.

inline float narrowed(double value) { return static_cast<float>(value); }

inline double clipped(double value) { return std::clamp(value, 0.0, 1.0); }

inline double degrees(double radians) { return radians * (180.0 / 3.14159265358979323846); }

/// Sets a field of a face; its time is that of the frame, which is not over yet.
template <typename T>
void set(ZV::PersonObservation::Field<T>& field, const T& value) {
  field.emplace(Time(), value);
}

/// The expressions that both formats give, all with the confidence of the face.
inline ZV::Expressions expressionsOf(double calm, double anger, double joy, double sorrow,
                                     double surprise, float confidence) {
  ZV::Expressions shown;
  shown.calm = {narrowed(calm), confidence};
  shown.anger = {narrowed(anger), confidence};
  shown.joy = {narrowed(joy), confidence};
  shown.sorrow = {narrowed(sorrow), confidence};
  shown.surprise = {narrowed(surprise), confidence};
  return shown;
}

/// The columns of the twelve landmarks that are used, out of the usual 68.
class LandmarkColumns {
 public:
  explicit LandmarkColumns(const CsvReader& rows);

  /// The landmarks in the present row; none when a cell is empty. One without columns is at (0, 0).
  std::optional<ZV::FacialPoints> read(const CsvReader& rows, float confidence) const;

 private:
  std::array<CsvReader::Column, 12> _x;
  std::array<CsvReader::Column, 12> _y;
};

}  // namespace zorvel

#endif
