#ifndef ZORVEL_IMPORT_LANDMARK_COLUMNS_HPP
#define ZORVEL_IMPORT_LANDMARK_COLUMNS_HPP

#include <array>
#include <optional>
#include <string>
#include <zv/facial_points.hpp>

#include "import/csv_reader.hpp"

namespace zorvel {

/// The columns of the twelve landmarks that are used, out of the usual 68. Their names are taken
/// exactly: "x_36" is in pixels and "X_36" in millimetres.
class LandmarkColumns {
 public:
  explicit LandmarkColumns(const CsvReader& rows);

  /// Says which are missing; empty when all are there.
  std::string missing() const;

  /// The landmarks in the present row; none when a cell is empty. One without columns is at (0, 0).
  std::optional<ZV::FacialPoints> read(const CsvReader& rows, float confidence) const;

 private:
  /// x and y of each point in turn.
  static constexpr std::size_t columnCount = 24;
  std::array<std::string, columnCount> _names;
  std::array<CsvReader::Column, columnCount> _columns;
};

}  // namespace zorvel

#endif
