#ifndef ZORVEL_IMPORT_OPENFACE_HPP
#define ZORVEL_IMPORT_OPENFACE_HPP

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "import/csv_reader.hpp"
#include "import/face_frames.hpp"
#include "import/import.hpp"
#include "import/landmark_columns.hpp"

namespace zorvel {

/// Reads the rows that OpenFace 2.x writes.
class OpenFaceImport {
 public:
  static constexpr std::string_view noFace = "\"success\" is not 1";

  /// Throws Failure when the file lacks columns of the format.
  OpenFaceImport(const CsvReader& rows, const ImportOptions& options);

  /// Adds what the present row tells. Throws Failure.
  void readRow(FaceFrames& frames);
  /// There are no more rows. Throws Failure.
  void finish(FaceFrames& frames);

  std::vector<ImportedField> fields() const;
  /// Whether the times are those of the file; known in the end.
  bool hasTimestamps() const { return !_isImageSequence; }

 private:
  void readTime(FaceFrames& frames);
  void setTime(FaceFrames& frames, double frame, double timestamp) const;
  ZV::PersonObservation face() const;
  double intensity(double unit) const;
  ZV::Expressions expressions(const std::array<double, 10>& units, float confidence) const;

  const CsvReader& _rows;
  const ImportOptions& _options;

  CsvReader::Column _frame;
  CsvReader::Column _timestamp;
  CsvReader::Column _confidence;
  CsvReader::Column _success;
  CsvReader::Column _faceId;
  std::array<CsvReader::Column, 3> _position;
  std::array<CsvReader::Column, 3> _rotation;
  std::array<CsvReader::Column, 2> _gazeAngles;
  std::array<CsvReader::Column, 1> _smileUnit;
  std::array<CsvReader::Column, 10> _expressionUnits;
  LandmarkColumns _landmarks;

  // Whether every timestamp is 0 shows in the second frame; until then the first is held back.
  std::optional<double> _heldFrame;
  bool _isDecided = false;
  bool _isImageSequence = true;
};

}  // namespace zorvel

#endif
