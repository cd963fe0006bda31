#ifndef ZORVEL_IMPORT_PYFEAT_HPP
#define ZORVEL_IMPORT_PYFEAT_HPP

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "import/csv_reader.hpp"
#include "import/face_frames.hpp"
#include "import/import.hpp"
#include "import/landmark_columns.hpp"

namespace zorvel {

/// Reads the rows that py-feat writes, with a detector of its first or its second generation.
class PyFeatImport {
 public:
  static constexpr std::string_view noFace = "\"FaceScore\" is empty";

  /// Throws Failure when the file lacks columns of the format. The options must have the frames per
  /// second.
  PyFeatImport(const CsvReader& rows, const ImportOptions& options);

  /// Adds what the present row tells. Throws Failure.
  void readRow(FaceFrames& frames);
  /// There are no more rows. Throws Failure.
  void finish(FaceFrames& frames) { frames.finish(); }

  std::vector<ImportedField> fields() const;
  bool hasTimestamps() const { return false; }

 private:
  std::int32_t person() const;
  ZV::PersonObservation face(double score) const;

  const CsvReader& _rows;
  const ImportOptions& _options;

  bool _isSecondGeneration;
  CsvReader::Column _frame;
  CsvReader::Column _score;
  CsvReader::Column _identity;
  std::array<CsvReader::Column, 3> _pose;
  std::array<CsvReader::Column, 1> _smileUnit;
  std::array<std::string_view, 5> _emotionColumns;
  std::array<CsvReader::Column, 5> _emotions;
  LandmarkColumns _landmarks;
};

}  // namespace zorvel

#endif
