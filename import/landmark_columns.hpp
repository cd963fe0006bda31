#ifndef ZORVEL_IMPORT_LANDMARK_COLUMNS_HPP
#define ZORVEL_IMPORT_LANDMARK_COLUMNS_HPP

#include <array>
#include <optional>
#include <zv/facial_points.hpp>

#include "import/csv_reader.hpp"

namespace zorvel {

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
